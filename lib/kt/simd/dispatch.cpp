// The one CPU check: which kernel sets this machine runs.
#include "simd/kernels.h"

namespace KT {
namespace simd {

namespace {

#ifdef KT_SIMD_X86
bool cpu_runs_avx2() {
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("popcnt");
}

// The runtime reports AVX-512 only where the system saves the zmm and mask
// registers, so no check of its own is needed.
bool cpu_runs_avx512() {
    return cpu_runs_avx2() && __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("avx512f") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2");
}
#endif

std::vector<const kernels*> sets_this_cpu_runs() {
    std::vector<const kernels*> sets = {&scalar_kernels};
#ifdef KT_SIMD_X86
    // Also needed when the first call comes from a static constructor.
    __builtin_cpu_init();
    if (cpu_runs_avx2()) sets.push_back(&avx2_kernels);
    if (cpu_runs_avx512()) sets.push_back(&avx512_kernels);
#endif
#ifdef KT_SIMD_NEON
    // Every aarch64 CPU has NEON: no check.
    sets.push_back(&neon_kernels);
#endif
    return sets;
}

}  // namespace

const std::vector<const kernels*>& supported() {
    static const std::vector<const kernels*> sets = sets_this_cpu_runs();
    return sets;
}

}  // namespace simd
}  // namespace KT

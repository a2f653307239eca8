// What the AVX-512 kernels take over from the AVX2 ones.
#pragma once

#include "simd/kernels.h"

#ifdef KT_SIMD_X86

#include <cstddef>
#include <cstdint>

// Every AVX2 function carries this target attribute instead of the file
// being built with -mavx2, so that the rest of the library, and any inline
// function the kernels share with it, runs on every x86-64.
#define KT_AVX2 __attribute__((target("avx2,bmi,popcnt")))

namespace KT {
namespace simd {
namespace avx2 {

KT_AVX2 std::size_t url_encoded_size(const char* first, const char* last, bool escape_all_slashes);
KT_AVX2 std::size_t url_encode(char* out, const char* first, const char* last,
                               bool escape_all_slashes);

}  // namespace avx2
}  // namespace simd
}  // namespace KT

#endif  // KT_SIMD_X86

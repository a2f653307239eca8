#include "KTCodec.h"

#include <atomic>

#include "KTCodecKernels.h"

namespace KT {
namespace codec {

namespace {

// ---------------------------------------------------------------- scalar

namespace scalar {

void hexEncode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    for (std::size_t i = 0; i < n; ++i) {
        out[2 * i] = std::uint8_t(kHexDigits[in[i] >> 4]);
        out[2 * i + 1] = std::uint8_t(kHexDigits[in[i] & 15]);
    }
}

void hexDecode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out) {
    for (std::size_t i = 0; i < pairs; ++i)
        out[i] = std::uint8_t((kHexValues[in[2 * i]] << 4) | kHexValues[in[2 * i + 1]]);
}

std::size_t base64Encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    std::uint8_t* start = out;
    std::size_t i = 0;
    for (; i + 3 <= n; i += 3) {
        unsigned b0 = in[i], b1 = in[i + 1], b2 = in[i + 2];
        *out++ = std::uint8_t(kBase64Alphabet[b0 >> 2]);
        *out++ = std::uint8_t(kBase64Alphabet[((b0 << 4) & 48) | (b1 >> 4)]);
        *out++ = std::uint8_t(kBase64Alphabet[((b1 << 2) & 60) | (b2 >> 6)]);
        *out++ = std::uint8_t(kBase64Alphabet[b2 & 63]);
    }
    if (n - i == 1) {
        unsigned b0 = in[i];
        *out++ = std::uint8_t(kBase64Alphabet[b0 >> 2]);
        *out++ = std::uint8_t(kBase64Alphabet[(b0 << 4) & 48]);
        *out++ = '=';
        *out++ = '=';
    } else if (n - i == 2) {
        unsigned b0 = in[i], b1 = in[i + 1];
        *out++ = std::uint8_t(kBase64Alphabet[b0 >> 2]);
        *out++ = std::uint8_t(kBase64Alphabet[((b0 << 4) & 48) | (b1 >> 4)]);
        *out++ = std::uint8_t(kBase64Alphabet[(b1 << 2) & 60]);
        *out++ = '=';
    }
    return std::size_t(out - start);
}

std::size_t base64Decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    std::uint8_t* start = out;
    for (std::size_t i = 0; i + 4 <= n; i += 4) {
        int x0 = kBase64Values[in[i]], x1 = kBase64Values[in[i + 1]];
        int x2 = kBase64Values[in[i + 2]], x3 = kBase64Values[in[i + 3]];
        int pads = (x0 < 0) + (x1 < 0) + (x2 < 0) + (x3 < 0);
        // A negative value takes part as its low eight bits.
        unsigned v0 = std::uint8_t(x0), v1 = std::uint8_t(x1);
        unsigned v2 = std::uint8_t(x2), v3 = std::uint8_t(x3);
        *out++ = std::uint8_t((v0 << 2) | ((v1 >> 4) & 3));
        if (pads == 2) continue;
        *out++ = std::uint8_t(((v1 << 4) & 240) | ((v2 >> 2) & 15));
        if (pads == 1) continue;
        *out++ = std::uint8_t(((v2 << 6) & 192) | (v3 & 63));
    }
    return std::size_t(out - start);
}

}  // namespace scalar
}  // namespace

const KernelSet kScalarKernels = {Kernel::Scalar, scalar::hexEncode, scalar::hexDecode,
                                  scalar::base64Encode, scalar::base64Decode};

// ---------------------------------------------------------------- dispatch

namespace {

// The sets this build has, slowest first.
const KernelSet* const kSets[] = {
    &kScalarKernels,
#ifdef KT_CODEC_X86
    &kAvx2Kernels,
    &kAvx512Kernels,
#endif
};

bool cpuRuns(Kernel kernel) {
#ifdef KT_CODEC_X86
    // Also needed when the first codec call comes from a static constructor.
    __builtin_cpu_init();
    if (kernel == Kernel::Avx2) return __builtin_cpu_supports("avx2");
    // The runtime reports AVX-512 only where the OS saves the zmm and mask
    // registers, so no check of its own is needed.
    if (kernel == Kernel::Avx512)
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
               __builtin_cpu_supports("avx512vbmi");
#endif
    return kernel == Kernel::Scalar;
}

// The set in use; null until the first call picks the fastest one. The sets
// are constants, so relaxed loads see them whole.
std::atomic<const KernelSet*> gActive{nullptr};

const KernelSet& fastest() {
    const KernelSet* set = kSets[0];
    for (const KernelSet* candidate : kSets)
        if (cpuRuns(candidate->kernel)) set = candidate;
    gActive.store(set, std::memory_order_relaxed);
    return *set;
}

const KernelSet& active() {
    const KernelSet* set = gActive.load(std::memory_order_relaxed);
    return set ? *set : fastest();
}

}  // namespace

void hexEncode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    active().hexEncode(in, n, out);
}

void hexDecode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out) {
    active().hexDecode(in, pairs, out);
}

std::size_t base64Encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    return active().base64Encode(in, n, out);
}

std::size_t base64Decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    return active().base64Decode(in, n, out);
}

bool selectKernel(Kernel kernel) {
    for (const KernelSet* set : kSets) {
        if (set->kernel == kernel && cpuRuns(kernel)) {
            gActive.store(set, std::memory_order_relaxed);
            return true;
        }
    }
    return false;
}

Kernel activeKernel() { return active().kernel; }

}  // namespace codec
}  // namespace KT

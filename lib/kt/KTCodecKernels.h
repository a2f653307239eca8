// Private to the codecs: the kernel sets behind the operations of KTCodec.h,
// each function with exactly the contract of the operation it serves. A
// vector set encodes and decodes the regular bulk itself and hands every
// tail and every block holding an invalid character or a pad to the scalar
// set, so its results are the scalar ones by construction.
#pragma once

#include <cstddef>
#include <cstdint>

#include "KTCodec.h"

// The vector sets need x86-64 and the compilers' per-function target
// attribute; elsewhere the scalar set is the only one.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define KT_CODEC_X86 1
#endif

namespace KT {
namespace codec {

struct KernelSet {
    Kernel kernel;
    void (*hexEncode)(const std::uint8_t* in, std::size_t n, std::uint8_t* out);
    void (*hexDecode)(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out);
    std::size_t (*base64Encode)(const std::uint8_t* in, std::size_t n, std::uint8_t* out);
    std::size_t (*base64Decode)(const std::uint8_t* in, std::size_t n, std::uint8_t* out);
};

extern const KernelSet kScalarKernels;
#ifdef KT_CODEC_X86
/// Callable only where the CPU has AVX2.
extern const KernelSet kAvx2Kernels;
#endif

}  // namespace codec
}  // namespace KT

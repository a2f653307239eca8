// Private to the codecs: the kernel sets behind the operations of KTCodec.h,
// each function with exactly the contract of the operation it serves. A
// vector set encodes and decodes the regular bulk itself and hands every
// tail and every block holding an invalid character or a pad to the scalar
// set, so its results are the scalar ones by construction.
#pragma once

#include <array>
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

// The tables of the scalar set. The vector sets read them too where a table
// lookup serves, so that no two copies can disagree.
inline constexpr char kHexDigits[] = "0123456789ABCDEF";
inline constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Digit values; 255 for every byte that is not a hex digit.
inline constexpr std::array<std::uint8_t, 256> kHexValues = [] {
    std::array<std::uint8_t, 256> table{};
    for (auto& value : table) value = 255;
    for (int i = 0; i < 10; ++i) table['0' + i] = std::uint8_t(i);
    for (int i = 0; i < 6; ++i) table['A' + i] = table['a' + i] = std::uint8_t(10 + i);
    return table;
}();

// 6-bit values; -1 for "=" and every byte outside the alphabet.
inline constexpr std::array<std::int8_t, 256> kBase64Values = [] {
    std::array<std::int8_t, 256> table{};
    for (auto& value : table) value = -1;
    for (int i = 0; i < 64; ++i) table[std::uint8_t(kBase64Alphabet[i])] = std::int8_t(i);
    return table;
}();

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
/// Callable only where the CPU has AVX-512 F, BW and VBMI.
extern const KernelSet kAvx512Kernels;
#endif

}  // namespace codec
}  // namespace KT

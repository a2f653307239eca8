// The byte kernels behind the codecs and the URL functions, one set per
// instruction set (scalar.cpp, avx2.cpp, avx512.cpp, neon.cpp), all filling
// the same table of functions. The library calls the fastest set the CPU
// runs, chosen once; tests and benchmarks reach every set through
// supported().
//
// Every set gives the scalar set's results: a vector kernel handles the
// regular bulk itself and hands tails and irregular blocks to the scalar
// code. The scalar set is therefore the reference that tests compare every
// other set against.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ktbase {
namespace url_detail {
struct delimiter_masks;
}  // namespace url_detail
}  // namespace ktbase

// The x86 vector sets need x86-64 and the compilers' per-function target
// attribute; a build with KT_KERNELS=scalar has the scalar set alone.
#if !defined(KT_KERNELS_SCALAR_ONLY) && defined(__x86_64__) && \
    (defined(__GNUC__) || defined(__clang__))
#define KT_SIMD_X86 1
#endif
// NEON is part of every aarch64 CPU. The kernels read lanes as the bits of
// wider lanes, which holds for little-endian byte order only.
#if !defined(KT_KERNELS_SCALAR_ONLY) && defined(__aarch64__) && defined(__BYTE_ORDER__) && \
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define KT_SIMD_NEON 1
#endif

namespace KT {
namespace simd {

/// The most bytes a URL kernel writes past the end of its result, in room
/// that the caller gives it on top of the result's (see url_encode_slack).
constexpr std::size_t kMaxSlack = 16;

/// One instruction set's kernels. The output sizes are the caller's
/// business: each kernel writes exactly what it returns or says.
struct kernels {
    /// "scalar", "avx2", "avx512" or "neon".
    const char* name;

    /// Writes 2 * n upper-case hex digits for the n bytes at `in`.
    void (*hex_encode)(const std::uint8_t* in, std::size_t n, std::uint8_t* out);
    /// Writes `pairs` bytes, one per pair of digits at `in`. An invalid first
    /// digit reads as 15, an invalid second digit makes the byte 255.
    void (*hex_decode)(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out);
    /// Writes the padded Base64 text of the n bytes at `in`; returns its
    /// size, 4 * ((n + 2) / 3).
    std::size_t (*base64_encode)(const std::uint8_t* in, std::size_t n, std::uint8_t* out);
    /// Decodes the complete groups of four among the n characters at `in`
    /// (a partial tail is ignored); returns the bytes written, at most
    /// 3 * (n / 4). A group holding two "=" or invalid characters gives one
    /// byte, one gives two bytes, any other count three.
    std::size_t (*base64_decode)(const std::uint8_t* in, std::size_t n, std::uint8_t* out);

    /// What url_encode() writes for [first, last).
    std::size_t (*url_encoded_size)(const char* first, const char* last, bool escape_all_slashes);
    /// Writes the percent-encoding of [first, last) and returns its size;
    /// `out` needs room for that size plus url_encode_slack bytes.
    std::size_t (*url_encode)(char* out, const char* first, const char* last,
                              bool escape_all_slashes);
    std::size_t url_encode_slack;
    /// Writes the percent-decoding of the non-empty [first, last) and returns
    /// its size; `out` needs room for last - first plus url_decode_slack bytes.
    std::size_t (*url_decode)(char* out, const char* first, const char* last);
    std::size_t url_decode_slack;
    /// Fills `masks` for the `length` bytes at `text`, with length at most
    /// delimiter_masks::kMaxLength.
    void (*find_delimiters)(const char* text, std::size_t length,
                            ktbase::url_detail::delimiter_masks& masks);
};

extern const kernels scalar_kernels;
#ifdef KT_SIMD_X86
/// Callable only where the CPU has AVX2, BMI1 and POPCNT.
extern const kernels avx2_kernels;
/// Callable only where the CPU has, besides those, BMI2 and AVX-512 F, BW,
/// VL, VBMI and VBMI2.
extern const kernels avx512_kernels;
#endif
#ifdef KT_SIMD_NEON
/// Callable on every CPU that this build runs on.
extern const kernels neon_kernels;
#endif

/// Every set this build has and this CPU runs, the scalar one first and the
/// fastest last.
const std::vector<const kernels*>& supported();

/// The set the library uses: the fastest the CPU runs, chosen at the first
/// call (safely from any thread) and never changed.
inline const kernels& active() {
    static const kernels& fastest = *supported().back();
    return fastest;
}

}  // namespace simd
}  // namespace KT

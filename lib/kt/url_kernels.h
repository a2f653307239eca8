// Private: the byte kernels behind the URL functions of kt/url.h, in a
// plain C++ set and x86-64 vector sets. Each operation runs on the fastest
// set this machine supports, chosen at the first call; every set gives the
// same results as the plain one (tests/url_kernel_test.cpp runs them all on
// the same inputs). The library never changes the set itself: only tests and
// benchmarks call select_kernel().
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

// The vector sets need x86-64 and the compilers' per-function target
// attribute; elsewhere the plain set is the only one.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define KT_URL_X86 1
#endif

namespace ktbase {
namespace url_detail {

/// The delimiters of the URL model, each a bit of a delimiter set.
enum delimiter : unsigned {
    kHash = 1u << 0,       // "#"
    kColon = 1u << 1,      // ":"
    kSlash = 1u << 2,      // "/"
    kAt = 1u << 3,         // "@"
    kSemicolon = 1u << 4,  // ";"
    kQuestion = 1u << 5,   // "?"
};
constexpr int kDelimiterCount = 6;
/// The delimiter bytes, in the order of their bits.
constexpr char kDelimiterBytes[kDelimiterCount] = {'#', ':', '/', '@', ';', '?'};

/// Where the delimiters lie in a text of at most kMaxLength bytes: bit i of
/// word i / 64 of row d is set when byte i is kDelimiterBytes[d]. The first
/// (length + 63) / 64 words of each row are written, the others may be left
/// as they were; the bits past the text's end in its last word are 0.
struct delimiter_masks {
    static constexpr std::size_t kMaxLength = 256;
    static constexpr std::size_t kWords = kMaxLength / 64;
    std::uint64_t rows[kDelimiterCount][kWords];
};

/// The most bytes that a kernel writes past the end of its result (in room
/// that the caller gives it on top of the result's): each set says how many
/// its encoder and its decoder may write.
constexpr std::size_t kKernelSlack = 16;

/// The kernel sets: plain C++, SSSE3, AVX2 and AVX-512 (BW and VBMI2).
enum class url_kernel { scalar, sse, avx2, avx512 };

struct kernel_set {
    url_kernel kernel;
    /// What url_encode_range() writes for [first, last).
    std::size_t (*encoded_size)(const char* first, const char* last, bool escape_all_slashes);
    /// Writes what url_encode_range() writes and returns its size; `out`
    /// needs room for that size plus encode_slack bytes.
    std::size_t (*encode)(char* out, const char* first, const char* last,
                          bool escape_all_slashes);
    std::size_t encode_slack;
    /// Writes what url_decode_range() writes and returns its size; `out`
    /// needs room for last - first plus decode_slack bytes. [first, last)
    /// is not empty.
    std::size_t (*decode)(char* out, const char* first, const char* last);
    std::size_t decode_slack;
    /// Fills `masks` for the `length` bytes at `text`, with length at most
    /// delimiter_masks::kMaxLength.
    void (*find_delimiters)(const char* text, std::size_t length, delimiter_masks& masks);
};

extern const kernel_set kScalarKernels;
#ifdef KT_URL_X86
/// Callable only where the CPU has SSSE3 and POPCNT.
extern const kernel_set kSseKernels;
/// Callable only where the CPU has AVX2, BMI1 and POPCNT.
extern const kernel_set kAvx2Kernels;
/// Callable only where the CPU has AVX-512 F, BW, VL and VBMI2, AVX2, BMI1,
/// BMI2 and POPCNT.
extern const kernel_set kAvx512Kernels;
#endif

/// The set in use; null until the first call of active_kernels().
extern std::atomic<const kernel_set*> g_active_kernels;
/// Makes the fastest set the CPU runs the one in use, and returns it.
const kernel_set& pick_fastest_kernels();

/// The set in use: the fastest one the CPU runs, unless a test chose another.
/// (The sets are constants: a relaxed load sees one whole.)
inline const kernel_set& active_kernels() {
    const kernel_set* set = g_active_kernels.load(std::memory_order_relaxed);
    return set ? *set : pick_fastest_kernels();
}
/// Makes every later call use `kernel`'s set and returns true; returns false
/// and changes nothing when this build or this CPU cannot run it. For tests
/// and benchmarks; the library never calls it.
bool select_kernel(url_kernel kernel);
/// The kernel set in use now.
url_kernel active_kernel();

// Shared by the sets: the plain loops, which the vector sets also use for
// the pieces they leave over.

/// The value of a hex digit for the decoder: "1"-"9", "A"-"F", "a"-"f" give
/// 1-15, every other byte ("0" included) 0. That "0" reads like garbage is
/// why an escape worth 0 is left undecoded.
inline constexpr std::array<std::uint8_t, 256> kHexValues = [] {
    std::array<std::uint8_t, 256> table{};
    for (int i = 1; i < 10; ++i) table['0' + i] = std::uint8_t(i);
    for (int i = 0; i < 6; ++i) table['A' + i] = table['a' + i] = std::uint8_t(10 + i);
    return table;
}();

/// The bit of the delimiter that each byte is, or 0.
inline constexpr std::array<std::uint8_t, 256> kDelimiterOf = [] {
    std::array<std::uint8_t, 256> table{};
    for (int d = 0; d < kDelimiterCount; ++d)
        table[static_cast<unsigned char>(kDelimiterBytes[d])] = std::uint8_t(1u << d);
    return table;
}();

/// The plain decoding rules from position `p` while p < stop: writes
/// through `out`, moving it on, and returns the position reached (at most
/// stop + 2). Two bytes must follow every position examined: stop lies at
/// most two bytes before the end of the text.
inline const char* decode_scalar_until(char*& out, const char* p, const char* stop) {
    char* o = out;
    while (p < stop) {
        const auto c = static_cast<unsigned char>(p[0]);
        const unsigned value = kHexValues[static_cast<unsigned char>(p[1])] * 16u +
                               kHexValues[static_cast<unsigned char>(p[2])];
        // A "%" worth 0 is not an escape: it is kept and the bytes after it
        // are read as text.
        const bool escape = (c == '%') & (value != 0);
        *o++ = char(escape ? value : c);
        p += escape ? 3 : 1;
    }
    out = o;
    return p;
}

}  // namespace url_detail
}  // namespace ktbase

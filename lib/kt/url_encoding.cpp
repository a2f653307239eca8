// Percent-encoding and decoding of URL texts: the plain kernel set, the
// choice of the set in use, and the functions built on them.
#include "kt/url.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>

#include "url_internal.h"
#include "url_kernels.h"

namespace ktbase {
namespace url_detail {

namespace {

// What the encoder writes for each byte: the byte itself or "%" and two
// lower-case hex digits, then in the fourth byte how many of the first three
// count. A byte then costs one table load and one store, with no branch to
// mispredict in mixed text. kCodes[1] differs from kCodes[0] only in
// escaping "/".
using code = std::array<char, 4>;
constexpr std::array<std::array<code, 256>, 2> kCodes = [] {
    constexpr char hex[] = "0123456789abcdef";
    std::array<std::array<code, 256>, 2> tables{};
    for (int c = 0; c < 256; ++c) {
        const bool unreserved = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
                                (c >= 'a' && c <= 'z') || c == '!' || c == '\'' ||
                                c == '(' || c == ')' || c == '*' || c == '-' || c == '.' ||
                                c == '_';
        const code escaped = {'%', hex[c >> 4], hex[c & 15], 3};
        const code kept = {char(c), '\0', '\0', 1};
        tables[0][c] = unreserved || c == '/' ? kept : escaped;
        tables[1][c] = unreserved ? kept : escaped;
    }
    return tables;
}();

// The code of byte c, following byte previous. Keeping the first slash of a
// run lets a path keep its shape, while "//" can no longer be read back as
// the start of an authority.
inline const code& code_of(unsigned char c, unsigned char previous, bool escape_all_slashes) {
    return kCodes[escape_all_slashes | (previous == '/')][c];
}

inline std::size_t width(const code& written) { return std::size_t(written[3]); }

std::size_t encoded_size_scalar(const char* first, const char* last, bool escape_all_slashes) {
    std::size_t size = 0;
    unsigned char previous = 0;
    for (const char* p = first; p < last; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        size += width(code_of(c, previous, escape_all_slashes));
        previous = c;
    }
    return size;
}

std::size_t encode_scalar(char* out, const char* first, const char* last,
                          bool escape_all_slashes) {
    char* o = out;
    unsigned char previous = 0;
    for (const char* p = first; p < last; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        const code& written = code_of(c, previous, escape_all_slashes);
        // With three more source bytes to come, each written as one byte at
        // least, the output has room for the whole code: storing all four
        // bytes avoids a branch on the width.
        const std::size_t size = width(written);
        if (last - p > 3)
            std::memcpy(o, written.data(), written.size());
        else
            std::memcpy(o, written.data(), size);
        o += size;
        previous = c;
    }
    return std::size_t(o - out);
}

std::size_t decode_scalar(char* out, const char* first, const char* last) {
    if (last <= first) return 0;
    char* o = out;
    const char* p = first;
    // An escape needs two bytes after its "%": the last two bytes are copied.
    if (last - first > 2) p = decode_scalar_until(o, p, last - 2);
    if (p < last) {
        std::memcpy(o, p, std::size_t(last - p));
        o += last - p;
    }
    return std::size_t(o - out);
}

void find_delimiters_scalar(const char* text, std::size_t length, delimiter_masks& masks) {
    const std::size_t words = (length + 63) / 64;
    for (auto& row : masks.rows)
        for (std::size_t w = 0; w < words; ++w) row[w] = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned bit = kDelimiterOf[static_cast<unsigned char>(text[i])];
        if (bit != 0) masks.rows[__builtin_ctz(bit)][i / 64] |= std::uint64_t(1) << (i % 64);
    }
}

}  // namespace

const kernel_set kScalarKernels = {url_kernel::scalar, encoded_size_scalar, encode_scalar, 0,
                                   decode_scalar,      0,                   find_delimiters_scalar};

// ---------------------------------------------------------------- dispatch

namespace {

// The sets this build has, slowest first.
const kernel_set* const kSets[] = {
    &kScalarKernels,
#ifdef KT_URL_X86
    &kSseKernels,
    &kAvx2Kernels,
    &kAvx512Kernels,
#endif
};

bool cpu_runs(url_kernel kernel) {
#ifdef KT_URL_X86
    // Also needed when the first call comes from a static constructor.
    __builtin_cpu_init();
    const bool popcnt = __builtin_cpu_supports("popcnt");
    if (kernel == url_kernel::sse) return popcnt && __builtin_cpu_supports("ssse3");
    const bool avx2 = popcnt && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi");
    if (kernel == url_kernel::avx2) return avx2;
    if (kernel == url_kernel::avx512)
        return avx2 && __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("avx512f") &&
               __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
               __builtin_cpu_supports("avx512vbmi2");
#endif
    return kernel == url_kernel::scalar;
}

}  // namespace

std::atomic<const kernel_set*> g_active_kernels{nullptr};

const kernel_set& pick_fastest_kernels() {
    const kernel_set* set = kSets[0];
    for (const kernel_set* candidate : kSets)
        if (cpu_runs(candidate->kernel)) set = candidate;
    g_active_kernels.store(set, std::memory_order_relaxed);
    return *set;
}

namespace {

// A result that fits in a string's own room is made on the stack and then
// copied there; a longer one is written into the heap block of its string
// (with the kernel's slack after it), so no byte is copied twice.
constexpr std::size_t kShortResult = 15;
// Texts of up to this many bytes are encoded on the stack, longer ones
// straight into their string.
constexpr std::size_t kOnePassText = 128;

}  // namespace

bool select_kernel(url_kernel kernel) {
    for (const kernel_set* set : kSets) {
        if (set->kernel == kernel && cpu_runs(kernel)) {
            g_active_kernels.store(set, std::memory_order_relaxed);
            return true;
        }
    }
    return false;
}

url_kernel active_kernel() { return active_kernels().kernel; }

// ---------------------------------------------------------------- plain forms

std::size_t url_encoded_size(const char* first, const char* last, bool escape_all_slashes) {
    return encoded_size_scalar(first, last, escape_all_slashes);
}

std::size_t url_encode_range(char* out, const char* first, const char* last,
                             bool escape_all_slashes) {
    return encode_scalar(out, first, last, escape_all_slashes);
}

std::size_t url_decode_range(char* out, const char* first, const char* last) {
    return decode_scalar(out, first, last);
}

// ---------------------------------------------------------------- string forms

void url_encode_append(std::string& out, const std::string& text, bool escape_all_slashes) {
    if (text.empty()) return;
    const kernel_set& kernels = active_kernels();
    const char* first = text.data();
    const char* last = first + text.size();
    const std::size_t old_size = out.size();
    if (text.size() <= kOnePassText) {
        // Encoded in one pass on the stack, then copied: a short text is not
        // worth a pass that only measures it.
        char buffer[3 * kOnePassText + kKernelSlack];
        out.append(buffer, kernels.encode(buffer, first, last, escape_all_slashes));
        return;
    }
    // Sized exactly in a first pass: the result is the only allocation.
    const std::size_t size = kernels.encoded_size(first, last, escape_all_slashes);
    out.resize(old_size + size + kernels.encode_slack);
    kernels.encode(&out[old_size], first, last, escape_all_slashes);
    out.resize(old_size + size);
}

namespace {

// The decoding of the `size` > 0 bytes at `first`, as a new string.
std::string decoded(const char* first, std::size_t size) {
    const kernel_set& kernels = active_kernels();
    if (size <= kShortResult) {
        char buffer[kShortResult + kKernelSlack];
        return std::string(buffer, kernels.decode(buffer, first, first + size));
    }
    std::string result(size + kernels.decode_slack, '\0');
    result.resize(kernels.decode(&result[0], first, first + size));
    return result;
}

}  // namespace

std::string url_decode_range(const std::string& text, url_range range) {
    if (range.end <= range.begin) return std::string();
    return decoded(text.data() + range.begin, range.end - range.begin);
}

}  // namespace url_detail

std::string url_encode(const std::string& text, bool escape_all_slashes) {
    std::string result;
    url_detail::url_encode_append(result, text, escape_all_slashes);
    return result;
}

std::string url_decode(const std::string& text) {
    return text.empty() ? std::string() : url_detail::decoded(text.data(), text.size());
}

}  // namespace ktbase

// Percent-encoding and decoding of URL texts.
#include "kt/url.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "url_internal.h"

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

// Digit values for decoding. "0" reads as 0 like any non-digit, which is why
// an escape worth 0 cannot be told from garbage and is left undecoded.
constexpr std::array<std::uint8_t, 256> kHexValues = [] {
    std::array<std::uint8_t, 256> table{};
    for (int i = 1; i < 10; ++i) table['0' + i] = std::uint8_t(i);
    for (int i = 0; i < 6; ++i) table['A' + i] = table['a' + i] = std::uint8_t(10 + i);
    return table;
}();

// The code of byte c, following byte previous. Keeping the first slash of a
// run lets a path keep its shape, while "//" can no longer be read back as
// the start of an authority.
inline const code& code_of(unsigned char c, unsigned char previous, bool escape_all_slashes) {
    return kCodes[escape_all_slashes | (previous == '/')][c];
}

inline std::size_t width(const code& written) { return std::size_t(written[3]); }

}  // namespace

std::size_t url_encoded_size(const char* first, const char* last, bool escape_all_slashes) {
    std::size_t size = 0;
    unsigned char previous = 0;
    for (const char* p = first; p < last; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        size += width(code_of(c, previous, escape_all_slashes));
        previous = c;
    }
    return size;
}

std::size_t url_encode_range(char* out, const char* first, const char* last,
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

void url_encode_append(std::string& out, const std::string& text, bool escape_all_slashes) {
    const char* first = text.data();
    const char* last = first + text.size();
    const std::size_t old_size = out.size();
    // Sized exactly in a first pass: the result is the only allocation, and
    // no scratch area of three times the input is needed anywhere.
    out.resize(old_size + url_encoded_size(first, last, escape_all_slashes));
    url_encode_range(&out[old_size], first, last, escape_all_slashes);
}

std::size_t url_decode_range(char* out, const char* first, const char* last) {
    if (last <= first) return 0;
    char* o = out;
    const char* p = first;
    // An escape needs two bytes after its "%": the last two bytes are copied.
    const char* const scan_end = last - first > 2 ? last - 2 : first;
    while (p < scan_end) {
        const auto c = static_cast<unsigned char>(p[0]);
        const unsigned value = kHexValues[static_cast<unsigned char>(p[1])] * 16u +
                               kHexValues[static_cast<unsigned char>(p[2])];
        // A "%" worth 0 is not an escape: it is kept and the bytes after it
        // are read as text. Chosen without branches: in mixed text they
        // would be mispredicted at every few bytes.
        const bool escape = (c == '%') & (value != 0);
        *o++ = char(escape ? value : c);
        p += escape ? 3 : 1;
    }
    if (p < last) {
        std::memcpy(o, p, std::size_t(last - p));
        o += last - p;
    }
    return std::size_t(o - out);
}

std::string url_decode_range(const std::string& text, url_range range) {
    std::string result(range.end - range.begin, '\0');
    const char* first = text.data() + range.begin;
    result.resize(url_decode_range(&result[0], first, first + result.size()));
    return result;
}

}  // namespace url_detail

std::string url_encode(const std::string& text, bool escape_all_slashes) {
    std::string result;
    url_detail::url_encode_append(result, text, escape_all_slashes);
    return result;
}

std::string url_decode(const std::string& text) {
    return url_detail::url_decode_range(text, {0, text.size()});
}

}  // namespace ktbase

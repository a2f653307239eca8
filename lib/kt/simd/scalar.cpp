// The scalar kernels: plain byte loops that run on every CPU, and the
// reference every vector kernel must match.
#include "simd/scalar.h"

#include <cstring>

#include "base64_alphabet.h"
#include "simd/kernels.h"
#include "url_delimiters.h"
#include "url_unreserved.h"

namespace KT {
namespace simd {
namespace scalar {

// ---------------------------------------------------------------- codecs

void hex_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    for (std::size_t i = 0; i < n; ++i) {
        out[2 * i] = std::uint8_t(kUpperHexDigits[in[i] >> 4]);
        out[2 * i + 1] = std::uint8_t(kUpperHexDigits[in[i] & 15]);
    }
}

void hex_decode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out) {
    for (std::size_t i = 0; i < pairs; ++i)
        out[i] = std::uint8_t((kHexDigitValues[in[2 * i]] << 4) | kHexDigitValues[in[2 * i + 1]]);
}

std::size_t base64_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
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

std::size_t base64_decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
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

// ---------------------------------------------------------------- URL

namespace {

using ktbase::url_detail::delimiter_masks;

// What the encoder writes for each byte: the byte itself or "%" and two
// lower-case hex digits, then in the fourth byte how many of the first three
// count. A byte then costs one table load and one store, with no branch to
// mispredict in mixed text. kCodes[1] differs from kCodes[0] only in
// escaping "/".
using code = std::array<char, 4>;
constexpr std::array<std::array<code, 256>, 2> kCodes = [] {
    std::array<std::array<code, 256>, 2> tables{};
    for (int c = 0; c < 256; ++c) {
        const bool unreserved = ktbase::url_detail::is_unreserved(std::uint8_t(c));
        const code escaped = {'%', kLowerHexDigits[c >> 4], kLowerHexDigits[c & 15], 3};
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

std::size_t url_encode(char* out, const char* first, const char* last, bool escape_all_slashes) {
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

std::size_t url_decode(char* out, const char* first, const char* last) {
    if (last <= first) return 0;
    char* o = out;
    const char* p = first;
    // An escape needs two bytes after its "%": the last two bytes are copied.
    if (last - first > 2) p = url_decode_until(o, p, last - 2);
    if (p < last) {
        std::memcpy(o, p, std::size_t(last - p));
        o += last - p;
    }
    return std::size_t(o - out);
}

void find_delimiters(const char* text, std::size_t length, delimiter_masks& masks) {
    const std::size_t words = (length + 63) / 64;
    for (auto& row : masks.rows)
        for (std::size_t w = 0; w < words; ++w) row[w] = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned bit = ktbase::url_detail::kDelimiterOf[static_cast<unsigned char>(text[i])];
        if (bit != 0) masks.rows[__builtin_ctz(bit)][i / 64] |= std::uint64_t(1) << (i % 64);
    }
}

}  // namespace scalar

const kernels scalar_kernels = {"scalar",
                                scalar::hex_encode,
                                scalar::hex_decode,
                                scalar::base64_encode,
                                scalar::base64_decode,
                                scalar::url_encoded_size,
                                scalar::url_encode,
                                0,
                                scalar::url_decode,
                                0,
                                scalar::find_delimiters};

}  // namespace simd
}  // namespace KT

// The scalar kernels that the vector ones call for the tails and the
// irregular blocks they leave over.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "hex_digits.h"

namespace KT {
namespace simd {
namespace scalar {

void hex_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out);
void hex_decode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out);
std::size_t base64_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out);
std::size_t base64_decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out);
std::size_t url_encoded_size(const char* first, const char* last, bool escape_all_slashes);
std::size_t url_encode(char* out, const char* first, const char* last, bool escape_all_slashes);
std::size_t url_decode(char* out, const char* first, const char* last);

/// The value of each byte as a digit of a percent escape: a byte that is no
/// hex digit counts as 0, so an escape with one is still read. An escape
/// worth 0 is left undecoded.
inline constexpr std::array<std::uint8_t, 256> kEscapeDigitValues = [] {
    std::array<std::uint8_t, 256> table{};
    for (std::size_t c = 0; c < table.size(); ++c)
        table[c] = kHexDigitValues[c] == kNotHexDigit ? 0 : kHexDigitValues[c];
    return table;
}();

/// The value of the escape whose digits are the two bytes at `digits`.
inline unsigned escape_value(const char* digits) {
    return kEscapeDigitValues[static_cast<unsigned char>(digits[0])] * 16u +
           kEscapeDigitValues[static_cast<unsigned char>(digits[1])];
}

/// Percent-decodes from position `p` while p < stop: writes through `out`,
/// moving it on, and returns the position reached (at most stop + 2). Two
/// bytes must follow every position examined: stop lies at most two bytes
/// before the end of the text.
inline const char* url_decode_until(char*& out, const char* p, const char* stop) {
    char* o = out;
    while (p < stop) {
        const auto c = static_cast<unsigned char>(p[0]);
        const unsigned value = escape_value(p + 1);
        // A "%" worth 0 is not an escape: it is kept and the bytes after it
        // are read as text.
        const bool escape = (c == '%') & (value != 0);
        *o++ = char(escape ? value : c);
        p += escape ? 3 : 1;
    }
    out = o;
    return p;
}

}  // namespace scalar
}  // namespace simd
}  // namespace KT

// The hexadecimal digits: the characters written for each value, and the
// value of each character read.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace KT {

/// The digits of the values 0 to 15, as the codecs write them.
inline constexpr char kUpperHexDigits[] = "0123456789ABCDEF";
/// The digits of the values 0 to 15, as percent-encoding writes them.
inline constexpr char kLowerHexDigits[] = "0123456789abcdef";

/// The value kHexDigitValues gives every byte that is not a hex digit.
constexpr std::uint8_t kNotHexDigit = 255;

/// The value of each hex digit, "0"-"9", "A"-"F" and "a"-"f"; kNotHexDigit
/// for every other byte.
inline constexpr std::array<std::uint8_t, 256> kHexDigitValues = [] {
    std::array<std::uint8_t, 256> table{};
    for (auto& value : table) value = kNotHexDigit;
    for (int i = 0; i < 16; ++i) {
        table[std::uint8_t(kUpperHexDigits[i])] = std::uint8_t(i);
        table[std::uint8_t(kLowerHexDigits[i])] = std::uint8_t(i);
    }
    return table;
}();

/// The two upper-case digits of each byte, as the codecs write them: one
/// table load and one two-byte store per byte.
inline constexpr std::array<std::array<char, 2>, 256> kUpperHexPairs = [] {
    std::array<std::array<char, 2>, 256> table{};
    for (std::size_t c = 0; c < table.size(); ++c)
        table[c] = {kUpperHexDigits[c >> 4], kUpperHexDigits[c & 15]};
    return table;
}();

/// Where kHexPairValues holds the byte of two characters: at the 16-bit
/// number they make in memory, read in the CPU's byte order.
constexpr std::size_t hex_pair_index(std::uint8_t first, std::uint8_t second) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return std::size_t(first) << 8 | second;
#else
    return std::size_t(second) << 8 | first;
#endif
}

/// The byte that each two characters give: the eight low bits of the first's
/// value times 16 plus the second's, kHexDigitValues giving the values. So a
/// first character that is no digit reads as 15, and a second one makes the
/// byte 255. A byte then costs one two-byte load and one table load.
inline constexpr std::array<std::uint8_t, 65536> kHexPairValues = [] {
    // Filled by second character, so that the (many) pairs whose second one
    // is no digit cost the compiler one step each.
    std::array<std::uint8_t, 65536> table{};
    for (auto& byte : table) byte = 255;
    for (std::size_t second = 0; second < 256; ++second) {
        if (kHexDigitValues[second] == kNotHexDigit) continue;
        for (std::size_t first = 0; first < 256; ++first)
            table[hex_pair_index(std::uint8_t(first), std::uint8_t(second))] =
                std::uint8_t((kHexDigitValues[first] << 4) | kHexDigitValues[second]);
    }
    return table;
}();

}  // namespace KT

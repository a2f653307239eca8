// The hexadecimal digits: the characters written for each value, and the
// value of each character read.
#pragma once

#include <array>
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

}  // namespace KT

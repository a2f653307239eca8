// The Base64 alphabet (RFC 4648, standard variant): the character written
// for each six-bit value, and the value of each character read.
#pragma once

#include <array>
#include <cstdint>

namespace KT {

inline constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The six-bit value of each character; -1 for "=" and every byte outside
/// the alphabet.
inline constexpr std::array<std::int8_t, 256> kBase64Values = [] {
    std::array<std::int8_t, 256> table{};
    for (auto& value : table) value = -1;
    for (int i = 0; i < 64; ++i) table[std::uint8_t(kBase64Alphabet[i])] = std::int8_t(i);
    return table;
}();

}  // namespace KT

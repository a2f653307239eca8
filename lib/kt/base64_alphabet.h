// The Base64 alphabet (RFC 4648, standard variant): the character written
// for each six-bit value, and the value of each character read.
#pragma once

#include <array>
#include <cstddef>
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

/// The two characters of each twelve-bit value, the high six bits first:
/// three bytes are encoded with two table loads.
inline constexpr std::array<std::array<char, 2>, 4096> kBase64Pairs = [] {
    std::array<std::array<char, 2>, 4096> table{};
    for (std::size_t v = 0; v < table.size(); ++v)
        table[v] = {kBase64Alphabet[v >> 6], kBase64Alphabet[v & 63]};
    return table;
}();

/// The bit that kBase64Placed gives "=" and every byte outside the alphabet,
/// above the 24 bits of a group.
constexpr std::uint32_t kNotBase64 = std::uint32_t(1) << 24;

/// kBase64Placed[k][c]: the six-bit value of character c at place k of a
/// group of four, shifted to its bits among the 24 the group decodes to (the
/// first place highest), or kNotBase64. The four placed values of a group
/// OR-ed together are its three bytes, with kNotBase64 set when any
/// character was "=" or invalid: one test for the whole group.
inline constexpr std::array<std::array<std::uint32_t, 256>, 4> kBase64Placed = [] {
    std::array<std::array<std::uint32_t, 256>, 4> tables{};
    for (int place = 0; place < 4; ++place)
        for (std::size_t c = 0; c < 256; ++c)
            tables[place][c] = kBase64Values[c] < 0
                                   ? kNotBase64
                                   : std::uint32_t(kBase64Values[c]) << (18 - 6 * place);
    return tables;
}();

}  // namespace KT

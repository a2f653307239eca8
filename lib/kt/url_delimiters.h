// The delimiters of the URL model: their bytes, a bit for each, and the bit
// masks of where they lie in a short text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

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

/// The bit of the delimiter that each byte is, or 0.
inline constexpr std::array<std::uint8_t, 256> kDelimiterOf = [] {
    std::array<std::uint8_t, 256> table{};
    for (int d = 0; d < kDelimiterCount; ++d)
        table[static_cast<unsigned char>(kDelimiterBytes[d])] = std::uint8_t(1u << d);
    return table;
}();

}  // namespace url_detail
}  // namespace ktbase

// Private: the bytes that split a URL text into its components, each named by
// what it marks, and the bit masks of where they lie in a short text. A byte
// may mark several things, one per place in the URL ("@" ends the userinfo,
// ":" ends the scheme but starts the service).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace ktbase {
namespace url_detail {

/// Starts the fragment; nothing after the first one belongs to another part.
constexpr char kFragmentStart = '#';
/// Starts the query.
constexpr char kQueryStart = '?';
/// Starts the params after the path; within the userinfo, ends the domain.
constexpr char kParamsStart = ';';
constexpr char kDomainEnd = ';';
/// Ends the scheme; within the authority, starts the service after the host
/// and the password after the user.
constexpr char kSchemeEnd = ':';
constexpr char kServiceStart = ':';
constexpr char kPasswordStart = ':';
/// Two of them start the authority; one ends it and starts the path.
constexpr char kPathSeparator = '/';
/// Ends the userinfo.
constexpr char kUserinfoEnd = '@';

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
constexpr char kDelimiterBytes[kDelimiterCount] = {kFragmentStart, kSchemeEnd,   kPathSeparator,
                                                  kUserinfoEnd,   kParamsStart, kQueryStart};

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

/// kDelimiterLanes[j][c]: for byte c at place j of a group of eight, a word
/// with bit 8 * d + j set when c is delimiter d, and no bit for any other
/// byte. OR-ed over a group, the eight bytes' words hold in byte d where
/// delimiter d lies among them: every delimiter found at once, with no branch.
inline constexpr std::array<std::array<std::uint64_t, 256>, 8> kDelimiterLanes = [] {
    std::array<std::array<std::uint64_t, 256>, 8> tables{};
    for (int j = 0; j < 8; ++j)
        for (int d = 0; d < kDelimiterCount; ++d)
            tables[j][static_cast<unsigned char>(kDelimiterBytes[d])] = std::uint64_t(1)
                                                                         << (8 * d + j);
    return tables;
}();

}  // namespace url_detail
}  // namespace ktbase

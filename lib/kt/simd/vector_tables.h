// What the vector sets share: the byte shuffle controls of the percent
// coder, and the one block rule of the decoder. A control lane of 0x80 gives
// a zero byte in every set's shuffle (x86 reads its bit 7, ARM's table
// lookups any index beyond the table).
#pragma once

#include <array>
#include <cstdint>

namespace KT {
namespace simd {

// How four source bytes are written, by which of them are escaped (bit k
// for byte k): shuffle controls that pick from a register holding the four
// bytes, their high digits, their low digits and four "%" (at 0, 4, 8 and
// 12), and the number of bytes written.
struct expansion {
    alignas(16) std::uint8_t control[16][16];
    std::uint8_t length[16];
};

inline constexpr expansion kExpansion = [] {
    expansion table{};
    for (int mask = 0; mask < 16; ++mask) {
        int at = 0;
        for (int k = 0; k < 4; ++k) {
            if (mask & (1 << k)) {
                table.control[mask][at++] = 12;
                table.control[mask][at++] = std::uint8_t(4 + k);
                table.control[mask][at++] = std::uint8_t(8 + k);
            } else {
                table.control[mask][at++] = std::uint8_t(k);
            }
        }
        table.length[mask] = std::uint8_t(at);
        while (at < 16) table.control[mask][at++] = 0x80;
    }
    return table;
}();

// Shuffle controls that gather the bytes of an 8-byte group whose bits are
// set in the index, in order, to the front.
inline constexpr std::array<std::uint64_t, 256> kCompaction = [] {
    std::array<std::uint64_t, 256> table{};
    for (int mask = 0; mask < 256; ++mask) {
        std::uint64_t control = 0;
        int at = 0;
        for (int k = 0; k < 8; ++k)
            if (mask & (1 << k)) control |= std::uint64_t(k) << (8 * at++);
        for (; at < 8; ++at) control |= std::uint64_t(0x80) << (8 * at);
        table[mask] = control;
    }
    return table;
}();

// Shuffle controls that move the last r bytes of a 16-byte load to the
// front and clear the rest: 16 bytes from kEndToFront + 16 - r.
alignas(16) inline constexpr std::uint8_t kEndToFront[32] = {
    0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15,
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

/// Whether two of the candidate escapes `candidates` (a bit per position)
/// lie within two bytes of each other: then the first may swallow the
/// second, and only the scalar rules can tell.
inline bool overlapping(std::uint64_t candidates) {
    return (candidates & ((candidates << 1) | (candidates << 2))) != 0;
}

}  // namespace simd
}  // namespace KT

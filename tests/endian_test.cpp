// Byte order: the swaps of 16- and 32-bit values, signed and unsigned.
#include "kt/KTEndian.h"
#include "support.h"

namespace {

// Swaps `values` with `swap` in their unsigned and their signed form, one
// element less than there are: the last must stay as it was.
template <class Signed, class Unsigned, class Swap>
void expectSwaps(std::vector<Unsigned> values, const std::vector<Unsigned>& swapped, Swap swap) {
    std::vector<Signed> signedValues(values.begin(), values.end());
    swap(values.data(), unsigned(values.size() - 1));
    swap(signedValues.data(), unsigned(values.size() - 1));
    EXPECT_EQ(values, swapped);
    EXPECT_EQ(signedValues, std::vector<Signed>(swapped.begin(), swapped.end()));
}

TEST(EndianTest, SwapsTheBytesOf16And32BitValues) {
    expectSwaps<short, unsigned short>(
        {0x1234, 0x80FF, 0x00FF, 0, 0xFFFF, 0x0102}, {0x3412, 0xFF80, 0xFF00, 0, 0xFFFF, 0x0102},
        [](auto* values, unsigned n) { KT::Endian::swap16(values, n); });
    expectSwaps<int, unsigned>(
        {0x12345678u, 0x80000001u, 0x000000FFu, 0xFF00FF00u, 0xFFFFFFFEu, 0x01020304u},
        {0x78563412u, 0x01000080u, 0xFF000000u, 0x00FF00FFu, 0xFEFFFFFFu, 0x01020304u},
        [](auto* values, unsigned n) { KT::Endian::swap32(values, n); });
}

}  // namespace

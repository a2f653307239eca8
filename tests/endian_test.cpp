#include "kt/KTEndian.h"

#include "support.h"

namespace {

// Swaps `values` through the unsigned and the signed form of the same width,
// one element less than there are: the last must stay as it was.
template <class Unsigned, class Signed>
void expectSwaps(std::vector<Unsigned> values, const std::vector<Unsigned>& swapped,
                 void (*swapUnsigned)(Unsigned*, unsigned int),
                 void (*swapSigned)(Signed*, unsigned int)) {
    std::vector<Signed> signedValues(values.begin(), values.end());
    swapUnsigned(values.data(), unsigned(values.size() - 1));
    swapSigned(signedValues.data(), unsigned(values.size() - 1));
    EXPECT_EQ(values, swapped);
    EXPECT_EQ(signedValues, std::vector<Signed>(swapped.begin(), swapped.end()));
    swapSigned(nullptr, 0);
}

TEST(EndianTest, SwapsTheBytesOf16And32BitValues) {
    expectSwaps<unsigned short, short>({0x1234, 0x80FF, 0x00FF, 0, 0xFFFF, 0x0102},
                                       {0x3412, 0xFF80, 0xFF00, 0, 0xFFFF, 0x0102},
                                       KT::Endian::swap16, KT::Endian::swap16);
    expectSwaps<unsigned int, int>(
        {0x12345678u, 0x80000001u, 0x000000FFu, 0xFF00FF00u, 0xFFFFFFFEu, 0x01020304u},
        {0x78563412u, 0x01000080u, 0xFF000000u, 0x00FF00FFu, 0xFEFFFFFFu, 0x01020304u},
        KT::Endian::swap32, KT::Endian::swap32);
}

}  // namespace

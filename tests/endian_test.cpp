#include "kt/KTEndian.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

template <class T>
std::vector<T> swappedTwice(std::vector<T> values, void (*swap)(T*, unsigned int)) {
    swap(values.data(), unsigned(values.size()));
    swap(values.data(), unsigned(values.size()));
    return values;
}

TEST(EndianTest, Swaps16BitValues) {
    struct Row {
        unsigned short value, swapped;
    };
    const Row rows[] = {
        {0x1234, 0x3412}, {0x80FF, 0xFF80}, {0x00FF, 0xFF00}, {0, 0}, {0xFFFF, 0xFFFF}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        unsigned short plain = row.value;
        KT::Endian::swap16(&plain, 1);
        EXPECT_EQ(plain, row.swapped);
        short signedValue = short(row.value);
        KT::Endian::swap16(&signedValue, 1);
        EXPECT_EQ(signedValue, short(row.swapped));
    }
}

TEST(EndianTest, Swaps32BitValues) {
    struct Row {
        unsigned int value, swapped;
    };
    const Row rows[] = {{0x12345678u, 0x78563412u},
                        {0x80000001u, 0x01000080u},
                        {0x000000FFu, 0xFF000000u},
                        {0xFF00FF00u, 0x00FF00FFu},
                        {0, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        unsigned int plain = row.value;
        KT::Endian::swap32(&plain, 1);
        EXPECT_EQ(plain, row.swapped);
        int signedValue = int(row.value);
        KT::Endian::swap32(&signedValue, 1);
        EXPECT_EQ(signedValue, int(row.swapped));
    }
}

TEST(EndianTest, SwapsExactlyCountElements) {
    std::vector<unsigned short> shorts = {0x0102, 0x0304, 0x0506};
    KT::Endian::swap16(shorts.data(), 2);
    EXPECT_EQ(shorts, (std::vector<unsigned short>{0x0201, 0x0403, 0x0506}));

    std::vector<int> ints = {0x01020304, -2, 7};
    KT::Endian::swap32(ints.data(), 2);
    EXPECT_EQ(ints, (std::vector<int>{0x04030201, int(0xFEFFFFFFu), 7}));

    KT::Endian::swap16(static_cast<short*>(nullptr), 0);
    KT::Endian::swap32(static_cast<unsigned int*>(nullptr), 0);
}

TEST(EndianTest, SwappingTwiceGivesBackTheArray) {
    const std::vector<short> shorts = {-1, -32768, 32767, 0x1234, 0};
    const std::vector<unsigned int> words = {0xDEADBEEFu, 1u, 0x80000000u};
    EXPECT_EQ(swappedTwice<short>(shorts, KT::Endian::swap16), shorts);
    EXPECT_EQ(swappedTwice<unsigned int>(words, KT::Endian::swap32), words);
}

}  // namespace

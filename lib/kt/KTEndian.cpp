#include "kt/KTEndian.h"

#include <cstdint>

namespace KT {

namespace {

// Unsigned arithmetic throughout, so that a sign bit never spreads.
std::uint16_t swapped(std::uint16_t v) { return std::uint16_t((v >> 8) | (v << 8)); }

std::uint32_t swapped(std::uint32_t v) {
    return (v >> 24) | ((v >> 8) & 0xFF00u) | ((v << 8) & 0xFF0000u) | (v << 24);
}

template <class Value, class Bits>
void swapAll(Value* values, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) values[i] = Value(swapped(Bits(values[i])));
}

}  // namespace

void Endian::swap16(short* values, unsigned int count) { swapAll<short, std::uint16_t>(values, count); }

void Endian::swap16(unsigned short* values, unsigned int count) {
    swapAll<unsigned short, std::uint16_t>(values, count);
}

void Endian::swap32(int* values, unsigned int count) { swapAll<int, std::uint32_t>(values, count); }

void Endian::swap32(unsigned int* values, unsigned int count) {
    swapAll<unsigned int, std::uint32_t>(values, count);
}

}  // namespace KT

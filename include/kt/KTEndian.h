/// \file kt/KTEndian.h - in-place byte-order swapping of integer arrays.
#pragma once

#include "kt/KTExport.h"

namespace KT {

/// Reverses the byte order of each element of an array, in place, to convert
/// between byte orders (the data stream stores integers in the host's order).
///
///     int values[2] = {0x12345678, 1};
///     KT::Endian::swap32(values, 2);   // {0x78563412, 0x01000000}
///
/// A count of 0 touches nothing (the pointer may then be null).
class KT_API Endian {
public:
    /// Exchanges the two bytes of each of `count` 16-bit values.
    static void swap16(short* values, unsigned int count);
    /// The same for unsigned values.
    static void swap16(unsigned short* values, unsigned int count);
    /// Reverses the four bytes of each of `count` 32-bit values.
    static void swap32(int* values, unsigned int count);
    /// The same for unsigned values.
    static void swap32(unsigned int* values, unsigned int count);
};

}  // namespace KT

/// \file kt/KTTypes.h - the integer, result and flag types of libkt.
#pragma once

#include <cstdint>

#include "kt/KTExport.h"

/// The classes and types of libkt: buffers, codecs, strings, exceptions,
/// sockets and the URI descriptor.
namespace KT {

/// Sizes, lengths and capacities of buffers: a plain 32-bit int.
typedef int SIntLeast32;
/// A byte; also small option values such as the socket option byte.
typedef unsigned char UInt8;
/// Port numbers.
typedef unsigned short UInt16;
/// Result of operations that either succeed with 0 or throw; never non-zero.
typedef std::int32_t Result;

/// Ownership mode of CBuffer::init() and CBuffer::set(), used as a bit set.
/// With no bit set the buffer adopts the caller's malloc'd memory.
enum ConstructionFlags {
    /// Copy the bytes into a new allocation owned by the buffer.
    CopyData = 1,
    /// With CopyData: free() the caller's memory after copying it.
    FreeSource = 2,
    /// Without CopyData: borrow the caller's memory; it is never freed.
    NoOwnership = 4
};

/// Combines construction flags, keeping the enumeration type.
constexpr ConstructionFlags operator|(ConstructionFlags a, ConstructionFlags b) {
    return ConstructionFlags(int(a) | int(b));
}

}  // namespace KT

extern "C" {
/// Build identification of libkt: a text that begins "lib.kt-0.1: " and goes
/// on with the release path, revision, build flavour, platform and build time.
KT_API extern const char* __rev__lib_kt__kt__;
}

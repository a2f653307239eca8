// Private helpers shared by the library's sources: the one way every failure
// is thrown, and the one empty text that substrings borrow. They build on the
// public exception and string classes; nothing public includes this header.
#pragma once

#include "kt/KTException.h"
#include "kt/KTString.h"
#include "kt/KTTypes.h"

namespace KT {
namespace detail {

/// One NUL byte, read-only, that a substring past the end borrows instead of
/// allocating. Buffer operations that write give a buffer on it a block of
/// its own first.
extern const UInt8 sharedEmptyText[1];

/// The type text each exception reports, spelled as the library always has.
template <class E>
inline constexpr const char* typeText = nullptr;
template <>
inline constexpr const char* typeText<CException> = "KT::CException";
template <>
inline constexpr const char* typeText<CNetworkException> = "CNetworkException";
template <>
inline constexpr const char* typeText<CInterruptedException> = "CInterruptedException";

/// Throws E with its type text, `text` as its message, and the place it
/// reports: the file literal, the function signature and the line the
/// library has always given for that site (callers match failures on it, so
/// it stays fixed when the source around it moves).
template <class E>
[[noreturn]] void raise(const char* file, int line, const char* function, const char* text) {
    // "%s" rather than `text` as the format: system messages are data.
    CString message = CString::createWithFormat("%s", text);
    throw E(typeText<E>, line, file, function, message);
}

}  // namespace detail
}  // namespace KT

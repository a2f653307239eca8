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

/// Throws E built from the thrower's type text, line, file literal and
/// function signature, with `text` as its message.
template <class E>
[[noreturn]] void raise(const char* type, int line, const char* file, const char* function,
                        const char* text) {
    // "%s" rather than `text` as the format: system messages are data.
    CString message = CString::createWithFormat("%s", text);
    throw E(type, line, file, function, message);
}

}  // namespace detail
}  // namespace KT

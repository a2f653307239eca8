// The one way every failure of the library is thrown. It builds on the
// public exception and string classes; nothing public includes it.
#pragma once

#include "kt/KTException.h"
#include "kt/KTString.h"

namespace KT {
namespace detail {

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

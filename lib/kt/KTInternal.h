// Private helpers shared by the library's sources: the one way every failure
// is thrown, and the allocation calls (with their fault-injection seam).
#pragma once

#include <cstddef>

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

/// malloc(), unless a test has armed a fault (then null).
void* allocate(std::size_t size);
/// realloc(), unless a test has armed a fault (then null, `block` untouched).
void* reallocate(void* block, std::size_t size);

/// Test seam: makes the `n`-th allocation of this thread from now on fail
/// (1 = the next one); 0 disarms. Returns how many allocations were counted
/// since the previous call. The library itself never calls it.
long failAllocation(long n);

}  // namespace detail
}  // namespace KT

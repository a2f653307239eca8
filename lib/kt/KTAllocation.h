// The library's two ways of taking memory. Every block a buffer or a string
// allocates goes through them, so that the white-box tests can link a
// definition of their own that fails a chosen allocation; the library's
// definition (KTAllocation.cpp) is plain malloc() and realloc().
#pragma once

#include <cstddef>

namespace KT {
namespace detail {

/// malloc(): a block of `size` bytes, or null.
void* allocate(std::size_t size);
/// realloc(): `block` grown to `size` bytes, or null with `block` untouched.
void* reallocate(void* block, std::size_t size);

}  // namespace detail
}  // namespace KT

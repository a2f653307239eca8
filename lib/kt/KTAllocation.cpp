#include "KTAllocation.h"

#include <cstdlib>

// Linked into libkt.so only: the internal library leaves these two to the
// program it is linked into.
namespace KT {
namespace detail {

void* allocate(std::size_t size) { return std::malloc(size); }

void* reallocate(void* block, std::size_t size) { return std::realloc(block, size); }

}  // namespace detail
}  // namespace KT

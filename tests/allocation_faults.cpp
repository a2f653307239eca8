// The library's allocation calls as the white-box suites link them: malloc()
// and a realloc() that always moves, except the one allocation that
// failAllocation() chose.
#include "allocation_faults.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "KTAllocation.h"

namespace {
// Per thread, so that a test arming a fault is not disturbed by other threads.
thread_local long allocationsToFailure = 0;
thread_local long allocationsCounted = 0;

bool faultArmed() {
    ++allocationsCounted;
    return allocationsToFailure > 0 && --allocationsToFailure == 0;
}
}  // namespace

namespace KT {
namespace detail {

void* allocate(std::size_t size) { return faultArmed() ? nullptr : std::malloc(size); }

// Always moves the block, and spoils the old one before releasing it: code
// that still reads through a pointer into the old block then reads the wrong
// bytes in every build, not only under the sanitizers, however the C
// library's realloc() would have grown it.
void* reallocate(void* block, std::size_t size) {
    if (faultArmed()) return nullptr;
    void* moved = std::malloc(size);
    if (!moved || !block) return moved;
    const std::size_t old = ::malloc_usable_size(block);
    std::memcpy(moved, block, std::min(old, size));
    std::memset(block, '~', old);
    std::free(block);
    return moved;
}

}  // namespace detail
}  // namespace KT

long kttest::failAllocation(long n) {
    allocationsToFailure = n;
    long counted = allocationsCounted;
    allocationsCounted = 0;
    return counted;
}

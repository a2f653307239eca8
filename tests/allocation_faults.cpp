// The library's allocation calls as the white-box suites link them: malloc()
// and realloc(), except the one allocation that failAllocation() chose.
#include "allocation_faults.h"

#include <cstdlib>

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

void* reallocate(void* block, std::size_t size) {
    return faultArmed() ? nullptr : std::realloc(block, size);
}

}  // namespace detail
}  // namespace KT

long kttest::failAllocation(long n) {
    allocationsToFailure = n;
    long counted = allocationsCounted;
    allocationsCounted = 0;
    return counted;
}

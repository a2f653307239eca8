// Failing the library's allocations in turn. The suites that include this
// link the internal library together with allocation_faults.cpp, whose
// allocation calls replace the library's plain ones.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "kt/KTException.h"

namespace kttest {

/// Makes the `n`-th allocation of this thread from now on fail (1 = the next
/// one); 0 disarms. Returns how many allocations were counted since the
/// previous call.
long failAllocation(long n);

/// An operation and the lines of the sites its allocations fail at.
struct FailureCase {
    const char* name;
    std::function<void()> operation;
    std::vector<unsigned> lines;
};

/// Runs each operation with its first allocation failing, then again with its
/// second failing, and so on, until a run completes: every object it builds
/// must be released whichever allocation fails (the sanitizer build checks
/// that nothing leaks and nothing is released twice). Each failing run must
/// throw a CException, from the sites of the case's lines in that order (the
/// exception suite checks each allocation site's full content).
inline void expectFailures(const std::vector<FailureCase>& cases) {
    for (const FailureCase& row : cases) {
        SCOPED_TRACE(row.name);
        std::vector<unsigned> lines;
        for (long n = 1;; ++n) {
            failAllocation(n);
            try {
                row.operation();
            } catch (const KT::CException& thrown) {
                failAllocation(0);
                lines.push_back(thrown.line());
                continue;
            }
            EXPECT_LT(failAllocation(0), n)
                << "allocation " << n << " failed but the operation completed";
            break;
        }
        EXPECT_EQ(lines, row.lines);
    }
}

}  // namespace kttest

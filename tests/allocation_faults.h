// Failing the library's allocations in turn, and the scripts of the case
// tables, whose steps may fail one. The suites that include this link the
// internal library together with allocation_faults.cpp, whose allocation
// calls replace the library's plain ones.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
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

/// One step of a script: `name` or `name:value`, the value also read as up
/// to three numbers `N,N,N`.
struct Step {
    std::string name, value;
    int number[3] = {};
};

/// Runs the steps `texts` in turn through `run`, which adds what a step
/// outputs to the results and returns false for a step it does not know. The
/// step `nomem` (`nomem:N`) fails the first (N-th) allocation of the step
/// after it; a step that throws a KT::CException outputs "thrown".
template <class Run>
std::vector<std::string> runSteps(const std::vector<std::string>& texts, Run&& run) {
    std::vector<std::string> out;
    long failNext = 0;
    for (const std::string& text : texts) {
        Step step;
        const size_t colon = text.find(':');
        step.name = text.substr(0, colon);
        if (colon != std::string::npos) step.value = text.substr(colon + 1);
        std::sscanf(step.value.c_str(), "%d,%d,%d", &step.number[0], &step.number[1], &step.number[2]);
        failAllocation(std::exchange(failNext, step.name == "nomem" ? std::max(step.number[0], 1) : 0));
        try {
            if (step.name != "nomem" && !run(step, out)) ADD_FAILURE() << "unknown step " << text;
        } catch (const KT::CException&) {
            out.push_back("thrown");
        }
    }
    failAllocation(0);
    return out;
}

}  // namespace kttest

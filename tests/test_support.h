// Helpers shared by the suites: checking an exception by its content, and
// failing the library's allocations one after the other.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KTInternal.h"
#include "kt/KTException.h"

namespace kttest {

/// Everything a throw site puts into its exception.
struct ThrowSite {
    const char* type;
    unsigned line;
    const char* file;
    const char* function;
    const char* message;
};

inline const ThrowSite kBufferConstructorSite{"KT::CException", 220, "lib/kt/KTBuffer.cpp",
                                              "KT::CBuffer::CBuffer(KT::SIntLeast32)",
                                              "memory allocation error"};
inline const ThrowSite kBufferInitSite{
    "KT::CException", 44, "lib/kt/KTBuffer.cpp",
    "void KT::CBuffer::init(KT::SIntLeast32, KT::UInt8*, KT::ConstructionFlags)",
    "memory allocation error"};
inline const ThrowSite kBufferResizeSite{"KT::CException", 299, "lib/kt/KTBuffer.cpp",
                                         "virtual void KT::CBuffer::resize(KT::SIntLeast32)",
                                         "memory allocation error."};
inline const ThrowSite kStringAllocationSite{"KT::CException", 43, "lib/kt/KTString.cpp",
                                             "void KT::CString::init(const char*, char*)",
                                             "memory allocation error"};
inline const ThrowSite kStringFormatSite{"KT::CException", 47, "lib/kt/KTString.cpp",
                                         "void KT::CString::init(const char*, char*)",
                                         "system library call failed"};

/// Expects `thrown` to carry exactly what `site` puts into it, read through
/// every accessor and through getString().
inline void expectThrownBy(const KT::CException& thrown, const ThrowSite& site) {
    EXPECT_STREQ(thrown.what(), site.type);
    EXPECT_STREQ(thrown.type, site.type);
    EXPECT_STREQ(thrown.file(), site.file);
    EXPECT_EQ(thrown.line(), site.line);
    EXPECT_STREQ(thrown.function, site.function);
    EXPECT_STREQ(thrown.msg(), site.message);
    EXPECT_EQ(thrown.message.length, int(std::string(site.message).size() + 1));
    std::string report = std::string(" Exception of type '") + site.type + "' thrown [" +
                         site.file + ":" + std::to_string(site.line) + ", " + site.function +
                         "]: " + site.message;
    EXPECT_EQ(thrown.getString(), report.c_str());
}

/// Runs `operation` with its first allocation failing, then again with its
/// second failing, and so on, until a run completes: every object it builds
/// is released whichever allocation fails (the sanitizer build checks that
/// nothing leaks and nothing is released twice). Each failing run must throw
/// the CException of one of the library's allocation sites; returns the lines
/// of those sites in order. A run that completes although its armed
/// allocation failed is reported as a swallowed failure.
template <class Operation>
std::vector<unsigned> failEachAllocation(Operation operation) {
    static const ThrowSite* const kSites[] = {&kBufferConstructorSite, &kBufferInitSite,
                                              &kBufferResizeSite, &kStringAllocationSite};
    std::vector<unsigned> lines;
    for (long n = 1;; ++n) {
        KT::detail::failAllocation(n);
        try {
            operation();
        } catch (const KT::CException& thrown) {
            KT::detail::failAllocation(0);
            lines.push_back(thrown.line());
            bool known = false;
            for (const ThrowSite* site : kSites) {
                if (site->line != thrown.line() || std::string(site->file) != thrown.file())
                    continue;
                known = true;
                expectThrownBy(thrown, *site);
            }
            EXPECT_TRUE(known) << thrown.file() << ":" << thrown.line();
            continue;
        }
        long counted = KT::detail::failAllocation(0);
        EXPECT_LT(counted, n) << "allocation " << n << " failed but the operation completed";
        return lines;
    }
}

}  // namespace kttest

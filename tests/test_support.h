// Helpers shared by the suites: buffers from and to std::string, checking an
// exception by its content, and failing the library's allocations in turn.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "KTInternal.h"
#include "kt/KTBuffer.h"
#include "kt/KTException.h"

namespace kttest {

/// The bytes in use.
inline std::string bytesOf(const KT::CBuffer& buffer) {
    if (buffer.length <= 0) return {};
    return std::string(reinterpret_cast<const char*>(buffer.data), size_t(buffer.length));
}

/// The first `count` bytes of the storage, in use or not.
inline std::string memoryOf(const KT::CBuffer& buffer, int count) {
    return std::string(reinterpret_cast<const char*>(buffer.data), size_t(count));
}

/// A buffer (or string) holding exactly `bytes` in storage of its own.
template <class Buffer = KT::CBuffer>
Buffer bufferOf(const std::string& bytes) {
    Buffer buffer;
    buffer.set(int(bytes.size()), reinterpret_cast<KT::UInt8*>(const_cast<char*>(bytes.data())),
               KT::CopyData);
    return buffer;
}

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
    EXPECT_STREQ(thrown.file(), site.file);
    EXPECT_EQ(thrown.line(), site.line);
    EXPECT_STREQ(thrown.function, site.function);
    EXPECT_STREQ(thrown.msg(), site.message);
    EXPECT_EQ(bytesOf(thrown.message), std::string(site.message) + '\0');
    std::string report = std::string(" Exception of type '") + site.type + "' thrown [" +
                         site.file + ":" + std::to_string(site.line) + ", " + site.function +
                         "]: " + site.message;
    EXPECT_EQ(bytesOf(thrown.getString()), report + '\0');
}

/// Runs `operation` with its first allocation failing, then again with its
/// second failing, and so on, until a run completes: every object it builds
/// must be released whichever allocation fails (the sanitizer build checks
/// that nothing leaks and nothing is released twice). Each failing run must
/// throw the CException of one of the library's allocation sites; returns
/// the lines of those sites in order.
inline std::vector<unsigned> failEachAllocation(const std::function<void()>& operation) {
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
            const ThrowSite* site = nullptr;
            for (const ThrowSite* known : kSites)
                if (known->line == thrown.line() && std::string(known->file) == thrown.file())
                    site = known;
            if (site)
                expectThrownBy(thrown, *site);
            else
                ADD_FAILURE() << "unknown site " << thrown.file() << ":" << thrown.line();
            continue;
        }
        long counted = KT::detail::failAllocation(0);
        EXPECT_LT(counted, n) << "allocation " << n << " failed but the operation completed";
        return lines;
    }
}

/// An operation and the lines of the sites its allocations fail at.
struct FailureCase {
    const char* name;
    std::function<void()> operation;
    std::vector<unsigned> lines;
};

inline void expectFailures(const std::vector<FailureCase>& cases) {
    for (const FailureCase& row : cases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(failEachAllocation(row.operation), row.lines);
    }
}

}  // namespace kttest

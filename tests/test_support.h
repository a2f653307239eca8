// Helpers shared by the suites: buffers from and to std::string and the
// content of the library's throw sites.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

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

inline const ThrowSite kBufferInitSite{
    "KT::CException", 44, "lib/kt/KTBuffer.cpp",
    "void KT::CBuffer::init(KT::SIntLeast32, KT::UInt8*, KT::ConstructionFlags)",
    "memory allocation error"};

/// Runs `operation`, which must throw the exception of `site` when it has the
/// memory it needs, and returns once it has: wrapped in it, an operation that
/// fails by design can go through expectFailures() (allocation_faults.h), which fails the
/// allocations of the site's own report (its message and the exception's copy
/// of it). Any other exception passes through.
inline void whenThrownBy(const ThrowSite& site, const std::function<void()>& operation) {
    try {
        operation();
    } catch (const KT::CException& thrown) {
        if (thrown.line() != site.line || std::string(thrown.file()) != site.file) throw;
        // Not through getString(), which would allocate within the operation.
        EXPECT_STREQ(thrown.what(), site.type);
        EXPECT_STREQ(thrown.function, site.function);
        EXPECT_STREQ(thrown.msg(), site.message);
        return;
    }
    ADD_FAILURE() << "nothing thrown, expected " << site.file << ":" << site.line;
}

}  // namespace kttest

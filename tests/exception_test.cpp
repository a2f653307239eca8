#include <gtest/gtest.h>

#include <climits>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "kt/KTBuffer.h"
#include "kt/KTException.h"
#include "kt/KTString.h"
#include "support.h"

namespace {

using kttest::ThrowSite;

const ThrowSite kConstructorSite{"KT::CException", 220, "lib/kt/KTBuffer.cpp",
                                 "KT::CBuffer::CBuffer(KT::SIntLeast32)",
                                 "memory allocation error"};
const ThrowSite kResizeSite{"KT::CException", 299, "lib/kt/KTBuffer.cpp",
                            "virtual void KT::CBuffer::resize(KT::SIntLeast32)",
                            "memory allocation error."};
const ThrowSite kStringAllocationSite{"KT::CException", 43, "lib/kt/KTString.cpp",
                                      "void KT::CString::init(const char*, char*)",
                                      "memory allocation error"};
const ThrowSite kStringFormatSite{"KT::CException", 47, "lib/kt/KTString.cpp",
                                  "void KT::CString::init(const char*, char*)",
                                  "system library call failed"};

// Runs `operation`, which must throw a CException, and returns a copy of it.
std::unique_ptr<KT::CException> thrownBy(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const KT::CException& thrown) {
        KT::detail::failAllocation(0);
        return std::make_unique<KT::CException>(thrown);
    }
    ADD_FAILURE() << "nothing was thrown";
    return nullptr;
}

// Expects `thrown` to carry exactly what `site` puts into it, read through
// every accessor and through getString(), the report on one line.
void expectContent(const KT::CException& thrown, const ThrowSite& site) {
    EXPECT_STREQ(thrown.what(), site.type);
    EXPECT_STREQ(thrown.file(), site.file);
    EXPECT_EQ(thrown.line(), site.line);
    EXPECT_STREQ(thrown.function, site.function);
    EXPECT_STREQ(thrown.msg(), site.message);
    EXPECT_EQ(kttest::bytesOf(thrown.message), std::string(site.message) + '\0');
    EXPECT_EQ(kttest::bytesOf(thrown.getString()),
              std::string(" Exception of type '") + site.type + "' thrown [" + site.file + ":" +
                  std::to_string(site.line) + ", " + site.function + "]: " + site.message + '\0');
}

TEST(CExceptionTest, EachThrowSiteReportsItsTypeFileLineFunctionAndMessage) {
    struct Row {
        const char* name;
        bool failFirstAllocation;
        std::function<void()> operation;
        const ThrowSite& site;
    };
    KT::UInt8 bytes[4] = {1, 2, 3, 4};
    const Row rows[] = {
        {"constructor", true, [] { KT::CBuffer(10); }, kConstructorSite},
        {"constructor", false, [] { KT::CBuffer(INT_MAX); }, kConstructorSite},
        {"init", true, [&] { KT::CBuffer().init(4, bytes, KT::CopyData); },
         kttest::kBufferInitSite},
        {"init", false, [&] { KT::CBuffer().init(INT_MAX, bytes, KT::CopyData); },
         kttest::kBufferInitSite},
        // The caller's bytes are not freed when the copy fails.
        {"set", true, [&] { KT::CBuffer().set(4, bytes, KT::CopyData | KT::FreeSource); },
         kttest::kBufferInitSite},
        {"resize", true, [] { KT::CBuffer().resize(1); }, kResizeSite},
        {"resize", false, [] { KT::CBuffer().resize(INT_MAX); }, kResizeSite},
        {"resize past INT_MAX", false, [] { KT::CBuffer().resize(INT_MAX / 512 * 512 + 1); },
         kResizeSite},
        {"long format", true, [] { KT::CString::createWithFormat("%2000d", 7); },
         kStringAllocationSite},
        {"unconvertible format", false,
         [] { KT::CString::createWithFormat("%ls", L"\u00e9t\u00e9"); }, kStringFormatSite},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.name) + (row.failFirstAllocation ? ", no memory" : ""));
        std::unique_ptr<KT::CException> thrown = thrownBy([&] {
            if (row.failFirstAllocation) KT::detail::failAllocation(1);
            row.operation();
        });
        ASSERT_TRUE(thrown);
        expectContent(*thrown, row.site);
    }
}

TEST(CExceptionTest, PrintWritesTwoLinesToStandardError) {
    std::unique_ptr<KT::CException> thrown = thrownBy([] { KT::CBuffer().resize(INT_MAX); });
    ASSERT_TRUE(thrown);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    thrown->print();
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(err,
              "exception of type 'KT::CException' thrown [lib/kt/KTBuffer.cpp:299, virtual void "
              "KT::CBuffer::resize(KT::SIntLeast32)]:\n -> memory allocation error.\n");
}

TEST(CExceptionTest, CopyOwnsItsMessage) {
    auto original =
        std::make_unique<KT::CException>("KT::CException", 12, "lib/kt/KTBuffer.cpp", "void g()",
                                         KT::CString::createWithFormat("lost %d bytes", 3));
    KT::CException copy(*original);
    EXPECT_NE(copy.message.data, original->message.data);
    original.reset();
    expectContent(copy, {"KT::CException", 12, "lib/kt/KTBuffer.cpp", "void g()", "lost 3 bytes"});
}

TEST(CExceptionTest, AllocationFailuresAreThrownAndLeakNothing) {
    const KT::CString message("refused");
    const KT::CException built("KT::CException", 1, "f.cpp", "void f()", message);
    kttest::expectFailures({
        {"construction",
         [&] { KT::CException("KT::CException", 1, "f.cpp", "void f()", message); },
         {44}},
        {"copy", [&] { KT::CException copy(built); }, {44}},
        {"one-line report", [&] { built.getString(); }, {44}},
        // A throw site allocates its message, then the exception's copy of it.
        {"a throw site's own exception",
         [] {
             kttest::whenThrownBy(kStringFormatSite,
                                  [] { KT::CString::createWithFormat("%ls", L"\u00e9"); });
         },
         {44, 44}},
    });
}

// Caught as std::exception, a subclass is still a CException with its content.
template <class E>
void expectCaughtAsBases(const char* type) {
    SCOPED_TRACE(type);
    try {
        throw E(type, 120, "lib/kt/KTSocket.cpp", "int KT::RSocket::connect()",
                KT::CString("Connection refused"));
    } catch (const std::exception& thrown) {
        auto* base = dynamic_cast<const KT::CException*>(&thrown);
        ASSERT_NE(base, nullptr);
        expectContent(*base, {type, 120, "lib/kt/KTSocket.cpp", "int KT::RSocket::connect()",
                              "Connection refused"});
    }
}

TEST(CExceptionTest, SubclassesAreCaughtAsCExceptionAndStdException) {
    expectCaughtAsBases<KT::CNetworkException>("CNetworkException");
    expectCaughtAsBases<KT::CInterruptedException>("CInterruptedException");
}

}  // namespace

#include "kt/KTException.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "kt/KTBuffer.h"
#include "kt/KTString.h"
#include "test_support.h"

namespace {

using kttest::ThrowSite;

// Runs `operation`, which must throw a CException, and returns a copy of it.
std::unique_ptr<KT::CException> thrownBy(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const KT::CException& thrown) {
        return std::make_unique<KT::CException>(thrown);
    }
    ADD_FAILURE() << "nothing was thrown";
    return nullptr;
}

struct ThrowCase {
    const char* name;
    std::function<void()> operation;
    const ThrowSite& site;
};

TEST(CExceptionTest, EachThrowSiteReportsItsTypeFileLineFunctionAndMessage) {
    KT::UInt8 bytes[4] = {1, 2, 3, 4};
    const ThrowCase cases[] = {
        {"constructor, allocation fails",
         [] {
             KT::detail::failAllocation(1);
             KT::CBuffer buffer(10);
         },
         kttest::kBufferConstructorSite},
        {"constructor, INT_MAX", [] { KT::CBuffer buffer(INT_MAX); },
         kttest::kBufferConstructorSite},
        {"init, allocation fails",
         [&] {
             KT::CBuffer buffer;
             KT::detail::failAllocation(1);
             buffer.init(4, bytes, KT::CopyData);
         },
         kttest::kBufferInitSite},
        {"init, INT_MAX",
         [&] {
             KT::CBuffer buffer;
             buffer.init(INT_MAX, bytes, KT::CopyData);
         },
         kttest::kBufferInitSite},
        {"set, allocation fails",
         [&] {
             KT::CBuffer buffer;
             KT::detail::failAllocation(1);
             buffer.set(4, bytes, KT::CopyData | KT::FreeSource);
         },
         kttest::kBufferInitSite},
        {"resize, allocation fails",
         [] {
             KT::CBuffer buffer;
             KT::detail::failAllocation(1);
             buffer.resize(1);
         },
         kttest::kBufferResizeSite},
        {"resize, INT_MAX", [] { KT::CBuffer().resize(INT_MAX); }, kttest::kBufferResizeSite},
        {"resize, rounds past INT_MAX", [] { KT::CBuffer().resize(INT_MAX / 512 * 512 + 1); },
         kttest::kBufferResizeSite},
        {"format, long text and allocation fails",
         [] {
             KT::detail::failAllocation(1);
             KT::CString::createWithFormat("%2000d", 7);
         },
         kttest::kStringAllocationSite},
        {"format, unconvertible wide text",
         [] { KT::CString::createWithFormat("%ls", L"\u00e9t\u00e9"); }, kttest::kStringFormatSite},
    };
    for (const ThrowCase& row : cases) {
        SCOPED_TRACE(row.name);
        std::unique_ptr<KT::CException> thrown = thrownBy(row.operation);
        KT::detail::failAllocation(0);
        ASSERT_TRUE(thrown);
        kttest::expectThrownBy(*thrown, row.site);
    }
    EXPECT_EQ(bytes[3], 4);
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

TEST(CExceptionTest, GetStringIsTheReportOnOneLine) {
    std::unique_ptr<KT::CException> thrown = thrownBy([] { KT::CBuffer buffer(INT_MAX); });
    ASSERT_TRUE(thrown);
    KT::CString report = thrown->getString();
    const char expected[] =
        " Exception of type 'KT::CException' thrown [lib/kt/KTBuffer.cpp:220, "
        "KT::CBuffer::CBuffer(KT::SIntLeast32)]: memory allocation error";
    EXPECT_EQ(report, expected);
    EXPECT_EQ(report.length, int(sizeof expected));
}

TEST(CExceptionTest, GetStringCutsAnOverlongReportInsteadOfOverrunning) {
    std::string text(3000, 'x');
    KT::CException thrown("KT::CException", 1, "f.cpp", "void f()", KT::CString(text.c_str()));
    std::string report = thrown.getString().c_str();
    std::string full = " Exception of type 'KT::CException' thrown [f.cpp:1, void f()]: " + text;
    EXPECT_GE(report.size(), 1024u);
    EXPECT_LT(report.size(), full.size());
    EXPECT_EQ(full.compare(0, report.size(), report), 0);
}

TEST(CExceptionTest, CopyOwnsItsMessage) {
    auto original =
        std::make_unique<KT::CException>("KT::CException", 12, "lib/kt/KTBuffer.cpp", "void g()",
                                         KT::CString::createWithFormat("lost %d bytes", 3));
    KT::CException copy(*original);
    EXPECT_NE(copy.message.data, original->message.data);
    EXPECT_EQ(copy.function, original->function);
    original.reset();
    EXPECT_STREQ(copy.msg(), "lost 3 bytes");
    EXPECT_STREQ(copy.what(), "KT::CException");
    EXPECT_STREQ(copy.file(), "lib/kt/KTBuffer.cpp");
    EXPECT_EQ(copy.line(), 12u);
    EXPECT_STREQ(copy.function, "void g()");
}

TEST(CExceptionTest, ConstructionFailsWithTheCopyOfTheMessage) {
    KT::CString message("refused");
    EXPECT_EQ(kttest::failEachAllocation([&] {
                  KT::CException thrown("KT::CException", 1, "f.cpp", "void f()", message);
              }),
              std::vector<unsigned>{kttest::kBufferInitSite.line});
}

template <class E>
void expectCaughtAsBases(const char* type) {
    SCOPED_TRACE(type);
    const char* function = "KT::RSocket::RSocket(const char*, KT::UInt16, int, KT::UInt8)";
    try {
        throw E(type, 120, "lib/kt/KTSocket.cpp", function, KT::CString("Connection refused"));
    } catch (const KT::CException& thrown) {
        EXPECT_NE(dynamic_cast<const E*>(&thrown), nullptr);
        EXPECT_STREQ(thrown.msg(), "Connection refused");
    }
    try {
        throw E(type, 120, "lib/kt/KTSocket.cpp", function, KT::CString("Connection refused"));
    } catch (const std::exception& thrown) {
        EXPECT_NE(dynamic_cast<const E*>(&thrown), nullptr);
        EXPECT_STREQ(thrown.what(), type);
    }
}

TEST(CExceptionTest, SubclassesAreCaughtAsCExceptionAndStdException) {
    expectCaughtAsBases<KT::CNetworkException>("CNetworkException");
    expectCaughtAsBases<KT::CInterruptedException>("CInterruptedException");
}

}  // namespace

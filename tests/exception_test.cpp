#include "kt/KTException.h"

#include <gtest/gtest.h>

#include <climits>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "kt/KTBuffer.h"
#include "kt/KTString.h"
#include "test_support.h"

namespace {

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

TEST(CExceptionTest, EachThrowSiteReportsItsTypeFileLineFunctionAndMessage) {
    struct Row {
        const char* name;
        bool failFirstAllocation;
        std::function<void()> operation;
        const kttest::ThrowSite& site;
    };
    KT::UInt8 bytes[4] = {1, 2, 3, 4};
    const Row rows[] = {
        {"constructor", true, [] { KT::CBuffer(10); }, kttest::kBufferConstructorSite},
        {"constructor", false, [] { KT::CBuffer(INT_MAX); }, kttest::kBufferConstructorSite},
        {"init", true, [&] { KT::CBuffer().init(4, bytes, KT::CopyData); },
         kttest::kBufferInitSite},
        {"init", false, [&] { KT::CBuffer().init(INT_MAX, bytes, KT::CopyData); },
         kttest::kBufferInitSite},
        // The caller's bytes are not freed when the copy fails.
        {"set", true, [&] { KT::CBuffer().set(4, bytes, KT::CopyData | KT::FreeSource); },
         kttest::kBufferInitSite},
        {"resize", true, [] { KT::CBuffer().resize(1); }, kttest::kBufferResizeSite},
        {"resize", false, [] { KT::CBuffer().resize(INT_MAX); }, kttest::kBufferResizeSite},
        {"resize past INT_MAX", false, [] { KT::CBuffer().resize(INT_MAX / 512 * 512 + 1); },
         kttest::kBufferResizeSite},
        {"long format", true, [] { KT::CString::createWithFormat("%2000d", 7); },
         kttest::kStringAllocationSite},
        {"unconvertible format", false,
         [] { KT::CString::createWithFormat("%ls", L"\u00e9t\u00e9"); }, kttest::kStringFormatSite},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.name) + (row.failFirstAllocation ? ", no memory" : ""));
        std::unique_ptr<KT::CException> thrown = thrownBy([&] {
            if (row.failFirstAllocation) KT::detail::failAllocation(1);
            row.operation();
        });
        ASSERT_TRUE(thrown);
        kttest::expectThrownBy(*thrown, row.site);
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

TEST(CExceptionTest, GetStringIsTheReportOnOneLine) {
    std::unique_ptr<KT::CException> thrown = thrownBy([] { KT::CBuffer(INT_MAX); });
    ASSERT_TRUE(thrown);
    EXPECT_EQ(kttest::bytesOf(thrown->getString()),
              std::string(" Exception of type 'KT::CException' thrown [lib/kt/KTBuffer.cpp:220, "
                          "KT::CBuffer::CBuffer(KT::SIntLeast32)]: memory allocation error") +
                  '\0');
}

TEST(CExceptionTest, CopyOwnsItsMessage) {
    auto original =
        std::make_unique<KT::CException>("KT::CException", 12, "lib/kt/KTBuffer.cpp", "void g()",
                                         KT::CString::createWithFormat("lost %d bytes", 3));
    KT::CException copy(*original);
    EXPECT_NE(copy.message.data, original->message.data);
    original.reset();
    EXPECT_STREQ(copy.msg(), "lost 3 bytes");
    EXPECT_STREQ(copy.what(), "KT::CException");
    EXPECT_STREQ(copy.file(), "lib/kt/KTBuffer.cpp");
    EXPECT_EQ(copy.line(), 12u);
    EXPECT_STREQ(copy.function, "void g()");
}

TEST(CExceptionTest, ConstructionFailsWithTheCopyOfTheMessage) {
    KT::CString message("refused");
    EXPECT_EQ(kttest::failEachAllocation(
                  [&] { KT::CException("KT::CException", 1, "f.cpp", "void f()", message); }),
              std::vector<unsigned>{kttest::kBufferInitSite.line});
}

template <class E>
void expectCaughtAsBases(const char* type) {
    SCOPED_TRACE(type);
    auto raise = [type] {
        throw E(type, 120, "lib/kt/KTSocket.cpp", "int KT::RSocket::connect()",
                KT::CString("Connection refused"));
    };
    try {
        raise();
    } catch (const KT::CException& thrown) {
        EXPECT_NE(dynamic_cast<const E*>(&thrown), nullptr);
        EXPECT_STREQ(thrown.msg(), "Connection refused");
    }
    try {
        raise();
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

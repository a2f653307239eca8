#include "kt/KTException.h"

#include "allocation_faults.h"
#include "support.h"

namespace {

using kttest::ThrowSite;

// The buffer's and the string's own failures, all reported as KT::CException.
ThrowSite bufferSite(unsigned line, const char* function, const char* message) {
    return {"KT::CException", line, "lib/kt/KTBuffer.cpp", function, message};
}
ThrowSite stringInitSite(unsigned line, const char* message) {
    return {"KT::CException", line, "lib/kt/KTString.cpp",
            "void KT::CString::init(const char*, char*)", message};
}

const ThrowSite kConstructorSite =
    bufferSite(220, "KT::CBuffer::CBuffer(KT::SIntLeast32)", "memory allocation error");
const ThrowSite kResizeSite = bufferSite(299, "virtual void KT::CBuffer::resize(KT::SIntLeast32)",
                                         "memory allocation error.");
const ThrowSite kStringAllocationSite = stringInitSite(43, "memory allocation error");
const ThrowSite kStringFormatSite = stringInitSite(47, "system library call failed");

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
        kttest::expectThrow(
            [&] {
                if (row.failFirstAllocation) kttest::failAllocation(1);
                row.operation();
            },
            row.site);
    }
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

// A copy owns its message (the original is gone when it is read), and caught
// as std::exception each class is still a CException with its content.
template <class E>
void expectCopiedAndCaught(const char* type) {
    SCOPED_TRACE(type);
    const ThrowSite site{type, 120, "lib/kt/KTSocket.cpp", "int KT::RSocket::connect()",
                         "lost 3 bytes"};
    auto original = std::make_unique<E>(type, site.line, site.file, site.function,
                                        KT::CString::createWithFormat("lost %d bytes", 3));
    try {
        const E copy(*original);
        EXPECT_NE(copy.message.data, original->message.data);
        original.reset();
        throw copy;
    } catch (const std::exception& thrown) {
        auto* base = dynamic_cast<const KT::CException*>(&thrown);
        ASSERT_NE(base, nullptr);
        kttest::expectSite(*base, site);
    }
}

TEST(CExceptionTest, CopiesOwnTheirMessageAndAreCaughtAsEveryBase) {
    expectCopiedAndCaught<KT::CException>("KT::CException");
    expectCopiedAndCaught<KT::CNetworkException>("CNetworkException");
    expectCopiedAndCaught<KT::CInterruptedException>("CInterruptedException");
}

// The message is always terminated, the NUL counted in its length, also from
// a case copy (whose length leaves its terminator out); a copy is identical.
TEST(CExceptionTest, MessagesAreTerminatedAndCopiedWhole) {
    const KT::CString messages[] = {KT::CString::createWithFormat("lost %d bytes", 3),
                                    KT::CString("LOST 3 BYTES").getLowerCaseString()};
    for (const KT::CString& message : messages) {
        SCOPED_TRACE(message.length);
        const KT::CException original("KT::CException", 12, "f.cpp", "void g()", message);
        const KT::CException copy(original);
        EXPECT_EQ(kttest::bytesOf(original.message), std::string("lost 3 bytes", 13));
        EXPECT_EQ(kttest::bytesOf(copy.message), kttest::bytesOf(original.message));
    }
}

}  // namespace

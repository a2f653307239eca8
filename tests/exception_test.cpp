#include "kt/KTException.h"

#include "allocation_faults.h"
#include "support.h"

namespace {

using std::to_string;

// An E holding "lost 3 bytes", copied and thrown once the original is gone.
template <class E>
void throwCopy(const char* type) {
    auto original = std::make_unique<E>(type, 120, "lib/kt/KTSocket.cpp", "int KT::RSocket::connect()",
                                        KT::CString::createWithFormat("lost %d bytes", 3));
    const E copy(*original);
    EXPECT_NE(copy.message.data, original->message.data);
    original.reset();
    throw copy;
}

// Runs the steps of a script (tests/data/exception_cases.txt).
kttest::Results runScript(const kttest::Case& row) {
    KT::UInt8 bytes[4] = {1, 2, 3, 4};
    const std::map<std::string, std::function<void(const kttest::Step&)>> operations = {
        {"buffer", [](const kttest::Step& step) { KT::CBuffer{step.number[0]}; }},
        {"init", [&](const kttest::Step& step) { KT::CBuffer().init(step.number[0], bytes, KT::CopyData); }},
        {"set", [&](const kttest::Step&) { KT::CBuffer().set(4, bytes, KT::CopyData | KT::FreeSource); }},
        {"resize", [](const kttest::Step& step) { KT::CBuffer().resize(step.number[0]); }},
        {"long", [](const kttest::Step&) { KT::CString::createWithFormat("%2000d", 7); }},
        {"wide", [](const kttest::Step&) { KT::CString::createWithFormat("%ls", L"\u00e9t\u00e9"); }},
        {"copy",
         [](const kttest::Step& step) {
             if (step.value == "CNetworkException") throwCopy<KT::CNetworkException>(step.value.c_str());
             if (step.value == "CInterruptedException") throwCopy<KT::CInterruptedException>(step.value.c_str());
             throwCopy<KT::CException>(step.value.c_str());
         }}};
    return kttest::runSteps(row.arguments, [&](const kttest::Step& step, kttest::Results& out) {
        if (step.name == "handler") {
            struct Handler : KT::CExceptionHandlerP {
                explicit Handler(kttest::Results& out) : out(out) {}
                void handleException(const KT::CException& e) override {
                    out.push_back(std::string("handled ") + e.msg());
                }
                kttest::Results& out;
            };
            std::unique_ptr<KT::CExceptionHandlerP> handler = std::make_unique<Handler>(out);
            handler->handleException(KT::CException("KT::CException", 1, "f.cpp", "void g()",
                                                    KT::CString("lost 3 bytes")));
            return true;
        }
        if (step.name == "base") {
            const ktbase::e::base thrown("f.cpp", 12, "note");
            const std::exception& e = thrown;
            out.insert(out.end(), {e.what(), to_string(thrown.line()), thrown.file(), thrown.extra()});
            return true;
        }
        if (step.name == "message") {
            const KT::CException original("KT::CException", 12, "f.cpp", "void g()",
                                          KT::CString(step.value.c_str()).getLowerCaseString());
            out.insert(out.end(), {kttest::bytesOf(original.message), kttest::bytesOf(KT::CException(original).message),
                                   kttest::bytesOf(original.getString())});
            return true;
        }
        try {
            operations.at(step.name)(step);
            ADD_FAILURE() << "nothing thrown";
        } catch (const std::exception& thrown) {
            const auto& e = dynamic_cast<const KT::CException&>(thrown);
            const kttest::ThrowSite site{e.what(), e.line(), e.file(), e.function, e.msg()};
            kttest::expectSite(e, site);
            out.insert(out.end(), {site.type, to_string(site.line), site.file, site.function, site.message});
        }
        return true;
    });
}

TEST(CExceptionTest, Cases) { kttest::runCases("exception_cases.txt", {{"throw", runScript}}); }

}  // namespace

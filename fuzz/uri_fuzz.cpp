// URI descriptors parsed from any text agree with the URL getters, and copies
// and assignments are equal to the original.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "kt/KTURI.h"
#include "kt/url.h"

namespace {

bool same(const KT::CString& a, const KT::CString& b) { return a == b; }

bool sameDescriptor(const KT::RURI& a, const KT::RURI& b) {
    return a.scheme == b.scheme && a.port == b.port && same(a.user, b.user) &&
           same(a.password, b.password) && same(a.host, b.host) && same(a.path, b.path) &&
           same(a.uri, b.uri);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The descriptor reads its text up to the first NUL, as a C string.
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string upToNul = text.substr(0, text.find('\0'));
    const KT::RURI uri{KT::CString(upToNul.c_str())};

    FUZZ_CHECK(uri.scheme == -1 || (uri.scheme >= 0 && uri.scheme <= 7 && uri.scheme != 2));
    FUZZ_CHECK(uri.host == ktbase::url_host(upToNul, true).c_str());
    FUZZ_CHECK(uri.user == ktbase::url_user(upToNul, true).c_str());
    FUZZ_CHECK(uri.password == ktbase::url_password(upToNul, true).c_str());
    FUZZ_CHECK(uri.path == ktbase::url_path(upToNul, true).c_str());
    FUZZ_CHECK(uri.uri == upToNul.c_str());

    const KT::RURI copy(uri);
    FUZZ_CHECK(sameDescriptor(copy, uri));
    KT::RURI assigned;
    assigned = uri;
    const KT::RURI& alias = assigned;  // self-assignment must change nothing
    assigned = alias;
    FUZZ_CHECK(sameDescriptor(assigned, uri));
    return 0;
}

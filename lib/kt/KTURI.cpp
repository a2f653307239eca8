#include "kt/KTURI.h"

#include <sys/socket.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "KTURISchemes.h"
#include "kt/url.h"

namespace KT {

namespace {

const URIScheme* findScheme(const std::string& text) {
    for (const URIScheme& scheme : kURISchemes)
        if (text == scheme.lowerCase || text == scheme.upperCase) return &scheme;
    return nullptr;
}

// A port text read as atoi() reads it, but through strtol(), which has no
// undefined behaviour on overflow; only the low 16 bits are kept, so "70000"
// is 4464 and "-1" is 65535.
UInt16 portNumber(const std::string& text) {
    return static_cast<UInt16>(std::strtol(text.c_str(), nullptr, 10));
}

}  // namespace

RURI::RURI() : scheme(-1), port(0) {}

RURI::RURI(const CString& text) : scheme(-1), port(0), uri(text) { parseURI(text); }

// The strings copy themselves deeply and guard against self-assignment; the
// reference-count base starts a copy at 0 and never assigns its count.
RURI::RURI(const RURI& other) = default;
RURI& RURI::operator=(const RURI& other) = default;
RURI::~RURI() = default;

int RURI::parseURI(const CString& uri) {
    if (uri.length <= 0) return -1;
    // The text up to its first NUL, never beyond the bytes the string holds.
    const char* bytes = uri.c_str();
    const std::string text(bytes, strnlen(bytes, static_cast<std::size_t>(uri.length)));

    const URIScheme* known = findScheme(ktbase::url_scheme(text, true));
    scheme = known ? known->code : kUnknownScheme;
    // Stored up to the first NUL of what the toolkit returns.
    user = ktbase::url_user(text, true).c_str();
    password = ktbase::url_password(text, true).c_str();
    host = ktbase::url_host(text, true).c_str();
    const std::string service = ktbase::url_service(text, true);
    port = !service.empty() ? portNumber(service) : known ? known->defaultPort : 0;
    path = ktbase::url_path(text, true).c_str();
    return 0;
}

ktbase::ref<RSocket> RURI::getSocket() const {
    if (port == 0) return ktbase::ref<RSocket>();
    // If the constructor throws, the new-expression releases the memory.
    return ktbase::ref<RSocket>(
        new RSocket(host.c_str(), port, SOCK_STREAM, RSocket::CloseOnExec));
}

}  // namespace KT

// Preloaded into kt by a CLI case: every name lookup fails as for a name that
// nobody knows, so the unknown-host path runs without asking any server.
#include <netdb.h>

extern "C" hostent* gethostbyname(const char*) {
    h_errno = HOST_NOT_FOUND;
    return nullptr;
}

// Preloaded into kt by a CLI case: every name lookup fails as for a name that
// nobody knows, so the unknown-host path runs without asking any server.
#include <netdb.h>

extern "C" int gethostbyname_r(const char*, hostent*, char*, size_t, hostent** found, int* error) {
    *found = nullptr;
    *error = HOST_NOT_FOUND;
    return 0;
}

// The one way fuzz targets report a broken invariant: a message and abort(),
// which libFuzzer and the replay main both treat as a crash.
#pragma once

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                             \
    do {                                                                                  \
        if (!(condition)) {                                                               \
            std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                 \
        }                                                                                 \
    } while (0)

// Programming-error checks of the camera library: print the failed expression and abort, in
// every build type.
#pragma once

#include <cstdio>
#include <cstdlib>

#define ZT_CAMERA_CHECK(expr)                                                                \
    do {                                                                                     \
        if (!(expr)) {                                                                       \
            std::fprintf(stderr, "%s:%d: %s: check failed: %s\n", __FILE__, __LINE__,        \
                         __func__, #expr);                                                   \
            std::abort();                                                                    \
        }                                                                                    \
    } while (false)

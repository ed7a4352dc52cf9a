#include "Assert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ZTI {
namespace detail {

void assertionFailed(const char* expression, const char* file, unsigned line,
                     const char* function) noexcept {
    const char* slash = std::strrchr(file, '/');
    std::fprintf(stderr, "../image/%s:%u: %s: Assertion `%s' failed.\n", slash != nullptr ? slash + 1 : file, line,
                 function, expression);
    std::fflush(stderr);
    std::abort();
}

}  // namespace detail
}  // namespace ZTI

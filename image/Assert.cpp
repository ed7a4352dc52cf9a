#include "Assert.h"

#include <cstdio>
#include <cstdlib>

namespace ZTI {
namespace detail {

void assertionFailed(const char* expression, const char* file, unsigned line,
                     const char* function) noexcept {
    std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", file, line, function, expression);
    std::fflush(stderr);
    std::abort();
}

}  // namespace detail
}  // namespace ZTI

// Checks for programming errors: active in every build type, never compiled out.
#pragma once

namespace ZTI {
namespace detail {
/// Prints "file:line: function: Assertion `expression' failed." to standard error and aborts.
[[noreturn]] void assertionFailed(const char* expression, const char* file, unsigned line,
                                  const char* function) noexcept;
}  // namespace detail
}  // namespace ZTI

#define ZT_ASSERT(expression)                                                              \
    ((expression) ? static_cast<void>(0)                                                   \
                  : ::ZTI::detail::assertionFailed(#expression, __FILE__, __LINE__,        \
                                                   __PRETTY_FUNCTION__))

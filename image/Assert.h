// Checks for programming errors: active in every build type, never compiled out.
#pragma once

namespace ZTI {
namespace detail {
/// Prints "../image/<file>:line: function: Assertion `expression' failed." to standard error
/// and aborts. Only the file name of `file` is printed: users paste these messages into bug
/// reports, where the build machine's folders mean nothing.
[[noreturn]] void assertionFailed(const char* expression, const char* file, unsigned line,
                                  const char* function) noexcept;
}  // namespace detail
}  // namespace ZTI

// The file name alone, where the compiler offers it, keeps build paths out of the binary too.
#if defined(__FILE_NAME__)
#define ZT_ASSERT_FILE __FILE_NAME__
#else
#define ZT_ASSERT_FILE __FILE__
#endif

/// Aborts when `expression` is false, naming `function`. The function text is written out, not
/// taken from the compiler: it is part of the message users see and quote, and compilers spell
/// namespaces and type aliases differently.
#define ZT_ASSERT(expression, function)                                                   \
    ((expression) ? static_cast<void>(0)                                                  \
                  : ::ZTI::detail::assertionFailed(#expression, ZT_ASSERT_FILE, __LINE__, \
                                                   function))

/// As ZT_ASSERT, naming `unit` (a file name in image/) as the source instead of this file: for
/// a check whose message predates a move of its code, since users and their scripts match on it.
#define ZT_ASSERT_IN(expression, function, unit)                                                \
    ((expression) ? static_cast<void>(0)                                                        \
                  : ::ZTI::detail::assertionFailed(#expression, unit, __LINE__, function))

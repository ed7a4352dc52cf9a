// Failures a user of the tool can cause, with the exit status each one ends the run with.
#pragma once

#include <stdexcept>
#include <string>

namespace ztool {

/// Exit statuses of the tool.
constexpr int kExitFailure = 1;  ///< a file or an operation failed
constexpr int kExitUsage = 2;    ///< the command line is wrong

/// A one-line message for standard error and the status to exit with. Thrown by every part of
/// the tool; main prints it, so no other code writes errors itself.
class ToolError : public std::runtime_error {
public:
    explicit ToolError(const std::string& message, int status = kExitFailure)
        : std::runtime_error(message), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

/// A command-line mistake: exits with kExitUsage.
inline ToolError usageError(const std::string& message) { return ToolError(message, kExitUsage); }

}  // namespace ztool

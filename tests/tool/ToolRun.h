// Running the ztimage binary from a test, the way a user's shell does.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace tooltest {

/// What one run of the tool left behind.
struct RunResult {
    int status = -1;  ///< exit status; -1 when the tool died of a signal
    std::string out;
    std::string err;
};

/// The command that starts the tool (an emulator and its options may come first); set once
/// from the test program's arguments.
void setToolCommand(std::vector<std::string> command);

/// Runs the tool with `args` in `directory`, waits for it and collects both output streams.
/// `whileRunning`, when given, is called with the tool's process id right after it started.
RunResult runTool(const std::vector<std::string>& args, const std::string& directory,
                  const std::function<void(pid_t)>& whileRunning = nullptr);

/// A fresh directory under $TMPDIR (or /tmp), removed with everything in it on destruction.
class TempDirectory {
public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    /// Names of the entries in the directory, sorted.
    std::vector<std::string> entries() const;
    /// Names of the entries in its subdirectory `name`, sorted.
    std::vector<std::string> entries(const std::string& name) const;

private:
    std::string path_;
};

/// Writes `bytes` to `path`; the test fails at once when it cannot.
void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes);
/// The whole file, or an empty vector when it cannot be read.
std::vector<unsigned char> readBytes(const std::string& path);

}  // namespace tooltest

#include "ToolRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

extern char** environ;

namespace tooltest {
namespace {

std::vector<std::string>& toolCommand() {
    static std::vector<std::string> command;
    return command;
}

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

void setToolCommand(std::vector<std::string> command) { toolCommand() = std::move(command); }

RunResult runTool(const std::vector<std::string>& args, const std::string& directory,
                  const std::function<void(pid_t)>& whileRunning) {
    if (toolCommand().empty()) throw std::logic_error("no tool command: pass the ztimage path as an argument");
    std::vector<std::string> all = toolCommand();
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& arg : all) argv.push_back(arg.data());
    argv.push_back(nullptr);

    // The streams go to files outside `directory`, so the tests see only what the tool wrote.
    TempDirectory streams;
    const std::string outPath = streams.file("out"), errPath = streams.file("err");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    // Relative paths in `args` are the tool's own business, resolved in `directory`.
    posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    // Under the cross build's emulator wrapper, variables named ZT_RUN_AARCH64_* tell the
    // wrapper that this test program is executing itself again; the tool is another program,
    // so they are not passed on.
    std::vector<char*> environment;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (std::strncmp(*variable, "ZT_RUN_AARCH64_", 15) != 0) environment.push_back(*variable);
    }
    environment.push_back(nullptr);
    pid_t pid = -1;
    const int spawned = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environment.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error("cannot start " + all.front());
    if (whileRunning) whileRunning(pid);

    int wstatus = 0;
    while (waitpid(pid, &wstatus, 0) < 0) {
    }
    RunResult result;
    result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    result.out = slurp(outPath);
    result.err = slurp(errPath);
    return result;
}

TempDirectory::TempDirectory() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/ztimage-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary directory");
    path_ = pattern;
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TempDirectory::entries() const { return entries("."); }

std::vector<std::string> TempDirectory::entries(const std::string& name) const {
    std::vector<std::string> names;
    std::error_code missing;  // a directory that is not there has no entries
    for (const auto& entry : std::filesystem::directory_iterator(file(name), missing)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

std::vector<unsigned char> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace tooltest

// Runs a fuzz target over files without libFuzzer: each argument is an input file or a folder
// of them (its seed corpus). Lets the corpora replay in the ordinary test suite, with any
// compiler. Exits non-zero when an argument cannot be read or holds no input.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool replay(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "replay: cannot read %s\n", file.c_str());
        return false;
    }
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    size_t inputs = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path = argv[i];
        std::vector<std::filesystem::path> files;
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path))
                if (entry.is_regular_file()) files.push_back(entry.path());
            std::sort(files.begin(), files.end());  // the same order on every run
        } else {
            files.push_back(path);
        }
        for (const auto& file : files) {
            if (!replay(file)) return 1;
            ++inputs;
        }
    }
    std::printf("replayed %zu inputs\n", inputs);
    return inputs == 0 ? 1 : 0;
}

// Fuzz target: ImagePersistence::save and trySave on random images into a temporary folder,
// with every file format, codecs chosen by known and unknown extensions. Pixel formats that
// cannot be saved abort by design and are left out (canSave).
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "FuzzInput.h"

using namespace ZTI;

namespace {

// One folder per process, removed when the process exits. In memory where there is a tmpfs:
// every save flushes its file to the device, which on a disk would set the pace.
struct TempFolder {
    TempFolder() {
        std::string pattern = access("/dev/shm", W_OK) == 0 ? "/dev/shm/ztimage-fuzz-save-XXXXXX"
                                                             : "/tmp/ztimage-fuzz-save-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        path = pattern;
    }
    ~TempFolder() { std::filesystem::remove_all(path); }
    std::string path;
};

const std::string& folder() {
    static const TempFolder temp;
    return temp.path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::FuzzInput in(data, size);
    static const PfncFormat_ kFormats[] = {Mono8, Mono12, Mono16, BayerRG8, BayerGB12, RGB8, BGR8,
                                           RGBa8, RGB12, YUV422_8, YCbCr8, Mono10};
    const PfncFormat_ format = in.below(6) == 0 ? fuzz::anyFormat(in) : in.pick(kFormats);
    const auto fileFormat = static_cast<ImageFileFormat>(in.below(7));
    if (!ImagePersistence::canSave(fileFormat, format)) return 0;
    const uint32_t width = fuzz::dimension(in, 24), height = fuzz::dimension(in, 24);
    static const uint64_t kPaddings[] = {0, 0, 1, 3, ULONG_MAX - 40};
    const uint64_t padding = in.pick(kPaddings);
    std::unique_ptr<fuzz::Memory> memory;
    ZTImage image;
    if (!fuzz::makeImage(in, format, width, height, padding, memory, image)) return 0;

    static const char* const kNames[] = {"a.png", "a.bmp", "a.tiff", "a.pgm", "a.ppm", "a.jpg", "a.xyz", "noextension", "sub/a.png"};
    const std::string path = folder() + "/" + in.pick(kNames);
    try {
        ImagePersistence::save(fileFormat, image, path.c_str());
    } catch (const cv::Exception&) {
        // A codec that throws (its own errors pass through).
    }
    std::string error;
    try {
        ImagePersistence::trySave(fileFormat, image, path.c_str(), error);
    } catch (const cv::Exception&) {
    }
    std::filesystem::remove(path);
    // Nothing else is left behind: no temporary file survives a save.
    if (!std::filesystem::is_empty(folder())) std::abort();
    return 0;
}

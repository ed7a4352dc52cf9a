// Soak run: many frames from virtual cameras through the library's pipelines, as an
// application would stream them for weeks. Checks that resident memory stops growing after
// warm-up, and counts the system allocations every stage makes per frame in steady state.
//
//   soak [--frames N] [--width W] [--height H]      (defaults: 100000 frames of 256 x 192)
//
// Prints frames per second, allocations per frame of every stage and peak memory. Exits 1
// when resident memory grows after warm-up by more than kGrowthLimit, or when a stage that
// needs no temporaries allocates in steady state; 2 on bad arguments.
#include <ZTImageLib.h>

#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "../LibcAllocator.h"

// ---- allocation counting --------------------------------------------------------------------
// Every allocation of the process, also OpenCV's and the C++ runtime's (operator new calls
// malloc), goes through these definitions, which count and hand over to the C library.

namespace {
std::atomic<uint64_t> allocations{0}, allocatedBytes{0};
inline void count(size_t bytes) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    allocatedBytes.fetch_add(bytes, std::memory_order_relaxed);
}
}  // namespace

extern "C" void* malloc(size_t size) {
    count(size);
    return __libc_malloc(size);
}
extern "C" void* calloc(size_t n, size_t size) {
    count(n * size);
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* pointer, size_t size) {
    count(size);
    return __libc_realloc(pointer, size);
}
extern "C" void free(void* pointer) { __libc_free(pointer); }
extern "C" void* memalign(size_t alignment, size_t size) {
    count(size);
    return __libc_memalign(alignment, size);
}
extern "C" void* aligned_alloc(size_t alignment, size_t size) {
    count(size);
    return __libc_memalign(alignment, size);
}
extern "C" int posix_memalign(void** out, size_t alignment, size_t size) {
    count(size);
    if (alignment < sizeof(void*) || (alignment & (alignment - 1)) != 0) return EINVAL;
    void* pointer = __libc_memalign(alignment, size);
    if (pointer == nullptr) return ENOMEM;
    *out = pointer;
    return 0;
}

// ---- the run ----------------------------------------------------------------------------------

namespace {

using namespace ZTI;

// Resident memory may move by allocator bookkeeping and page rounding; a leak of even one
// small frame's worth per thousand frames exceeds this over a full run.
constexpr long kGrowthLimit = 4L << 20;

long residentBytes() {
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return resident * sysconf(_SC_PAGESIZE);
}

long peakBytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss * 1024L;
}

// One step of a pipeline, with what it allocated in steady state.
struct Stage {
    std::string name;
    std::function<bool()> run;  // false: the library reported a failure
    /// System allocations per frame the step may make: none for pixel memory, which comes
    /// from the pool once warm, and into reused destinations; only the small temporaries the
    /// step is documented to make (see the list of stages).
    double budget;
    uint64_t allocations = 0;
    uint64_t bytes = 0;
    uint64_t frames = 0;
    uint64_t failures = 0;
};

std::unique_ptr<VirtualCamera> openCamera(PfncFormat_ format, unsigned width, unsigned height, VirtualScene scene) {
    VirtualCameraConfig config;
    config.pixelType = format;
    config.width = width;
    config.height = height;
    config.scene = scene;
    std::string error;
    std::unique_ptr<VirtualCamera> camera = VirtualCamera::open(config, &error);
    if (!camera) {
        std::fprintf(stderr, "soak: cannot open a %s camera: %s\n", getPixelFormatName(format), error.c_str());
        std::exit(2);
    }
    return camera;
}

bool parse(int argc, char** argv, unsigned long& frames, unsigned& width, unsigned& height) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (i + 1 >= argc) return false;
        char* end = nullptr;
        const unsigned long value = std::strtoul(argv[++i], &end, 10);
        if (*end != '\0' || value == 0) return false;
        if (arg == "--frames") frames = value;
        else if (arg == "--width" && value % 2 == 0 && value <= 4096) width = static_cast<unsigned>(value);
        else if (arg == "--height" && value % 2 == 0 && value <= 4096) height = static_cast<unsigned>(value);
        else return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    unsigned long frames = 100000;
    unsigned width = 256, height = 192;
    if (!parse(argc, argv, frames, width, height)) {
        std::fprintf(stderr, "usage: soak [--frames N] [--width W] [--height H]   (even sizes up to 4096)\n");
        return 2;
    }

    // Three cameras: a Bayer colour sensor, a packed 12-bit mono sensor, a polarized sensor.
    std::unique_ptr<VirtualCamera> bayerCamera = openCamera(BayerRG12, width, height, VirtualScene::Colour);
    std::unique_ptr<VirtualCamera> packedCamera = openCamera(Mono12p, width, height, VirtualScene::Colour);
    std::unique_ptr<VirtualCamera> polarCamera = openCamera(Mono8, width, height, VirtualScene::Polarization);

    // The application's long-lived objects: one converter per output, destinations reused.
    ZTImageFormatConverter toRgb8, toMono8;
    toRgb8.setOutputFormat(RGB8);
    toMono8.setOutputFormat(Mono8);
    ZTImage bayer, packed, polar, rgb, mono, monoFromPacked, stretched, equalized;
    ZTImage s0, dolp, aolp, heatmap, tiled, tiledPlain;

    // Budgets, in system allocations per frame. Every local ZTImage holds its implementation
    // object on the heap (1); an OpenCV matrix that allocates takes 2 (data and header).
    // - grab + attach: the camera library's frame handle (its shared record and release
    //   callback, 2); attaching adds nothing, unpacking draws its 16-bit image from the pool.
    // - Bayer converters: the demosaic library's working rows (2); Bayer2Rgb also measures the
    //   frame's range for a depth change in bands of 32 rows (one matrix, 2). Their frame-sized
    //   temporaries come from the pool.
    // - histStretch: a lookup table (1) when its fixed-point form is not exact for the range
    //   (for this range it is, so the stage makes none).
    // - polarization: the polarization library's outputs (3 for a Stokes product, 2 for its
    //   8-bit scaling, 10 for a heat map, 2 per angle plane), the working image (1) and the
    //   result image (2 for the products); the plain tiling's alias guard (1).
    const auto grab = [](VirtualCamera& camera, ZTImage& image) {
        ZTGrabResultPtr frame = camera.grab();
        if (!frame) return false;
        image.attachGrabResult(frame);
        return image.isValid();
    };
    std::vector<Stage> stages = {
        {"grab + attach BayerRG12 (viewed)", [&] { return grab(*bayerCamera, bayer); }, 2},
        {"convert RGB8 <- BayerRG12", [&] { return toRgb8.convert(rgb, bayer) == 0; }, 4},
        {"convert Mono8 <- BayerRG12", [&] { return toMono8.convert(mono, bayer) == 0; }, 2},
        {"grab + attach Mono12p (unpacked)", [&] { return grab(*packedCamera, packed); }, 2},
        {"convert Mono8 <- Mono12", [&] { return toMono8.convert(monoFromPacked, packed) == 0; }, 0},
        {"histStretch Mono12", [&] {
             if (stretched.getWidth() != width) stretched = ZTImage::create(Mono12, width, height);
             return histStretch(packed, stretched, 100, 3000) == 0;
         }, 1},
        {"histEqual Mono8", [&] {
             if (equalized.getWidth() != width) equalized = ZTImage::create(Mono8, width, height);
             return histEqual(monoFromPacked, equalized) == 0;
         }, 0},
        {"grab + attach Mono8 (polarized)", [&] { return grab(*polarCamera, polar); }, 2},
        {"CreateStokesS0", [&] { return CreateStokesS0(polar, s0) == 0; }, 8},
        {"CreateDolp", [&] { return CreateDolp(polar, dolp) == 0; }, 8},
        {"CreateAolp", [&] { return CreateAolp(polar, aolp) == 0; }, 8},
        {"CreateHeatmap", [&] { return CreateHeatmap(polar, heatmap, 10, 80, 1, 5) == 0; }, 14},
        {"ExtractFullPolarQuadrant", [&] { return ExtractFullPolarQuadrant(polar, tiled) == 0; }, 9},
        {"extractFullPolarQuadrant", [&] { return extractFullPolarQuadrant(polar, tiledPlain) == 0; }, 1},
    };

    // Warm-up: the pool and the caches fill, OpenCV sets itself up. Memory and allocations are
    // measured from here on.
    const unsigned long warmup = frames < 2000 ? frames / 4 : 500;
    long residentAfterWarmup = 0, residentMax = 0;
    const auto start = std::chrono::steady_clock::now();
    auto steadyStart = start;
    for (unsigned long frame = 0; frame < frames; ++frame) {
        if (frame == warmup) {
            residentAfterWarmup = residentBytes();
            steadyStart = std::chrono::steady_clock::now();
        }
        for (Stage& stage : stages) {
            const uint64_t before = allocations.load(std::memory_order_relaxed);
            const uint64_t bytesBefore = allocatedBytes.load(std::memory_order_relaxed);
            const bool ok = stage.run();
            const uint64_t after = allocations.load(std::memory_order_relaxed);
            if (frame >= warmup) {
                stage.allocations += after - before;
                stage.bytes += allocatedBytes.load(std::memory_order_relaxed) - bytesBefore;
                ++stage.frames;
                if (!ok) ++stage.failures;
            }
        }
        // The images keep viewed frames until the next attach; release them like an
        // application that is done with a frame.
        bayer = ZTImage();
        polar = ZTImage();
        if (frame >= warmup && frame % 1000 == 0) {
            const long resident = residentBytes();
            if (resident > residentMax) residentMax = resident;
        }
    }
    const auto end = std::chrono::steady_clock::now();
    const long residentEnd = residentBytes();
    if (residentEnd > residentMax) residentMax = residentEnd;

    const double seconds = std::chrono::duration<double>(end - start).count();
    const double steadySeconds = std::chrono::duration<double>(end - steadyStart).count();
    const unsigned long steadyFrames = frames - warmup;
    std::printf("soak: %lu frames of %u x %u through %zu stages in %.1f s: %.0f frames per second "
                "(steady state %.0f)\n",
                frames, width, height, stages.size(), seconds, frames / seconds,
                steadyFrames / (steadySeconds > 0 ? steadySeconds : 1));
    std::printf("%-36s %13s %8s %13s %9s\n", "stage", "allocs/frame", "budget", "bytes/frame", "failures");
    bool overBudget = false, failed = false;
    for (const Stage& stage : stages) {
        const double perFrame = stage.frames != 0 ? static_cast<double>(stage.allocations) / stage.frames : 0;
        const bool over = perFrame > stage.budget;
        overBudget = overBudget || over;
        failed = failed || stage.failures != 0;
        const double bytesPerFrame = stage.frames != 0 ? static_cast<double>(stage.bytes) / stage.frames : 0;
        std::printf("%-36s %13.2f %8.0f %13.0f %9llu%s\n", stage.name.c_str(), perFrame, stage.budget, bytesPerFrame,
                    static_cast<unsigned long long>(stage.failures), over ? "  OVER BUDGET" : "");
    }
    const long growth = residentEnd - residentAfterWarmup;
    std::printf("resident memory: %.1f MiB after warm-up (%lu frames), %.1f MiB at the end, growth %+.2f MiB "
                "(limit %.0f MiB); peak %.1f MiB\n",
                residentAfterWarmup / 1048576.0, warmup, residentEnd / 1048576.0, growth / 1048576.0,
                kGrowthLimit / 1048576.0, peakBytes() / 1048576.0);
    if (growth > kGrowthLimit) std::printf("soak: FAILED: resident memory keeps growing\n");
    if (overBudget) std::printf("soak: FAILED: a stage allocates more than its documented temporaries\n");
    if (failed) std::printf("soak: FAILED: the library reported failures\n");
    return growth > kGrowthLimit || overBudget || failed ? 1 : 0;
}

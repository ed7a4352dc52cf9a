// Allocation failures injected into every public function: each call is run again and again,
// failing its 1st, 2nd, 3rd ... allocation (the pool's posix_memalign, operator new through
// malloc, OpenCV's fastMalloc) until a run completes with nothing injected. Every run must end
// in a documented way (a failure status, an invalid image, std::bad_alloc or cv::Exception),
// free everything it allocated, and leave its destination as the function documents.
#include <ZTImageLib.h>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <dlfcn.h>
#include <execinfo.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "LibcAllocator.h"

// ---- the allocator entry points ----------------------------------------------------------------
// Defined in the executable, so the libraries' calls land here (operator new calls malloc).
// Only the test's own thread is armed; everything hands over to the C library.

namespace {

constexpr int kFrames = 12;       // stack frames kept per allocation
thread_local bool armed = false;  // injecting on this thread
long allocationIndex = 0;         // allocations of the armed run so far
long failAt = 0;                  // the one to fail (1-based)
bool injected = false;            // whether the run reached it
bool freshPoolBuffer = false;     // set by every page-aligned (pool) allocation

// Blocks allocated by an armed run and not yet freed. The pool's page-aligned buffers are not
// entered: the pool keeps them on purpose. A fixed table, so tracking allocates nothing.
constexpr size_t kSlots = 1 << 14;
void* live[kSlots];
long liveIndex[kSlots];        // the armed allocation that made it
bool liveFastMalloc[kSlots];   // made by OpenCV's cv::fastMalloc
long runSerial = 0;            // the current armed run
long liveRun[kSlots];          // the run that made it
void* liveStack[kSlots][kFrames];  // where it was made, printed when it leaks
size_t liveCount = 0;
std::atomic_flag tableLock = ATOMIC_FLAG_INIT;

struct TableGuard {
    TableGuard() {
        while (tableLock.test_and_set(std::memory_order_acquire)) {
        }
    }
    ~TableGuard() { tableLock.clear(std::memory_order_release); }
};

size_t slotOf(const void* pointer) { return (reinterpret_cast<uintptr_t>(pointer) >> 4) % kSlots; }

// True when `caller` lies in OpenCV's cv::fastMalloc.
bool inFastMalloc(void* caller) {
    Dl_info info{};
    return dladdr(caller, &info) != 0 && info.dli_sname != nullptr &&
           std::strcmp(info.dli_sname, "_ZN2cv10fastMallocEm") == 0;
}

// True when the stack passes through cv::imencode (the codecs' own allocations).
bool madeByEncoder(void* const* stack) {
    for (int i = 0; i < kFrames; ++i) {
        Dl_info info{};
        if (stack[i] != nullptr && dladdr(stack[i], &info) != 0 && info.dli_sname != nullptr &&
            std::strstr(info.dli_sname, "imencode") != nullptr) {
            return true;
        }
    }
    return false;
}

void remember(void* pointer, void* caller) {
    if (pointer == nullptr) return;
    const bool fastMalloc = inFastMalloc(caller);
    void* stack[kFrames] = {};
    backtrace(stack, kFrames);
    TableGuard guard;
    for (size_t i = slotOf(pointer), n = 0; n < kSlots; i = (i + 1) % kSlots, ++n) {
        if (live[i] == nullptr) {
            live[i] = pointer;
            liveIndex[i] = allocationIndex;
            liveFastMalloc[i] = fastMalloc;
            liveRun[i] = runSerial;
            std::memcpy(liveStack[i], stack, sizeof stack);
            ++liveCount;
            return;
        }
    }
}

void forget(void* pointer) {
    if (pointer == nullptr || liveCount == 0) return;
    TableGuard guard;
    // Linear probing with deletion by re-inserting the rest of the cluster.
    size_t i = slotOf(pointer);
    for (size_t n = 0; n < kSlots && live[i] != nullptr; i = (i + 1) % kSlots, ++n) {
        if (live[i] != pointer) continue;
        live[i] = nullptr;
        --liveCount;
        for (size_t j = (i + 1) % kSlots; live[j] != nullptr; j = (j + 1) % kSlots) {
            void* moved = live[j];
            live[j] = nullptr;
            const long movedIndex = liveIndex[j];
            const bool movedFastMalloc = liveFastMalloc[j];
            const long movedRun = liveRun[j];
            void* movedStack[kFrames];
            std::memcpy(movedStack, liveStack[j], sizeof movedStack);
            size_t k = slotOf(moved);
            while (live[k] != nullptr) k = (k + 1) % kSlots;
            live[k] = moved;
            liveIndex[k] = movedIndex;
            liveFastMalloc[k] = movedFastMalloc;
            liveRun[k] = movedRun;
            std::memcpy(liveStack[k], movedStack, sizeof movedStack);
        }
        return;
    }
}

// True when this allocation is the one to fail.
bool madeByEncoder(void* const* stack);
bool spareEncoder = false;  // leave the codec's own allocations alone (see the TIFF subject)
bool spared = false;        // the allocation to fail was the codec's and was left alone

bool failsNow() {
    if (!armed) return false;
    if (++allocationIndex != failAt) return false;
    if (spareEncoder) {
        void* stack[kFrames] = {};
        backtrace(stack, kFrames);
        if (madeByEncoder(stack)) {
            spared = true;
            return false;
        }
    }
    injected = true;
    return true;
}

}  // namespace

extern "C" void* malloc(size_t size) {
    if (failsNow()) return nullptr;
    void* pointer = __libc_malloc(size);
    if (armed) remember(pointer, __builtin_return_address(0));
    return pointer;
}
extern "C" void* calloc(size_t n, size_t size) {
    if (failsNow()) return nullptr;
    void* pointer = __libc_calloc(n, size);
    if (armed) remember(pointer, __builtin_return_address(0));
    return pointer;
}
extern "C" void* realloc(void* pointer, size_t size) {
    if (pointer != nullptr && size != 0 && failsNow()) return nullptr;
    forget(pointer);
    void* moved = __libc_realloc(pointer, size);
    if (armed) remember(moved, __builtin_return_address(0));
    return moved;
}
extern "C" void free(void* pointer) {
    forget(pointer);
    __libc_free(pointer);
}
extern "C" void* memalign(size_t alignment, size_t size) {
    if (failsNow()) return nullptr;
    void* pointer = __libc_memalign(alignment, size);
    if (armed) remember(pointer, __builtin_return_address(0));
    return pointer;
}
extern "C" void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
extern "C" int posix_memalign(void** out, size_t alignment, size_t size) {
    if (alignment < sizeof(void*) || (alignment & (alignment - 1)) != 0) return EINVAL;
    if (failsNow()) return ENOMEM;
    void* pointer = __libc_memalign(alignment, size);
    if (pointer == nullptr) return ENOMEM;
    // Page-aligned blocks are the buffer pool's, which keeps them for reuse.
    if (alignment >= 4096) freshPoolBuffer = true;
    else if (armed) remember(pointer, __builtin_return_address(0));
    *out = pointer;
    return 0;
}

// ---- the runs --------------------------------------------------------------------------------------

namespace {

using namespace ZTI;
namespace fs = std::filesystem;

// How a run ended.
enum class End { Success, Failure, BadAlloc, CvException };

const char* describe(End end) {
    switch (end) {
        case End::Success: return "success";
        case End::Failure: return "failure status";
        case End::BadAlloc: return "std::bad_alloc";
        case End::CvException: return "cv::Exception";
    }
    return "?";
}

// One public function under test. `run` makes its inputs (unarmed), calls the function armed
// through `arm`, and checks what it left; it returns how the call ended.
using Arm = std::function<End(const std::function<End()>&)>;
struct Subject {
    std::string name;
    std::function<End(unsigned width, const Arm& arm)> run;
};

// Totals reported at the end, for the robustness notes.
long totalSites = 0, totalSurvived = 0, totalFunctions = 0, openCvLeaks = 0, totalSpared = 0;

// Every run starts with an empty pool, so that its posix_memalign is reached every time, not
// only on the first run: the cached buffers are taken out (a request of 1 byte takes any) until
// the pool has to allocate, and handed back to the system (they came from posix_memalign).
// Sizes stay the same from run to run, so the pool's own lists need no new memory.
void drainPool() {
    ImageBufferPool& pool = ImageBufferPool::getInstance();
    for (;;) {
        freshPoolBuffer = false;
        unsigned char* buffer = pool.acquireBuffer(1);
        std::free(buffer);
        if (freshPoolBuffer || buffer == nullptr) return;
    }
}

constexpr unsigned kWidth = 24;

ZTImage filled(PfncFormat_ format, unsigned width, unsigned height, unsigned seed) {
    ZTImage image = ZTImage::create(format, width, height);
    unsigned char* p = image.getBuffer();
    for (size_t i = 0; i < image.getByteCount(); ++i) p[i] = static_cast<unsigned char>((i * 37 + seed) >> 1);
    // 16-bit samples of up to 12 bits, as a camera gives them.
    if (getBitsPerChannel(format) == 12) {
        auto* words = reinterpret_cast<uint16_t*>(p);
        for (size_t i = 0; i < image.getByteCount() / 2; ++i) words[i] &= 0x0FFF;
    }
    return image;
}

// A destination with known contents, and the check that a failed call left it so.
struct KeptDestination {
    ZTImage image = filled(Mono8, 2, 2, 7);
    const unsigned char* buffer = image.getBuffer();
    bool unchanged() const {
        return image.getPixelType() == Mono8 && image.getWidth() == 2 && image.getHeight() == 2 &&
               image.getBuffer() == buffer && buffer[0] == filled(Mono8, 2, 2, 7).getBuffer()[0];
    }
};

// Runs `call` armed; the documented exceptions end the call, anything else fails the test.
End armedCall(const std::function<End()>& call) {
    End end = End::Failure;
    armed = true;
    try {
        end = call();
    } catch (const std::bad_alloc&) {
        end = End::BadAlloc;
    } catch (const cv::Exception&) {
        end = End::CvException;
    }
    armed = false;
    return end;
}

// Open file descriptors of the process: a failed save must close what it opened.
size_t openFiles() {
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        static_cast<void>(entry);
        ++count;
    }
    return count;
}

void injectInto(const Subject& subject) {
    SCOPED_TRACE(subject.name);
    // One run unarmed first: what the libraries set up once per process (OpenCV's tables and
    // thread-local data, function-local statics) is not a per-call allocation.
    subject.run(kWidth, [](const std::function<End()>& call) { return call(); });
    long sites = 0, survived = 0;
    for (long n = 1;; ++n) {
        allocationIndex = 0;
        failAt = n;
        injected = false;
        spared = false;
        ++runSerial;
        drainPool();
        const int failuresBefore = testing::UnitTest::GetInstance()->current_test_case()->failed_test_count() +
                                   testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
        const size_t filesBefore = openFiles();
        bool ended = false;
        const End end = subject.run(kWidth, [&](const std::function<End()>& call) {
            const End result = armedCall(call);
            ended = true;
            return result;
        });
        // Blocks this run allocated and did not free. Two kinds are OpenCV 4.6's own and are
        // counted apart: Mat::create allocates the pixels with fastMalloc and then its
        // bookkeeping with operator new, and loses the pixels when the second allocation
        // throws (the block allocated just before the injected failure); and the PNG encoder
        // behind imencode loses libpng's structures when a later libpng allocation fails.
        long leaked = 0;
        for (size_t i = 0; i < kSlots; ++i) {
            if (live[i] == nullptr || liveRun[i] != runSerial) continue;
            if ((liveFastMalloc[i] && liveIndex[i] == n - 1) || madeByEncoder(liveStack[i])) {
                ++openCvLeaks;
                continue;
            }
            ++leaked;
            std::fprintf(stderr, "block of allocation %ld not freed, made at:\n", liveIndex[i]);
            backtrace_symbols_fd(liveStack[i], kFrames, 2);
        }
        EXPECT_TRUE(ended) << "allocation " << n << ": the call did not return";
        EXPECT_EQ(openFiles(), filesBefore) << "allocation " << n << " failed (" << describe(end) << ")";
        EXPECT_EQ(leaked, 0) << "allocation " << n << " failed (" << describe(end) << "): " << leaked
                             << " blocks not freed";
        if (spared) {
            ++totalSpared;
            continue;
        }
        if (!injected) {
            EXPECT_EQ(end, End::Success) << "with nothing injected after " << n - 1 << " allocations";
            break;
        }
        ++sites;
        const int failuresAfter = testing::UnitTest::GetInstance()->current_test_case()->failed_test_count() +
                                  testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
        if (failuresAfter == failuresBefore) ++survived;
        if (n > 400) {
            ADD_FAILURE() << "more than 400 allocations in one call";
            break;
        }
    }
    std::printf("faults: %-34s %3ld allocation sites injected, %3ld calls survived\n", subject.name.c_str(), sites,
                survived);
    totalSites += sites;
    totalSurvived += survived;
    ++totalFunctions;
}

// A product function with the common contract: 0, or -1 with the destination unchanged.
Subject product(const std::string& name, PfncFormat_ format, std::function<int(const ZTImage&, ZTImage&)> function,
                bool mayResetOnFailure = false) {
    return {name, [=](unsigned width, const Arm& arm) {
                const ZTImage src = filled(format, width, 4, 3);
                KeptDestination dst;
                const End end = arm([&] { return function(src, dst.image) == 0 ? End::Success : End::Failure; });
                if (end == End::Success) {
                    EXPECT_TRUE(dst.image.isValid());
                } else if (!(mayResetOnFailure && !dst.image.isValid())) {
                    EXPECT_TRUE(dst.unchanged()) << describe(end) << " changed the destination";
                }
                return end;
            }};
}

Subject conversion(PfncFormat_ to, PfncFormat_ from) {
    const std::string name = std::string("convert ") + getPixelFormatName(to) + " <- " + getPixelFormatName(from);
    return {name, [=](unsigned width, const Arm& arm) {
                const ZTImage src = filled(from, width, 4, 5);
                ZTImage dst;
                return arm([&] {
                    ZTImageFormatConverter converter;
                    converter.setOutputFormat(to);
                    if (converter.convert(dst, src) != 0) return End::Failure;
                    // Success means every pixel is there.
                    return dst.isValid() && dst.getPixelType() == to && dst.getWidth() == src.getWidth()
                               ? End::Success
                               : End::Failure;
                });
            }};
}

std::vector<Subject> subjects(const std::string& folder) {
    std::vector<Subject> all = {
        {"ZTImage::create",
         [](unsigned width, const Arm& arm) {
             return arm([&] { return ZTImage::create(RGB8, width, 4).isValid() ? End::Success : End::Failure; });
         }},
        {"ZTImage copy and assignment",
         [](unsigned width, const Arm& arm) {
             const ZTImage src = filled(Mono12, width, 4, 1);
             ZTImage assigned = filled(Mono8, 2, 2, 7);
             return arm([&] {
                 ZTImage copy(src);
                 assigned = copy;
                 return copy.isValid() && assigned.isValid() ? End::Success : End::Failure;
             });
         }},
        {"cloneShared and cloneValue",
         [](unsigned width, const Arm& arm) {
             const ZTImage src = filled(RGB8, width, 4, 1);
             return arm([&] {
                 const auto shared = imageutil::cloneShared(src);
                 const ZTImage value = imageutil::cloneValue(src);
                 return shared && shared->isValid() && value.isValid() ? End::Success : End::Failure;
             });
         }},
        {"attachGrabResult (Mono12p unpacked)",
         [](unsigned width, const Arm& arm) {
             std::vector<unsigned char> frame(width * 4 * 3 / 2, 0x5A);
             return arm([&] {
                 ZTImage image;
                 image.attachGrabResult(createGrabResult(Mono12p, width, 4, 0, frame.data(), frame.size()));
                 return image.isValid() ? End::Success : End::Failure;
             });
         }},
        {"attachGrabResult (BayerRG8 viewed)",
         [](unsigned width, const Arm& arm) {
             std::vector<unsigned char> frame(width * 4, 0x5A);
             return arm([&] {
                 ZTImage image;
                 image.attachGrabResult(createGrabResult(BayerRG8, width, 4, 0, frame.data(), frame.size()));
                 return image.isValid() ? End::Success : End::Failure;
             });
         }},
        conversion(Mono8, Mono12),
        conversion(Mono16, Mono12),
        conversion(RGB8, Mono8),
        conversion(Mono8, RGB8),
        conversion(RGB8, BGR8),
        conversion(RGB8, BayerRG8),
        conversion(RGB8, BayerRG12),
        conversion(RGB16, BayerGB16),
        conversion(Mono8, BayerRG8),
        conversion(RGB8, YUV422_8),
        conversion(RGB8, YUV8_UYV),
        conversion(RGB8, RGBa8),
        conversion(RGB8, RGB12),
        {"histStretch Mono12",
         [](unsigned width, const Arm& arm) {
             ZTImage src = filled(Mono12, width, 4, 2);
             ZTImage dst = filled(Mono12, width, 4, 9);
             return arm([&] { return histStretch(src, dst, 100, 3000) == 0 ? End::Success : End::Failure; });
         }},
        {"histEqual Mono8",
         [](unsigned width, const Arm& arm) {
             ZTImage src = filled(Mono8, width, 4, 2);
             ZTImage dst = filled(Mono8, width, 4, 9);
             return arm([&] { return histEqual(src, dst) == 0 ? End::Success : End::Failure; });
         }},
        product("CreateStokesS0", Mono8, CreateStokesS0),
        product("CreateStokesS1", Mono8, CreateStokesS1),
        product("CreateStokesS2 (of Mono12)", Mono12, CreateStokesS2),
        product("CreateDolp", Mono8, CreateDolp),
        product("CreateAolp", Mono8, CreateAolp),
        product("CreateGlareReduced", Mono8, CreateGlareReduced),
        product("CreateHeatmap", Mono8, [](const ZTImage& s, ZTImage& d) { return CreateHeatmap(s, d, 0, 100, 1, 5); }),
        product("CreateHeatmap (of Mono12)", Mono12,
                [](const ZTImage& s, ZTImage& d) { return CreateHeatmap(s, d, 10, 90, 0, 6); }),
        product("ExtractPolarQuadrant", Mono8,
                [](const ZTImage& s, ZTImage& d) { return ExtractPolarQuadrant(s, d, PolarQuadrantI135); }),
        // The tilings reset the destination before they fill it: a failed reset leaves it
        // without memory, as documented.
        product("ExtractFullPolarQuadrant", Mono8, ExtractFullPolarQuadrant, true),
        product("extractFullPolarQuadrant", Mono16, extractFullPolarQuadrant, true),
    };
    for (const char* extension : {".png", ".tif", ".jpg", ".bmp", ".ppm"}) {
        all.push_back({std::string("ImagePersistence::trySave ") + extension, [=](unsigned width, const Arm& arm) {
                           // libtiff 4.5 (in TIFFClose) and OpenCV's JPEG encoder (a longjmp
                           // to a stale frame) crash after some of their own allocations fail,
                           // inside imencode: those are left alone, the rest injected.
                           spareEncoder = std::strcmp(extension, ".tif") == 0 || std::strcmp(extension, ".jpg") == 0;
                           const ZTImage src = filled(BayerRG12, width, 4, 4);
                           const std::string path = folder + "/saved" + extension;
                           std::string error;
                           const End end = arm([&] {
                               return ImagePersistence::trySave(Png, src, path.c_str(), error) ? End::Success
                                                                                               : End::Failure;
                           });
                           // Complete or absent, and never a temporary file left.
                           size_t entries = 0;
                           for (const auto& entry : fs::directory_iterator(folder)) {
                               static_cast<void>(entry);
                               ++entries;
                           }
                           EXPECT_EQ(entries, end == End::Success ? 1u : 0u) << describe(end) << ": " << error;
                           if (end == End::Failure) {
                               EXPECT_FALSE(error.empty());
                           }
                           fs::remove(path);
                           return end;
                       }});
    }
    all.push_back({"ImagePersistence::save .png", [=](unsigned width, const Arm& arm) {
                       const ZTImage src = filled(Mono12, width, 4, 4);
                       const std::string path = folder + "/saved.png";
                       const End end = arm([&] {
                           ImagePersistence::save(Png, src, path.c_str());
                           return End::Success;
                       });
                       // save() reports no codec failure: after a normal return the file is
                       // complete or absent; after an exception it is absent. Never a temporary.
                       for (const auto& entry : fs::directory_iterator(folder)) {
                           EXPECT_TRUE(end == End::Success && entry.path() == path) << entry.path();
                       }
                       fs::remove(path);
                       return end;
                   }});
    return all;
}

}  // namespace

TEST(FaultInjection, EveryAllocationOfEveryPublicFunctionMayFail) {
    // One thread: OpenCV's worker pool would allocate outside the armed thread.
    cv::setNumThreads(0);
    setvbuf(stdout, nullptr, _IONBF, 0);
    void* warm[2];
    backtrace(warm, 2);  // its first call loads the unwinder, which allocates
    char pattern[] = "/tmp/ztimage-faults-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string folder = pattern;
    for (const Subject& subject : subjects(folder)) injectInto(subject);
    fs::remove_all(folder);
    std::printf("faults: %ld functions, %ld allocation sites injected, %ld calls survived; OpenCV lost %ld blocks "
                "itself; %ld codec sites spared (TIFF, JPEG)\n",
                totalFunctions, totalSites, totalSurvived, openCvLeaks, totalSpared);
    EXPECT_GT(totalSites, 0);
}

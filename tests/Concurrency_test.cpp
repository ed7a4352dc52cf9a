// Parallel use of the library as an application does it: images, converters and processing
// calls on distinct objects in several threads, the shared buffer pool under contention, and
// camera frames released on one thread while images on another still view them.
// Built under ThreadSanitizer in CI; the checks here also catch corruption without it.
#include <ZTImageLib.h>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace ZTI;
namespace fs = std::filesystem;

namespace {

constexpr int kThreads = 4;

// OpenCV's own worker pool is not instrumented; with 0 threads every OpenCV call runs on the
// calling thread, so what ThreadSanitizer sees is the library's threading alone.
class Concurrency : public testing::Test {
protected:
    static void SetUpTestSuite() { cv::setNumThreads(0); }
};

void runThreads(int count, const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t) threads.emplace_back(body, t);
    for (std::thread& th : threads) th.join();
}

// A deterministic pattern that differs per seed, so a buffer handed to two owners shows.
void fill(unsigned char* p, size_t bytes, unsigned seed) {
    uint32_t x = seed * 2654435761u + 1;
    for (size_t i = 0; i < bytes; ++i) {
        x = x * 1664525u + 1013904223u;
        p[i] = static_cast<unsigned char>(x >> 24);
    }
}

ZTImage patterned(PfncFormat_ format, unsigned width, unsigned height, unsigned seed, int padding = 0) {
    ZTImage image = ZTImage::create(format, width, height, padding);
    // Every byte the image owns: the packed size, or all padded rows when that is more.
    const size_t bytes = std::max<size_t>(image.getByteCount(), padding > 0 ? image.getStride() * height : 0);
    fill(image.getBuffer(), bytes, seed);
    if (getBitsPerChannel(format) > 8 && getBitsPerChannel(format) < 16) {
        // Keep 10- and 12-bit samples inside their range, as a camera would.
        auto* words = reinterpret_cast<uint16_t*>(image.getBuffer());
        const uint16_t mask = static_cast<uint16_t>((1u << getBitsPerChannel(format)) - 1);
        for (size_t i = 0; i < image.getStride() * image.getHeight() / 2; ++i) words[i] &= mask;
    }
    return image;
}

bool samePixels(const ZTImage& a, const ZTImage& b) {
    if (a.getPixelType() != b.getPixelType() || a.getWidth() != b.getWidth() ||
        a.getHeight() != b.getHeight() || a.getStride() != b.getStride() || !a.isValid() || !b.isValid())
        return false;
    const size_t row = getBytesPerPixel(a.getPixelType()) * a.getWidth();
    for (unsigned y = 0; y < a.getHeight(); ++y)
        if (std::memcmp(a.getBuffer() + y * a.getStride(), b.getBuffer() + y * b.getStride(), row) != 0)
            return false;
    return true;
}

// One unit of work: what a processing thread does with one input, giving one output image.
struct Job {
    const char* name;
    PfncFormat_ input;
    int padding;
    std::function<int(ZTImage& src, ZTImage& dst)> run;
};

int convertTo(PfncFormat_ format, ZTImage& src, ZTImage& dst) {
    ZTImageFormatConverter converter;
    converter.setOutputFormat(format);
    return converter.convert(dst, src);
}

std::vector<Job> jobs() {
    return {
        {"RGB8 <- BayerRG8", BayerRG8, 0, [](ZTImage& s, ZTImage& d) { return convertTo(RGB8, s, d); }},
        {"RGB16 <- BayerGB12", BayerGB12, 0, [](ZTImage& s, ZTImage& d) { return convertTo(RGB16, s, d); }},
        {"Mono8 <- BayerBG10 (padded)", BayerBG10, 6, [](ZTImage& s, ZTImage& d) { return convertTo(Mono8, s, d); }},
        {"Mono8 <- Mono12", Mono12, 0, [](ZTImage& s, ZTImage& d) { return convertTo(Mono8, s, d); }},
        {"RGB8 <- YUV422_8", YUV422_8, 0, [](ZTImage& s, ZTImage& d) { return convertTo(RGB8, s, d); }},
        {"Mono8 <- YCbCr8", YCbCr8, 0, [](ZTImage& s, ZTImage& d) { return convertTo(Mono8, s, d); }},
        {"RGB8 <- BGRa8", BGRa8, 0, [](ZTImage& s, ZTImage& d) { return convertTo(RGB8, s, d); }},
        {"RGB16 <- Mono10", Mono10, 0, [](ZTImage& s, ZTImage& d) { return convertTo(RGB16, s, d); }},
        {"histStretch Mono8", Mono8, 0,
         [](ZTImage& s, ZTImage& d) {
             d = ZTImage::create(Mono8, s.getWidth(), s.getHeight());
             return histStretch(s, d, 40, 200);
         }},
        {"histStretch Mono12p in place", Mono12p, 0,
         [](ZTImage& s, ZTImage& d) {
             d = s;
             return histStretch(d, d, 100, 3000);
         }},
        {"histEqual Mono8", Mono8, 0,
         [](ZTImage& s, ZTImage& d) {
             d = ZTImage::create(Mono8, s.getWidth(), s.getHeight());
             return histEqual(s, d);
         }},
        {"CreateStokesS0 <- Mono8", Mono8, 0, [](ZTImage& s, ZTImage& d) { return CreateStokesS0(s, d); }},
        {"CreateDolp <- Mono12", Mono12, 0, [](ZTImage& s, ZTImage& d) { return CreateDolp(s, d); }},
        {"CreateHeatmap <- Mono8 (padded)", Mono8, 3,
         [](ZTImage& s, ZTImage& d) { return CreateHeatmap(s, d, 5, 60, 1, 5); }},
        {"ExtractFullPolarQuadrant <- Mono8", Mono8, 0, [](ZTImage& s, ZTImage& d) { return ExtractFullPolarQuadrant(s, d); }},
        {"extractFullPolarQuadrant Mono16", Mono16, 0, [](ZTImage& s, ZTImage& d) { return extractFullPolarQuadrant(s, d); }},
        {"cloneValue RGB8 (padded)", RGB8, 5,
         [](ZTImage& s, ZTImage& d) {
             d = imageutil::cloneValue(s);
             return d.isValid() ? 0 : -1;
         }},
    };
}

}  // namespace

TEST_F(Concurrency, ImagesDrawingOnThePoolFromSeveralThreadsNeverShareMemory) {
    // Images of a few sizes and paddings are created, copied, reset and dropped in every
    // thread, so pool buffers move between threads and size classes all the time. Every image
    // carries a pattern of its own; a buffer handed to two images at once would change one.
    std::atomic<int> corrupted{0}, invalid{0};
    runThreads(kThreads, [&](int t) {
        const unsigned sizes[][2] = {{16, 16}, {40, 9}, {64, 48}, {7, 3}};
        struct Held {
            ZTImage image;
            std::vector<unsigned char> pattern;
        };
        std::deque<Held> held;
        for (int i = 0; i < 300; ++i) {
            const auto& size = sizes[(i + t) % 4];
            ZTImage image = ZTImage::create(Mono8, size[0], size[1], i % 3);
            if (i % 5 == 0) image.reset(RGB8, size[1], size[0]);  // keeps the padding
            if (!image.isValid()) {
                ++invalid;
                continue;
            }
            std::vector<unsigned char> pattern(image.getStride() * image.getHeight());
            fill(pattern.data(), pattern.size(), static_cast<unsigned>(t * 100000 + i));
            std::memcpy(image.getBuffer(), pattern.data(), pattern.size());
            held.push_back({image, std::move(pattern)});  // a copy: one more pool buffer
            if (held.size() > 6) {
                const Held& oldest = held.front();
                if (std::memcmp(oldest.image.getBuffer(), oldest.pattern.data(), oldest.pattern.size()) != 0)
                    ++corrupted;
                held.pop_front();
            }
        }
    });
    EXPECT_EQ(corrupted.load(), 0);
    EXPECT_EQ(invalid.load(), 0);
}

TEST_F(Concurrency, ConvertersAndProcessingOnDistinctImagesGiveTheSingleThreadedResults) {
    // Reference outputs are computed on this thread first; then every thread runs every job on
    // its own copy of the inputs, with its own converters, and compares. The conversion tables
    // and the factory are read by all threads at once.
    constexpr unsigned kWidth = 48, kHeight = 32;
    const std::vector<Job> all = jobs();
    std::vector<ZTImage> inputs, expected;
    for (size_t j = 0; j < all.size(); ++j) {
        inputs.push_back(patterned(all[j].input, kWidth, kHeight, static_cast<unsigned>(j + 1), all[j].padding));
        ZTImage source = inputs.back(), result;
        ASSERT_EQ(all[j].run(source, result), 0) << all[j].name;
        expected.push_back(result);
    }
    // Thread t gets its inputs copied here, before it starts: one image is not used by two
    // threads at once.
    std::vector<std::vector<ZTImage>> perThread(kThreads, inputs);

    std::mutex failuresMutex;
    std::vector<std::string> failures;
    runThreads(kThreads, [&](int t) {
        for (int round = 0; round < 3; ++round) {
            for (size_t k = 0; k < all.size(); ++k) {
                const size_t j = (k + static_cast<size_t>(t) * 5) % all.size();  // threads out of step
                ZTImage source = perThread[static_cast<size_t>(t)][j], result;
                const bool ok = all[j].run(source, result) == 0 && samePixels(result, expected[j]) &&
                                ImageConverterFactory::canConvert(RGB8, BayerRG8) &&
                                !ImageConverterFactory::listConversions().empty();
                if (!ok) {
                    std::lock_guard<std::mutex> lock(failuresMutex);
                    failures.push_back(std::string(all[j].name) + " in thread " + std::to_string(t));
                }
            }
        }
    });
    EXPECT_TRUE(failures.empty()) << failures.size() << " mismatches, first: " << failures.front();
}

TEST_F(Concurrency, SavingFromSeveralThreadsWritesEveryFileWhole) {
    char pattern[] = "/tmp/ztimage-concurrency-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string dir = pattern;
    runThreads(kThreads, [&](int t) {
        ZTImage bayer = patterned(BayerGR12, 24, 16, static_cast<unsigned>(t + 7));
        ZTImage mono = patterned(Mono8, 24, 16, static_cast<unsigned>(t + 70));
        for (int i = 0; i < 4; ++i) {
            const std::string stem = dir + "/t" + std::to_string(t) + "-" + std::to_string(i);
            ImagePersistence::save(Png, bayer, (stem + ".png").c_str());
            ImagePersistence::save(Bmp, mono, (stem + ".bmp").c_str());
        }
    });
    size_t files = 0;
    for (const auto& entry : fs::directory_iterator(dir)) {
        ++files;
        EXPECT_GT(fs::file_size(entry.path()), 0u) << entry.path();
        EXPECT_NE(entry.path().filename().string()[0], '.') << "temporary file left: " << entry.path();
    }
    EXPECT_EQ(files, static_cast<size_t>(kThreads) * 4 * 2);
    fs::remove_all(dir);
}

TEST_F(Concurrency, CopiesOfOneFrameOnSeveralThreadsReleaseItOnce) {
    // Several threads each take a copy of the same frame-viewing image (made on this thread,
    // so no image object is shared) and drop it at different times; the frame's release runs
    // exactly once, after the last of them.
    std::vector<unsigned char> pixels(16 * 16, 9);
    std::atomic<int> releases{0};
    for (int round = 0; round < 50; ++round) {
        ZTGrabResultPtr grab = createGrabResult(Mono8, 16, 16, 0, pixels.data(), pixels.size(), [&] { ++releases; });
        ZTImage image;
        image.attachGrabResult(grab);
        grab.Release();
        std::vector<ZTImage> copies(kThreads, image);
        image = ZTImage();
        std::atomic<int> wrong{0};
        runThreads(kThreads, [&](int t) {
            ZTImage mine = std::move(copies[static_cast<size_t>(t)]);
            ZTImage clone = imageutil::cloneValue(mine);  // owns its pixels, lets the frame go
            for (int i = 0; i < t * 10; ++i) std::this_thread::yield();
            if (mine.getBuffer()[255] != 9 || clone.getBuffer()[0] != 9) ++wrong;
        });
        EXPECT_EQ(wrong.load(), 0);
        EXPECT_EQ(releases.load(), round + 1);
    }
}

TEST_F(Concurrency, VirtualCameraFramesConvertedOnConsumerThreads) {
    // The virtual camera grabs on one thread (its accessors are single-threaded) and recycles
    // two frame buffers; the images go to consumer threads, which let the frames go. A moving
    // scene makes consecutive frames differ, so a buffer recycled while a consumer still views
    // it changes under the consumer's checksum. Packed frames are unpacked on the grabbing
    // thread; viewed ones (Bayer here) keep the camera's memory until the consumer is done.
    for (PfncFormat_ format : {BayerRG8, Mono12p}) {
        SCOPED_TRACE(getPixelFormatName(format));
        VirtualCameraConfig config;
        config.pixelType = format;
        config.width = 32;
        config.height = 16;
        config.bufferCount = 2;
        std::string error;
        std::unique_ptr<VirtualCamera> camera = VirtualCamera::open(config, &error);
        ASSERT_TRUE(camera) << error;

        std::mutex queueMutex;
        std::condition_variable queueChanged;
        std::deque<std::pair<ZTImage, uint64_t>> queue;
        bool done = false;
        std::atomic<int> changed{0}, failed{0};
        const auto checksum = [](const ZTImage& image) {
            uint64_t sum = 0;
            const unsigned char* p = image.getBuffer();
            for (size_t i = 0; i < image.getStride() * image.getHeight(); ++i) sum = sum * 131 + p[i];
            return sum;
        };

        std::vector<std::thread> consumers;
        for (int c = 0; c < 2; ++c) {
            consumers.emplace_back([&] {
                ZTImageFormatConverter converter;
                converter.setOutputFormat(RGB8);
                ZTImage rgb;
                for (;;) {
                    std::pair<ZTImage, uint64_t> item;
                    {
                        std::unique_lock<std::mutex> lock(queueMutex);
                        queueChanged.wait(lock, [&] { return done || !queue.empty(); });
                        if (queue.empty()) return;
                        item = std::move(queue.front());
                        queue.pop_front();
                    }
                    if (converter.convert(rgb, item.first) != 0) ++failed;
                    std::this_thread::yield();
                    if (checksum(item.first) != item.second) ++changed;
                }
            });
        }
        unsigned grabbed = 0;
        while (grabbed < 120) {
            ZTGrabResultPtr frame = camera->grab();
            if (!frame) {  // both buffers still viewed by consumers
                std::this_thread::yield();
                continue;
            }
            ZTImage image;
            image.attachGrabResult(frame);
            frame.Release();
            const uint64_t sum = checksum(image);
            std::lock_guard<std::mutex> lock(queueMutex);
            queue.emplace_back(std::move(image), sum);
            queueChanged.notify_one();
            ++grabbed;
        }
        {
            std::lock_guard<std::mutex> lock(queueMutex);
            done = true;
            queueChanged.notify_all();
        }
        for (std::thread& th : consumers) th.join();
        EXPECT_EQ(changed.load(), 0);
        EXPECT_EQ(failed.load(), 0);
        EXPECT_EQ(camera->buffersInUse(), 0u);
    }
}

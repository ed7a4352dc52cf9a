// One camera stream per core: the same number of 2448 x 2048 frames (about a second's worth)
// processed on one thread, then split over two threads, each with its own images, converter
// and camera, OpenCV on one thread. Nothing in the library may stand between streams (the
// buffer pool's lock is held only for its list operations), so on two free cores two streams
// should take about half the time of one.
//
// Counters: one_ms and two_ms, the wall time of all frames on one and on two threads;
// speedup = one_ms / two_ms (goal: at least 1.8). Two-thread figures say little on a machine
// whose cores are busy with other work: look at the load when reading them.
#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "Goals.h"
#include "PolarizationProducts.h"
#include "VirtualCamera.h"
#include "ZTImageLib.h"

namespace {

using namespace ZTI;
using Clock = std::chrono::steady_clock;
constexpr unsigned kWidth = 2448, kHeight = 2048;

/// The state of one stream: its own source, destination and converter (or camera frame).
class Stream {
public:
    virtual ~Stream() = default;
    virtual void frame() = 0;
};

class Conversion : public Stream {
public:
    Conversion(PfncFormat_ source, PfncFormat_ target) : src_(ZTImage::create(source, kWidth, kHeight)) {
        const bool wide = getBitsPerChannel(source) > 8;
        const cv::Mat view(kHeight, kWidth, wide ? CV_16UC1 : CV_8UC1, src_.getBuffer(), src_.getStride());
        cv::randu(view, 0, wide ? 1 << getBitsPerChannel(source) : 256);
        converter_.setOutputFormat(target);
    }
    void frame() override { converter_.convert(dst_, src_); }

private:
    ZTImage src_, dst_;
    ZTImageFormatConverter converter_;
};

class Attach : public Stream {
public:
    explicit Attach(PfncFormat_ format) {
        VirtualCameraConfig config;
        config.pixelType = format;
        config.width = kWidth;
        config.height = kHeight;
        camera_ = VirtualCamera::open(config);
        frame_ = camera_->grab();
    }
    void frame() override { image_.attachGrabResult(frame_); }

private:
    std::unique_ptr<VirtualCamera> camera_;
    ZTGrabResultPtr frame_;
    ZTImage image_;
};

class Product : public Stream {
public:
    explicit Product(std::function<int(const ZTImage&, ZTImage&)> product)
        : product_(std::move(product)), mosaic_(ZTImage::create(Mono8, kWidth, kHeight)) {
        cv::randu(cv::Mat(kHeight, kWidth, CV_8UC1, mosaic_.getBuffer(), mosaic_.getStride()), 0, 256);
    }
    void frame() override { product_(mosaic_, dst_); }

private:
    std::function<int(const ZTImage&, ZTImage&)> product_;
    ZTImage mosaic_, dst_;
};

using MakeStream = std::function<std::unique_ptr<Stream>()>;

double secondsOf(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

// Runs `frames` frames on each stream, each on its own thread, started together; returns the
// wall time until the last one finishes.
double runStreams(std::vector<std::unique_ptr<Stream>>& streams, int frames) {
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (auto& stream : streams)
        threads.emplace_back([&, s = stream.get()] {
            ++ready;
            while (!go.load()) std::this_thread::yield();
            for (int i = 0; i < frames; ++i) s->frame();
        });
    while (ready.load() < static_cast<int>(streams.size())) std::this_thread::yield();
    const auto start = Clock::now();
    go = true;
    for (auto& t : threads) t.join();
    return secondsOf(start);
}

void compare(benchmark::State& state, const std::string& name, const MakeStream& make) {
    cv::setNumThreads(1);
    std::unique_ptr<Stream> single = make();
    std::vector<std::unique_ptr<Stream>> pair;
    pair.push_back(make());
    pair.push_back(make());
    // Warm up every stream (its destination and pool memory), then size the run to about a
    // second on one thread, an even number of frames.
    for (auto* s : {single.get(), pair[0].get(), pair[1].get()}) s->frame();
    const auto probe = Clock::now();
    for (int i = 0; i < 3; ++i) single->frame();
    const int frames = 2 * std::max(2, static_cast<int>(std::lround(0.5 / (secondsOf(probe) / 3))));

    double one = 0, two = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        for (int i = 0; i < frames; ++i) single->frame();
        one += secondsOf(start);
        two += runStreams(pair, frames / 2);
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["frames"] = frames;
    state.counters["one_ms"] = 1e3 * one / n;
    state.counters["two_ms"] = 1e3 * two / n;
    state.counters["speedup"] = one / two;
    bench::recordGoal("two streams / one, " + name, one / two, ">=", 1.8);
}

void RGB8_from_BayerRG8(benchmark::State& s) {
    compare(s, "RGB8 <- BayerRG8", [] { return std::make_unique<Conversion>(BayerRG8, RGB8); });
}
void RGB8_from_BayerRG12(benchmark::State& s) {
    compare(s, "RGB8 <- BayerRG12", [] { return std::make_unique<Conversion>(BayerRG12, RGB8); });
}
void Mono8_from_Mono12(benchmark::State& s) {
    compare(s, "Mono8 <- Mono12", [] { return std::make_unique<Conversion>(Mono12, Mono8); });
}
void Attach_Mono12p(benchmark::State& s) {
    compare(s, "attach Mono12p", [] { return std::make_unique<Attach>(Mono12p); });
}
void Dolp(benchmark::State& s) {
    compare(s, "DoLP", [] { return std::make_unique<Product>(CreateDolp); });
}
void Heatmap(benchmark::State& s) {
    compare(s, "heat map", [] {
        return std::make_unique<Product>(
            [](const ZTImage& src, ZTImage& dst) { return CreateHeatmap(src, dst, 0, 100, 1, 5); });
    });
}

}  // namespace

// One iteration each: a run is already about two seconds of frames.
BENCHMARK(RGB8_from_BayerRG8)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(RGB8_from_BayerRG12)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(Mono8_from_Mono12)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(Attach_Mono12p)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(Dolp)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(Heatmap)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK_MAIN_WITH_GOALS();

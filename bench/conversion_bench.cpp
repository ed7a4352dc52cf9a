// Cost of the conversion front end over the bare OpenCV call, on full camera frames.
//
// Each benchmark converts the same 2448 x 2048 frame through ZTImageFormatConverter into the
// same destination (a stream) and through the equivalent OpenCV call(s) on the same buffers,
// alternating the two in every iteration. Counters:
//   ratio        library time / OpenCV time (goal: under 1.03)
//   allocs/frame heap allocations per library conversion in steady state
#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <new>

#include "ZTImageLib.h"

#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
namespace {
long allocationCount = 0;
}
void* operator new(std::size_t size) {
    ++allocationCount;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using namespace ZTI;
using Clock = std::chrono::steady_clock;

constexpr unsigned kWidth = 2448, kHeight = 2048;

int matType(PIXEL_TYPE f) {
    const int channels = f == RGB8 || f == BGR8 || f == YCbCr8 ? 3 : f == YUV422_8_UYVY ? 2 : 1;
    return get_cv_type(static_cast<int>(getBitsPerChannel(f)), channels);
}

cv::Mat view(const ZTImage& image, PIXEL_TYPE f) {
    return cv::Mat(static_cast<int>(image.getHeight()), static_cast<int>(image.getWidth()), matType(f),
                   image.getBuffer(), image.getStride());
}

void compare(benchmark::State& state, PIXEL_TYPE dstFormat, PIXEL_TYPE srcFormat,
             const std::function<void(const cv::Mat&, cv::Mat&)>& opencv) {
    cv::setNumThreads(1);
    ZTImage src = ZTImage::create(srcFormat, kWidth, kHeight);
    cv::Mat srcView = view(src, srcFormat);
    cv::randu(srcView, 0, double(1u << getBitsPerChannel(srcFormat)));

    ZTImageFormatConverter converter;
    converter.setOutputFormat(dstFormat);
    ZTImage dst;
    converter.convert(dst, src);  // first frame: shapes dst and caches the converter
    ZTImage reference = ZTImage::create(dstFormat, kWidth, kHeight);
    cv::Mat referenceView = view(reference, dstFormat);

    double libraryTime = 0, opencvTime = 0;
    long allocations = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        const long before = allocationCount;
        converter.convert(dst, src);
        allocations += allocationCount - before;
        const auto t1 = Clock::now();
        opencv(srcView, referenceView);
        const auto t2 = Clock::now();
        libraryTime += std::chrono::duration<double>(t1 - t0).count();
        opencvTime += std::chrono::duration<double>(t2 - t1).count();
        benchmark::DoNotOptimize(dst.getBuffer());
        benchmark::DoNotOptimize(referenceView.data);
    }
    const double frames = static_cast<double>(state.iterations());
    state.counters["lib_ms"] = 1e3 * libraryTime / frames;
    state.counters["opencv_ms"] = 1e3 * opencvTime / frames;
    state.counters["ratio"] = libraryTime / opencvTime;
    state.counters["allocs/frame"] = static_cast<double>(allocations) / frames;
}

void RGB8_from_BGR8(benchmark::State& state) {
    compare(state, RGB8, BGR8, [](const cv::Mat& s, cv::Mat& d) { cv::cvtColor(s, d, cv::COLOR_BGR2RGB); });
}
void RGB8_from_YUV422_8_UYVY(benchmark::State& state) {
    compare(state, RGB8, YUV422_8_UYVY,
            [](const cv::Mat& s, cv::Mat& d) { cv::cvtColor(s, d, cv::COLOR_YUV2RGB_UYVY); });
}
void Mono8_from_Mono12(benchmark::State& state) {
    compare(state, Mono8, Mono12, [](const cv::Mat& s, cv::Mat& d) { s.convertTo(d, CV_8U, 255.0 / 4095.0); });
}
void RGB16_from_Mono12(benchmark::State& state) {
    compare(state, RGB16, Mono12, [](const cv::Mat& s, cv::Mat& d) {
        cv::Mat rgb;
        cv::cvtColor(s, rgb, cv::COLOR_GRAY2RGB);
        rgb.convertTo(d, CV_16UC3, 65535.0 / 4095.0);
    });
}
void Mono8_from_YCbCr8(benchmark::State& state) {
    compare(state, Mono8, YCbCr8, [](const cv::Mat& s, cv::Mat& d) {
        cv::Mat bgr;
        cv::cvtColor(s, bgr, cv::COLOR_YCrCb2BGR);
        cv::cvtColor(bgr, d, cv::COLOR_BGR2GRAY);
    });
}

}  // namespace

BENCHMARK(RGB8_from_BGR8)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(RGB8_from_YUV422_8_UYVY)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(Mono8_from_Mono12)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(RGB16_from_Mono12)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(Mono8_from_YCbCr8)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK_MAIN();

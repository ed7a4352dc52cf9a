// Speed of HamiltonAdams on a 2448 x 2048 12-bit frame, against OpenCV's 16-bit edge-aware
// Bayer conversion of the same frame, both on one thread.
//
// BM_HamiltonAdams12 alternates the two in every iteration and reports, besides its own time,
// the counter vsOpenCvEA: the fastest HamiltonAdams call divided by the fastest OpenCV call.
// Both see the same load at nearly the same moment, so the ratio holds up on a busy machine
// better than two separate benchmarks would. The goal is vsOpenCvEA <= 1.2.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "HamiltonAdams.h"

namespace {

constexpr int kRows = 2048;
constexpr int kCols = 2448;
constexpr int kBits = 12;

// An RGGB mosaic of a scene with smooth shading, fine stripes and hard edges, so neither
// method runs on uniform or purely random data.
cv::Mat makeFrame()
{
    cv::Mat raw(kRows, kCols, CV_16UC1);
    for (int y = 0; y < kRows; ++y)
        for (int x = 0; x < kCols; ++x) {
            const double shade = 0.5 + 0.4 * std::sin(x * 0.004) * std::cos(y * 0.003);
            const double stripes = 0.1 * std::sin((x + 2 * y) * 0.35);
            const double block = ((x / 97 + y / 61) & 1) ? 0.25 : 0.0;
            const double gain = (y & 1) == 0 ? ((x & 1) == 0 ? 0.8 : 1.0)   // R G
                                             : ((x & 1) == 0 ? 1.0 : 0.6);  // G B
            const double v = std::clamp((shade + stripes + block) * gain / 1.3, 0.0, 1.0);
            raw.at<uint16_t>(y, x) = static_cast<uint16_t>(v * ((1 << kBits) - 1));
        }
    return raw;
}

const cv::Mat& frame()
{
    static const cv::Mat raw = makeFrame();
    return raw;
}

double secondsOf(const std::chrono::steady_clock::time_point& start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_HamiltonAdams12(benchmark::State& state)
{
    cv::setNumThreads(1);
    cv::Mat in = frame().clone();
    cv::Mat out(kRows, kCols, CV_16UC3);
    cv::Mat reference;
    double fastestOwn = 1e9;
    double fastestOpenCv = 1e9;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        HamiltonAdams(in.ptr<unsigned short>(), out.ptr<unsigned short>(), kRows, kCols, kBits,
                      "RGGB");
        benchmark::ClobberMemory();
        const double own = secondsOf(start);
        state.SetIterationTime(own);
        fastestOwn = std::min(fastestOwn, own);

        start = std::chrono::steady_clock::now();
        cv::cvtColor(in, reference, cv::COLOR_BayerBG2BGR_EA);  // the RGGB cell in OpenCV's naming
        benchmark::ClobberMemory();
        fastestOpenCv = std::min(fastestOpenCv, secondsOf(start));
    }
    state.counters["ms"] = fastestOwn * 1e3;
    state.counters["openCvEA_ms"] = fastestOpenCv * 1e3;
    state.counters["vsOpenCvEA"] = fastestOwn / fastestOpenCv;
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kRows) * kCols * 2);
}
BENCHMARK(BM_HamiltonAdams12)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

// The reference alone, for its absolute time.
void BM_OpenCvEA16(benchmark::State& state)
{
    cv::setNumThreads(1);
    cv::Mat in = frame().clone();
    cv::Mat out;
    for (auto _ : state) {
        cv::cvtColor(in, out, cv::COLOR_BayerBG2BGR_EA);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kRows) * kCols * 2);
}
BENCHMARK(BM_OpenCvEA16)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

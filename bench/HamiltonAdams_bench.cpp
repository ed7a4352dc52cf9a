// Speed of HamiltonAdams on a 2448 x 2048 frame, against OpenCV's 16-bit edge-aware (EA) Bayer
// conversion of the same frame, both on one thread.
//
// BM_HamiltonAdams alternates the two in every iteration and reports, besides its own time, the
// counter vsOpenCvEA: the fastest HamiltonAdams call divided by the fastest OpenCV call (and
// meanVsOpenCvEA, the same for the mean times). Both see the same machine load at nearly the
// same moment, so the ratio holds up on a busy machine better than two separate benchmarks
// would. The goal is vsOpenCvEA <= 1.2 on 12-bit data.
//
// HamiltonAdams does the same work whatever the picture; OpenCV's EA conversion branches on the
// local gradients, so its time depends on the content. Two scenes are measured:
//   natural: colour texture whose amplitude falls as 1/f with spatial frequency, as in natural
//            images, plus 2 DN (12 bits) of sensor noise;
//   smooth:  noise-free shading, regular stripes and blocks, where those branches are
//            predictable (OpenCV's best case seen so far).
// The 16-bit runs measure the 32-bit-lane path that HamiltonAdams takes above 12 bits.

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

enum Scene { kNatural, kSmooth };

// RGGB mosaic of a colour scene given as three CV_32F planes of values in about [0, 1].
cv::Mat mosaicOf(const cv::Mat (&rgb)[3], int bits, double noise, cv::RNG& rng)
{
    const double full = (1 << bits) - 1;
    cv::Mat raw(kRows, kCols, CV_16UC1);
    for (int y = 0; y < kRows; ++y)
        for (int x = 0; x < kCols; ++x) {
            const int ch = (y & 1) == 0 ? ((x & 1) == 0 ? 0 : 1) : ((x & 1) == 0 ? 1 : 2);
            const double v = rgb[ch].at<float>(y, x) * full + (noise > 0 ? rng.gaussian(noise) : 0);
            raw.at<uint16_t>(y, x) = static_cast<uint16_t>(std::clamp(v, 0.0, full));
        }
    return raw;
}

cv::Mat makeFrame(Scene scene, int bits)
{
    cv::RNG rng(2448);
    cv::Mat rgb[3];
    if (scene == kNatural) {
        // Octaves of smoothly enlarged noise with amplitude proportional to their scale give the
        // 1/f amplitude falloff of natural images; the channels share one luminance texture.
        cv::Mat octaves[2];
        for (cv::Mat& acc : octaves) {
            acc = cv::Mat::zeros(kRows, kCols, CV_32F);
            for (int s = 4; s <= 1024; s *= 2) {
                cv::Mat coarse(kRows / s + 2, kCols / s + 2, CV_32F), fine;
                rng.fill(coarse, cv::RNG::UNIFORM, -1.0, 1.0);
                cv::resize(coarse, fine, cv::Size(), s, s, cv::INTER_CUBIC);
                acc += fine(cv::Rect(0, 0, kCols, kRows)) * (s / 1024.0);
            }
        }
        rgb[0] = 0.5 + 0.25 * (octaves[0] + 0.3 * octaves[1]);
        rgb[1] = 0.5 + 0.25 * octaves[0];
        rgb[2] = 0.5 + 0.25 * (octaves[0] - 0.3 * octaves[1]);
        return mosaicOf(rgb, bits, bits == 12 ? 2.0 : 32.0, rng);
    }
    for (cv::Mat& plane : rgb)
        plane.create(kRows, kCols, CV_32F);
    for (int y = 0; y < kRows; ++y)
        for (int x = 0; x < kCols; ++x) {
            const float shade = 0.5f + 0.4f * std::sin(x * 0.004f) * std::cos(y * 0.003f);
            const float stripes = 0.1f * std::sin((x + 2 * y) * 0.35f);
            const float block = ((x / 97 + y / 61) & 1) ? 0.25f : 0.0f;
            const float v = (shade + stripes + block) / 1.3f;
            rgb[0].at<float>(y, x) = 0.8f * v;
            rgb[1].at<float>(y, x) = v;
            rgb[2].at<float>(y, x) = 0.6f * v;
        }
    return mosaicOf(rgb, bits, 0.0, rng);
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Arguments: scene, bit depth.
void BM_HamiltonAdams(benchmark::State& state)
{
    const auto scene = static_cast<Scene>(state.range(0));
    const int bits = static_cast<int>(state.range(1));
    state.SetLabel(scene == kNatural ? "natural" : "smooth");
    cv::setNumThreads(1);
    cv::Mat in = makeFrame(scene, bits);
    cv::Mat out(kRows, kCols, CV_16UC3);
    cv::Mat reference;
    double fastestOwn = 1e9;
    double fastestOpenCv = 1e9;
    double totalOwn = 0;
    double totalOpenCv = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        HamiltonAdams(in.ptr<unsigned short>(), out.ptr<unsigned short>(), kRows, kCols, bits,
                      "RGGB");
        benchmark::ClobberMemory();
        const double own = secondsSince(start);
        state.SetIterationTime(own);
        fastestOwn = std::min(fastestOwn, own);
        totalOwn += own;

        start = std::chrono::steady_clock::now();
        cv::cvtColor(in, reference, cv::COLOR_BayerBG2BGR_EA);  // OpenCV's name for RGGB
        benchmark::ClobberMemory();
        const double openCv = secondsSince(start);
        fastestOpenCv = std::min(fastestOpenCv, openCv);
        totalOpenCv += openCv;
    }
    state.counters["fastest_ms"] = fastestOwn * 1e3;
    state.counters["openCvEA_ms"] = fastestOpenCv * 1e3;
    state.counters["vsOpenCvEA"] = fastestOwn / fastestOpenCv;
    state.counters["meanVsOpenCvEA"] = totalOwn / totalOpenCv;
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kRows) * kCols);
}
BENCHMARK(BM_HamiltonAdams)
    ->ArgsProduct({{kNatural, kSmooth}, {12, 16}})
    ->ArgNames({"scene", "bits"})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);

}  // namespace

BENCHMARK_MAIN();

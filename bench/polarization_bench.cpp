// Polarization products of a full 2448 x 2048 mosaic through the image library, against the
// same product composed from OpenCV's vectorized array operations, on one thread.
//
// The composition extracts the four angle planes (cv::split of the even and odd rows seen as
// two-channel images), interpolates each to full resolution with cv::warpAffine (INTER_LINEAR,
// replicated border, the map x -> (x - ox) / 2 that puts every sample on its own pixel; a
// plain cv::resize would shift the planes by a quarter pixel), then combines them with
// cv::add, cv::subtract, cv::magnitude, cv::divide, cv::phase and cv::Mat::convertTo. Its
// matrices are kept from one iteration to the next, so it allocates nothing in steady state.
// Counters:
//   lib_ms, cv_ms  mean time per frame of the library and of the composition
//   vs_opencv      composition time / library time (goal: at least 1)
//   max_diff       largest difference of an output byte between the two (goal: at most 1)
//   diff_ppm       output bytes that differ, per million
// The AngleAndHeatmapVsDolp row times AoLP and the heat map against DoLP in the same iterations
// (goals: AoLP at most 1.5 times DoLP's time, the heat map at most 2 times).
#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <chrono>
#include <cmath>
#include <functional>

#include "Goals.h"
#include "PolarizationProducts.h"
#include "ZTImageLib.h"

namespace {

using namespace ZTI;
using Clock = std::chrono::steady_clock;

constexpr int kWidth = 2448, kHeight = 2048;
// Heat-map options of the comparison: blue to red over 0..100 % DoLP.
constexpr unsigned kLow = 0, kHigh = 100, kLowColor = 1, kHighColor = 5;

/// Working matrices of the composition, reused across iterations.
struct Composition {
    cv::Mat planes[4];  // 90, 45, 135, 0 degrees, half size, 8-bit
    cv::Mat half, full[4];
    cv::Mat s0, s1, s2, magnitude, ratio, angle, mask, temp;
    cv::Mat position, term, channel[3], rgb;

    void splitPlanes(const cv::Mat& mosaic) {
        const cv::Mat even(kHeight / 2, kWidth / 2, CV_8UC2, mosaic.data, 2 * mosaic.step);
        const cv::Mat odd(kHeight / 2, kWidth / 2, CV_8UC2, mosaic.data + mosaic.step, 2 * mosaic.step);
        cv::Mat evenPlanes[2] = {planes[0], planes[1]};
        cv::Mat oddPlanes[2] = {planes[2], planes[3]};
        cv::split(even, evenPlanes);
        cv::split(odd, oddPlanes);
        planes[0] = evenPlanes[0], planes[1] = evenPlanes[1];
        planes[2] = oddPlanes[0], planes[3] = oddPlanes[1];
    }

    /// I90, I45, I135, I0 at full resolution, float.
    void intensities(const cv::Mat& mosaic) {
        splitPlanes(mosaic);
        const int offsets[4][2] = {{0, 0}, {0, 1}, {1, 0}, {1, 1}};  // (oy, ox)
        for (int a = 0; a < 4; ++a) {
            planes[a].convertTo(half, CV_32F);
            const double oy = offsets[a][0], ox = offsets[a][1];
            const cv::Matx23d map(0.5, 0, -ox / 2, 0, 0.5, -oy / 2);
            cv::warpAffine(half, full[a], map, cv::Size(kWidth, kHeight),
                           cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
        }
    }
    const cv::Mat& i90() const { return full[0]; }
    const cv::Mat& i45() const { return full[1]; }
    const cv::Mat& i135() const { return full[2]; }
    const cv::Mat& i0() const { return full[3]; }

    void stokes(const cv::Mat& mosaic) {
        intensities(mosaic);
        cv::add(i0(), i90(), temp);
        cv::add(i45(), temp, s0);
        cv::add(i135(), s0, s0);
        s0 *= 0.5;
        cv::subtract(i0(), i90(), s1);
        cv::subtract(i45(), i135(), s2);
    }

    void dolp(const cv::Mat& mosaic) {
        stokes(mosaic);
        cv::magnitude(s1, s2, magnitude);
        cv::divide(magnitude, s0, ratio);  // 0 / 0 gives NaN, which converts to 0
        cv::min(ratio, 1.0, ratio);
    }

    void outS0(const cv::Mat& m, cv::Mat& out) {
        intensities(m);
        cv::add(i0(), i90(), temp);
        cv::add(i45(), temp, temp);
        cv::add(i135(), temp, temp);
        temp.convertTo(out, CV_8U, 0.25);  // S0 / 2 = sum / 4
    }
    void outS1(const cv::Mat& m, cv::Mat& out) {
        intensities(m);
        cv::subtract(i0(), i90(), s1);
        s1.convertTo(out, CV_8U, 0.5, 127.5);
    }
    void outS2(const cv::Mat& m, cv::Mat& out) {
        intensities(m);
        cv::subtract(i45(), i135(), s2);
        s2.convertTo(out, CV_8U, 0.5, 127.5);
    }
    void outDolp(const cv::Mat& m, cv::Mat& out) {
        dolp(m);
        ratio.convertTo(out, CV_8U, 255.0);
    }
    void outAolp(const cv::Mat& m, cv::Mat& out) {
        stokes(m);
        cv::phase(s1, s2, angle);  // [0, 2 pi): fold to (-pi, pi] like atan2
        cv::compare(angle, CV_PI, mask, cv::CMP_GT);
        cv::subtract(angle, 2 * CV_PI, angle, mask);
        angle.convertTo(out, CV_8U, 255.0 / (2 * CV_PI), 127.5);  // 255 (angle/2 + pi/2) / pi
    }
    void outGlare(const cv::Mat& m, cv::Mat& out) {
        stokes(m);
        cv::magnitude(s1, s2, magnitude);
        cv::subtract(s0, magnitude, temp);
        temp.convertTo(out, CV_8U, 0.5);
    }
    void outHeatmap(const cv::Mat& m, cv::Mat& out) {
        // Position s on the ramp (0..n), then each channel as the base colour plus, per
        // palette step k, its change times clamp(s - k, 0, 1).
        static const double kPalette[][3] = {{0, 0, 0},     {0, 0, 255},   {0, 255, 255}, {0, 255, 0},
                                             {255, 255, 0}, {255, 0, 0}, {255, 255, 255}};
        dolp(m);
        const int n = static_cast<int>(kHighColor) - static_cast<int>(kLowColor);
        ratio.convertTo(position, CV_32F, 100.0 * n / (kHigh - kLow), -double(kLow) * n / (kHigh - kLow));
        cv::max(position, 0.0, position);
        cv::min(position, double(n), position);
        for (int ch = 0; ch < 3; ++ch) channel[ch].create(kHeight, kWidth, CV_32F), channel[ch] = kPalette[kLowColor][ch];
        for (int k = 0; k < n; ++k) {
            cv::subtract(position, double(k), term);
            cv::max(term, 0.0, term);
            cv::min(term, 1.0, term);
            for (int ch = 0; ch < 3; ++ch) {
                const double step = kPalette[kLowColor + k + 1][ch] - kPalette[kLowColor + k][ch];
                if (step != 0) cv::scaleAdd(term, step, channel[ch], channel[ch]);
            }
        }
        cv::merge(channel, 3, rgb);
        rgb.convertTo(out, CV_8UC3);
    }
    void outPlane(const cv::Mat& m, cv::Mat& out) {  // the 45-degree plane
        const cv::Mat even(kHeight / 2, kWidth / 2, CV_8UC2, m.data, 2 * m.step);
        cv::extractChannel(even, out, 1);
    }
    void outTiles(const cv::Mat& m, cv::Mat& out) {
        splitPlanes(m);
        out.create(kHeight, kWidth, CV_8U);
        const int w = kWidth / 2, h = kHeight / 2;
        planes[0].copyTo(out(cv::Rect(0, 0, w, h)));
        planes[1].copyTo(out(cv::Rect(w, 0, w, h)));
        planes[2].copyTo(out(cv::Rect(0, h, w, h)));
        planes[3].copyTo(out(cv::Rect(w, h, w, h)));
    }
};

using LibraryCall = std::function<int(const ZTImage&, ZTImage&)>;
using CompositionCall = void (Composition::*)(const cv::Mat&, cv::Mat&);

void compare(benchmark::State& state, const LibraryCall& library, CompositionCall composed) {
    cv::setNumThreads(1);
    ZTImage mosaic = ZTImage::create(Mono8, kWidth, kHeight);
    const cv::Mat mosaicView(kHeight, kWidth, CV_8U, mosaic.getBuffer(), mosaic.getStride());
    cv::randu(mosaicView, 0, 256);
    ZTImage out;
    cv::Mat expected;
    Composition composition;

    double libraryTime = 0, compositionTime = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        if (library(mosaic, out) != 0) state.SkipWithError("library call failed");
        const auto t1 = Clock::now();
        (composition.*composed)(mosaicView, expected);
        const auto t2 = Clock::now();
        benchmark::ClobberMemory();
        libraryTime += std::chrono::duration<double>(t1 - t0).count();
        compositionTime += std::chrono::duration<double>(t2 - t1).count();
    }

    const cv::Mat result(expected.rows, expected.cols, expected.type(), out.getBuffer(), out.getStride());
    cv::Mat difference;
    cv::absdiff(result, expected, difference);
    double maxDiff = 0;
    cv::minMaxLoc(difference.reshape(1), nullptr, &maxDiff);
    const double differing = cv::countNonZero(difference.reshape(1));
    state.counters["lib_ms"] = 1e3 * libraryTime / state.iterations();
    state.counters["cv_ms"] = 1e3 * compositionTime / state.iterations();
    state.counters["vs_opencv"] = compositionTime / libraryTime;
    state.counters["max_diff"] = maxDiff;
    state.counters["diff_ppm"] = 1e6 * differing / static_cast<double>(difference.total() * difference.channels());
}

void StokesS0(benchmark::State& s) { compare(s, CreateStokesS0, &Composition::outS0); }
void StokesS1(benchmark::State& s) { compare(s, CreateStokesS1, &Composition::outS1); }
void StokesS2(benchmark::State& s) { compare(s, CreateStokesS2, &Composition::outS2); }
void Dolp(benchmark::State& s) { compare(s, CreateDolp, &Composition::outDolp); }
void Aolp(benchmark::State& s) { compare(s, CreateAolp, &Composition::outAolp); }
void GlareReduced(benchmark::State& s) { compare(s, CreateGlareReduced, &Composition::outGlare); }
void Heatmap(benchmark::State& s) {
    compare(s, [](const ZTImage& src, ZTImage& dst) { return CreateHeatmap(src, dst, kLow, kHigh, kLowColor, kHighColor); },
            &Composition::outHeatmap);
}
// DoLP, AoLP and the heat map of the same mosaic in turn, each iteration, so that all three
// meet the same cache, clock and load.
void AngleAndHeatmapVsDolp(benchmark::State& state) {
    cv::setNumThreads(1);
    ZTImage mosaic = ZTImage::create(Mono8, kWidth, kHeight);
    cv::randu(cv::Mat(kHeight, kWidth, CV_8U, mosaic.getBuffer(), mosaic.getStride()), 0, 256);
    ZTImage dolp, aolp, heatmap;
    double dolpTime = 0, aolpTime = 0, heatmapTime = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        CreateDolp(mosaic, dolp);
        const auto t1 = Clock::now();
        CreateAolp(mosaic, aolp);
        const auto t2 = Clock::now();
        CreateHeatmap(mosaic, heatmap, kLow, kHigh, kLowColor, kHighColor);
        const auto t3 = Clock::now();
        dolpTime += std::chrono::duration<double>(t1 - t0).count();
        aolpTime += std::chrono::duration<double>(t2 - t1).count();
        heatmapTime += std::chrono::duration<double>(t3 - t2).count();
    }
    state.counters["dolp_ms"] = 1e3 * dolpTime / state.iterations();
    state.counters["aolp_vs_dolp"] = aolpTime / dolpTime;
    state.counters["heatmap_vs_dolp"] = heatmapTime / dolpTime;
    bench::recordGoal("AoLP / DoLP, 2448 x 2048", aolpTime / dolpTime, "<=", 1.5);
    bench::recordGoal("heat map / DoLP, 2448 x 2048", heatmapTime / dolpTime, "<=", 2.0);
}
void PolarQuadrant(benchmark::State& s) {
    compare(s, [](const ZTImage& src, ZTImage& dst) { return ExtractPolarQuadrant(src, dst, PolarQuadrantI45); },
            &Composition::outPlane);
}
void FullPolarQuadrant(benchmark::State& s) { compare(s, ExtractFullPolarQuadrant, &Composition::outTiles); }
void FullPolarQuadrantByCopy(benchmark::State& s) { compare(s, extractFullPolarQuadrant, &Composition::outTiles); }

}  // namespace

BENCHMARK(StokesS0)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(StokesS1)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(StokesS2)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(Dolp)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(Aolp)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(GlareReduced)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(Heatmap)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(AngleAndHeatmapVsDolp)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(PolarQuadrant)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(FullPolarQuadrant)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(FullPolarQuadrantByCopy)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK_MAIN_WITH_GOALS();

// Colour maps of the degree of linear polarization.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "FastMath.h"
#include "MosaicRows.h"
#include "Polarization.h"
#include "Records.h"
#include "Stokes.h"

namespace pol {

namespace {

constexpr int kPaletteSize = 7;
constexpr int kMaxSegments = kPaletteSize - 1;
// Heat-map rows start on 16-byte boundaries, the width of one vector register.
constexpr int kRowAlignment = 16;

// One row per HeatmapColor index: R, G, B.
constexpr unsigned char kPalette[kPaletteSize][3] = {
    {0, 0, 0},        // black
    {0, 0, 255},      // blue
    {0, 255, 255},    // cyan
    {0, 255, 0},      // green
    {255, 255, 0},    // yellow
    {255, 0, 0},      // red
    {255, 255, 255},  // white
};

/// The colour ramp of a HeatmapOption as a function of the DoLP.
///
/// A DoLP is first placed at a position s on the ramp, from 0 (low colour) to n (high colour),
/// n being the number of palette steps between the two colours. Each channel is then
///   base + sum over k < n of step_k * clamp(s - k, 0, 1),
/// step_k being the change of the channel from the k-th to the next palette entry along the
/// ramp. That is linear between neighbouring entries and needs no table look-up per pixel,
/// so it vectorizes.
class ColorRamp {
public:
    explicit ColorRamp(const HeatmapOption& option)
        : step_(option.first >= option.second),
          first_(option.first),
          span_(static_cast<double>(option.second) - option.first) {
        const int low = static_cast<int>(std::min<uint32_t>(option.third, kMaxSegments));
        const int high = static_cast<int>(std::min<uint32_t>(option.fourth, kMaxSegments));
        const int direction = high >= low ? 1 : -1;
        segments_ = std::abs(high - low);
        for (int ch = 0; ch < 3; ++ch) {
            base_[ch] = kPalette[low][ch];
            for (int k = 0; k < segments_; ++k) {
                const int from = low + k * direction;
                steps_[k][ch] =
                    static_cast<float>(kPalette[from + direction][ch] - kPalette[from][ch]);
            }
        }
    }

    /// Position on the ramp of a DoLP in percent, in double so that the range edges are exact.
    float positionOfPercent(double percent) const {
        if (step_) return percent > first_ ? static_cast<float>(segments_) : 0.0f;
        const double s = (percent - first_) * segments_ / span_;
        return static_cast<float>(std::min(std::max(s, 0.0), static_cast<double>(segments_)));
    }

    /// Channel `ch` (0 = R, 1 = G, 2 = B) at position s, rounded and saturated.
    unsigned char channel(int ch, float s) const {
        return channelAt<kMaxSegments>(steps_, base_, ch, s);
    }

    /// Colours a row of DoLP values (fractions 0..1) into the planes r, g and b.
    /// `along` is scratch for kMaxSegments x width floats.
    void colorRow(const float* dolp, unsigned char* r, unsigned char* g, unsigned char* b,
                  int width, float* along) const {
        switch (segments_) {
            case 0: return colorRowWith<0>(dolp, r, g, b, width, along);
            case 1: return colorRowWith<1>(dolp, r, g, b, width, along);
            case 2: return colorRowWith<2>(dolp, r, g, b, width, along);
            case 3: return colorRowWith<3>(dolp, r, g, b, width, along);
            case 4: return colorRowWith<4>(dolp, r, g, b, width, along);
            case 5: return colorRowWith<5>(dolp, r, g, b, width, along);
            default: return colorRowWith<6>(dolp, r, g, b, width, along);
        }
    }

private:
    using Steps = float[kMaxSegments][3];

    template <int kSegments>
    static unsigned char channelAt(const Steps& steps, const float* base, int ch, float s) {
        float v = base[ch];
        for (int k = 0; k < kSegments; ++k)
            v += steps[k][ch] * std::min(std::max(s - static_cast<float>(k), 0.0f), 1.0f);
        return detail::toU8(v);
    }

    // The number of steps is a template argument so that a ramp pays only for the terms it
    // has, and the step or linear choice is made once per row.
    template <int kSegments>
    void colorRowWith(const float* dolp, unsigned char* r, unsigned char* g, unsigned char* b,
                      int width, float* along) const {
        const float n = static_cast<float>(segments_);
        if (step_) {
            colorRowAs<true, kSegments>(dolp, r, g, b, width, steps_, base_, n,
                                        static_cast<float>(first_), 0.0f, along);
        } else {
            // s = (100 dolp - first) n / span as one multiply-add.
            const float gain = static_cast<float>(100.0 * segments_ / span_);
            const float offset = static_cast<float>(-first_ * segments_ / span_);
            colorRowAs<false, kSegments>(dolp, r, g, b, width, steps_, base_, n, gain, offset,
                                         along);
        }
    }

    // Two passes over the row, each a plain loop the compiler vectorizes: the first places
    // every DoLP on the ramp and stores how far it has passed through each step (one float
    // plane per step in `along`, kMaxSegments x width), the second sums the steps of one
    // channel into its byte plane. Done in one loop, the float work of sixteen pixels per byte
    // vector and the coefficients of every step and channel exceed the vector registers, and
    // the spills cost more than the arithmetic. The sums are those of channelAt, term by term.
    template <bool kStep, int kSegments>
    static void colorRowAs(const float* __restrict dolp, unsigned char* __restrict r,
                           unsigned char* __restrict g, unsigned char* __restrict b, int width,
                           const Steps& steps, const float* base, float n, float gain,
                           float offset, float* __restrict along) {
        for (int x = 0; x < width; ++x) {
            // Step: gain is the threshold in percent; linear: s = dolp gain + offset in 0..n.
            const float s = kStep ? (dolp[x] * 100.0f > gain ? n : 0.0f)
                                  : std::min(std::max(dolp[x] * gain + offset, 0.0f), n);
            for (int k = 0; k < kSegments; ++k)
                along[k * width + x] = std::min(std::max(s - static_cast<float>(k), 0.0f), 1.0f);
        }
        sumSteps<kSegments>(along, width, steps, base[0], 0, r);
        sumSteps<kSegments>(along, width, steps, base[1], 1, g);
        sumSteps<kSegments>(along, width, steps, base[2], 2, b);
    }

    template <int kSegments>
    static void sumSteps(const float* __restrict along, int width, const Steps& stepsIn, float base,
                         int ch, unsigned char* __restrict out) {
        float step[kMaxSegments > 0 ? kMaxSegments : 1] = {};
        for (int k = 0; k < kSegments; ++k) step[k] = stepsIn[k][ch];
        for (int x = 0; x < width; ++x) {
            float v = base;
            for (int k = 0; k < kSegments; ++k) v += step[k] * along[k * width + x];
            out[x] = detail::toU8(v);
        }
    }

    bool step_;
    double first_;
    double span_;
    int segments_ = 0;
    float base_[3] = {};
    float steps_[kMaxSegments][3] = {};
};

/// An RGB8 matrix of the given size whose stride is rounded up to kRowAlignment bytes.
cv::Mat alignedRgb(int height, int width) {
    const int rowBytes = 3 * width;
    const int stride = (rowBytes + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
    cv::Mat rows(height, stride, CV_8UC1);
    // A column range of the padded rows seen as three channels; it shares the allocation.
    return rows.colRange(0, rowBytes).reshape(3);
}

void heatmapOfMosaic(const ImageInfo& in, const ColorRamp& ramp, cv::Mat& result) {
    detail::AngleRows rows(in.width);
    // One row of DoLP, then one row per colour channel, interleaved by cv::merge.
    std::vector<float> dolpRow(static_cast<size_t>(in.width));
    std::vector<float> along(static_cast<size_t>(kMaxSegments) * in.width);
    float* dolp = dolpRow.data();
    cv::Mat planes[3];
    for (cv::Mat& plane : planes) plane.create(1, in.width, CV_8UC1);
    for (int y = 0; y < in.height; ++y) {
        rows.load(in, y);
        detail::productRow(rows, dolp, [](float i0, float i45, float i90, float i135) {
            return detail::degreeOfPolarization(i0, i45, i90, i135);
        });
        ramp.colorRow(dolp, planes[0].data, planes[1].data, planes[2].data, in.width, along.data());
        cv::Mat rgb = result.row(y);
        cv::merge(planes, 3, rgb);
    }
}

void heatmapOfDolpImage(const ImageInfo& in, const ColorRamp& ramp, cv::Mat& result) {
    // There are only 256 inputs: colour each once, then look the pixels up.
    std::array<unsigned char, 3 * 256> table{};
    for (int v = 0; v < 256; ++v) {
        const float s = ramp.positionOfPercent(v * 100.0 / 255.0);
        for (int ch = 0; ch < 3; ++ch) table[3 * v + ch] = ramp.channel(ch, s);
    }
    for (int y = 0; y < in.height; ++y) {
        const unsigned char* src = detail::rowOf(in, y);
        unsigned char* dst = result.ptr(y);
        for (int x = 0; x < in.width; ++x) {
            const unsigned char* color = &table[3 * src[x]];
            dst[3 * x] = color[0];
            dst[3 * x + 1] = color[1];
            dst[3 * x + 2] = color[2];
        }
    }
}

}  // namespace

void ApplyHeatmap(const ImageInfo& in, ImageInfo& out, const HeatmapOption& option) {
    const bool usable = option.flag ? detail::isMosaic(in) : detail::isPlane(in, kMono8, 1);
    if (!usable) {
        detail::clear(out);
        return;
    }
    const ColorRamp ramp(option);
    cv::Mat result = alignedRgb(in.height, in.width);
    if (option.flag)
        heatmapOfMosaic(in, ramp, result);
    else
        heatmapOfDolpImage(in, ramp, result);
    detail::publish(std::move(result), kRgb8, out);
}

}  // namespace pol

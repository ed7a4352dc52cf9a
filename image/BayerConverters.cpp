// Bayer mosaics to RGB and mono: demosaicing on 16-bit samples, then one linear scale to the
// destination depth, by the full range or stretched to the frame's own range.
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "BayerWidening.h"
#include "HamiltonAdams.h"
#include "ImageConverter.h"
#include "MatrixBridge.h"
#include "PooledMatrix.h"
#include "QualityDemosaic.h"

namespace ZTI {
namespace {

enum class RangePolicy { Default, Raw, Normalize };

// Read at every call, so a change takes effect at the next frame. Only exact keywords count,
// case aside: an empty value, surrounding blanks or a longer word give the default.
RangePolicy readRangePolicy() {
    const char* value = std::getenv("ZT_HIST_RANGE_POLICY");
    if (value == nullptr) return RangePolicy::Default;
    std::string lowered(value);
    for (char& c : lowered) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (lowered == "raw") return RangePolicy::Raw;
    if (lowered == "normalize") return RangePolicy::Normalize;
    return RangePolicy::Default;
}

// The colours of the top-left 2 x 2 cell, row by row; empty for a format that is not Bayer.
std::string bayerPattern(PIXEL_TYPE format) {
    const PixelFormatInfo* info = getPixelFormatInfo(format);
    return info != nullptr && info->bayerPattern != nullptr ? info->bayerPattern : std::string();
}

// Runs the demosaic library on the source's samples into `colour` (CV_16UC3, the library's
// channel order): 16-bit packed rows are handed over in place, padded rows are gathered first,
// and 8-bit samples are widened by 257 to 16 bits. Returns the depth of the samples it saw.
unsigned demosaic(const ZTImage& src, const std::string& pattern, cv::Mat& colour, DemosaicMethod method) {
    // The rows are read directly, not through a view: check them as a view would.
    requireViewFits(src);
    const unsigned bits = getBitsPerChannel(src.getPixelType());
    const int width = static_cast<int>(src.getWidth()), height = static_cast<int>(src.getHeight());
    const size_t stride = src.getStride();
    const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
    const unsigned char* buffer = src.getBuffer();
    const bool inPlace = bits > 8 && stride == static_cast<size_t>(width) * 2;
    PooledMatrix gathered(inPlace ? 0 : 1, inPlace ? 0 : static_cast<int>(pixels), CV_16UC1);
    auto* samples = reinterpret_cast<uint16_t*>(gathered.mat().data);
    for (int y = 0; y < height && !inPlace; ++y) {
        uint16_t* row = samples + static_cast<size_t>(y) * width;
        if (bits > 8) std::memcpy(row, buffer + y * stride, static_cast<size_t>(width) * 2);
        else widenRow(buffer + y * stride, row, static_cast<size_t>(width));
    }
    const uint16_t* input = inPlace ? reinterpret_cast<const uint16_t*>(buffer) : samples;
    const unsigned depth = bits > 8 ? bits : 16;
    // The demosaic library reads but never writes its input; its signature is not const.
    // Both demosaics share one contract, so the scaling below does not depend on the choice.
    const auto run = method == DemosaicMethod::Quality ? QualityDemosaic : HamiltonAdams;
    run(const_cast<uint16_t*>(input), reinterpret_cast<uint16_t*>(colour.data), height, width,
        static_cast<int>(depth), pattern.c_str());
    return depth;
}

// Minimum and maximum of the grey version of `colour`, computed band by band so the grey rows
// stay in cache and no full grey frame is needed.
void greyRange(const cv::Mat& colour, int greyCode, double& min, double& max) {
    constexpr int kBand = 32;
    min = 0;
    max = 0;
    cv::Mat grey;
    for (int y = 0; y < colour.rows; y += kBand) {
        const cv::Mat band = colour.rowRange(y, std::min(colour.rows, y + kBand));
        cv::cvtColor(band, grey, greyCode, 0);
        double bandMin = 0, bandMax = 0;
        cv::minMaxLoc(grey, &bandMin, &bandMax);
        if (y == 0 || bandMin < min) min = bandMin;
        if (y == 0 || bandMax > max) max = bandMax;
    }
}

}  // namespace

void Bayer2Mono::convert(ZTImage& dst, const ZTImage& src, DemosaicMethod method) {
    const unsigned d = getBitsPerChannel(dst.getPixelType());
    cv::Mat destination = destinationView(dst);
    std::string pattern = bayerPattern(src.getPixelType());
    if (pattern.empty()) pattern = "RGGB";  // unlike Bayer2Rgb, which passes no pattern

    PooledMatrix colour(static_cast<int>(src.getHeight()), static_cast<int>(src.getWidth()), CV_16UC3);
    const unsigned inputDepth = demosaic(src, pattern, colour.mat(), method);
    PooledMatrix grey(colour.mat().rows, colour.mat().cols, CV_16UC1);
    cv::cvtColor(colour.mat(), grey.mat(), cv::COLOR_BGR2GRAY, 0);
    double min = 0, max = 0;
    cv::minMaxLoc(grey.mat(), &min, &max);

    const double inMax = fullScale(inputDepth), dstMax = fullScale(d), range = max - min;
    double alpha = dstMax / inMax, beta = 0.0;
    if (range > 0.25 * inMax && max > min) {
        alpha = std::min(dstMax / range, 4.0);
        beta = -(min * alpha);
    }
    grey.mat().convertTo(destination, destination.type(), alpha, beta);
}

void Bayer2Rgb::convert(ZTImage& dst, const ZTImage& src, DemosaicMethod method) {
    const unsigned s = getBitsPerChannel(src.getPixelType());
    const unsigned d = getBitsPerChannel(dst.getPixelType());
    const RangePolicy policy = readRangePolicy();
    cv::Mat destination = destinationView(dst);
    const std::string pattern = bayerPattern(src.getPixelType());

    PooledMatrix colour(static_cast<int>(src.getHeight()), static_cast<int>(src.getWidth()), CV_16UC3);
    const unsigned inputDepth = demosaic(src, pattern, colour.mat(), method);

    // The frame's grey minimum and maximum, computed only by the rules that look at them: the
    // fixed-gain rules (the common same-depth and raw cases) skip a full pass over the frame.
    double min = 0, max = 0;
    const auto measure = [&] { greyRange(colour.mat(), cv::COLOR_RGB2GRAY, min, max); };
    // An empty frame has no statistics: the grey conversion raises OpenCV's error for it
    // whichever rule applies, as it does when every frame is measured.
    if (colour.mat().empty()) {
        cv::Mat grey;
        cv::cvtColor(colour.mat(), grey, cv::COLOR_RGB2GRAY, 0);
    }

    const double inMax = fullScale(inputDepth), srcMax = fullScale(s), dstMax = fullScale(d);
    double alpha = 1.0, beta = 0.0;
    if (s == d) {
        if (s > 8 && policy != RangePolicy::Normalize) {
            alpha = 1.0;  // same depth: the demosaiced samples are written unchanged
        } else if (policy == RangePolicy::Raw || (policy == RangePolicy::Default && s <= 8)) {
            alpha = s <= 8 ? 1.0 / 257.0 : srcMax / 65535.0;  // undoes the widening
        } else {
            measure();
            const double range = max - min;
            if ((max > srcMax || min < 0) && max > min) {
                alpha = srcMax / range;  // data beyond the nominal range: full stretch, no limit
                beta = -(min * alpha);
            } else if (range <= 0.25 * inMax || 0.9 * inMax <= range || max <= min) {
                alpha = 1.0;
            } else {
                alpha = std::min(srcMax / range, 4.0);
                beta = -(min * alpha);
            }
        }
    } else if (s > 8 && policy == RangePolicy::Raw) {
        alpha = dstMax / srcMax;
    } else {
        measure();
        const double range = max - min;
        if (range > 0.25 * inMax && max > min) {
            alpha = std::min(dstMax / range, 4.0);
            beta = -(min * alpha);
        } else {
            alpha = dstMax / inMax;
        }
    }
    colour.mat().convertTo(destination, destination.type(), alpha, beta);
}

}  // namespace ZTI

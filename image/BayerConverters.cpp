// Bayer mosaics to RGB and mono: demosaicing on 16-bit samples, then one linear scale to the
// destination depth, by the full range or stretched to the frame's own range.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "BayerWidening.h"
#include "GreyLevels.h"
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

// The demosaic library's input: the source's own samples when they are 16-bit packed rows,
// else a packed copy (padded 16-bit rows gathered, 8-bit samples widened by 257).
class MosaicSamples {
public:
    explicit MosaicSamples(const ZTImage& src)
        : bits_(getBitsPerChannel(src.getPixelType())),
          width_(static_cast<int>(src.getWidth())),
          height_(static_cast<int>(src.getHeight())),
          inPlace_(bits_ > 8 && src.getStride() == static_cast<size_t>(width_) * 2),
          gathered_(inPlace_ ? 0 : 1, inPlace_ ? 0 : width_ * height_, CV_16UC1) {
        // The rows are read directly, not through a view: check them as a view would.
        requireViewFits(src);
        const unsigned char* buffer = src.getBuffer();
        const size_t stride = src.getStride();
        samples_ = inPlace_ ? reinterpret_cast<const uint16_t*>(buffer)
                            : reinterpret_cast<const uint16_t*>(gathered_.mat().data);
        auto* rows = reinterpret_cast<uint16_t*>(gathered_.mat().data);
        // A frame without columns has no samples to copy (and may have no memory at all).
        for (int y = 0; y < height_ && !inPlace_ && width_ > 0; ++y) {
            uint16_t* row = rows + static_cast<size_t>(y) * width_;
            if (bits_ > 8) std::memcpy(row, buffer + y * stride, static_cast<size_t>(width_) * 2);
            else widenRow(buffer + y * stride, row, static_cast<size_t>(width_));
        }
    }

    const uint16_t* samples() const { return samples_; }
    int width() const { return width_; }
    int height() const { return height_; }
    // Significant bits of the samples the demosaic library sees.
    unsigned depth() const { return bits_ > 8 ? bits_ : 16; }

private:
    unsigned bits_;
    int width_, height_;
    bool inPlace_;
    PooledMatrix gathered_;
    const uint16_t* samples_ = nullptr;
};

// Rows per band: about 192 KiB of demosaiced samples, so that a band is still in the core's
// own cache when the next step reads it, and at least 16 rows, so that the rows each band
// recomputes above itself cost little.
int bandRows(int width) {
    constexpr size_t kBandBytes = 192 * 1024;
    const size_t rowBytes = static_cast<size_t>(width) * 3 * sizeof(uint16_t);
    return static_cast<int>(std::max<size_t>(16, kBandBytes / std::max<size_t>(rowBytes, 1)));
}

// Demosaics rows firstRow .. firstRow + band.rows - 1 of the frame into `band` (CV_16UC3, those
// rows only, continuous) with Hamilton-Adams, the one method with a band entry.
void demosaicRows(const MosaicSamples& mosaic, const std::string& pattern, int firstRow, cv::Mat& band) {
    HamiltonAdamsRows(mosaic.samples(), reinterpret_cast<uint16_t*>(band.data), mosaic.height(), mosaic.width(),
                      static_cast<int>(mosaic.depth()), pattern.c_str(), firstRow, band.rows);
}

// Demosaics the whole frame into `frame` (height x width, CV_16UC3) with `method`. Both
// demosaics share one contract, so the scaling that follows does not depend on the choice.
void demosaicFrame(const MosaicSamples& mosaic, const std::string& pattern, DemosaicMethod method, cv::Mat& frame) {
    // The demosaic library reads but never writes its input; its signature is not const.
    const auto run = method == DemosaicMethod::Quality ? QualityDemosaic : HamiltonAdams;
    run(const_cast<uint16_t*>(mosaic.samples()), reinterpret_cast<uint16_t*>(frame.data), mosaic.height(),
        mosaic.width(), static_cast<int>(mosaic.depth()), pattern.c_str());
}

// Demosaics the frame band by band and calls use(band, firstRow) with each band (CV_16UC3, its
// rows only) right after it is written. With a `frame` (height x width, CV_16UC3) the bands
// are its rows and the whole demosaiced frame remains; without, every band reuses one buffer
// and the 16-bit frame never reaches memory. The last band takes the rows left over, so no
// band is shorter than the others and every band holds at least 16 rows or the whole frame.
// A method without a band entry demosaics the whole frame first and hands out its rows.
template <class Use>
void demosaicBands(const MosaicSamples& mosaic, const std::string& pattern, DemosaicMethod method, cv::Mat* frame,
                   Use use) {
    const int width = mosaic.width(), height = mosaic.height();
    const int step = bandRows(width);
    const bool banded = method == DemosaicMethod::HamiltonAdams;
    const int bufferRows = frame ? 0 : banded ? std::min(height, 2 * step - 1) : height;
    PooledMatrix buffer(bufferRows, width, CV_16UC3);
    if (!banded) demosaicFrame(mosaic, pattern, method, frame ? *frame : buffer.mat());
    for (int y = 0; y < height;) {
        const int rows = height - y < 2 * step ? height - y : step;
        cv::Mat band = frame ? frame->rowRange(y, y + rows) : buffer.mat().rowRange(banded ? 0 : y, (banded ? 0 : y) + rows);
        if (banded) demosaicRows(mosaic, pattern, y, band);
        use(band, y);
        y += rows;
    }
}

// An empty frame has nothing to demosaic or measure: the demosaic library is still called with
// its dimensions, and the grey conversion of its empty result raises OpenCV's error, as the
// whole-frame pipeline did.
void demosaicEmpty(const MosaicSamples& mosaic, const std::string& pattern, DemosaicMethod method, int greyCode) {
    cv::Mat colour, grey;
    demosaicFrame(mosaic, pattern, method, colour);
    cv::cvtColor(colour, grey, greyCode, 0);
}

// The minimum and maximum grey level of a demosaiced band, folded into `range`.
void measureBand(const cv::Mat& band, GreyWeights weights, GreyRange& range) {
    greyLevels<false>(reinterpret_cast<const uint16_t*>(band.data), band.total(), weights, nullptr, range);
}

// Gain and offset that stretch [min, max] to [0, top] with a gain of at most 4, when the range
// exceeds a quarter of the input scale; otherwise the plain scale change top / inMax.
void stretchOrScale(double min, double max, double inMax, double top, double& alpha, double& beta) {
    const double range = max - min;
    alpha = top / inMax;
    beta = 0.0;
    if (range > 0.25 * inMax && max > min) {
        alpha = std::min(top / range, 4.0);
        beta = -(min * alpha);
    }
}

}  // namespace

void Bayer2Mono::convert(ZTImage& dst, const ZTImage& src, DemosaicMethod method) {
    const unsigned d = getBitsPerChannel(dst.getPixelType());
    cv::Mat destination = destinationView(dst);
    std::string pattern = bayerPattern(src.getPixelType());
    if (pattern.empty()) pattern = "RGGB";  // unlike Bayer2Rgb, which passes no pattern

    // The grey picture is written band by band while each demosaiced band is in cache, and
    // measured on the way; only the grey frame goes through memory before the scaling.
    const MosaicSamples mosaic(src);
    if (mosaic.width() == 0 || mosaic.height() == 0) return demosaicEmpty(mosaic, pattern, method, cv::COLOR_BGR2GRAY);
    PooledMatrix grey(mosaic.height(), mosaic.width(), CV_16UC1);
    GreyRange range;
    demosaicBands(mosaic, pattern, method, nullptr, [&](const cv::Mat& band, int y) {
        greyLevels<true>(reinterpret_cast<const uint16_t*>(band.data), band.total(), kGreyOfBgr,
                         grey.mat().ptr<uint16_t>(y), range);
    });

    double alpha = 0, beta = 0;
    stretchOrScale(range.min, range.max, fullScale(mosaic.depth()), fullScale(d), alpha, beta);
    grey.mat().convertTo(destination, destination.type(), alpha, beta);
}

void Bayer2Rgb::convert(ZTImage& dst, const ZTImage& src, DemosaicMethod method) {
    const unsigned s = getBitsPerChannel(src.getPixelType());
    const unsigned d = getBitsPerChannel(dst.getPixelType());
    const RangePolicy policy = readRangePolicy();
    cv::Mat destination = destinationView(dst);
    const std::string pattern = bayerPattern(src.getPixelType());
    const MosaicSamples mosaic(src);
    if (mosaic.width() == 0 || mosaic.height() == 0) return demosaicEmpty(mosaic, pattern, method, cv::COLOR_RGB2GRAY);
    const double inMax = fullScale(mosaic.depth()), srcMax = fullScale(s), dstMax = fullScale(d);

    // Fixed gains (the common same-depth cases and raw) need no statistics: each band is scaled
    // into the destination while it is in cache.
    double alpha = 1.0, beta = 0.0;
    bool fixed = true;
    if (s == d) {
        if (s > 8 && policy != RangePolicy::Normalize) alpha = 1.0;  // written unchanged
        else if (policy == RangePolicy::Raw || (policy == RangePolicy::Default && s <= 8))
            alpha = s <= 8 ? 1.0 / 257.0 : srcMax / 65535.0;  // undoes the widening
        else fixed = false;
    } else if (s > 8 && policy == RangePolicy::Raw) {
        alpha = dstMax / srcMax;
    } else {
        fixed = false;
    }
    if (fixed) {
        demosaicBands(mosaic, pattern, method, nullptr, [&](const cv::Mat& band, int y) {
            cv::Mat rows = destination.rowRange(y, y + band.rows);
            band.convertTo(rows, destination.type(), alpha, beta);
        });
        return;
    }

    // Otherwise the grey extremes are measured band by band as the frame is demosaiced, and
    // the frame is scaled in one pass once they are known.
    PooledMatrix colour(mosaic.height(), mosaic.width(), CV_16UC3);
    GreyRange grey;
    demosaicBands(mosaic, pattern, method, &colour.mat(),
                  [&](const cv::Mat& band, int) { measureBand(band, kGreyOfRgb, grey); });
    const double min = grey.min, max = grey.max, range = max - min;
    if (s != d) {
        stretchOrScale(min, max, inMax, dstMax, alpha, beta);
    } else if ((max > srcMax || min < 0) && max > min) {
        alpha = srcMax / range;  // data beyond the nominal range: full stretch, no limit
        beta = -(min * alpha);
    } else if (range <= 0.25 * inMax || 0.9 * inMax <= range || max <= min) {
        alpha = 1.0;
    } else {
        alpha = std::min(srcMax / range, 4.0);
        beta = -(min * alpha);
    }
    colour.mat().convertTo(destination, destination.type(), alpha, beta);
}

}  // namespace ZTI

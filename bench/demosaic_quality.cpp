// Demosaicing quality: mosaics colour photographs with each Bayer pattern at 8 and 16 bits,
// reconstructs them with HamiltonAdams, QualityDemosaic and OpenCV's bilinear and edge-aware
// (EA) Bayer conversions, and prints the colour PSNR of each against the original.
//
//   demosaic_quality IMAGE...
//
// CPSNR is taken over all three channels on the 8-bit scale (16-bit errors divided by 257),
// leaving out a 10-pixel border so that the methods' different edge handling does not count.
// It ends with the goal lines of QualityDemosaic over all patterns and depths: its mean gain
// over HamiltonAdams, and the number of photo, pattern and depth cases where it falls below.
// Exit status 1 when an image cannot be read or OpenCV's pattern naming is not the expected one.

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "HamiltonAdams.h"
#include "QualityDemosaic.h"

namespace {

constexpr int kBorder = 10;

struct Pattern {
    const char* name;  // colours of the top-left 2 x 2 cell, row by row
    int bilinear;      // OpenCV codes for the same mosaic (OpenCV names a pattern after
    int edgeAware;     // the cell that starts at the second row and second column)
};

const Pattern kPatterns[] = {
    {"RGGB", cv::COLOR_BayerBG2BGR, cv::COLOR_BayerBG2BGR_EA},
    {"BGGR", cv::COLOR_BayerRG2BGR, cv::COLOR_BayerRG2BGR_EA},
    {"GRBG", cv::COLOR_BayerGB2BGR, cv::COLOR_BayerGB2BGR_EA},
    {"GBRG", cv::COLOR_BayerGR2BGR, cv::COLOR_BayerGR2BGR_EA},
};

const char* const kMethods[] = {"Hamilton-Adams", "Quality", "OpenCV EA", "OpenCV bilinear"};
constexpr int kMethodCount = 4;
constexpr int kHa = 0;
constexpr int kQuality = 1;

// BGR channel index of the colour at (y, x) of a pattern.
int channelAt(const char* pattern, int y, int x)
{
    switch (pattern[(y & 1) * 2 + (x & 1)]) {
    case 'R': return 2;
    case 'G': return 1;
    default: return 0;
    }
}

// Samples a BGR image (CV_8UC3 or CV_16UC3) through the colour filter of `pattern`.
cv::Mat mosaic(const cv::Mat& bgr, const char* pattern)
{
    cv::Mat planes[3];
    cv::split(bgr, planes);
    cv::Mat raw(bgr.size(), CV_MAKETYPE(bgr.depth(), 1));
    for (int y = 0; y < bgr.rows; ++y)
        for (int x = 0; x < bgr.cols; ++x) {
            const cv::Mat& plane = planes[channelAt(pattern, y, x)];
            if (bgr.depth() == CV_8U)
                raw.at<uint8_t>(y, x) = plane.at<uint8_t>(y, x);
            else
                raw.at<uint16_t>(y, x) = plane.at<uint16_t>(y, x);
        }
    return raw;
}

using Demosaic = void (*)(unsigned short*, unsigned short*, int, int, int, const char*);

// A library demosaic on a one-channel 8- or 16-bit mosaic; the result as BGR of the same depth.
cv::Mat library(Demosaic demosaic, const cv::Mat& raw, const char* pattern)
{
    cv::Mat in;
    raw.convertTo(in, CV_16U);  // 8-bit samples keep their values, with bitDepth 8
    cv::Mat rgb(raw.size(), CV_16UC3);
    demosaic(in.ptr<unsigned short>(), rgb.ptr<unsigned short>(), raw.rows, raw.cols,
             raw.depth() == CV_8U ? 8 : 16, pattern);
    cv::Mat bgr;
    cv::cvtColor(rgb, bgr, cv::COLOR_RGB2BGR);
    if (raw.depth() == CV_8U)
        bgr.convertTo(bgr, CV_8U);
    return bgr;
}

cv::Mat reconstruct(int method, const cv::Mat& raw, const Pattern& pattern)
{
    if (method == kHa)
        return library(HamiltonAdams, raw, pattern.name);
    if (method == kQuality)
        return library(QualityDemosaic, raw, pattern.name);
    cv::Mat bgr;
    cv::cvtColor(raw, bgr, method == 2 ? pattern.edgeAware : pattern.bilinear);
    return bgr;
}

// Colour PSNR on the 8-bit scale, border left out.
double cpsnr(const cv::Mat& truth, const cv::Mat& estimate)
{
    const cv::Rect inner(kBorder, kBorder, truth.cols - 2 * kBorder, truth.rows - 2 * kBorder);
    cv::Mat a, b;
    const double scale = truth.depth() == CV_8U ? 1.0 : 1.0 / 257.0;
    truth(inner).convertTo(a, CV_64FC3, scale);
    estimate(inner).convertTo(b, CV_64FC3, scale);
    const cv::Mat d = a - b;
    const cv::Scalar s = cv::sum(d.mul(d));
    const double mse = (s[0] + s[1] + s[2]) / (3.0 * inner.area());
    return mse > 0 ? 10.0 * std::log10(255.0 * 255.0 / mse) : 99.0;
}

// A flat-coloured frame must come back in its own colour from every method and pattern, at
// both depths; otherwise a code in kPatterns names another cell and every figure is wrong.
bool checkPatternCodes()
{
    bool ok = true;
    for (int depth : {CV_8U, CV_16U}) {
        const double unit = depth == CV_8U ? 1.0 : 257.0;
        const cv::Scalar colour(40 * unit, 120 * unit, 200 * unit);  // B, G, R
        cv::Mat flat(32, 32, CV_MAKETYPE(depth, 3), colour);
        for (const Pattern& p : kPatterns)
            for (int m = 0; m < kMethodCount; ++m) {
                cv::Mat got = reconstruct(m, mosaic(flat, p.name), p);
                const cv::Rect inner(4, 4, 24, 24);
                cv::Mat diff;
                cv::absdiff(got(inner), flat(inner), diff);
                double maxDiff = 0;
                cv::minMaxLoc(diff.reshape(1), nullptr, &maxDiff);
                if (maxDiff > unit) {
                    std::fprintf(stderr, "%s on a flat %s mosaic (%d bits) is off by %g\n",
                                 kMethods[m], p.name, depth == CV_8U ? 8 : 16, maxDiff);
                    ok = false;
                }
            }
    }
    return ok;
}

std::string baseName(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s IMAGE...\n", argv[0]);
        return 2;
    }
    if (!checkPatternCodes())
        return 1;

    std::vector<std::string> names;
    std::vector<cv::Mat> images;
    for (int i = 1; i < argc; ++i) {
        cv::Mat img = cv::imread(argv[i], cv::IMREAD_COLOR);
        if (img.empty() || img.rows <= 2 * kBorder || img.cols <= 2 * kBorder) {
            std::fprintf(stderr, "cannot read a colour image larger than %d x %d from '%s'\n",
                         2 * kBorder, 2 * kBorder, argv[i]);
            return 1;
        }
        names.push_back(baseName(argv[i]));
        images.push_back(img);
    }

    // psnr[depth][pattern][image][method]
    const int patternCount = static_cast<int>(std::size(kPatterns));
    std::vector<double> psnr(2 * patternCount * images.size() * kMethodCount);
    auto at = [&](int d, int p, size_t i, int m) -> double& {
        return psnr[((d * patternCount + p) * images.size() + i) * kMethodCount + m];
    };
    for (size_t i = 0; i < images.size(); ++i)
        for (int d = 0; d < 2; ++d) {
            cv::Mat truth;
            images[i].convertTo(truth, d == 0 ? CV_8U : CV_16U, d == 0 ? 1.0 : 257.0);
            for (int p = 0; p < patternCount; ++p) {
                const cv::Mat raw = mosaic(truth, kPatterns[p].name);
                for (int m = 0; m < kMethodCount; ++m)
                    at(d, p, i, m) = cpsnr(truth, reconstruct(m, raw, kPatterns[p]));
            }
        }

    bool haBeatsOpenCvAt16 = true;
    int qualityBelowHa = 0;
    std::vector<double> means(2 * patternCount * kMethodCount, 0.0);
    for (int d = 0; d < 2; ++d)
        for (int p = 0; p < patternCount; ++p) {
            std::printf("\nCPSNR (dB), %d bits, %s\n\n| image |", d == 0 ? 8 : 16,
                        kPatterns[p].name);
            for (const char* m : kMethods)
                std::printf(" %s |", m);
            std::printf("\n|---|---:|---:|---:|---:|\n");
            double* mean = &means[(d * patternCount + p) * kMethodCount];
            for (size_t i = 0; i < images.size(); ++i) {
                std::printf("| %s |", names[i].c_str());
                for (int m = 0; m < kMethodCount; ++m) {
                    std::printf(" %.2f |", at(d, p, i, m));
                    mean[m] += at(d, p, i, m) / images.size();
                }
                std::printf("\n");
                if (d == 1 && (at(d, p, i, kHa) <= at(d, p, i, 2) || at(d, p, i, kHa) <= at(d, p, i, 3)))
                    haBeatsOpenCvAt16 = false;
                if (at(d, p, i, kQuality) < at(d, p, i, kHa))
                    ++qualityBelowHa;
            }
            std::printf("| **mean** |");
            for (int m = 0; m < kMethodCount; ++m)
                std::printf(" **%.2f** |", mean[m]);
            std::printf("\n");
        }
    std::printf("\nMean CPSNR (dB) over %zu images\n\n| bits | pattern |", images.size());
    for (const char* m : kMethods)
        std::printf(" %s |", m);
    std::printf("\n|---:|---|---:|---:|---:|---:|\n");
    for (int d = 0; d < 2; ++d)
        for (int p = 0; p < patternCount; ++p) {
            std::printf("| %d | %s |", d == 0 ? 8 : 16, kPatterns[p].name);
            for (int m = 0; m < kMethodCount; ++m)
                std::printf(" %.2f |", means[(d * patternCount + p) * kMethodCount + m]);
            std::printf("\n");
        }
    std::printf("\nHamilton-Adams beats both OpenCV methods on every image and pattern at 16 bits: %s\n\n",
                haBeatsOpenCvAt16 ? "yes" : "no");
    double gain = 0;
    for (int c = 0; c < 2 * patternCount; ++c)
        gain += (means[c * kMethodCount + kQuality] - means[c * kMethodCount + kHa]) / (2 * patternCount);
    std::printf("goal|QualityDemosaic mean CPSNR gain over HamiltonAdams (dB), %zu photos, 4 patterns, 8 and 16 bits|%.2f|>=|1.5\n",
                images.size(), gain);
    std::printf("goal|QualityDemosaic cases below HamiltonAdams (photo x pattern x depth)|%d|<=|0\n",
                qualityBelowHa);
    return 0;
}

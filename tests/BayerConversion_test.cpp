// Demosaicing converters: pattern selection, every scaling rule on frames of chosen minimum
// and maximum, the range policy, and the input handling (widening, padding, tiny frames).
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "BayerWidening.h"
#include "GreyLevels.h"
#include "HamiltonAdams.h"
#include "VirtualCamera.h"
#include "ImageConverterFactory.h"
#include "QualityDemosaic.h"
#include "ZTImageFormatConverter.h"

using namespace ZTI;

namespace {

// Sets ZT_HIST_RANGE_POLICY for one scope (unset when value is null).
class PolicyScope {
public:
    explicit PolicyScope(const char* value) {
        if (value) setenv("ZT_HIST_RANGE_POLICY", value, 1);
        else unsetenv("ZT_HIST_RANGE_POLICY");
    }
    ~PolicyScope() { unsetenv("ZT_HIST_RANGE_POLICY"); }
};

// A grey mosaic of two levels: the left half `low`, the right half `high` (the split on an even
// column). Grey images with a straight edge are reconstructed exactly by the demosaicing, so
// the frame's minimum and maximum are exactly these levels.
ZTImage twoLevelFrame(PfncFormat_ format, unsigned width, unsigned height, unsigned low, unsigned high,
                      int padding = 0) {
    ZTImage image = ZTImage::create(format, width, height, padding);
    const bool wide = getBitsPerChannel(format) > 8;
    for (unsigned y = 0; y < height; ++y) {
        unsigned char* row = image.getBuffer() + y * image.getStride();
        for (unsigned x = 0; x < width; ++x) {
            const unsigned v = x < (width / 2 & ~1u) ? low : high;
            if (wide) reinterpret_cast<uint16_t*>(row)[x] = static_cast<uint16_t>(v);
            else row[x] = static_cast<uint8_t>(v);
        }
    }
    return image;
}

unsigned sampleAt(const ZTImage& image, unsigned x, unsigned y, unsigned channel) {
    const unsigned channels = getBitsPerPixel(image.getPixelType()) / (getBitsPerChannel(image.getPixelType()) > 8 ? 16 : 8);
    const unsigned char* row = image.getBuffer() + y * image.getStride();
    if (getBitsPerChannel(image.getPixelType()) > 8) return reinterpret_cast<const uint16_t*>(row)[x * channels + channel];
    return row[x * channels + channel];
}

ZTImage convertTo(PfncFormat_ target, const ZTImage& src, DemosaicMethod method = DemosaicMethod::HamiltonAdams) {
    ZTImageFormatConverter converter;
    converter.setOutputFormat(target);
    converter.setDemosaicMethod(method);
    ZTImage dst;
    EXPECT_EQ(converter.convert(dst, src), 0);
    return dst;
}

// What the converters compute, spelt out with OpenCV's own calls on the whole frame: demosaic,
// cvtColor to grey, minMaxLoc, then one convertTo of the grey (mono) or of the colour frame with
// the gain of the default policy (a stretch of a range above a quarter of the input scale when
// the depth changes or the destination is mono; 1/257 or 1 at equal depths).
cv::Mat referenceConversion(const ZTImage& src, PfncFormat_ dst, const char* pattern) {
    const int width = static_cast<int>(src.getWidth()), height = static_cast<int>(src.getHeight());
    const unsigned s = getBitsPerChannel(src.getPixelType()), d = getBitsPerChannel(dst);
    cv::Mat input;
    if (s > 8) cv::Mat(height, width, CV_16UC1, const_cast<unsigned char*>(src.getBuffer())).copyTo(input);
    else cv::Mat(height, width, CV_8UC1, const_cast<unsigned char*>(src.getBuffer())).convertTo(input, CV_16U, 257.0);
    const int inDepth = s > 8 ? static_cast<int>(s) : 16;
    cv::Mat colour(height, width, CV_16UC3), grey;
    HamiltonAdams(reinterpret_cast<unsigned short*>(input.data), reinterpret_cast<unsigned short*>(colour.data), height,
                  width, inDepth, pattern);
    const bool mono = getBitsPerPixel(dst) == d;
    cv::cvtColor(colour, grey, mono ? cv::COLOR_BGR2GRAY : cv::COLOR_RGB2GRAY);
    double min = 0, max = 0;
    cv::minMaxLoc(grey, &min, &max);
    const double inMax = (1 << inDepth) - 1.0, dstMax = (1 << d) - 1.0;
    double alpha = s <= 8 ? 1.0 / 257.0 : 1.0, beta = 0;
    if (mono || s != d) {
        alpha = dstMax / inMax;
        if (max - min > 0.25 * inMax && max > min) {
            alpha = std::min(dstMax / (max - min), 4.0);
            beta = -(min * alpha);
        }
    }
    cv::Mat out;
    (mono ? grey : colour).convertTo(out, d > 8 ? CV_16U : CV_8U, alpha, beta);
    return out;
}

struct ScalingCase {
    const char* what;
    const char* policy;
    PfncFormat_ dst, src;
    unsigned low, high;        // the frame's two levels
    unsigned outLow, outHigh;  // expected results, by hand from the rule named in `what`
};

}  // namespace

// Both demosaics rebuild these grey frames with a straight edge exactly, so every rule must give
// the same figures whichever of them runs.
TEST(BayerConversion, ScalingRulesOnFramesOfChosenRange) {
    for (DemosaicMethod method : {DemosaicMethod::HamiltonAdams, DemosaicMethod::Quality}) {
        const ScalingCase cases[] = {
            // Same depth, default: 8 bits undo the widening (1/257), deeper depths are unchanged.
            {"RGB8<-BayerRG8 1/257", nullptr, RGB8, BayerRG8, 10, 200, 10, 200},
            {"RGB12<-BayerRG12 unchanged", nullptr, RGB12, BayerRG12, 100, 3000, 100, 3000},
            {"RGB16<-BayerRG16 unchanged", nullptr, RGB16, BayerRG16, 5, 60000, 5, 60000},
            // Depth change, default: range 2900 > 4095/4 stretches (255/2900, beta -8.793) ...
            {"RGB8<-BayerRG12 stretched", nullptr, RGB8, BayerRG12, 100, 3000, 0, 255},
            // ... range 800 does not: 255/4095 x 1000 = 62.3, x 1800 = 112.1.
            {"RGB8<-BayerRG12 full scale", nullptr, RGB8, BayerRG12, 1000, 1800, 62, 112},
            // Range 600 > 1023/4: gain 65535/600 capped at 4, beta -400.
            {"RGB16<-BayerRG10 capped gain", nullptr, RGB16, BayerRG10, 100, 700, 0, 2400},
            // Range 200: 65535/1023 = 64.0616: 100 -> 6406.2, 300 -> 19218.48 -> 19218.
            {"RGB16<-BayerRG10 full scale", nullptr, RGB16, BayerRG10, 100, 300, 6406, 19218},
            // raw never stretches: 255/4095 x 100 = 6.2, x 3000 = 186.8.
            {"raw RGB8<-BayerRG12", "raw", RGB8, BayerRG12, 100, 3000, 6, 187},
            {"RAW RGB16<-BayerBG10 fixed gain", "RAW", RGB16, BayerBG10, 100, 300, 6406, 19218},
            // normalize, 8 bits: the widened data exceed 255, so min..max stretches to 0..255.
            {"normalize RGB8<-BayerRG8", "normalize", RGB8, BayerRG8, 10, 200, 0, 255},
            // normalize inside the band (0.25, 0.9) x 4095: gain 4095/2000 = 2.0475.
            {"Normalize RGB12<-BayerGR12 in band", "Normalize", RGB12, BayerGR12, 1000, 3000, 0, 4095},
            // ... and from 0.9 x 4095 up, unchanged.
            {"normalize RGB12<-BayerGR12 wide", "NORMALIZE", RGB12, BayerGR12, 100, 3900, 100, 3900},
            // Values that only begin with a keyword, or carry blanks, are the default policy.
            {"' raw' is default", " raw", RGB8, BayerRG12, 1000, 1800, 62, 112},
            {"'rawx' is default", "rawx", RGB8, BayerRG12, 1000, 1800, 62, 112},
            {"empty is default", "", RGB12, BayerRG12, 1000, 3000, 1000, 3000},
            // Mono: the stretch applies to equal depths too, and ignores the policy.
            {"Mono12<-BayerGR12 stretched", "raw", Mono12, BayerGR12, 1000, 3000, 0, 4095},
            {"Mono8<-BayerRG8 stretched", nullptr, Mono8, BayerRG8, 10, 200, 0, 255},
            {"Mono16<-BayerRG10 capped gain", nullptr, Mono16, BayerRG10, 100, 700, 0, 2400},
            // Widened range 50 x 257 = 12850 < 65535/4: 1/257.
            {"Mono8<-BayerRG8 full scale", nullptr, Mono8, BayerRG8, 100, 150, 100, 150},
        };
        for (const ScalingCase& c : cases) {
            PolicyScope policy(c.policy);
            const ZTImage frame = twoLevelFrame(c.src, 12, 6, c.low, c.high);
            const ZTImage out = convertTo(c.dst, frame, method);
            const unsigned channels = getBitsPerChannel(c.dst) > 8 ? getBitsPerPixel(c.dst) / 16 : getBitsPerPixel(c.dst) / 8;
            for (unsigned ch = 0; ch < channels; ++ch) {
                EXPECT_EQ(sampleAt(out, 1, 2, ch), c.outLow) << c.what << (method == DemosaicMethod::Quality ? " (quality)" : "");
                EXPECT_EQ(sampleAt(out, 10, 3, ch), c.outHigh) << c.what << (method == DemosaicMethod::Quality ? " (quality)" : "");
            }
        }
        // A flat frame under normalize: gain 1 on widened samples, which saturate to 255.
        PolicyScope policy("normalize");
        const ZTImage flat = convertTo(RGB8, twoLevelFrame(BayerRG8, 8, 4, 100, 100), method);
        EXPECT_EQ(sampleAt(flat, 3, 2, 0), 255u);
    }
}

// The method is the converter's choice: by default Hamilton-Adams' samples are written, with
// Quality the other demosaic's, both unscaled for a same-depth pair; switching back on the same
// object (whose cached converter is reused) restores the default.
TEST(BayerConversion, DemosaicMethodIsAnOptIn) {
    const unsigned width = 40, height = 30;
    ZTImage frame = ZTImage::create(BayerGB12, width, height);
    auto* samples = reinterpret_cast<uint16_t*>(frame.getBuffer());
    for (unsigned i = 0; i < width * height; ++i) samples[i] = static_cast<uint16_t>((i * 2654435761u >> 7) % 4096);
    auto direct = [&](void (*demosaic)(unsigned short*, unsigned short*, int, int, int, const char*)) {
        std::vector<uint16_t> rgb(width * height * 3);
        demosaic(samples, rgb.data(), static_cast<int>(height), static_cast<int>(width), 12, "GBRG");
        return rgb;
    };
    const std::vector<uint16_t> ha = direct(HamiltonAdams), quality = direct(QualityDemosaic);
    ASSERT_NE(ha, quality) << "the frame does not tell the demosaics apart";

    ZTImageFormatConverter converter;
    EXPECT_EQ(converter.demosaicMethod(), DemosaicMethod::HamiltonAdams);
    converter.setOutputFormat(RGB12);
    auto written = [&] {
        ZTImage rgb;
        EXPECT_EQ(converter.convert(rgb, frame), 0);
        const auto* p = reinterpret_cast<const uint16_t*>(rgb.getBuffer());
        return std::vector<uint16_t>(p, p + width * height * 3);
    };
    EXPECT_EQ(written(), ha);
    converter.setDemosaicMethod(DemosaicMethod::Quality);
    EXPECT_EQ(converter.demosaicMethod(), DemosaicMethod::Quality);
    EXPECT_EQ(written(), quality);
    converter.setDemosaicMethod(DemosaicMethod::HamiltonAdams);
    EXPECT_EQ(written(), ha);
}

TEST(BayerConversion, PaddedSourcesEqualPackedOnesAndSourcesAreNotModified) {
    for (PfncFormat_ format : {BayerRG8, BayerGB12, BayerBG16}) {
        const ZTImage packed = twoLevelFrame(format, 14, 9, 30, 220);
        ZTImage padded = twoLevelFrame(format, 14, 9, 30, 220, 6);
        // Texture so the demosaicing has work to do, written identically into both.
        for (unsigned y = 0; y < 9; ++y)
            for (unsigned x = 0; x < 14; x += 3) {
                const unsigned v = (x * 7 + y * 13) % 200 + 20;
                for (const ZTImage* img : {&packed, static_cast<const ZTImage*>(&padded)}) {
                    unsigned char* row = img->getBuffer() + y * img->getStride();
                    if (getBitsPerChannel(format) > 8) reinterpret_cast<uint16_t*>(row)[x] = static_cast<uint16_t>(v * 16);
                    else row[x] = static_cast<uint8_t>(v);
                }
            }
        const std::vector<unsigned char> before(packed.getBuffer(), packed.getBuffer() + packed.getByteCount());
        for (PfncFormat_ target : {RGB8, Mono8}) {
            const ZTImage a = convertTo(target, packed);
            const ZTImage b = convertTo(target, padded);
            EXPECT_EQ(0, std::memcmp(a.getBuffer(), b.getBuffer(), a.getByteCount())) << std::hex << format;
        }
        EXPECT_EQ(0, std::memcmp(packed.getBuffer(), before.data(), before.size())) << "source modified";
    }
}

TEST(BayerConversion, WideningEqualsTheScalarFormulaAtEveryLength) {
    std::vector<uint8_t> in(70);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint8_t>(i * 37 + 5);
    in[3] = 0;
    in[4] = 255;
    for (size_t n = 0; n <= in.size(); ++n) {
        std::vector<uint16_t> out(n + 1, 0xBEEF);
        widenRow(in.data(), out.data(), n);
        for (size_t i = 0; i < n; ++i) ASSERT_EQ(out[i], in[i] * 257u) << "length " << n << " index " << i;
        EXPECT_EQ(out[n], 0xBEEF) << "wrote past the row";
    }
}

TEST(BayerConversion, TinyFramesConvert) {
    for (unsigned w : {1u, 2u, 3u})
        for (unsigned h : {1u, 2u, 3u})
            for (PfncFormat_ target : {RGB8, Mono8}) {
                const ZTImage frame = twoLevelFrame(BayerRG8, w, h, 80, 80);
                const ZTImage out = convertTo(target, frame);
                EXPECT_EQ(out.getWidth(), w);
                EXPECT_EQ(sampleAt(out, w - 1, h - 1, 0), 80u) << w << "x" << h;
            }
}

TEST(BayerConversion, EmptyFramesReachOpenCVWhenConvertedDirectly) {
    // The converters make no size check of their own: an empty frame is demosaiced (nothing to
    // do) and OpenCV's error on the empty result propagates, whichever scaling rule applies.
    // The front end returns before them.
    const struct {
        PfncFormat_ dst, src;
    } pairs[] = {{RGB8, BayerRG8}, {RGB12, BayerRG12}, {Mono8, BayerGR8}, {Mono16, BayerBG16}};
    for (const auto& pair : pairs) {
        std::unique_ptr<IImageConverter> converter = ImageConverterFactory().createConverter(pair.dst, pair.src);
        ASSERT_NE(converter, nullptr);
        for (auto [w, h] : {std::pair<unsigned, unsigned>{0, 3}, {4, 0}}) {
            const ZTImage src = ZTImage::create(pair.src, w, h);
            ZTImage dst = ZTImage::create(pair.dst, w, h);
            EXPECT_THROW(converter->convert(dst, src), cv::Exception) << std::hex << pair.dst << " <- " << pair.src;
            ZTImageFormatConverter front;
            front.setOutputFormat(pair.dst);
            EXPECT_EQ(front.convert(dst, src), 0);
        }
    }
}

// The grey levels equal OpenCV's 16-bit colour-to-grey conversion in both channel orders: every
// value of each channel against random values of the other two, and random pixels.
TEST(BayerConversion, GreyLevelsEqualOpenCvForEveryChannelValue) {
    std::mt19937 rng(1);
    const int n = 3 * 65536 + 4099;  // not a multiple of the vector width: the scalar tail too
    cv::Mat colour(1, n, CV_16UC3);
    auto* samples = reinterpret_cast<uint16_t*>(colour.data);
    for (int i = 0; i < n; ++i)
        for (int ch = 0; ch < 3; ++ch) samples[3 * i + ch] = static_cast<uint16_t>(rng());
    for (int v = 0; v < 65536; ++v)
        for (int ch = 0; ch < 3; ++ch) samples[3 * (ch * 65536 + v) + ch] = static_cast<uint16_t>(v);
    for (bool rgb : {true, false}) {
        cv::Mat expected, grey(1, n, CV_16UC1);
        cv::cvtColor(colour, expected, rgb ? cv::COLOR_RGB2GRAY : cv::COLOR_BGR2GRAY);
        GreyRange range;
        greyLevels<true>(samples, static_cast<size_t>(n), rgb ? kGreyOfRgb : kGreyOfBgr,
                         reinterpret_cast<uint16_t*>(grey.data), range);
        ASSERT_EQ(cv::countNonZero(grey != expected), 0) << (rgb ? "RGB" : "BGR");
        double min = 0, max = 0;
        cv::minMaxLoc(expected, &min, &max);
        EXPECT_EQ(range.min, min);
        EXPECT_EQ(range.max, max);
    }
}

// Whole conversions against the same steps done by OpenCV on the whole frame, on random and
// natural frames (the virtual camera's colour scene) at every depth and pattern. The frames are
// wide enough to be converted in several bands of rows, the last one longer than the others.
TEST(BayerConversion, ConversionsEqualOpenCvOnTheWholeFrame) {
    const PfncFormat_ formats[][4] = {{BayerGR8, BayerRG8, BayerGB8, BayerBG8},
                                      {BayerGR10, BayerRG10, BayerGB10, BayerBG10},
                                      {BayerGR12, BayerRG12, BayerGB12, BayerBG12},
                                      {BayerGR16, BayerRG16, BayerGB16, BayerBG16}};
    const char* patterns[] = {"GRBG", "RGGB", "GBRG", "BGGR"};
    const unsigned width = 2050, height = 71;  // 16-row bands at this width: 16, 16, 16, 23
    std::mt19937 rng(9);
    for (const auto& depth : formats)
        for (int p = 0; p < 4; ++p)
            for (bool natural : {false, true}) {
                const PfncFormat_ format = depth[p];
                const unsigned bits = getBitsPerChannel(format);
                ZTImage src = ZTImage::create(format, width, height);
                std::unique_ptr<VirtualCamera> camera;
                if (natural) {
                    VirtualCameraConfig config;
                    config.width = width;
                    config.height = height;
                    config.pixelType = format;
                    camera = VirtualCamera::open(config);
                    ASSERT_TRUE(camera);
                }
                for (unsigned y = 0; y < height; ++y)
                    for (unsigned x = 0; x < width; ++x) {
                        // Random frames keep a margin below full scale, so that the stretch applies.
                        const unsigned v = natural ? camera->expectedSample(0, x, y, 0) : rng() % (1u << bits) * 7 / 8;
                        unsigned char* row = src.getBuffer() + y * src.getStride();
                        if (bits > 8) reinterpret_cast<uint16_t*>(row)[x] = static_cast<uint16_t>(v);
                        else row[x] = static_cast<uint8_t>(v);
                    }
                std::vector<PfncFormat_> targets = {RGB8, Mono8};
                if (bits > 8) targets.insert(targets.end(), {RGB16, Mono16});
                for (PfncFormat_ target : targets) {
                    const ZTImage out = convertTo(target, src);
                    const cv::Mat expected = referenceConversion(src, target, patterns[p]);
                    const cv::Mat actual(expected.rows, expected.cols, expected.type(),
                                         const_cast<unsigned char*>(out.getBuffer()), out.getStride());
                    ASSERT_EQ(cv::norm(actual, expected, cv::NORM_INF), 0)
                        << patterns[p] << ' ' << bits << " bits, " << (natural ? "scene" : "random") << " -> "
                        << getBitsPerPixel(target) << " bits per pixel";
                }
            }
}

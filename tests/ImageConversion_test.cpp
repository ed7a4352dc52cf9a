// Every listed conversion against OpenCV computed directly on the same pixels, the depth
// scale at its edges, and the front end's shaping and caching.
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <set>

#include "ImageConverterFactory.h"
#include "MatrixBridge.h"
#include "ZTImageFormatConverter.h"

using namespace ZTI;

// Counts heap allocations so a test can prove steady-state conversions make none. GCC cannot
// see that the replaced operators pair malloc with free, hence the pragma.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
namespace {
thread_local long allocations = 0;
}
void* operator new(std::size_t size) {
    ++allocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

// What each listed pair must compute, written independently of the library's tables: the
// OpenCV colour code (kScaleOnly when only the depth changes), or kAborts for the pairs
// whose converter has no colour code and stops the process.
constexpr int kScaleOnly = -1;
constexpr int kAborts = -2;

struct Expectation {
    PIXEL_TYPE dst, src;
    int code;
};

const Expectation kExpected[] = {
    {Mono8, Mono10, kScaleOnly}, {Mono8, Mono12, kScaleOnly}, {Mono8, Mono16, kScaleOnly},
    {Mono16, Mono10, kScaleOnly}, {Mono16, Mono12, kScaleOnly},
    {RGB8, RGB10, kScaleOnly}, {RGB8, RGB12, kScaleOnly}, {RGB8, RGB16, kScaleOnly},
    {RGB16, RGB10, kScaleOnly}, {RGB16, RGB12, kScaleOnly},
    // Grey from RGB8 uses the BGR weights and from BGR8 the RGB weights: the library's order.
    {Mono8, RGB8, cv::COLOR_BGR2GRAY}, {Mono8, BGR8, cv::COLOR_RGB2GRAY},
    {Mono8, YUV422_8_UYVY, cv::COLOR_YUV2GRAY_UYVY},
    {Mono8, YUV422_8, cv::COLOR_YUV2GRAY_YUY2}, {Mono8, YCbCr422_8, cv::COLOR_YUV2GRAY_YUY2},
    {RGB8, Mono8, cv::COLOR_GRAY2RGB}, {RGB8, Mono10, cv::COLOR_GRAY2RGB},
    {RGB8, Mono12, cv::COLOR_GRAY2RGB}, {RGB8, Mono16, cv::COLOR_GRAY2RGB},
    {RGB10, Mono10, cv::COLOR_GRAY2RGB}, {RGB12, Mono12, cv::COLOR_GRAY2RGB},
    {RGB16, Mono10, cv::COLOR_GRAY2RGB}, {RGB16, Mono12, cv::COLOR_GRAY2RGB},
    {RGB16, Mono16, cv::COLOR_GRAY2RGB},
    {RGB8, BGR8, cv::COLOR_BGR2RGB}, {RGB8, RGBa8, cv::COLOR_RGBA2RGB}, {RGB8, BGRa8, cv::COLOR_BGRA2RGB},
    {RGB8, YUV422_8_UYVY, cv::COLOR_YUV2RGB_UYVY},
    {RGB8, YUV422_8, cv::COLOR_YUV2RGB_YUY2}, {RGB8, YCbCr422_8, cv::COLOR_YUV2RGB_YUY2},
    {RGB8, YUV8_UYV, cv::COLOR_YCrCb2BGR}, {RGB8, YCbCr8, cv::COLOR_YCrCb2BGR},
    {Mono8, YUV8_UYV, cv::COLOR_YCrCb2BGR}, {Mono8, YCbCr8, cv::COLOR_YCrCb2BGR},  // then BGR2GRAY
    {RGB8, BGR10, kAborts}, {RGB8, BGR12, kAborts}, {RGB8, BGR16, kAborts},
    {RGB10, BGR10, kAborts}, {RGB12, BGR12, kAborts},
    {RGB16, BGR10, kAborts}, {RGB16, BGR12, kAborts}, {RGB16, BGR16, kAborts},
    {Mono8, RGB10, kAborts}, {Mono8, RGB12, kAborts}, {Mono8, RGB16, kAborts},
    {Mono8, BGR10, kAborts}, {Mono8, BGR12, kAborts}, {Mono8, BGR16, kAborts},
    {Mono10, RGB10, kAborts}, {Mono10, BGR10, kAborts}, {Mono12, RGB12, kAborts},
    {Mono12, BGR12, kAborts}, {Mono16, RGB10, kAborts}, {Mono16, RGB12, kAborts},
    {Mono16, RGB16, kAborts}, {Mono16, BGR10, kAborts}, {Mono16, BGR12, kAborts},
    {Mono16, BGR16, kAborts},
};

bool isYuv444(PIXEL_TYPE f) { return f == YUV8_UYV || f == YCbCr8; }
bool isBayer(PIXEL_TYPE f) { return getBitsPerChannel(f) != 0 && (f == BayerRG8 || f == BayerGR8 || f == BayerGB8 || f == BayerBG8 || (f >= BayerGR10 && f <= BayerBG12) || (f >= BayerGR16 && f <= BayerBG16)); }

// Random samples within the format's nominal range.
ZTImage randomImage(PIXEL_TYPE format, unsigned width, unsigned height, int padding, unsigned seed) {
    ZTImage image = ZTImage::create(format, width, height, padding);
    cv::Mat view = destinationView(image);
    cv::RNG rng(seed);
    rng.fill(view, cv::RNG::UNIFORM, 0, double(1u << getBitsPerChannel(format)));
    return image;
}

// The source copied into a packed matrix, so the oracle never sees padding.
cv::Mat packed(const ZTImage& image) { return sourceView(image).clone(); }

cv::Mat oracle(const Expectation& e, const cv::Mat& src) {
    const double alpha = ((1u << getBitsPerChannel(e.dst)) - 1.0) / ((1u << getBitsPerChannel(e.src)) - 1.0);
    const int depth = getBitsPerChannel(e.dst) > 8 ? CV_16U : CV_8U;
    cv::Mat out;
    if (e.code == kScaleOnly) {
        src.convertTo(out, CV_MAKETYPE(depth, src.channels()), alpha);
        return out;
    }
    cv::cvtColor(src, out, e.code);
    if (isYuv444(e.src) && e.dst == Mono8) cv::cvtColor(cv::Mat(out), out, cv::COLOR_BGR2GRAY);
    // Colour at the source depth, then the depth scale when the significant bits differ
    // (also between two 16-bit containers, e.g. RGB16 <- Mono10).
    if (getBitsPerChannel(e.dst) != getBitsPerChannel(e.src))
        out.convertTo(out, CV_MAKETYPE(depth, out.channels()), alpha);
    return out;
}

}  // namespace

TEST(ImageConversion, ExpectationsCoverExactlyTheListedPairs) {
    std::set<FormatPair> expected, listed;
    for (const Expectation& e : kExpected) expected.insert({e.dst, e.src});
    for (const ConversionInfo& c : ImageConverterFactory::listConversions()) {
        if (isBayer(c.src)) continue;  // demosaicing pairs are tested with the Bayer converters
        listed.insert({c.dst, c.src});
    }
    EXPECT_EQ(expected, listed);
    for (const Expectation& e : kExpected)
        EXPECT_EQ(ImageConverterFactory::canConvert(e.dst, e.src), e.code != kAborts)
            << std::hex << e.dst << " <- " << e.src;
}

TEST(ImageConversion, EveryPairMatchesOpenCVDirectlyAlsoWithPaddingAndOddSizes) {
    unsigned seed = 1;
    for (const Expectation& e : kExpected) {
        if (e.code == kAborts) continue;
        // 4:2:2 frames need even widths; everything else gets an odd one.
        const bool chroma422 = e.src == YUV422_8 || e.src == YCbCr422_8 || e.src == YUV422_8_UYVY;
        const unsigned width = chroma422 ? 10 : 9;
        for (int padding : {0, 6}) {
            SCOPED_TRACE(testing::Message() << std::hex << e.dst << " <- " << e.src << std::dec
                                            << " padding " << padding);
            ZTImage src = randomImage(e.src, width, 5, padding, seed++);
            // Padding bytes hold a marker; a converter that reads them would show it.
            const size_t rowBytes = getBytesPerPixel(e.src) * width;
            for (unsigned y = 0; y < 5; ++y)
                std::memset(src.getBuffer() + y * src.getStride() + rowBytes, 0xEE, padding);
            const cv::Mat expected = oracle(e, packed(src));

            ZTImageFormatConverter converter;
            converter.setOutputFormat(e.dst);
            ZTImage dst;
            ASSERT_EQ(converter.convert(dst, src), 0);
            ASSERT_EQ(dst.getPixelType(), e.dst);
            ASSERT_EQ(dst.getWidth(), width);
            const cv::Mat actual = sourceView(dst);
            ASSERT_EQ(actual.type(), expected.type());
            EXPECT_EQ(cv::norm(actual, expected, cv::NORM_INF), 0.0);
        }
    }
}

TEST(ImageConversion, DepthScaleAtItsEdges) {
    // Expected values: sample x (2^d - 1) / (2^s - 1), rounded to nearest (by hand).
    struct Case { PIXEL_TYPE dst, src; uint16_t in, out; };
    const Case cases[] = {
        {Mono8, Mono10, 0, 0}, {Mono8, Mono10, 2, 0}, {Mono8, Mono10, 3, 1}, {Mono8, Mono10, 4, 1},
        {Mono8, Mono10, 1023, 255}, {Mono16, Mono12, 4095, 65535}, {Mono16, Mono12, 1, 16},
        {Mono8, Mono16, 65535, 255}, {Mono8, Mono16, 128, 0}, {Mono8, Mono16, 129, 1},
        {Mono16, Mono10, 1023, 65535}, {Mono8, Mono12, 4095, 255},
        {Mono8, Mono10, 2000, 255},  // out-of-range samples saturate
        // Single-precision products just above a half round down (the documented exceptions):
        // 1229 x 65535 / 4095 = 19668.5018, 3960 x 65535 / 4095 = 63374.5055; 1230 gives
        // 19684.5055 and rounds up.
        {Mono16, Mono12, 1229, 19668}, {Mono16, Mono12, 3960, 63374}, {Mono16, Mono12, 1230, 19685},
    };
    for (const Case& c : cases) {
        ZTImage src(c.src, 1, 1, 0, const_cast<uint16_t*>(&c.in));
        ZTImage dst;
        ZTImageFormatConverter converter;
        converter.setOutputFormat(c.dst);
        ASSERT_EQ(converter.convert(dst, src), 0);
        const unsigned got = c.dst == Mono8 ? dst.getBuffer()[0] : *reinterpret_cast<const uint16_t*>(dst.getBuffer());
        EXPECT_EQ(got, c.out) << std::hex << c.dst << " <- " << c.src << std::dec << " of " << c.in;
    }
    EXPECT_DOUBLE_EQ(depthScale(Mono16, Mono10), 65535.0 / 1023.0);

    // RGB10 <- Mono10 copies without scaling; RGB16 <- Mono10 scales after replicating.
    const uint16_t grey = 1000;
    ZTImage mono(Mono10, 1, 1, 0, const_cast<uint16_t*>(&grey));
    for (auto [format, value] : {std::pair{RGB10, 1000}, std::pair{RGB16, 64062}}) {
        ZTImageFormatConverter converter;
        converter.setOutputFormat(format);
        ZTImage rgb;
        ASSERT_EQ(converter.convert(rgb, mono), 0);
        const auto* px = reinterpret_cast<const uint16_t*>(rgb.getBuffer());
        EXPECT_EQ(px[0], value);
        EXPECT_EQ(px[1], value);
        EXPECT_EQ(px[2], value);
    }
}

TEST(ImageConversion, SwapsAndChannelOrderOnKnownPixels) {
    unsigned char bgr[] = {1, 2, 3, 4, 5, 6};
    ZTImage src(BGR8, 2, 1, 0, bgr);
    ZTImageFormatConverter converter;
    converter.setOutputFormat(RGB8);
    ZTImage dst;
    ASSERT_EQ(converter.convert(dst, src), 0);
    const unsigned char expected[] = {3, 2, 1, 6, 5, 4};
    EXPECT_EQ(0, std::memcmp(dst.getBuffer(), expected, 6));
}

TEST(ImageConversion, FactoryAnswersByPairOrder) {
    ImageConverterFactory factory;
    for (PIXEL_TYPE f : {PIXEL_TYPE(0), Mono8, PIXEL_TYPE(0x7777)})
        EXPECT_NE(dynamic_cast<CopyConverter*>(factory.createConverter(f, f).get()), nullptr);
    EXPECT_NE(dynamic_cast<Mono2Mono*>(factory.createConverter(Mono8, Mono10).get()), nullptr);
    EXPECT_EQ(factory.createConverter(Mono10, Mono8), nullptr);  // reversed pair
    EXPECT_EQ(factory.createConverter(Mono10, BayerRG12), nullptr);
    EXPECT_EQ(factory.createConverter(RGB10, BayerRG12), nullptr);  // Bayer depths must match
    EXPECT_EQ(factory.createConverter(RGB16, BayerRG8), nullptr);
    EXPECT_NE(dynamic_cast<Yuv2Rgb*>(factory.createConverter(RGB8, YUV8_UYV).get()), nullptr);

    EXPECT_EQ(getDestType(BGR16), 0u);
    EXPECT_EQ(getDestType(RGB16), RGB16);
    EXPECT_EQ(getDestType(Mono8), 0u);
    EXPECT_EQ(getDestType(Mono12), Mono16);
    EXPECT_EQ(getDestType(BayerBG8), RGB8);
    EXPECT_EQ(getDestType(BayerGR12), RGB16);

    EXPECT_EQ(get_cv_type(8, 2), CV_8UC2);
    EXPECT_EQ(get_cv_type(12, 3), CV_16UC3);
    EXPECT_EQ(get_cv_type(9, 1), CV_16UC1);
    EXPECT_EQ(get_cv_type(16, 4), CV_16UC4);
    for (auto [bits, channels] : {std::pair{17, 1}, {7, 1}, {8, 5}, {0, 1}, {-8, 1}, {8, 0}})
        EXPECT_EQ(get_cv_type(bits, channels), -1) << bits << " bits, " << channels << " channels";
    EXPECT_EQ(get_cv_mat_type(Mono14), -1);
    EXPECT_EQ(get_cv_mat_type(YCbCr8), CV_8UC3);
    EXPECT_EQ(get_cv_mat_type(BGR16), CV_16UC3);
    EXPECT_EQ(get_cv_cvt_type(RGB8, BayerRG12), cv::COLOR_BayerRG2BGR);
}

TEST(ImageConversion, FrontEndShapesCopiesAndCaches) {
    ZTImageFormatConverter converter;
    EXPECT_EQ(converter.getOutputFormat(), 0u);

    // Nothing set yet: the destination is reset to format 0 at the source's size, and -1.
    ZTImage mono8 = randomImage(Mono8, 6, 4, 0, 7);
    ZTImage dst;
    EXPECT_EQ(converter.convert(dst, mono8), -1);
    EXPECT_EQ(dst.getPixelType(), 0u);
    EXPECT_EQ(dst.getWidth(), 6u);

    // Equal formats: a private deep copy.
    converter.setOutputFormat(Mono8);
    ASSERT_EQ(converter.convert(dst, mono8), 0);
    EXPECT_NE(dst.getBuffer(), mono8.getBuffer());
    EXPECT_EQ(0, std::memcmp(dst.getBuffer(), mono8.getBuffer(), 24));

    // A stream of frames into a correctly shaped destination: no reset (the caller's buffer
    // stays attached) and, after the first frame, no heap allocation at all.
    std::vector<unsigned char> out(64 * 48);
    ZTImage target;
    target.attachUserBuffer(out.data(), out.size(), Mono8, 64, 48, 0);
    ZTImage frame = randomImage(Mono10, 64, 48, 0, 8);
    ASSERT_EQ(converter.convert(target, frame), 0);
    const long before = allocations;
    ASSERT_EQ(converter.convert(target, frame), 0);
    EXPECT_EQ(allocations - before, 0);
    EXPECT_EQ(target.getBuffer(), out.data());

    // A pair without converter: -1, the destination shaped, and the miss remembered (the
    // second call allocates nothing, so it neither asks the factory nor adds a cache entry).
    converter.setOutputFormat(BGR8);
    ZTImage rgb = randomImage(RGB8, 6, 4, 0, 9);
    EXPECT_EQ(converter.convert(dst, rgb), -1);
    EXPECT_EQ(dst.getPixelType(), BGR8);
    EXPECT_EQ(dst.getWidth(), 6u);
    const long beforeMiss = allocations;
    EXPECT_EQ(converter.convert(dst, rgb), -1);
    EXPECT_EQ(allocations - beforeMiss, 0);
    converter.setOutputFormat(0);  // accepted
    EXPECT_EQ(converter.getOutputFormat(), 0u);
}

using ImageConversionDeathTest = testing::Test;

TEST_F(ImageConversionDeathTest, ProgrammingErrorsAbortWithTheExpression) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (PIXEL_TYPE refused : {BayerGR8, BayerRG8, BayerGB8, BayerBG8, YUV422_8_UYVY, YUV422_8}) {
        EXPECT_DEATH(
            {
                ZTImageFormatConverter c;
                c.setOutputFormat(refused);
            },
            "^Invalid output format\\.\n\\.\\./image/ZTImageFormatConverter\\.cpp:[0-9]+: "
            "void ZTI::ZTImageFormatConverter::setOutputFormat\\(PIXEL_TYPE\\): "
            "Assertion `validOutputFormat==true' failed\\.\n");
    }
    // A listed pair whose converter has no colour code: aborts in the lookup.
    ZTImage bgr16 = ZTImage::create(BGR16, 2, 2);
    EXPECT_DEATH(
        {
            ZTImageFormatConverter c;
            c.setOutputFormat(RGB8);
            ZTImage dst;
            c.convert(dst, bgr16);
        },
        "get_cv_cvt_type.*false|false.*get_cv_cvt_type");
    // The whole message: the unit relative to the build folder, as users paste it into bug
    // reports, never the build machine's path. Nothing is required after its line: an emulator
    // running the tests reports the abort on a line of its own.
    EXPECT_DEATH(get_cv_cvt_type(Mono10, BayerGR12),
                 "^\\.\\./image/ImageFormatHandler\\.cpp:[0-9]+: int get_cv_cvt_type\\(PIXEL_TYPE, PIXEL_TYPE\\): "
                 "Assertion `false' failed\\.\n");
}

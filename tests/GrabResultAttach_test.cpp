// Camera frames as images: viewed in place or unpacked, the frame's lifetime through copies,
// clones and resets, and round trips from the virtual camera for every format it produces.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>
#include <string>
#include <vector>

#include "ImageUtil.h"
#include "PixelUnpack.h"
#include "VirtualCamera.h"
#include "ZTImage.h"

namespace {

using namespace ZTI;

// A frame over test-owned bytes that counts how often the camera got it back.
struct TestFrame {
    std::vector<unsigned char> bytes;
    int released = 0;

    ZTGrabResultPtr make(PfncFormat_ code, uint32_t width, uint32_t height, uint32_t padding,
                         uint64_t statedSize) {
        return createGrabResult(code, width, height, padding, bytes.data(), statedSize,
                                [this] { ++released; });
    }
};

TEST(GrabResultAttach, ViewedFramesKeepTheirMemoryGeometryAndStatedSize) {
    TestFrame mono{std::vector<unsigned char>(640 * 480, 7)};
    ZTImage image;
    // A frame that does not state its size gets the tightly packed size of its format.
    image.attachGrabResult(mono.make(Mono8, 640, 480, 0, 0));
    EXPECT_EQ(image.getPixelType(), Mono8);
    EXPECT_EQ(image.getByteCount(), 307200u);
    EXPECT_EQ(image.getBuffer(), mono.bytes.data()) << "viewed in place, not copied";
    EXPECT_EQ(mono.released, 0);

    // A stated size is kept as it is; the frame's row padding becomes the image's.
    TestFrame rgb{std::vector<unsigned char>(68)};
    image.attachGrabResult(rgb.make(RGB8, 10, 2, 4, 68));
    EXPECT_EQ(mono.released, 1) << "attaching another frame lets the previous one go";
    EXPECT_EQ(image.getByteCount(), 68u);
    EXPECT_EQ(image.getpaddingX(), 4);
    EXPECT_EQ(image.getStride(), 34u);
    EXPECT_EQ(image.getBuffer(), rgb.bytes.data());
}

TEST(GrabResultAttach, FrameLivesWhileAnyImageOrCopyViewsIt) {
    TestFrame frame{std::vector<unsigned char>(16, 3)};
    ZTGrabResultPtr handle = frame.make(Mono8, 4, 4, 0, 16);
    auto original = std::make_unique<ZTImage>();
    original->attachGrabResult(handle);
    handle.Release();
    EXPECT_EQ(frame.released, 0) << "the image holds the frame";

    ZTImage copy(*original);
    ZTImage assigned;
    assigned = *original;
    EXPECT_EQ(copy.getBuffer(), frame.bytes.data()) << "copies share the frame's memory";
    EXPECT_EQ(assigned.getBuffer(), frame.bytes.data());

    // Clones are deep copies that do not keep the frame.
    ZTImage clone = imageutil::cloneValue(*original);
    std::shared_ptr<ZTImage> shared = imageutil::cloneShared(*original);
    ASSERT_TRUE(clone.isValid() && shared);
    EXPECT_NE(clone.getBuffer(), frame.bytes.data());

    original->reset(Mono8, 4, 4);  // reset lets go of the frame
    original.reset();
    copy = ZTImage();
    EXPECT_EQ(frame.released, 0) << "`assigned` still views the frame";

    // Attaching a caller's buffer keeps a held frame (and copies then share it too).
    unsigned char own[16] = {};
    assigned.attachUserBuffer(own, sizeof own, Mono8, 4, 4, 0);
    ZTImage copyOfAssigned(assigned);
    assigned = ZTImage();
    EXPECT_EQ(frame.released, 0);
    copyOfAssigned = ZTImage();
    EXPECT_EQ(frame.released, 1);

    EXPECT_EQ(clone.getBuffer()[15], 3) << "clones keep their pixels after the frame is gone";
    EXPECT_EQ(shared->getBuffer()[0], 3);
}

struct UnpackRow {
    PfncFormat_ code;
    PfncFormat_ target;
    const char* layout;  // "group", "lsb" or "packed"
};

// The packed formats that become 16-bit images, with the byte layout each one is read with.
const UnpackRow kUnpacked[] = {
    {Mono10Packed, Mono10, "group"},        {Mono10p, Mono10, "group"},
    {BayerGR10Packed, BayerGR10, "group"},  {BayerRG10Packed, BayerRG10, "group"},
    {BayerGB10Packed, BayerGB10, "group"},  {BayerBG10Packed, BayerBG10, "group"},
    {Mono12Packed, Mono12, "packed"},       {BayerGR12Packed, BayerGR12, "packed"},
    {BayerRG12Packed, BayerRG12, "packed"}, {BayerGB12Packed, BayerGB12, "packed"},
    {BayerBG12Packed, BayerBG12, "packed"}, {Mono12p, Mono12, "lsb"},
    {BayerBG12p, BayerBG12, "lsb"},         {BayerGB12p, BayerGB12, "lsb"},
    {BayerGR12p, BayerGR12, "lsb"},         {BayerRG12p, BayerRG12, "lsb"},
};

TEST(GrabResultAttach, PackedFramesAreUnpackedAndLetGoAtOnce) {
    for (const UnpackRow& row : kUnpacked) {
        SCOPED_TRACE(testing::Message() << std::hex << "code 0x" << row.code);
        const std::string layout = row.layout;
        // Two pixels written by hand for each layout (see the unpacker's tests), then zeros.
        TestFrame frame;
        std::vector<uint16_t> expected;
        if (layout == "group") {
            frame.bytes = {0xFF, 0xC0, 0x00, 0x00, 0x00};
            expected = {0x3FF, 0, 0, 0};
        } else if (layout == "lsb") {
            frame.bytes = {0x21, 0x43, 0x65, 0x00, 0x00, 0x00};
            expected = {0x321, 0x654, 0, 0};
        } else {
            frame.bytes = {0x12, 0x34, 0x56, 0x00, 0x00, 0x00};
            expected = {0x124, 0x563, 0, 0};
        }
        // An image that had row padding keeps it; the frame's own padding (3) is not used.
        ZTImage image = ZTImage::create(Mono8, 8, 8, 8);
        ZTGrabResultPtr handle = frame.make(row.code, 2, 2, 3, frame.bytes.size());
        image.attachGrabResult(handle);
        handle.Release();
        EXPECT_EQ(frame.released, 1) << "an unpacked image does not hold the frame";
        EXPECT_EQ(image.getPixelType(), row.target);
        EXPECT_EQ(image.getByteCount(), 8u) << "2 bytes for each of 4 pixels";
        EXPECT_EQ(image.getpaddingX(), 8);
        ASSERT_TRUE(image.isValid());
        std::vector<uint16_t> actual(4);
        std::memcpy(actual.data(), image.getBuffer(), 8);
        EXPECT_EQ(actual, expected);
    }
}

TEST(GrabResultAttach, FormatsWithoutUnpackingAreViewedOrGetNoFormat) {
    unsigned char bytes[64] = {};
    // Layouts the library cannot hold: pixel type 0 and the frame is not kept.
    for (PfncFormat_ code : {Mono1p, Mono2p, Mono4p, RGB10V1Packed, RGB12V1Packed,
                             PfncFormat_{0x02240086}, PfncFormat_{0x02180088},
                             PfncFormat_{0x021E0084}, PfncFormat_{0x02140087}}) {
        int released = 0;
        ZTImage image;
        image.attachGrabResult(createGrabResult(code, 4, 2, 0, bytes, 0, [&] { ++released; }));
        EXPECT_EQ(image.getPixelType(), 0u) << std::hex << code;
        EXPECT_EQ(image.getWidth(), 4u);
        EXPECT_EQ(image.getByteCount(), 0u);
        EXPECT_EQ(released, 1) << std::hex << code;
    }
    // The Bayer 10p codes are viewed as they are, like any format the library does not unpack.
    for (PfncFormat_ code : {BayerBG10p, BayerGB10p, BayerGR10p, BayerRG10p, RGB12p, Mono14}) {
        int released = 0;
        ZTImage image;
        image.attachGrabResult(createGrabResult(code, 4, 2, 0, bytes, 0, [&] { ++released; }));
        EXPECT_EQ(image.getPixelType(), code);
        EXPECT_EQ(image.getBuffer(), bytes);
        EXPECT_EQ(released, 0) << std::hex << code;
    }
}

TEST(GrabResultAttach, EmptyHandleLeavesOwnedMemoryAndDropsAViewedFrame) {
    ZTImage owning = ZTImage::create(Mono8, 4, 4);
    unsigned char* memory = owning.getBuffer();
    owning.attachGrabResult(ZTGrabResultPtr());
    EXPECT_TRUE(owning.isValid());
    EXPECT_EQ(owning.getBuffer(), memory);

    TestFrame frame{std::vector<unsigned char>(16)};
    ZTImage viewing;
    viewing.attachGrabResult(frame.make(Mono8, 4, 4, 0, 16));
    viewing.attachGrabResult(ZTGrabResultPtr());
    EXPECT_EQ(frame.released, 1);
    EXPECT_FALSE(viewing.isValid());
}

// ---- round trips from the virtual camera -------------------------------------------------

const PfncFormat_ kCameraFormats[] = {
    Mono8, Mono10, Mono12, Mono16, Mono10p, Mono10Packed, Mono12p, Mono12Packed,
    BayerGR8, BayerRG8, BayerGB8, BayerBG8, BayerGR10, BayerRG10, BayerGB10, BayerBG10,
    BayerGR12, BayerRG12, BayerGB12, BayerBG12, BayerGR16, BayerRG16, BayerGB16, BayerBG16,
    BayerGR10p, BayerRG10p, BayerGB10p, BayerBG10p, BayerGR10Packed, BayerRG10Packed,
    BayerGB10Packed, BayerBG10Packed, BayerGR12p, BayerRG12p, BayerGB12p, BayerBG12p,
    BayerGR12Packed, BayerRG12Packed, BayerGB12Packed, BayerBG12Packed,
    RGB8, BGR8, RGBa8, BGRa8, YUV422_8_UYVY, YUV422_8, YCbCr422_8, YUV8_UYV, YCbCr8,
};

bool isPacked(PfncFormat_ code) { return getBitsPerPixel(code) == 10 || getBitsPerPixel(code) == 12; }

bool isYuv422(PfncFormat_ code) {
    return code == YUV422_8_UYVY || code == YUV422_8 || code == YCbCr422_8;
}

// Channel `channel` of pixel (x, y) of an image as its format lays it out. `unpacked` holds
// the 10-bit samples of an image the library views in packed form.
unsigned storedSample(const ZTImage& image, const std::vector<uint16_t>& unpacked, uint32_t x,
                      uint32_t y, unsigned channel) {
    const PfncFormat_ code = image.getPixelType();
    if (!unpacked.empty()) return unpacked[size_t{y} * image.getWidth() + x];
    const unsigned char* row = image.getBuffer() + y * image.getStride();
    if (getBitsPerPixel(code) == 8) return row[x];
    if (getBitsPerPixel(code) == 16 && (code >> 24) == 1) {
        uint16_t v;
        std::memcpy(&v, row + 2 * x, 2);
        return v;
    }
    // Channel order of the colour layouts, as their PFNC names spell them; channels are
    // numbered R G B A or Y Cb Cr.
    const unsigned char* px3 = row + 3 * x;
    const unsigned char* px4 = row + 4 * x;
    const unsigned char* pair = row + 4 * (x / 2);
    switch (code) {
        case RGB8: return px3[channel];
        case BGR8: return px3[2 - channel];
        case RGBa8: return px4[channel];
        case BGRa8: return px4[channel == 3 ? 3 : 2 - channel];
        case YCbCr8: return px3[channel];
        case YUV8_UYV: { const unsigned at[3] = {1, 0, 2}; return px3[at[channel]]; }
        case YUV422_8_UYVY: { const unsigned at[3] = {1 + 2 * (x % 2), 0, 2}; return pair[at[channel]]; }
        default: { const unsigned at[3] = {2 * (x % 2), 1, 3}; return pair[at[channel]]; }  // Y U Y V
    }
}

TEST(GrabResultAttach, EveryVirtualCameraFormatRoundTripsToTheScene) {
    for (PfncFormat_ code : kCameraFormats) {
        SCOPED_TRACE(testing::Message() << std::hex << "code 0x" << code);
        VirtualCameraConfig config;
        config.pixelType = code;
        // 407 pixels: a partial 10-bit group of 3 and an odd 12-bit pixel count. 4:2:2 needs
        // an even width. Unpacked formats get row padding, which must be stepped over.
        config.width = isYuv422(code) ? 38 : 37;
        config.height = 11;
        config.paddingX = isPacked(code) ? 0 : 6;
        std::string error;
        auto camera = VirtualCamera::open(config, &error);
        ASSERT_TRUE(camera) << error;
        ASSERT_TRUE(camera->grab());  // frame 0 is dropped; frame 1 is shifted by the motion
        ZTImage image;
        image.attachGrabResult(camera->grab());
        ASSERT_TRUE(image.isValid());

        std::vector<uint16_t> unpacked;
        if (getBitsPerPixel(image.getPixelType()) == 10) {  // Bayer 10p stays packed
            unpacked.resize(size_t{config.width} * config.height);
            unpack10BitsPixelBuffer(code, int(config.width), int(config.height), image.getBuffer(),
                                    reinterpret_cast<unsigned char*>(unpacked.data()));
        }
        const unsigned channels = code >> 24 == 1 ? 1 : code == RGBa8 || code == BGRa8 ? 4 : 3;
        const bool lastUnwritten = getBitsPerPixel(code) == 12;  // odd count: last pixel left
        int mismatches = 0;
        for (uint32_t y = 0; y < config.height; ++y) {
            for (uint32_t x = 0; x < config.width; ++x) {
                if (lastUnwritten && y == config.height - 1 && x == config.width - 1) continue;
                for (unsigned c = 0; c < channels; ++c) {
                    const unsigned expected = camera->expectedSample(1, x, y, c);
                    const unsigned actual = storedSample(image, unpacked, x, y, c);
                    if (expected != actual && ++mismatches <= 3)
                        ADD_FAILURE() << "(" << x << ", " << y << ") channel " << c
                                      << ": expected " << expected << ", got " << actual;
                }
            }
        }
    }
}

// The virtual camera's YUV frames must hold what OpenCV's full-range RGB to YCrCb conversion
// computes from the same scene, 4:2:2 chroma being the mean of each pixel pair.
TEST(GrabResultAttach, VirtualCameraYuvMatchesOpenCvYCrCb) {
    VirtualCameraConfig config;
    config.width = 64;
    config.height = 48;
    config.pixelType = RGB8;
    auto rgbCamera = VirtualCamera::open(config);
    ASSERT_TRUE(rgbCamera);
    ZTImage rgb;
    rgb.attachGrabResult(rgbCamera->grab());
    const cv::Mat rgbView(48, 64, CV_8UC3, rgb.getBuffer(), rgb.getStride());
    cv::Mat ycrcb;
    cv::cvtColor(rgbView, ycrcb, cv::COLOR_RGB2YCrCb);

    for (PfncFormat_ code : {YCbCr8, YUV8_UYV, YUV422_8_UYVY, YUV422_8, YCbCr422_8}) {
        SCOPED_TRACE(testing::Message() << std::hex << "code 0x" << code);
        config.pixelType = code;
        auto camera = VirtualCamera::open(config);
        ASSERT_TRUE(camera);
        ZTImage yuv;
        yuv.attachGrabResult(camera->grab());
        int mismatches = 0;
        for (int y = 0; y < 48; ++y) {
            for (int x = 0; x < 64; ++x) {
                const cv::Vec3b here = ycrcb.at<cv::Vec3b>(y, x);
                const cv::Vec3b mate = ycrcb.at<cv::Vec3b>(y, x ^ 1);
                // OpenCV gives Y Cr Cb; the frame is read back as Y Cb Cr.
                unsigned expected[3] = {here[0], here[2], here[1]};
                if (isYuv422(code)) {
                    expected[1] = (here[2] + mate[2] + 1) / 2;
                    expected[2] = (here[1] + mate[1] + 1) / 2;
                }
                for (unsigned c = 0; c < 3; ++c) {
                    const unsigned actual = storedSample(yuv, {}, uint32_t(x), uint32_t(y), c);
                    // Both use the same 14-bit fixed-point arithmetic, so the bytes are equal.
                    if (actual != expected[c] && ++mismatches <= 3)
                        ADD_FAILURE() << "(" << x << ", " << y << ") channel " << c
                                      << ": OpenCV " << expected[c] << ", frame " << actual;
                }
            }
        }
    }
}

}  // namespace

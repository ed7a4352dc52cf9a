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

TEST(GrabResultAttach, ViewedFrameWithoutStatedSizeGetsThePackedSizeOfItsFormat) {
    TestFrame mono{std::vector<unsigned char>(640 * 480)};
    ZTImage image;
    image.attachGrabResult(mono.make(Mono8, 640, 480, 0, 0));
    EXPECT_EQ(image.getByteCount(), 307200u);
    EXPECT_EQ(image.getBuffer(), mono.bytes.data()) << "viewed in place, not copied";
    // A stated size is kept as it is, and attaching another frame lets the first one go.
    TestFrame rgb{std::vector<unsigned char>(68)};
    image.attachGrabResult(rgb.make(RGB8, 10, 2, 4, 68));
    EXPECT_EQ(image.getByteCount(), 68u);
    EXPECT_EQ(mono.released, 1);
}

TEST(GrabResultAttach, FrameLivesWhileAnyImageOrCopyViewsIt) {
    TestFrame frame{std::vector<unsigned char>(16, 3)};
    ZTGrabResultPtr handle = frame.make(Mono8, 4, 4, 0, 16);
    ZTImage original;
    original.attachGrabResult(handle);
    handle.Release();
    EXPECT_EQ(frame.released, 0) << "the image holds the frame";

    ZTImage copy(original);
    ZTImage assigned;
    assigned = original;
    EXPECT_EQ(copy.getBuffer(), frame.bytes.data()) << "copies share the frame's memory";
    EXPECT_EQ(assigned.getBuffer(), frame.bytes.data());

    // Clones are deep copies that do not keep the frame.
    ZTImage clone = imageutil::cloneValue(original);
    std::shared_ptr<ZTImage> shared = imageutil::cloneShared(original);
    ASSERT_TRUE(clone.isValid() && shared);
    EXPECT_NE(clone.getBuffer(), frame.bytes.data());

    original.reset(Mono8, 4, 4);  // reset lets go of the frame
    copy = ZTImage();
    EXPECT_EQ(frame.released, 0) << "`assigned` still views the frame";

    // Attaching a caller's buffer keeps a held frame (and copies then share it too).
    unsigned char own[16] = {};
    assigned.attachUserBuffer(own, sizeof own, Mono8, 4, 4, 0);
    ZTImage copyOfAssigned(assigned);
    EXPECT_EQ(copyOfAssigned.getBuffer(), own);
    assigned = ZTImage();
    EXPECT_EQ(frame.released, 0);
    copyOfAssigned = ZTImage();
    EXPECT_EQ(frame.released, 1);

    EXPECT_EQ(clone.getBuffer()[15], 3) << "clones keep their pixels after the frame is gone";
    EXPECT_EQ(shared->getBuffer()[0], 3);
}

// Packed 10- and 12-bit mono and Bayer frames become 16-bit images that own their pixels (the
// values are checked by the round trips below); layouts the library cannot hold get no format;
// everything else, the Bayer 10p codes included, is viewed in the frame's memory.
TEST(GrabResultAttach, EachFormatIsUnpackedViewedOrGivenNoFormat) {
    // One code of each packing (the target of every code is checked with its pixels elsewhere).
    const std::pair<PfncFormat_, PfncFormat_> unpacked[] = {
        {Mono10Packed, Mono10}, {Mono10p, Mono10}, {BayerGB12Packed, BayerGB12}, {BayerRG12p, BayerRG12}};
    const PfncFormat_ noFormat[] = {Mono1p, Mono2p, Mono4p, RGB10V1Packed, RGB12V1Packed,
                                    0x02240086, 0x02180088, 0x021E0084, 0x02140087};
    const PfncFormat_ viewed[] = {BayerBG10p, BayerGB10p, BayerGR10p, BayerRG10p, RGB12p, Mono14};

    // Attaches a 2 x 2 frame with row padding 3 to an image that had padding 8; returns
    // whether the image still holds the frame once the caller's handle is gone.
    auto attach = [](PfncFormat_ code, ZTImage& image, TestFrame& frame) {
        image = ZTImage::create(Mono8, 8, 8, 8);
        frame.bytes.assign(64, 0);
        ZTGrabResultPtr handle = frame.make(code, 2, 2, 3, 0);
        image.attachGrabResult(handle);
        handle.Release();
        return frame.released == 0;
    };
    for (auto [code, target] : unpacked) {
        ZTImage image;
        TestFrame frame;
        EXPECT_FALSE(attach(code, image, frame)) << std::hex << code;
        EXPECT_EQ(image.getPixelType(), target);
        EXPECT_EQ(image.getByteCount(), 8u) << "2 bytes for each of 4 pixels";
        EXPECT_EQ(image.getpaddingX(), 8) << "the image's padding is kept, the frame's unused";
        EXPECT_TRUE(image.isValid());
    }
    for (PfncFormat_ code : noFormat) {
        ZTImage image;
        TestFrame frame;
        EXPECT_FALSE(attach(code, image, frame)) << std::hex << code;
        EXPECT_EQ(image.getPixelType(), 0u);
        EXPECT_EQ(image.getWidth(), 2u);
    }
    for (PfncFormat_ code : viewed) {
        ZTImage image;
        TestFrame frame;
        EXPECT_TRUE(attach(code, image, frame)) << std::hex << code;
        EXPECT_EQ(image.getPixelType(), code);
        EXPECT_EQ(image.getBuffer(), frame.bytes.data());
        EXPECT_EQ(image.getpaddingX(), 3);
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

bool isPacked(PfncFormat_ code) {
    return getBitsPerPixel(code) == 10 || getBitsPerPixel(code) == 12;
}

bool isYuv422(PfncFormat_ code) {
    return code == YUV422_8_UYVY || code == YUV422_8 || code == YCbCr422_8;
}

// Channel `channel` of pixel (x, y) of an image as its format lays it out: R G B A, or
// Y Cb Cr in the byte orders the PFNC names spell. `unpacked` holds the samples of an image
// that the library views in packed form.
unsigned storedSample(const ZTImage& image, const std::vector<uint16_t>& unpacked, uint32_t x,
                      uint32_t y, unsigned c) {
    if (!unpacked.empty()) return unpacked[size_t{y} * image.getWidth() + x];
    const PfncFormat_ code = image.getPixelType();
    const unsigned char* row = image.getBuffer() + y * image.getStride();
    const unsigned char *px3 = row + 3 * x, *px4 = row + 4 * x, *pair = row + 4 * (x / 2);
    switch (code) {
        case RGB8: case YCbCr8: return px3[c];
        case BGR8: return px3[2 - c];
        case RGBa8: return px4[c];
        case BGRa8: return px4[c == 3 ? 3 : 2 - c];
        case YUV8_UYV: return px3[c == 0 ? 1 : c == 1 ? 0 : 2];
        case YUV422_8_UYVY: return pair[c == 0 ? 1 + 2 * (x % 2) : c == 1 ? 0 : 2];
        case YUV422_8: case YCbCr422_8: return pair[c == 0 ? 2 * (x % 2) : c == 1 ? 1 : 3];
        default: break;  // mono and Bayer
    }
    if (getBitsPerPixel(code) == 8) return row[x];
    uint16_t word;
    std::memcpy(&word, row + 2 * x, 2);
    return word;
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
        auto camera = VirtualCamera::open(config);
        ASSERT_TRUE(camera);
        camera->grab();  // frame 0 is dropped; frame 1 is shifted by the motion
        ZTImage image;
        image.attachGrabResult(camera->grab());
        ASSERT_TRUE(image.isValid());

        std::vector<uint16_t> unpacked;
        if (getBitsPerPixel(image.getPixelType()) == 10) {  // Bayer 10p stays packed
            unpacked.resize(size_t{config.width} * config.height);
            unpack10BitsPixelBuffer(code, int(config.width), int(config.height), image.getBuffer(),
                                    reinterpret_cast<unsigned char*>(unpacked.data()));
        }
        const unsigned channels = code >> 24 == 1 ? 1 : getBitsPerPixel(code) == 32 ? 4 : 3;
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

// The virtual camera's YUV values must be what OpenCV's full-range RGB to YCrCb conversion
// computes from the same scene, 4:2:2 chroma being the mean of each pixel pair. (The round
// trips above show that the frames hold these values in each format's byte order.)
TEST(GrabResultAttach, VirtualCameraYuvIsOpenCvYCrCbOfTheScene) {
    VirtualCameraConfig config;
    config.width = 64;
    config.height = 48;
    config.pixelType = RGB8;
    auto rgbCamera = VirtualCamera::open(config);
    ASSERT_TRUE(rgbCamera);
    ZTImage rgb;
    rgb.attachGrabResult(rgbCamera->grab());
    cv::Mat ycrcb;
    const cv::Mat rgbView(48, 64, CV_8UC3, rgb.getBuffer(), rgb.getStride());
    cv::cvtColor(rgbView, ycrcb, cv::COLOR_RGB2YCrCb);

    for (PfncFormat_ code : {YCbCr8, YUV422_8}) {
        config.pixelType = code;
        auto camera = VirtualCamera::open(config);
        ASSERT_TRUE(camera);
        int mismatches = 0;
        for (int y = 0; y < 48; ++y) {
            for (int x = 0; x < 64; ++x) {
                const cv::Vec3b here = ycrcb.at<cv::Vec3b>(y, x);
                const cv::Vec3b mate = ycrcb.at<cv::Vec3b>(y, x ^ 1);
                // OpenCV gives Y Cr Cb; the camera numbers its channels Y Cb Cr.
                unsigned expected[3] = {here[0], here[2], here[1]};
                if (code == YUV422_8) {
                    expected[1] = (here[2] + mate[2] + 1) / 2;
                    expected[2] = (here[1] + mate[1] + 1) / 2;
                }
                // Both compute in the same 14-bit fixed point, so the values are equal.
                for (unsigned c = 0; c < 3; ++c) {
                    const unsigned actual = camera->expectedSample(0, uint32_t(x), uint32_t(y), c);
                    if (actual != expected[c] && ++mismatches <= 3)
                        ADD_FAILURE() << std::hex << "code 0x" << code << std::dec << " (" << x
                                      << ", " << y << ") channel " << c << ": OpenCV "
                                      << expected[c] << ", camera " << actual;
                }
            }
        }
    }
}

}  // namespace

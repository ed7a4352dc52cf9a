// Saving: what lands in the file (read back with OpenCV), and what is left behind on failure.
#include "ImagePersistence.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

using namespace ZTI;
namespace fs = std::filesystem;

namespace {

class ImagePersistenceTest : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/ztimage-save-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }
    std::string path(const std::string& name) const { return dir_ + "/" + name; }
    // Files in the folder, temporary ones included.
    size_t fileCount() const { return static_cast<size_t>(std::distance(fs::directory_iterator(dir_), fs::directory_iterator())); }
    std::string dir_;
};

ZTImage gradient(PfncFormat_ format, unsigned width, unsigned height) {
    ZTImage image = ZTImage::create(format, width, height);
    unsigned char* p = image.getBuffer();
    for (size_t i = 0; i < image.getByteCount(); ++i) p[i] = static_cast<unsigned char>(i * 13 + 1);
    return image;
}

}  // namespace

TEST_F(ImagePersistenceTest, MonoRoundTripsAtEightAndSixteenBits) {
    ZTImage mono8 = gradient(Mono8, 33, 7);
    for (const char* name : {"a.png", "a.bmp", "a.tiff", "a.pgm"}) {
        ImagePersistence::save(Png, mono8, path(name).c_str());
        const cv::Mat back = cv::imread(path(name), cv::IMREAD_UNCHANGED);
        ASSERT_EQ(back.type(), CV_8UC1) << name;
        EXPECT_EQ(0, std::memcmp(back.data, mono8.getBuffer(), 33 * 7)) << name;
    }
    // Mono12 goes to 16 bits (scaled to the full range) for the deep formats, 8 bits otherwise.
    ZTImage mono12 = ZTImage::create(Mono12, 4, 1);
    const uint16_t samples[] = {0, 1, 4095, 2048};
    std::memcpy(mono12.getBuffer(), samples, sizeof samples);
    ImagePersistence::save(Png, mono12, path("deep.png").c_str());
    ImagePersistence::save(Bmp, mono12, path("flat.png").c_str());
    const cv::Mat deep = cv::imread(path("deep.png"), cv::IMREAD_UNCHANGED);
    const cv::Mat flat = cv::imread(path("flat.png"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(deep.type(), CV_16UC1);
    ASSERT_EQ(flat.type(), CV_8UC1);
    // 65535 / 4095 = 16.0037: 1 -> 16, 2048 -> 32775.5 -> 32776 (OpenCV rounds to nearest even)
    EXPECT_EQ(deep.at<uint16_t>(0, 1), 16);
    EXPECT_EQ(deep.at<uint16_t>(0, 2), 65535);
    EXPECT_EQ(flat.at<uint8_t>(0, 2), 255);
    EXPECT_EQ(fileCount(), 6u) << "no temporary file is left behind";
}

TEST_F(ImagePersistenceTest, ColourFilesHoldRgbInTheCodecsOrderAndTheCallersImageIsUntouched) {
    ZTImage rgb = gradient(RGB8, 5, 3);
    const std::vector<unsigned char> before(rgb.getBuffer(), rgb.getBuffer() + rgb.getByteCount());
    for (auto [format, name] : {std::pair{Bmp, "c.bmp"}, {Png, "c.png"}, {Tiff, "c.tif"}, {Pnm, "c.ppm"}}) {
        ImagePersistence::save(format, rgb, path(name).c_str());
        const cv::Mat back = cv::imread(path(name), cv::IMREAD_UNCHANGED);  // BGR order
        ASSERT_EQ(back.type(), CV_8UC3) << name;
        const cv::Vec3b px = back.at<cv::Vec3b>(1, 2);
        const unsigned char* src = rgb.getBuffer() + (1 * 5 + 2) * 3;
        EXPECT_EQ(px[2], src[0]) << name;  // red
        EXPECT_EQ(px[0], src[2]) << name;  // blue
    }
    EXPECT_EQ(0, std::memcmp(rgb.getBuffer(), before.data(), before.size()));

    // RGB16 stays 16-bit in the deep formats.
    ZTImage rgb16 = ZTImage::create(RGB16, 2, 1);
    const uint16_t samples[] = {1000, 2000, 60000, 7, 8, 9};
    std::memcpy(rgb16.getBuffer(), samples, sizeof samples);
    ImagePersistence::save(Tiff, rgb16, path("d.tiff").c_str());
    const cv::Mat back = cv::imread(path("d.tiff"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(back.type(), CV_16UC3);
    EXPECT_EQ(back.at<cv::Vec3w>(0, 0)[2], 1000);
    EXPECT_EQ(back.at<cv::Vec3w>(0, 0)[0], 60000);
}

TEST_F(ImagePersistenceTest, ChoosesTheFileFormatByColourAndDepth) {
    EXPECT_EQ(ImagePersistence::fileFormatOf(Jpeg, Mono12), Mono8);
    EXPECT_EQ(ImagePersistence::fileFormatOf(Tiff, Mono12), Mono16);
    EXPECT_EQ(ImagePersistence::fileFormatOf(Png, BayerRG8), RGB8);
    EXPECT_EQ(ImagePersistence::fileFormatOf(Png, BayerRG12), RGB16);
    EXPECT_EQ(ImagePersistence::fileFormatOf(Bmp, BayerRG12p), RGB8);  // Bayer codes are colour
    EXPECT_EQ(ImagePersistence::fileFormatOf(Png, BGR16), RGB8);       // no deeper destination
    EXPECT_EQ(ImagePersistence::fileFormatOf(Png, 0), Mono8);          // no format counts as mono
    EXPECT_EQ(ImagePersistence::fileFormatOf(Png, YUV422_8), RGB8);
    EXPECT_TRUE(ImagePersistence::canSave(Png, YUV422_8_UYVY));
    EXPECT_FALSE(ImagePersistence::canSave(Png, BGR16));  // its conversion has no colour code
    EXPECT_FALSE(ImagePersistence::canSave(Png, Mono8s));
}

TEST_F(ImagePersistenceTest, FailuresLeaveNoFileBehind) {
    ZTImage mono = gradient(Mono8, 4, 4);
    std::string error;
    // No extension: the codec cannot be chosen. save() reports nothing; trySave says why.
    ImagePersistence::save(Png, mono, path("noextension").c_str());
    EXPECT_FALSE(ImagePersistence::trySave(Png, mono, path("noextension").c_str(), error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(ImagePersistence::trySave(Png, mono, (dir_ + "/missing/x.png").c_str(), error));
    EXPECT_NE(error.find("missing/x.png"), std::string::npos) << error;
    EXPECT_FALSE(ImagePersistence::trySave(Png, ZTImage(), path("empty.png").c_str(), error));
    EXPECT_FALSE(ImagePersistence::trySave(Png, ZTImage::create(BGR16, 2, 2), path("bgr.png").c_str(), error));
    EXPECT_FALSE(ImagePersistence::trySave(Png, mono, nullptr, error));
    EXPECT_EQ(fileCount(), 0u);
    EXPECT_TRUE(ImagePersistence::trySave(Png, mono, path("ok.png").c_str(), error)) << error;
    EXPECT_EQ(fileCount(), 1u);
}

TEST_F(ImagePersistenceTest, NullPathThrowsAfterConversion) {
    EXPECT_THROW(ImagePersistence::save(Png, gradient(Mono8, 2, 2), nullptr), std::logic_error);
}

using ImagePersistenceDeathTest = ImagePersistenceTest;

TEST_F(ImagePersistenceDeathTest, AFailedConversionAbortsFromSaveItself) {
    // A format no conversion produces a file from is a programming error (trySave is the checked
    // call). The message names save, not a helper, and the unit relative to the build folder.
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const std::string file = path("x.png");
    EXPECT_DEATH(ImagePersistence::save(Png, ZTImage::create(0x01089999, 2, 2), file.c_str()),
                 "^\\.\\./image/ImagePersistence\\.cpp:[0-9]+: static void ZTI::ImagePersistence::save\\("
                 "ZTI::ImageFileFormat, const ZTI::ZTImage&, const char\\*\\): Assertion `false' failed\\.\n$");
    EXPECT_EQ(fileCount(), 0u);
}

// Saving: what lands in the file (read back with OpenCV), and what is left behind on failure.
#include "ImagePersistence.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <sys/mount.h>
#include <sys/resource.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <vector>

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
                 "ZTI::ImageFileFormat, const ZTI::ZTImage&, const char\\*\\): Assertion `false' failed\\.\n");
    EXPECT_EQ(fileCount(), 0u);
}

namespace {

// Every extension the codecs write, with an image large enough that no encoding of it fits in
// a few kilobytes (random pixels do not compress).
const char* const kExtensions[] = {".png", ".tif", ".tiff", ".jpg", ".bmp", ".ppm", ".pnm"};

ZTImage noise(unsigned width, unsigned height) {
    ZTImage image = ZTImage::create(RGB8, width, height);
    unsigned state = 12345;
    for (size_t i = 0; i < image.getByteCount(); ++i) {
        state = state * 1103515245u + 12345u;
        image.getBuffer()[i] = static_cast<unsigned char>(state >> 23);
    }
    return image;
}

std::vector<std::string> entriesOf(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// Saves `image` into `dir` (which holds a complete before.png) once per extension where the
// device refuses the bytes: each trySave must report the system's `reason`, save() must return
// quietly, and nothing may be left but before.png, unchanged.
void expectRefusedEverywhere(const std::string& dir, const ZTImage& image, const std::string& reason) {
    const std::string before = dir + "/before.png";
    const auto beforeSize = fs::file_size(before);
    std::string error;
    for (const char* extension : kExtensions) {
        const std::string file = dir + "/out" + extension;
        error.clear();
        EXPECT_FALSE(ImagePersistence::trySave(Png, image, file.c_str(), error)) << extension;
        EXPECT_NE(error.find(reason), std::string::npos) << extension << ": " << error;
        ImagePersistence::save(Png, image, file.c_str());
    }
    // Overwriting a complete file that fails leaves the old one whole.
    EXPECT_FALSE(ImagePersistence::trySave(Png, image, before.c_str(), error));
    EXPECT_EQ(entriesOf(dir), std::vector<std::string>{"before.png"});
    EXPECT_EQ(fs::file_size(before), beforeSize);
    EXPECT_FALSE(cv::imread(before, cv::IMREAD_UNCHANGED).empty());
}

}  // namespace

TEST_F(ImagePersistenceTest, FilesPastTheSizeLimitAreReportedAndRemoved) {
    std::string error;
    ASSERT_TRUE(ImagePersistence::trySave(Png, gradient(Mono8, 2, 2), path("before.png").c_str(), error)) << error;
    // The size limit makes write() fail with EFBIG once the signal it raises is ignored.
    struct rlimit saved {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    void (*oldHandler)(int) = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limited = saved;
    limited.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    expectRefusedEverywhere(dir_, noise(96, 96), std::strerror(EFBIG));
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_TRUE(ImagePersistence::trySave(Png, noise(96, 96), path("fits.png").c_str(), error)) << error;
}

TEST_F(ImagePersistenceTest, FilesOnAFullFileSystemAreReportedAndRemoved) {
    // A small tmpfs in a mount namespace of this process alone: it goes away with the process
    // whatever happens, and is unmounted at the end.
    if (geteuid() != 0 || unshare(CLONE_NEWNS) != 0 ||
        // Source and type are ignored by a propagation change, but must point somewhere.
        mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0) {
        GTEST_SKIP() << "a full file system needs root and a mount namespace: " << std::strerror(errno);
    }
    const std::string mountPoint = path("full");
    fs::create_directory(mountPoint);
    if (mount("ztimage-full", mountPoint.c_str(), "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "cannot mount a tmpfs: " << std::strerror(errno);
    }
    const std::string dir = mountPoint + "/out";
    fs::create_directory(dir);
    std::string error;
    EXPECT_TRUE(ImagePersistence::trySave(Png, gradient(Mono8, 2, 2), (dir + "/before.png").c_str(), error)) << error;
    // Fill the rest, leaving less room than any encoding of the image needs.
    if (FILE* filler = std::fopen((mountPoint + "/filler").c_str(), "wb")) {
        const std::vector<char> block(512, 0);
        while (std::fwrite(block.data(), 1, block.size(), filler) == block.size()) {
        }
        std::fclose(filler);
    }
    expectRefusedEverywhere(dir, noise(96, 96), std::strerror(ENOSPC));
    EXPECT_EQ(umount2(mountPoint.c_str(), MNT_DETACH), 0);
}

TEST_F(ImagePersistenceTest, TrySaveReportsWhatOpenCvRaises) {
    // A 16-bit image whose row padding is not a whole number of samples: OpenCV refuses the
    // row step while converting. trySave reports it instead of passing the exception on.
    std::vector<unsigned char> pixels(3 * (2 * 3 + 1));
    ZTImage odd(Mono12, 3, 3, 1, pixels.data());
    std::string error;
    bool saved = true;
    EXPECT_NO_THROW(saved = ImagePersistence::trySave(Png, odd, path("odd.png").c_str(), error));
    if (saved) {
        EXPECT_FALSE(cv::imread(path("odd.png"), cv::IMREAD_UNCHANGED).empty());
    } else {
        EXPECT_FALSE(error.empty());
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
}

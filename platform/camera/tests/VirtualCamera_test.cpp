// The virtual camera on its own: buffer recycling, configuration checks, and whether what it
// encodes is what its ground truth claims (Bayer patterns, polarization physics, motion).
#include "VirtualCamera.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace {

using ZTI::VirtualCamera;
using ZTI::VirtualCameraConfig;
using ZTI::VirtualScene;
using ZTI::ZTGrabResultPtr;

constexpr double kPi = 3.14159265358979323846;

std::unique_ptr<VirtualCamera> openCamera(const VirtualCameraConfig& config) {
    std::string error;
    auto camera = VirtualCamera::open(config, &error);
    EXPECT_TRUE(camera) << error;
    return camera;
}

const unsigned char* pixels(const ZTGrabResultPtr& frame) {
    return static_cast<const unsigned char*>(frame->GetGrabResultDataImpl()->GetBuffer());
}

uint16_t word16(const ZTGrabResultPtr& frame, size_t stride, uint32_t x, uint32_t y) {
    const unsigned char* p = pixels(frame) + y * stride + 2 * x;
    return static_cast<uint16_t>(p[0] | p[1] << 8);  // frames hold little-endian words
}

TEST(VirtualCamera, HeldBuffersAreNeverReusedAndReturnedOnesAre) {
    VirtualCameraConfig config;
    config.width = 16;
    config.height = 8;
    config.bufferCount = 2;
    auto camera = openCamera(config);
    ASSERT_TRUE(camera);

    ZTGrabResultPtr first = camera->grab();
    ZTGrabResultPtr second = camera->grab();
    ASSERT_TRUE(first && second);
    EXPECT_NE(pixels(first), pixels(second));
    EXPECT_EQ(camera->buffersInUse(), 2u);

    std::vector<unsigned char> firstBytes(pixels(first), pixels(first) + camera->frameBytes());
    EXPECT_FALSE(camera->grab()) << "both buffers are held: no frame may be overwritten";
    EXPECT_EQ(camera->frameNumber(), 2u) << "a failed grab delivers no frame";
    EXPECT_EQ(std::memcmp(pixels(first), firstBytes.data(), firstBytes.size()), 0);

    // A copy keeps the frame held; only the last handle gives the buffer back.
    ZTGrabResultPtr copy = first;
    const unsigned char* firstBuffer = pixels(first);
    first.Release();
    EXPECT_FALSE(camera->grab());
    copy.Release();
    EXPECT_EQ(camera->buffersInUse(), 1u);
    ZTGrabResultPtr third = camera->grab();
    ASSERT_TRUE(third);
    EXPECT_EQ(pixels(third), firstBuffer);

    // Frames may outlive the camera; their buffers stay valid until released.
    camera.reset();
    std::vector<unsigned char> thirdBytes(pixels(third), pixels(third) + 16 * 8);
    EXPECT_EQ(thirdBytes.size(), 128u);
    second.Release();
    third.Release();
}

TEST(VirtualCamera, RejectsConfigurationsItCannotServeAndSaysWhy) {
    struct Case {
        VirtualCameraConfig config;
        const char* mentions;
    };
    auto with = [](uint32_t code, uint32_t w, uint32_t h, uint32_t pad, VirtualScene scene,
                   unsigned buffers) {
        VirtualCameraConfig c;
        c.pixelType = code;
        c.width = w;
        c.height = h;
        c.paddingX = pad;
        c.scene = scene;
        c.bufferCount = buffers;
        return c;
    };
    const VirtualScene colour = VirtualScene::Colour;
    const Case cases[] = {
        {with(0x0230001A, 8, 8, 0, colour, 2), "0x0230001A"},               // RGB12: not produced
        {with(0x01080001, 0, 8, 0, colour, 2), "0 x 8"},                    // no pixels
        {with(0x01080001, 70000, 70000, 0, colour, 2), "70000 x 70000"},    // too large
        {with(0x010C0047, 8, 8, 4, colour, 2), "Mono12p"},                  // padded packed stream
        {with(0x0210001F, 7, 8, 0, colour, 2), "7"},                        // odd 4:2:2 width
        {with(0x01080001, 8, 8, 0, colour, 0), "buffer count 0"},
        {with(0x01080009, 8, 8, 0, VirtualScene::Polarization, 2), "BayerRG8"},
    };
    for (const Case& c : cases) {
        std::string error;
        EXPECT_FALSE(VirtualCamera::open(c.config, &error));
        EXPECT_NE(error.find(c.mentions), std::string::npos) << error;
    }
    EXPECT_FALSE(VirtualCamera::open(cases[0].config)) << "the message is optional";
}

TEST(VirtualCamera, BayerFramesSampleTheChannelOfEachFilter) {
    struct Pattern {
        uint32_t code;
        const char* cell;  // filter colours of the 2 x 2 cell, row by row
    };
    for (const Pattern& p : {Pattern{0x0110002F, "RGGB"}, Pattern{0x0110002E, "GRBG"},
                             Pattern{0x01100030, "GBRG"}, Pattern{0x01100031, "BGGR"}}) {
        VirtualCameraConfig config;
        config.pixelType = p.code;
        config.width = 6;
        config.height = 4;
        config.paddingX = 2;
        auto camera = openCamera(config);
        ASSERT_TRUE(camera);
        ZTGrabResultPtr frame = camera->grab();
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->GetImageSize(), (2u * 6 + 2) * 4);
        for (uint32_t y = 0; y < 4; ++y) {
            for (uint32_t x = 0; x < 6; ++x) {
                const ZTI::SceneRgb c = camera->sceneRgb(0, x, y);
                const char filter = p.cell[(y % 2) * 2 + x % 2];
                const uint16_t expected = filter == 'R' ? c.r : filter == 'G' ? c.g : c.b;
                EXPECT_EQ(word16(frame, 14, x, y), expected)
                    << p.cell << " at (" << x << ", " << y << ")";
            }
        }
    }
}

// Stokes parameters from each 2 x 2 cell of the mosaic (I0 + I90 = I45 + I135 = S0,
// S1 = I0 - I90, S2 = I45 - I135) must give back the regions' angle and degree.
TEST(VirtualCamera, PolarizationMosaicGivesBackTheRegionsAngleAndDegree) {
    VirtualCameraConfig config;
    config.pixelType = 0x01100007;  // Mono16
    config.width = 64;
    config.height = 40;
    config.scene = VirtualScene::Polarization;
    auto camera = openCamera(config);
    ASSERT_TRUE(camera);
    for (uint64_t frameNumber = 0; frameNumber < 2; ++frameNumber) {  // still, then moved
        ZTGrabResultPtr frame = camera->grab();
        ASSERT_TRUE(frame);
        int polarizedCells = 0;
        for (uint32_t y = 0; y < 40; y += 2) {
            for (uint32_t x = 0; x < 64; x += 2) {
                double at[4] = {};  // intensity by polarizer angle 0, 45, 90, 135
                for (uint32_t k = 0; k < 4; ++k) {
                    const uint32_t px = x + k % 2, py = y + k / 2;
                    at[int(VirtualCamera::polarizerAngle(px, py)) / 45] = word16(frame, 128, px, py);
                }
                const ZTI::ScenePolarization truth = camera->scenePolarization(frameNumber, x, y);
                const double s0 = (at[0] + at[1] + at[2] + at[3]) / 2;
                const double s1 = at[0] - at[2], s2 = at[1] - at[3];
                const double degree = std::hypot(s1, s2) / s0;
                // Each intensity is rounded to a 16-bit step, so S1 and S2 are off by at most 1
                // in a few ten thousand.
                EXPECT_NEAR(s0, truth.s0, 2.0);
                EXPECT_NEAR(degree, truth.degree, 1e-3) << "cell (" << x << ", " << y << ")";
                if (truth.degree > 0.2) {
                    ++polarizedCells;
                    double angle = std::atan2(s2, s1) / 2 * 180 / kPi;
                    if (angle < 0) angle += 180;
                    const double diff = std::fabs(angle - truth.angleDegrees);
                    EXPECT_LT(std::min(diff, 180 - diff), 0.05) << "cell (" << x << ", " << y << ")";
                }
            }
        }
        EXPECT_GT(polarizedCells, 100);
    }
}

TEST(VirtualCamera, MovingStreamChangesAndTheTruthFollowsIt) {
    VirtualCameraConfig config;
    config.pixelType = 0x01080001;  // Mono8
    config.width = 48;
    config.height = 32;
    auto moving = openCamera(config);
    config.moving = false;
    auto still = openCamera(config);
    ASSERT_TRUE(moving && still);

    std::vector<std::vector<unsigned char>> movingFrames, stillFrames;
    for (uint64_t f = 0; f < 3; ++f) {
        ZTGrabResultPtr a = moving->grab(), b = still->grab();
        ASSERT_TRUE(a && b);
        movingFrames.emplace_back(pixels(a), pixels(a) + 48 * 32);
        stillFrames.emplace_back(pixels(b), pixels(b) + 48 * 32);
        for (uint32_t y = 0; y < 32; ++y)
            for (uint32_t x = 0; x < 48; ++x)
                ASSERT_EQ(movingFrames[f][y * 48 + x], moving->expectedSample(f, x, y, 0))
                    << "frame " << f << " at (" << x << ", " << y << ")";
    }
    EXPECT_NE(movingFrames[0], movingFrames[1]);
    EXPECT_NE(movingFrames[1], movingFrames[2]);
    EXPECT_EQ(stillFrames[0], stillFrames[2]);
    EXPECT_EQ(movingFrames[0], stillFrames[0]) << "the first frame is not shifted";
}

}  // namespace

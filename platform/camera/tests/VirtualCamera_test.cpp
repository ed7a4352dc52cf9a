// The virtual camera on its own: buffer recycling, configuration checks, and whether what it
// encodes is what its ground truth claims (Bayer patterns, polarization physics, motion).
#include "VirtualCamera.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace ZTI;

constexpr double kPi = 3.14159265358979323846;

VirtualCameraConfig configFor(uint32_t code, uint32_t width, uint32_t height) {
    VirtualCameraConfig config;
    config.pixelType = code;
    config.width = width;
    config.height = height;
    return config;
}

const unsigned char* pixels(const ZTGrabResultPtr& frame) {
    return static_cast<const unsigned char*>(frame->GetGrabResultDataImpl()->GetBuffer());
}

// Frames hold little-endian 16-bit words.
uint16_t word16(const ZTGrabResultPtr& frame, size_t stride, uint32_t x, uint32_t y) {
    const unsigned char* p = pixels(frame) + y * stride + 2 * x;
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}

TEST(VirtualCamera, HeldBuffersAreNeverReusedAndReturnedOnesAre) {
    VirtualCameraConfig config = configFor(0x01080001, 16, 8);
    config.bufferCount = 2;
    auto camera = VirtualCamera::open(config);
    ASSERT_TRUE(camera);
    ZTGrabResultPtr first = camera->grab(), second = camera->grab();
    ASSERT_TRUE(first && second);
    EXPECT_FALSE(camera->grab()) << "both buffers are held: no frame may be overwritten";
    EXPECT_EQ(camera->frameNumber(), 2u) << "a failed grab delivers no frame";

    // Only the last handle of a frame gives its buffer back.
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
    const std::vector<unsigned char> before(pixels(third), pixels(third) + 16 * 8);
    camera.reset();
    EXPECT_EQ(std::memcmp(pixels(third), before.data(), before.size()), 0);
}

TEST(VirtualCamera, RejectsConfigurationsItCannotServeAndSaysWhy) {
    const struct {
        VirtualCameraConfig config;
        const char* mentions;
    } cases[] = {
        {configFor(0x0230001A, 8, 8), "0x0230001A"},  // RGB12: not produced
        {configFor(0x01080001, 0, 8), "0 x 8"},
        {configFor(0x01080001, 70000, 70000), "70000 x 70000"},
        {[] { auto c = configFor(0x010C0047, 8, 8); c.paddingX = 4; return c; }(), "Mono12p"},
        {configFor(0x0210001F, 7, 8), "got 7"},  // 4:2:2 needs an even width
        {[] { auto c = configFor(0x01080001, 8, 8); c.bufferCount = 0; return c; }(),
         "buffer count 0"},
        {[] {
             auto c = configFor(0x01080009, 8, 8);
             c.scene = VirtualScene::Polarization;
             return c;
         }(),
         "BayerRG8"},
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(VirtualCamera::open(c.config, &error));
        EXPECT_NE(error.find(c.mentions), std::string::npos) << error;
    }
}

TEST(VirtualCamera, BayerFramesSampleTheChannelOfEachFilter) {
    // Filter colours of the 2 x 2 cell, row by row, as the PFNC names spell them.
    const std::pair<uint32_t, const char*> patterns[] = {
        {0x0110002F, "RGGB"}, {0x0110002E, "GRBG"}, {0x01100030, "GBRG"}, {0x01100031, "BGGR"}};
    for (auto [code, cell] : patterns) {
        VirtualCameraConfig config = configFor(code, 6, 4);
        config.paddingX = 2;
        auto camera = VirtualCamera::open(config);
        ASSERT_TRUE(camera);
        ZTGrabResultPtr frame = camera->grab();
        EXPECT_EQ(frame->GetImageSize(), (2u * 6 + 2) * 4);
        for (uint32_t y = 0; y < 4; ++y) {
            for (uint32_t x = 0; x < 6; ++x) {
                const SceneRgb c = camera->sceneRgb(0, x, y);
                const char filter = cell[(y % 2) * 2 + x % 2];
                EXPECT_EQ(word16(frame, 14, x, y), filter == 'R' ? c.r : filter == 'G' ? c.g : c.b)
                    << cell << " at (" << x << ", " << y << ")";
            }
        }
    }
}

// Stokes parameters from each 2 x 2 cell of the mosaic (S0 = (I0 + I45 + I90 + I135) / 2,
// S1 = I0 - I90, S2 = I45 - I135) must give back the regions' angle and degree, in a frame
// that has moved.
TEST(VirtualCamera, PolarizationMosaicGivesBackTheRegionsAngleAndDegree) {
    VirtualCameraConfig config = configFor(0x01100007, 64, 40);  // Mono16
    config.scene = VirtualScene::Polarization;
    auto camera = VirtualCamera::open(config);
    ASSERT_TRUE(camera);
    camera->grab();
    ZTGrabResultPtr frame = camera->grab();  // frame 1
    int polarizedCells = 0;
    for (uint32_t y = 0; y < 40; y += 2) {
        for (uint32_t x = 0; x < 64; x += 2) {
            // The sensor's cell: 90 degrees at (row 0, column 0), 45 at (0, 1), 135 at (1, 0), 0
            // at (1, 1); `at` is indexed by angle / 45.
            auto px = [&](uint32_t dx, uint32_t dy) {
                return double(word16(frame, 128, x + dx, y + dy));
            };
            const double at[4] = {px(1, 1), px(1, 0), px(0, 0), px(0, 1)};
            const ScenePolarization truth = camera->scenePolarization(1, x, y);
            const double s1 = at[0] - at[2], s2 = at[1] - at[3];
            const double s0 = (at[0] + at[1] + at[2] + at[3]) / 2;
            // Each intensity is rounded to a 16-bit step, so S1 and S2 are off by at most 1 of
            // S0 >= 24000: about 6e-5 in degree and 0.01 degrees in angle at degree 0.25.
            EXPECT_NEAR(s0, truth.s0, 2.0);
            EXPECT_NEAR(std::hypot(s1, s2) / s0, truth.degree, 1e-3)
                << "(" << x << ", " << y << ")";
            if (truth.degree < 0.2) continue;
            ++polarizedCells;
            const double angle = std::fmod(std::atan2(s2, s1) * 90 / kPi + 180, 180);
            const double diff = std::fabs(angle - truth.angleDegrees);
            EXPECT_LT(std::min(diff, 180 - diff), 0.05) << "(" << x << ", " << y << ")";
        }
    }
    EXPECT_GT(polarizedCells, 100);
    EXPECT_EQ(VirtualCamera::polarizerAngle(0, 0), 90);
    EXPECT_EQ(VirtualCamera::polarizerAngle(1, 0), 45);
    EXPECT_EQ(VirtualCamera::polarizerAngle(0, 1), 135);
    EXPECT_EQ(VirtualCamera::polarizerAngle(3, 3), 0);
}

TEST(VirtualCamera, MovingStreamChangesFromFrameToFrameAndAStillOneDoesNot) {
    VirtualCameraConfig config = configFor(0x01080001, 48, 32);
    auto moving = VirtualCamera::open(config);
    config.moving = false;
    auto still = VirtualCamera::open(config);
    auto next = [](VirtualCamera& camera) {
        ZTGrabResultPtr f = camera.grab();
        return std::vector<unsigned char>(pixels(f), pixels(f) + 48 * 32);
    };
    const auto moving0 = next(*moving), moving1 = next(*moving);
    const auto still0 = next(*still), still1 = next(*still);
    EXPECT_NE(moving0, moving1);
    EXPECT_EQ(still0, still1);
    EXPECT_EQ(moving0, still0) << "the first frame is not shifted";
}

}  // namespace

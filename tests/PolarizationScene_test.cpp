// Polarization products of the virtual camera's polarization scene, whose angle and degree of
// linear polarization are known region by region: the independent oracle for DoLP and AoLP,
// through Mono8 frames and through Mono12 and Mono16 frames that the library converts first.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "PolarizationProducts.h"
#include "VirtualCamera.h"
#include "ZTImage.h"

using namespace ZTI;

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Products {
    ZTImage s0, s1, s2, dolp, aolp;
};

// True when every pixel within `margin` of (x, y) lies in the same region, so the bilinear
// estimates of all four angles there see only that region.
bool insideRegion(const VirtualCamera& camera, uint32_t x, uint32_t y, uint32_t margin) {
    const ScenePolarization here = camera.scenePolarization(0, x, y);
    const VirtualCameraConfig& c = camera.config();
    if (x < margin || y < margin || x + margin >= c.width || y + margin >= c.height) return false;
    for (uint32_t yy = y - margin; yy <= y + margin; ++yy)
        for (uint32_t xx = x - margin; xx <= x + margin; ++xx) {
            const ScenePolarization p = camera.scenePolarization(0, xx, yy);
            if (p.angleDegrees != here.angleDegrees || p.degree != here.degree || p.s0 != here.s0) return false;
        }
    return true;
}

}  // namespace

TEST(PolarizationScene, DegreeAndAngleMatchTheSceneInEveryRegion) {
    for (PfncFormat_ format : {Mono8, Mono12, Mono16}) {
        VirtualCameraConfig config;
        config.pixelType = format;
        config.width = 256;
        config.height = 160;
        config.scene = VirtualScene::Polarization;
        config.moving = false;
        std::string error;
        auto camera = VirtualCamera::open(config, &error);
        ASSERT_NE(camera, nullptr) << error;
        ZTImage frame;
        frame.attachGrabResult(camera->grab());
        ASSERT_TRUE(frame.isValid());

        Products p;
        ASSERT_EQ(CreateStokesS0(frame, p.s0), 0);
        ASSERT_EQ(CreateStokesS1(frame, p.s1), 0);
        ASSERT_EQ(CreateStokesS2(frame, p.s2), 0);
        ASSERT_EQ(CreateDolp(frame, p.dolp), 0);
        ASSERT_EQ(CreateAolp(frame, p.aolp), 0);

        int checkedDegree = 0, checkedAngle = 0;
        for (uint32_t y = 0; y < config.height; y += 3) {
            for (uint32_t x = 0; x < config.width; x += 3) {
                if (!insideRegion(*camera, x, y, 3)) continue;
                const ScenePolarization truth = camera->scenePolarization(0, x, y);
                const size_t i = static_cast<size_t>(y) * config.width + x;
                // Tolerances: the frame is quantized to 8 bits (Mono8) or converted to 8 bits
                // before the products are computed, and the products are rounded to 8 bits; a
                // bright region's DoLP is then good to about 2 %.
                if (truth.s0 < 0.25 * 65535) continue;  // dim regions: too few levels to judge
                const double degree = p.dolp.getBuffer()[i] / 255.0;
                EXPECT_NEAR(degree, truth.degree, 0.025)
                    << std::hex << format << std::dec << " at " << x << "," << y;
                ++checkedDegree;
                if (truth.degree < 0.2) continue;  // the angle of weakly polarized light is noise
                double angle = (p.aolp.getBuffer()[i] / 255.0 * kPi - kPi / 2) * 180.0 / kPi;
                double diff = std::fmod(std::fabs(angle - truth.angleDegrees), 180.0);
                diff = std::min(diff, 180.0 - diff);  // angles repeat every 180 degrees
                EXPECT_LT(diff, 2.5) << std::hex << format << std::dec << " at " << x << "," << y
                                     << ": " << angle << " vs " << truth.angleDegrees;
                ++checkedAngle;

                // Stokes identity in the 8-bit encodings S0/2, (S1+255)/2, (S2+255)/2, with two
                // levels of slack for the three roundings.
                const double s0 = 2.0 * p.s0.getBuffer()[i];
                const double s1 = 2.0 * p.s1.getBuffer()[i] - 255.0;
                const double s2 = 2.0 * p.s2.getBuffer()[i] - 255.0;
                EXPECT_GE(s0 + 4.0, std::hypot(s1, s2)) << " at " << x << "," << y;
            }
        }
        EXPECT_GT(checkedDegree, 200) << "the scene should offer many bright interior pixels";
        EXPECT_GT(checkedAngle, 100);
    }
}

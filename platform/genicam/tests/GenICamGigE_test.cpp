// GenICamCamera against a simulated GigE Vision camera that this process runs on 127.0.0.1 and
// opens by that address: packets go over loopback only, and no discovery is ever sent.
#include "GenICamCamera.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "FakeCameraSupport.h"
#include "GenICamCameraAccess.h"

namespace {

using namespace ZTI;
using namespace std::chrono_literals;

// The simulated camera with the extended description and virtual-camera frames. Its serial
// number is this process's own, so the test can tell that the camera it reached is its own and
// not one left behind by another program.
class LoopbackCamera : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/ztgenicam-gige-XXXXXX";
        ASSERT_TRUE(mkdtemp(pattern));
        directory_ = pattern;
        xml_ = writeFakeCameraGenICam(directory_);
        ASSERT_FALSE(xml_.empty());
        serial_ = "ZT" + std::to_string(getpid());
        camera_ = arv_gv_fake_camera_new_full("127.0.0.1", serial_.c_str(), xml_.c_str());
        ASSERT_TRUE(camera_ && arv_gv_fake_camera_is_running(camera_))
            << "cannot run the simulated camera on 127.0.0.1 (port 3956 taken?)";
        fill_.config.moving = false;
        installVirtualFill(arv_gv_fake_camera_get_fake_camera(camera_), fill_);
    }
    void TearDown() override {
        if (camera_) g_object_unref(camera_);
        std::remove(xml_.c_str());
        std::remove(directory_.c_str());
    }

    std::unique_ptr<GenICamCamera> openOwnCamera(uint32_t code, uint32_t width, uint32_t height) {
        GenICamCameraConfig config;
        config.interfaces = GenICamInterfaces::GigEVision;
        config.deviceId = "127.0.0.1";
        config.pixelType = code;
        config.width = width;
        config.height = height;
        config.frameRate = 100;
        std::string error;
        auto camera = GenICamCamera::open(config, &error);
        EXPECT_TRUE(camera) << error;
        if (!camera) return nullptr;
        const char* serial =
            arv_camera_get_device_serial_number(GenICamCameraAccess::arvCamera(*camera), nullptr);
        EXPECT_STREQ(serial, serial_.c_str()) << "127.0.0.1 answered with another camera";
        if (!serial || serial_ != serial) return nullptr;
        EXPECT_TRUE(camera->start(&error)) << error;
        return camera;
    }

    // The virtual camera's frame, which every complete frame must equal (the scene is static).
    std::vector<unsigned char> expectedBytes(uint32_t code, uint32_t width, uint32_t height) {
        VirtualCameraConfig config;
        config.pixelType = code;
        config.width = width;
        config.height = height;
        config.moving = false;
        ZTGrabResultPtr frame = VirtualCamera::open(config)->grab();
        const auto* bytes = static_cast<const unsigned char*>(frame->GetGrabResultDataImpl()->GetBuffer());
        return {bytes, bytes + frame->GetImageSize()};
    }

    std::string directory_, xml_, serial_;
    ArvGvFakeCamera* camera_ = nullptr;
    VirtualFill fill_;
};

bool sameBytes(const ZTGrabResultPtr& frame, const std::vector<unsigned char>& expected) {
    return frame->GetImageSize() >= expected.size() &&
           std::memcmp(frame->GetGrabResultDataImpl()->GetBuffer(), expected.data(), expected.size()) == 0;
}

TEST_F(LoopbackCamera, FramesArriveWholeOverLoopback) {
    // 12-bit packed frames of several packets each.
    constexpr uint32_t kCode = 0x010C0047, kWidth = 640, kHeight = 480;  // Mono12p
    auto camera = openOwnCamera(kCode, kWidth, kHeight);
    ASSERT_TRUE(camera);
    const auto expected = expectedBytes(kCode, kWidth, kHeight);
    for (int i = 0; i < 5; ++i) {
        ZTGrabResultPtr frame = camera->grab(3s);
        ASSERT_TRUE(frame) << "frame " << i;
        EXPECT_EQ(frame->GetGrabResultDataImpl()->GetWidth(), kWidth);
        std::lock_guard<std::mutex> lock(fill_.mutex);
        EXPECT_TRUE(sameBytes(frame, expected)) << "frame " << i;
    }
    EXPECT_EQ(camera->stats().delivered, 5u);
}

TEST_F(LoopbackCamera, FramesDroppedWhileEveryBufferIsHeldCountOncePerFrame) {
    auto camera = openOwnCamera(0x01080001, 640, 480);  // Mono8: about 200 packets a frame
    ASSERT_TRUE(camera);
    std::vector<ZTGrabResultPtr> held;
    for (int i = 0; i < 8; ++i) {  // every buffer of the stream
        held.push_back(camera->grab(3s));
        ASSERT_TRUE(held.back()) << "frame " << i;
    }
    std::this_thread::sleep_for(300ms);  // about 30 frames at 100 frames per second
    held.clear();
    ASSERT_TRUE(camera->grab(3s));
    const uint64_t underruns = camera->stats().underruns;
    // Whatever the machine's load, far fewer than the packets those frames took.
    EXPECT_GE(underruns, 3u);
    EXPECT_LE(underruns, 60u);
}

TEST_F(LoopbackCamera, LostPacketsMakeIncompleteFramesThatAreNeverHandedOut) {
    constexpr uint32_t kCode = 0x01080009, kWidth = 512, kHeight = 256;  // BayerRG8, ~90 packets
    // One packet in fifty is dropped by the camera: nearly every frame loses one.
    g_object_set(camera_, "gvsp-lost-ratio", 0.02, nullptr);
    auto camera = openOwnCamera(kCode, kWidth, kHeight);
    ASSERT_TRUE(camera);
    const auto expected = expectedBytes(kCode, kWidth, kHeight);
    unsigned delivered = 0;
    const auto until = std::chrono::steady_clock::now() + 2s;
    while (std::chrono::steady_clock::now() < until) {
        ZTGrabResultPtr frame = camera->grab(500ms);
        if (!frame) continue;
        ++delivered;
        std::lock_guard<std::mutex> lock(fill_.mutex);
        EXPECT_TRUE(sameBytes(frame, expected)) << "a delivered frame is damaged";
    }
    const GenICamStreamStats stats = camera->stats();
    EXPECT_GT(stats.incomplete, 0u);
    EXPECT_EQ(stats.delivered, delivered);
}

}  // namespace

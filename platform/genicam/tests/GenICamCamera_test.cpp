// GenICamCamera against Aravis's in-process simulated camera (the Fake interface, which sends
// nothing on any network), filled with virtual-camera frames.
#include "GenICamCamera.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <deque>
#include <thread>
#include <vector>

#include "FakeCameraSupport.h"
#include "GenICamCameraAccess.h"
#include "PixelFormatList.h"

namespace {

using namespace ZTI;
using namespace std::chrono_literals;

// Installs the extended GenICam description before any simulated camera exists.
class FakeCameraEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        char pattern[] = "/tmp/ztgenicam-test-XXXXXX";
        ASSERT_TRUE(mkdtemp(pattern));
        directory_ = pattern;
        const std::string path = writeFakeCameraGenICam(directory_);
        ASSERT_FALSE(path.empty());
        arv_set_fake_camera_genicam_filename(path.c_str());
    }
    void TearDown() override {
        std::remove((directory_ + "/fake-camera-all-formats.xml").c_str());
        std::remove(directory_.c_str());
    }

private:
    std::string directory_;
};
const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(new FakeCameraEnvironment);

ArvFakeCamera* fakeCameraOf(GenICamCamera& camera) {
    ArvDevice* device = arv_camera_get_device(GenICamCameraAccess::arvCamera(camera));
    return arv_fake_device_get_fake_camera(ARV_FAKE_DEVICE(device));
}

GenICamCameraConfig fakeConfig(uint32_t code, uint32_t width, uint32_t height) {
    GenICamCameraConfig config;
    config.interfaces = GenICamInterfaces::Fake;
    config.pixelType = code;
    config.width = width;
    config.height = height;
    config.frameRate = 500;  // the simulated camera's default 25 fps would make the tests slow
    return config;
}

// An open and started simulated camera showing virtual-camera frames.
struct StartedCamera {
    VirtualFill fill;
    std::unique_ptr<GenICamCamera> camera;

    StartedCamera(const GenICamCameraConfig& config, bool moving) {
        std::string error;
        camera = GenICamCamera::open(config, &error);
        if (!camera) {
            ADD_FAILURE() << error;
            return;
        }
        fill.config.moving = moving;
        installVirtualFill(fakeCameraOf(*camera), fill);
        EXPECT_TRUE(camera->start(&error)) << error;
    }
};

const unsigned char* bytesOf(const ZTGrabResultPtr& frame) {
    return static_cast<const unsigned char*>(frame->GetGrabResultDataImpl()->GetBuffer());
}

TEST(GenICamCamera, FakeInterfaceListsItsCameraAndOpensItById) {
    std::string error;
    const std::vector<GenICamDeviceInfo> devices = GenICamCamera::list(GenICamInterfaces::Fake, &error);
    ASSERT_EQ(devices.size(), 1u) << error;
    EXPECT_FALSE(devices[0].id.empty());
    EXPECT_EQ(devices[0].protocol, "Fake");

    GenICamCameraConfig config;
    config.interfaces = GenICamInterfaces::Fake;
    config.deviceId = devices[0].id;
    auto camera = GenICamCamera::open(config, &error);
    ASSERT_TRUE(camera) << error;
    // Aravis's simulated camera starts as Mono8, 512 x 512.
    EXPECT_EQ(camera->pixelType(), 0x01080001u);
    EXPECT_EQ(camera->width(), 512u);
    EXPECT_EQ(camera->height(), 512u);
    EXPECT_EQ(camera->paddingX(), 0u);
}

TEST(GenICamCamera, EveryRefusalNamesTheCameraTheFeatureAndTheValue) {
    struct Case {
        const char* what;
        GenICamCameraConfig config;
        std::vector<std::string> mentions;
    };
    GenICamCameraConfig missing = fakeConfig(0, 0, 0);
    missing.deviceId = "NoSuchCamera";
    GenICamCameraConfig address = fakeConfig(0, 0, 0);
    address.deviceId = "127.0.0.1";
    GenICamCameraConfig packets = fakeConfig(0, 0, 0);
    packets.packetSize = 1400;
    GenICamCameraConfig buffers = fakeConfig(0, 0, 0);
    buffers.bufferCount = 0;
    const Case cases[] = {
        {"unknown device", missing, {"NoSuchCamera", "Fake"}},
        {"address on the Fake interface", address, {"127.0.0.1", "GigE Vision"}},
        {"format not offered", fakeConfig(0x0220001C, 0, 0), {"PixelFormat", "0x0220001C", "Mono8"}},
        {"width past the sensor", fakeConfig(0, 9000, 0), {"Width", "9000"}},
        {"packet size off GigE Vision", packets, {"GevSCPSPacketSize", "1400"}},
        {"no buffers", buffers, {"bufferCount"}},
    };
    for (const Case& c : cases) {
        std::string error;
        EXPECT_FALSE(GenICamCamera::open(c.config, &error)) << c.what;
        for (const std::string& word : c.mentions) {
            EXPECT_NE(error.find(word), std::string::npos) << c.what << ": '" << error << "' lacks " << word;
        }
    }
    // Refusals reached through the camera also name it.
    std::string error;
    EXPECT_FALSE(GenICamCamera::open(fakeConfig(0, 9000, 0), &error));
    EXPECT_NE(error.find(GenICamCamera::list(GenICamInterfaces::Fake)[0].id), std::string::npos) << error;
}

// Codes the simulated camera offers through the extended description: all the virtual camera
// encodes.
std::vector<std::pair<const char*, uint32_t>> offeredFormats() {
    std::vector<std::pair<const char*, uint32_t>> formats;
#define ZT_NAMED(name, code, bits) \
    if (VirtualCamera::supportsFormat(code)) formats.push_back({#name, code});
#define ZT_UNNAMED(code, bits)
    ZT_PFNC_FORMAT_LIST(ZT_NAMED, ZT_UNNAMED)
#undef ZT_NAMED
#undef ZT_UNNAMED
    return formats;
}

TEST(GenICamCamera, FramesCarryTheCameraBytesUnchangedInEveryFormat) {
    // 64 x 6 pixels fill whole bytes in every packed layout; the frames are static, so each one
    // must equal the virtual camera's first frame byte for byte.
    constexpr uint32_t kWidth = 64, kHeight = 6;
    const auto formats = offeredFormats();
    ASSERT_GE(formats.size(), 30u);
    for (const auto& [name, code] : formats) {
        StartedCamera started(fakeConfig(code, kWidth, kHeight), false);
        ASSERT_TRUE(started.camera) << name;
        EXPECT_EQ(started.camera->pixelType(), code) << name;
        ZTGrabResultPtr frame = started.camera->grab(2s);
        ASSERT_TRUE(frame) << name;
        const ZTGrabResultDataImpl& data = *frame->GetGrabResultDataImpl();
        EXPECT_EQ(data.GetPixelType(), code) << name;
        EXPECT_EQ(data.GetWidth(), kWidth) << name;
        EXPECT_EQ(data.GetHeight(), kHeight) << name;
        EXPECT_EQ(data.GetPaddingX(), 0u) << name;

        VirtualCameraConfig config;
        config.pixelType = code;
        config.width = kWidth;
        config.height = kHeight;
        config.moving = false;
        auto reference = VirtualCamera::open(config);
        ZTGrabResultPtr expected = reference->grab();
        // The camera's payload follows the code's bits per pixel; the virtual camera's legacy
        // 10-bit encoding of the "Packed" codes is shorter than that.
        ASSERT_GE(frame->GetImageSize(), expected->GetImageSize()) << name;
        std::lock_guard<std::mutex> lock(started.fill.mutex);
        EXPECT_EQ(std::memcmp(bytesOf(frame), bytesOf(expected), expected->GetImageSize()), 0) << name;
    }
}

TEST(GenICamCamera, HeldBuffersAreNeverOverwrittenAndNewFramesCountAsUnderruns) {
    GenICamCameraConfig config = fakeConfig(0x01080001, 32, 16);
    config.bufferCount = 2;
    StartedCamera started(config, true);
    ASSERT_TRUE(started.camera);
    GenICamCamera& camera = *started.camera;
    ZTGrabResultPtr first = camera.grab(2s), second = camera.grab(2s);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(camera.buffersInUse(), 2u);
    std::vector<unsigned char> copy;
    {
        std::lock_guard<std::mutex> lock(started.fill.mutex);
        copy.assign(bytesOf(first), bytesOf(first) + 32 * 16);
    }
    EXPECT_FALSE(camera.grab(100ms)) << "every buffer is held: no frame can arrive";
    EXPECT_GT(camera.stats().underruns, 0u);
    {
        std::lock_guard<std::mutex> lock(started.fill.mutex);
        EXPECT_EQ(std::memcmp(bytesOf(first), copy.data(), copy.size()), 0) << "a held frame changed";
    }
    // A copy of the handle keeps the buffer; only the last one gives it back.
    ZTGrabResultPtr shared = second;
    second.Release();
    EXPECT_EQ(camera.buffersInUse(), 2u);
    shared.Release();
    EXPECT_EQ(camera.buffersInUse(), 1u);
    EXPECT_TRUE(camera.grab(2s));
    const GenICamStreamStats stats = camera.stats();
    EXPECT_EQ(stats.delivered, 3u);
    EXPECT_EQ(stats.incomplete, 0u);
}

// Frames handed to a worker thread and released there, while the camera keeps grabbing: the
// buffers must all come back, none handed out twice at once. Also run under ThreadSanitizer.
TEST(GenICamCamera, FramesReleasedOnAnotherThreadReturnToTheStream) {
    constexpr unsigned kFrames = 120, kBuffers = 4;
    GenICamCameraConfig config = fakeConfig(0x01080009, 64, 32);
    config.bufferCount = kBuffers;
    StartedCamera started(config, true);
    ASSERT_TRUE(started.camera);
    GenICamCamera& camera = *started.camera;

    std::mutex mutex;
    std::condition_variable ready;
    std::deque<ZTGrabResultPtr> queue;
    bool done = false;
    unsigned checksum = 0;
    std::thread worker([&] {
        for (;;) {
            std::unique_lock<std::mutex> lock(mutex);
            ready.wait(lock, [&] { return done || !queue.empty(); });
            if (queue.empty()) return;
            ZTGrabResultPtr frame = std::move(queue.front());
            queue.pop_front();
            lock.unlock();
            std::lock_guard<std::mutex> pixels(started.fill.mutex);
            checksum += bytesOf(frame)[0];
            frame.Release();
        }
    });
    std::vector<const void*> held;
    for (unsigned i = 0; i < kFrames; ++i) {
        ZTGrabResultPtr frame = camera.grab(2s);
        ASSERT_TRUE(frame) << "frame " << i;
        EXPECT_LE(camera.buffersInUse(), kBuffers);
        std::lock_guard<std::mutex> lock(mutex);
        queue.push_back(std::move(frame));
        ready.notify_one();
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
        ready.notify_one();
    }
    worker.join();
    EXPECT_EQ(camera.buffersInUse(), 0u);
    EXPECT_EQ(camera.stats().delivered, kFrames);
    (void)checksum;
}

TEST(GenICamCamera, FramesOutliveStopAndTheCameraItself) {
    StartedCamera started(fakeConfig(0x01080001, 16, 8), true);
    ASSERT_TRUE(started.camera);
    ZTGrabResultPtr beforeStop = started.camera->grab(2s);
    ASSERT_TRUE(beforeStop);
    std::vector<unsigned char> copy(bytesOf(beforeStop), bytesOf(beforeStop) + 16 * 8);

    started.camera->stop();
    EXPECT_FALSE(started.camera->grab(10ms)) << "a stopped camera hands out nothing";
    EXPECT_EQ(started.camera->buffersInUse(), 1u);
    ASSERT_TRUE(started.camera->start());
    ZTGrabResultPtr afterRestart = started.camera->grab(2s);
    ASSERT_TRUE(afterRestart);

    started.camera.reset();
    // Both buffers are still readable (ASan and valgrind check this) and are freed on release.
    EXPECT_EQ(std::memcmp(bytesOf(beforeStop), copy.data(), copy.size()), 0);
    EXPECT_EQ(afterRestart->GetGrabResultDataImpl()->GetWidth(), 16u);
    beforeStop.Release();
    afterRestart.Release();
}

}  // namespace

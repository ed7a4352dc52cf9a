// Frames per second and MB/s from a simulated GigE Vision camera over loopback, through the
// whole road of an application: grab, attach (published layouts), convert to RGB8. The camera
// runs in this process on 127.0.0.1 and is opened by that address: nothing leaves the machine,
// and no discovery is sent. Each setting (pixel format, packet size) runs for a few seconds and
// reports delivered, incomplete and dropped (underrun) frames.
//
//   genicam_loopback [SECONDS_PER_SETTING]     (default 3)
//
// The camera fills every frame from the virtual camera (3-4 ms of encoding at 2448 x 2048), so
// the frame rate it can offer is bounded by that, on the same cores as the receiver.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "FakeCameraSupport.h"
#include "GenICamCamera.h"
#include "ZTImageFormatConverter.h"

namespace {

using namespace ZTI;

constexpr uint32_t kWidth = 2448, kHeight = 2048;

struct Outcome {
    double fps = 0, megabytesPerSecond = 0;
    uint64_t delivered = 0, incomplete = 0, underruns = 0;
};

bool runSetting(const std::string& xml, uint32_t code, uint32_t packetSize, double seconds, Outcome& outcome) {
    const std::string serial = "ZTBENCH" + std::to_string(getpid());
    ArvGvFakeCamera* simulated = arv_gv_fake_camera_new_full("127.0.0.1", serial.c_str(), xml.c_str());
    if (!simulated || !arv_gv_fake_camera_is_running(simulated)) {
        std::fprintf(stderr, "genicam_loopback: cannot run a simulated camera on 127.0.0.1\n");
        if (simulated) g_object_unref(simulated);
        return false;
    }
    VirtualFill fill;
    fill.config.moving = false;
    installVirtualFill(arv_gv_fake_camera_get_fake_camera(simulated), fill);

    GenICamCameraConfig config;
    config.interfaces = GenICamInterfaces::GigEVision;
    config.deviceId = "127.0.0.1";
    config.pixelType = code;
    config.width = kWidth;
    config.height = kHeight;
    config.frameRate = 1000;  // as fast as the simulated camera can fill frames
    config.packetSize = packetSize;
    config.bufferCount = 8;
    std::string error;
    bool ok = false;
    {
        auto camera = GenICamCamera::open(config, &error);
        if (camera && camera->start(&error)) {
            ZTImageFormatConverter converter;
            converter.setOutputFormat(RGB8);
            ZTImage image, rgb;
            const auto begin = std::chrono::steady_clock::now();
            const auto end = begin + std::chrono::duration<double>(seconds);
            uint64_t bytes = 0;
            while (std::chrono::steady_clock::now() < end) {
                ZTGrabResultPtr frame = camera->grab(std::chrono::milliseconds(500));
                if (!frame) continue;
                bytes += frame->GetImageSize();
                image.attachGrabResult(frame, PackedLayout::Published);
                frame.Release();
                converter.convert(rgb, image);
                image = ZTImage();  // lets the frame go back to the stream
            }
            const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
            const GenICamStreamStats stats = camera->stats();
            outcome = {stats.delivered / elapsed, bytes / elapsed / 1e6, stats.delivered, stats.incomplete,
                       stats.underruns};
            ok = true;
        } else {
            std::fprintf(stderr, "genicam_loopback: %s\n", error.c_str());
        }
    }
    g_object_unref(simulated);
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    char pattern[] = "/tmp/ztgenicam-bench-XXXXXX";
    if (!mkdtemp(pattern)) return 1;
    const std::string xml = writeFakeCameraGenICam(pattern);
    if (xml.empty()) return 1;

    std::printf("%-10s %-7s %9s %9s %9s %11s %10s\n", "format", "packet", "frames/s", "MB/s", "delivered",
                "incomplete", "underruns");
    struct Format {
        const char* name;
        uint32_t code;
    };
    const Format formats[] = {{"Mono8", Mono8}, {"BayerRG8", BayerRG8}};
    const uint32_t packets[] = {1500, 4500, 9000};
    bool lossFreeSetting = false;
    int status = 0;
    for (const Format& format : formats) {
        for (const uint32_t packet : packets) {
            Outcome o;
            if (!runSetting(xml, format.code, packet, seconds, o)) {
                status = 1;
                continue;
            }
            std::printf("%-10s %-7u %9.1f %9.1f %9llu %11llu %10llu\n", format.name, packet, o.fps,
                        o.megabytesPerSecond, static_cast<unsigned long long>(o.delivered),
                        static_cast<unsigned long long>(o.incomplete),
                        static_cast<unsigned long long>(o.underruns));
            std::fflush(stdout);
            lossFreeSetting = lossFreeSetting || (o.incomplete == 0 && o.delivered > 0);
        }
    }
    // Loopback must carry whole frames with at least one of the settings above.
    std::printf("goal|GigE Vision loopback 2448 x 2048: settings without lost frames|%d|>=|1\n",
                lossFreeSetting ? 1 : 0);
    std::remove(xml.c_str());
    std::remove(pattern);
    return status;
}

#include "VirtualCamera.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

#include "CameraCheck.h"
#include "FrameEncoder.h"
#include "FrameFormats.h"
#include "Scenes.h"

namespace ZTI {
namespace {

using camera::Encoding;
using camera::FrameFormat;
using camera::Sensor;

// Limits that keep a mistyped size from asking for absurd amounts of memory.
constexpr uint64_t kMaxPixels = uint64_t{1} << 28;
constexpr uint64_t kMaxFrameBytes = uint64_t{1} << 32;
constexpr unsigned kMaxBuffers = 256;

// The sensor's window moves along this loop of offsets, in pixels (doubled for the
// polarization scene so that mosaic cells stay on whole regions). Every offset stays within
// the canvas margin.
constexpr int kMotion[8][2] = {{0, 0}, {1, 0}, {2, 1}, {1, 2}, {0, 2}, {-1, 1}, {-2, 0}, {-1, -1}};

// Frame buffers shared between the camera and the frames it handed out, so that a frame
// released after the camera is gone still has somewhere to go. The free list is a ring of
// fixed capacity: handing a buffer back never allocates, and buffers are reused in the order
// they came back.
struct BufferRing {
    explicit BufferRing(unsigned count, size_t bytes) : slots(count) {
        memory.reserve(count);
        for (unsigned i = 0; i < count; ++i) {
            // At least one byte, so that every buffer has an address of its own.
            memory.emplace_back(new unsigned char[bytes != 0 ? bytes : 1]());
            slots[i] = i;
        }
        available = count;
    }

    bool take(unsigned& index) {
        std::lock_guard<std::mutex> lock(mutex);
        if (available == 0) return false;
        index = slots[head];
        head = (head + 1) % slots.size();
        --available;
        return true;
    }

    void giveBack(unsigned index) noexcept {
        std::lock_guard<std::mutex> lock(mutex);
        slots[(head + available) % slots.size()] = index;
        ++available;
    }

    unsigned inUse() {
        std::lock_guard<std::mutex> lock(mutex);
        return static_cast<unsigned>(slots.size()) - available;
    }

    std::mutex mutex;
    std::vector<std::unique_ptr<unsigned char[]>> memory;
    std::vector<unsigned> slots;
    size_t head = 0;
    size_t available = 0;
};

std::string formatCode(uint32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08" PRIX32, code);
    return text;
}

// Why `config` cannot be served, or an empty string when it can.
std::string configProblem(const VirtualCameraConfig& config, const FrameFormat* format) {
    if (format == nullptr)
        return "the virtual camera does not produce pixel format " + formatCode(config.pixelType);
    const std::string name = format->name;
    const std::string size = std::to_string(config.width) + " x " + std::to_string(config.height);
    const uint64_t pixels = uint64_t{config.width} * config.height;
    if (pixels == 0) return "frame size " + size + " has no pixels";
    if (pixels > kMaxPixels)
        return "frame size " + size + " exceeds the virtual camera's limit of " +
               std::to_string(kMaxPixels) + " pixels";
    if (camera::isPackedStream(format->encoding) && config.paddingX != 0)
        return "row padding " + std::to_string(config.paddingX) + " is not possible with " + name +
               ": its pixels run on from row to row";
    if (camera::isChromaShared(format->encoding) && config.width % 2 != 0)
        return name + " needs an even width (pixel pairs share their chroma), got " +
               std::to_string(config.width);
    const uint64_t bytes =
        camera::frameByteCount(*format, config.width, config.height, config.paddingX);
    if (bytes > kMaxFrameBytes)
        return "a " + name + " frame of " + size + " with row padding " +
               std::to_string(config.paddingX) + " takes " + std::to_string(bytes) +
               " bytes, more than the virtual camera's limit of " + std::to_string(kMaxFrameBytes);
    if (config.bufferCount == 0 || config.bufferCount > kMaxBuffers)
        return "buffer count " + std::to_string(config.bufferCount) + " is outside 1.." +
               std::to_string(kMaxBuffers);
    if (config.scene == VirtualScene::Polarization && format->sensor != Sensor::Mono)
        return "the polarization scene needs a monochrome format, not " + name;
    return {};
}

}  // namespace

struct VirtualCamera::State {
    VirtualCameraConfig config;
    const FrameFormat* format = nullptr;
    camera::SceneCanvas canvas;
    size_t frameBytes = 0;
    uint64_t nextFrame = 0;
    std::vector<uint16_t> scratch;
    std::shared_ptr<BufferRing> buffers;

    camera::SensorWindow windowFor(uint64_t frame) const {
        const int scale = config.scene == VirtualScene::Polarization ? 2 : 1;
        const int* offset = kMotion[config.moving ? frame % 8 : 0];
        const int margin = static_cast<int>(camera::kCanvasMargin);
        return {static_cast<uint32_t>(margin + scale * offset[0]),
                static_cast<uint32_t>(margin + scale * offset[1]), config.width, config.height,
                config.paddingX};
    }

    // Canvas index of sensor pixel (x, y) in frame `frame`.
    size_t canvasIndex(uint64_t frame, uint32_t x, uint32_t y) const {
        ZT_CAMERA_CHECK(x < config.width && y < config.height);
        const camera::SensorWindow w = windowFor(frame);
        return (size_t{y} + w.top) * canvas.width + x + w.left;
    }

    camera::PolarizationRegion regionAt(uint64_t frame, uint32_t x, uint32_t y) const {
        const size_t i = canvasIndex(frame, x, y);
        return camera::polarizationRegionAt(static_cast<uint32_t>(i % canvas.width),
                                            static_cast<uint32_t>(i / canvas.width), canvas.width,
                                            canvas.height);
    }
};

bool VirtualCamera::supportsFormat(uint32_t pixelType) {
    return camera::findFrameFormat(pixelType) != nullptr;
}

std::unique_ptr<VirtualCamera> VirtualCamera::open(const VirtualCameraConfig& config,
                                                   std::string* error) {
    const FrameFormat* format = camera::findFrameFormat(config.pixelType, config.publishedLayout);
    std::string problem = configProblem(config, format);
    if (!problem.empty()) {
        if (error != nullptr) *error = std::move(problem);
        return nullptr;
    }
    auto state = std::make_unique<State>();
    state->config = config;
    state->format = format;
    const uint32_t canvasW = config.width + 2 * camera::kCanvasMargin;
    const uint32_t canvasH = config.height + 2 * camera::kCanvasMargin;
    if (config.scene == VirtualScene::Polarization) {
        state->canvas = camera::renderPolarizationScene(canvasW, canvasH);
    } else {
        camera::ScenePlanes planes;
        planes.mono16 = format->sensor == Sensor::Mono;
        planes.ycc8 = format->encoding == Encoding::Uyvy || format->encoding == Encoding::Yuyv ||
                      format->encoding == Encoding::Uyv || format->encoding == Encoding::Ycbcr;
        state->canvas = camera::renderColourScene(canvasW, canvasH, planes);
    }
    state->frameBytes = static_cast<size_t>(
        camera::frameByteCount(*format, config.width, config.height, config.paddingX));
    state->buffers = std::make_shared<BufferRing>(config.bufferCount, state->frameBytes);
    return std::unique_ptr<VirtualCamera>(new VirtualCamera(std::move(state)));
}

VirtualCamera::VirtualCamera(std::unique_ptr<State> state) : state_(std::move(state)) {}

VirtualCamera::~VirtualCamera() = default;

ZTGrabResultPtr VirtualCamera::grab() {
    State& s = *state_;
    unsigned index = 0;
    if (!s.buffers->take(index)) return ZTGrabResultPtr();  // every buffer is still in use
    unsigned char* memory = s.buffers->memory[index].get();
    try {
        camera::encodeFrame(*s.format, s.canvas, s.windowFor(s.nextFrame), memory, s.scratch);
        std::shared_ptr<BufferRing> ring = s.buffers;
        ZTGrabResultPtr frame = createGrabResult(
            s.config.pixelType, s.config.width, s.config.height, s.config.paddingX, memory,
            s.frameBytes, [ring, index]() noexcept { ring->giveBack(index); });
        ++s.nextFrame;
        return frame;
    } catch (...) {
        s.buffers->giveBack(index);
        throw;
    }
}

const VirtualCameraConfig& VirtualCamera::config() const { return state_->config; }
uint64_t VirtualCamera::frameNumber() const { return state_->nextFrame; }
size_t VirtualCamera::frameBytes() const { return state_->frameBytes; }
unsigned VirtualCamera::buffersInUse() const { return state_->buffers->inUse(); }

SceneRgb VirtualCamera::sceneRgb(uint64_t frame, uint32_t x, uint32_t y) const {
    if (state_->config.scene == VirtualScene::Polarization) {
        const auto v = static_cast<uint16_t>(std::lround(state_->regionAt(frame, x, y).s0 / 2));
        return {v, v, v};
    }
    const uint16_t* rgb = &state_->canvas.rgb16[3 * state_->canvasIndex(frame, x, y)];
    return {rgb[0], rgb[1], rgb[2]};
}

uint16_t VirtualCamera::sensorValue(uint64_t frame, uint32_t x, uint32_t y) const {
    const State& s = *state_;
    if (s.config.scene == VirtualScene::Polarization)
        return s.canvas.mono16[s.canvasIndex(frame, x, y)];
    const SceneRgb c = sceneRgb(frame, x, y);
    switch (s.format->sensor) {
        case Sensor::BayerRG: case Sensor::BayerGR: case Sensor::BayerGB: case Sensor::BayerBG: {
            const unsigned channel = camera::bayerChannel(s.format->sensor, x, y);
            return channel == 0 ? c.r : channel == 1 ? c.g : c.b;
        }
        default:
            return camera::luma16(c.r, c.g, c.b);
    }
}

ScenePolarization VirtualCamera::scenePolarization(uint64_t frame, uint32_t x, uint32_t y) const {
    ZT_CAMERA_CHECK(state_->config.scene == VirtualScene::Polarization);
    const camera::PolarizationRegion r = state_->regionAt(frame, x, y);
    return {r.s0, r.angleDegrees, r.degree};
}

double VirtualCamera::polarizerAngle(uint32_t x, uint32_t y) {
    return camera::polarizerAngleAt(x, y);
}

unsigned VirtualCamera::expectedSample(uint64_t frame, uint32_t x, uint32_t y,
                                       unsigned channel) const {
    const State& s = *state_;
    const Encoding encoding = s.format->encoding;
    ZT_CAMERA_CHECK(channel < camera::channelCount(encoding));
    switch (encoding) {
        case Encoding::Rgb: case Encoding::Bgr: case Encoding::Rgba: case Encoding::Bgra: {
            if (channel == 3) return 255;
            const SceneRgb c = sceneRgb(frame, x, y);
            return (channel == 0 ? c.r : channel == 1 ? c.g : c.b) >> 8;
        }
        case Encoding::Uyvy: case Encoding::Yuyv: case Encoding::Uyv: case Encoding::Ycbcr: {
            const uint8_t* ycc = &s.canvas.ycc8[3 * s.canvasIndex(frame, x, y)];
            if (channel == 0 || !camera::isChromaShared(encoding)) return ycc[channel];
            // 4:2:2: the pair (even x, x + 1) shares the mean of its two chroma values.
            const uint8_t* pair = &s.canvas.ycc8[3 * s.canvasIndex(frame, x & ~1u, y)];
            return (pair[channel] + pair[3 + channel] + 1u) / 2;
        }
        default:
            return sensorValue(frame, x, y) >> (16 - s.format->bits);
    }
}

}  // namespace ZTI

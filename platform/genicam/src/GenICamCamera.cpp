// GenICamCamera over Aravis: device lookup without stray discovery, settings checked by reading
// them back, and frame buffers lent out as grab results that find their way back to the stream.
#include "GenICamCamera.h"

#include <arpa/inet.h>
#include <arv.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <mutex>

#include "GenICamCameraAccess.h"

namespace ZTI {
namespace {

// GigE Vision control port: connecting a UDP socket to it sends nothing, but makes the kernel
// choose the local address that routes to the camera.
constexpr uint16_t kGvcpPort = 3956;

void setError(std::string* error, const std::string& message) {
    if (error) *error = message;
}

// The message of a GLib error, which is then freed.
std::string takeMessage(GError*& gerror) {
    std::string message = gerror && gerror->message ? gerror->message : "unknown error";
    g_clear_error(&gerror);
    return message;
}

std::string hexCode(uint32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08" PRIX32, code);
    return text;
}

template <typename T>
struct GObjectDeleter {
    void operator()(T* object) const {
        if (object) g_object_unref(object);
    }
};
template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectDeleter<T>>;

// Enables exactly the interfaces of `which`. Fake also disables every network interface, so
// that no later call of the process (Aravis's own fallbacks included) can reach a network.
void selectInterfaces(GenICamInterfaces which) {
    const bool gige = which == GenICamInterfaces::All || which == GenICamInterfaces::GigEVision;
    const bool usb3 = which == GenICamInterfaces::All || which == GenICamInterfaces::USB3Vision;
    const bool fake = which == GenICamInterfaces::Fake;
    (gige ? arv_enable_interface : arv_disable_interface)("GigEVision");
    (usb3 ? arv_enable_interface : arv_disable_interface)("USB3Vision");
    (fake ? arv_enable_interface : arv_disable_interface)("Fake");
}

// The interfaces of `which`, searched in this order; only these device lists are updated.
std::vector<ArvInterface*> interfacesOf(GenICamInterfaces which) {
    switch (which) {
    case GenICamInterfaces::Fake: return {arv_fake_interface_get_instance()};
    case GenICamInterfaces::GigEVision: return {arv_gv_interface_get_instance()};
    case GenICamInterfaces::USB3Vision: return {arv_uv_interface_get_instance()};
    case GenICamInterfaces::All: break;
    }
    return {arv_gv_interface_get_instance(), arv_uv_interface_get_instance()};
}

const char* interfaceName(GenICamInterfaces which) {
    switch (which) {
    case GenICamInterfaces::Fake: return "the Fake interface";
    case GenICamInterfaces::GigEVision: return "the GigE Vision interface";
    case GenICamInterfaces::USB3Vision: return "the USB3 Vision interface";
    case GenICamInterfaces::All: break;
    }
    return "any interface";
}

std::string orEmpty(const char* text) { return text ? text : ""; }

// The local address from which `device` is reached, found by connecting a UDP socket (which
// sends no packet).
GInetAddress* localAddressFor(const in_addr& device) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return nullptr;
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_port = htons(kGvcpPort);
    remote.sin_addr = device;
    sockaddr_in local{};
    socklen_t length = sizeof local;
    GInetAddress* address = nullptr;
    if (connect(fd, reinterpret_cast<sockaddr*>(&remote), sizeof remote) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) == 0) {
        address = g_inet_address_new_from_bytes(reinterpret_cast<const guint8*>(&local.sin_addr),
                                                G_SOCKET_FAMILY_IPV4);
    }
    close(fd);
    return address;
}

}  // namespace

// What the stream and the frames lent out share. A frame released after its camera stopped
// or was destroyed finds `stream` null and frees its buffer instead of pushing it back.
struct SharedStream {
    std::mutex mutex;
    ArvStream* stream = nullptr;  // guarded by mutex
    std::atomic<unsigned> held{0};

    void giveBack(ArvBuffer* buffer) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (stream) {
                arv_stream_push_buffer(stream, buffer);
                buffer = nullptr;
            }
        }
        if (buffer) g_object_unref(buffer);
        held.fetch_sub(1, std::memory_order_acq_rel);
    }
};

struct GenICamCamera::State {
    std::string name;  // how messages name the camera
    GObjectPtr<ArvCamera> camera;
    unsigned bufferCount = 8;
    size_t payload = 0;  // bytes of each stream buffer: the camera's PayloadSize
    uint32_t pixelType = 0, width = 0, height = 0, paddingX = 0;

    std::shared_ptr<SharedStream> shared = std::make_shared<SharedStream>();
    ArvStream* stream = nullptr;  // owned while started; also published in shared->stream
    uint64_t delivered = 0, incomplete = 0, underrunsOfEarlierStreams = 0;
    // GigE Vision streams count an underrun per packet that finds no buffer; frames are
    // counted instead from the gaps in the block ids of the frames that did get one.
    bool countIdGaps = false;
    bool haveFrameId = false;
    uint64_t lastFrameId = 0, idGaps = 0;

    uint64_t streamUnderruns() const {
        if (!stream) return 0;
        if (countIdGaps) return idGaps;
        guint64 completed = 0, failures = 0, underruns = 0;
        arv_stream_get_statistics(stream, &completed, &failures, &underruns);
        return underruns;
    }

    // Block ids of GigE Vision 1.x are 16 bits, 1 to 65535, and wrap past 0.
    void noteFrameId(uint64_t id) {
        if (haveFrameId && id > lastFrameId) {
            idGaps += id - lastFrameId - 1;
        } else if (haveFrameId && lastFrameId > 0xF000 && id < 0x1000) {
            idGaps += (0xFFFF - lastFrameId) + (id - 1);
        }
        haveFrameId = true;
        lastFrameId = id;
    }
};

std::vector<GenICamDeviceInfo> GenICamCamera::list(GenICamInterfaces which, std::string* error) {
    selectInterfaces(which);
    std::vector<GenICamDeviceInfo> devices;
    for (ArvInterface* iface : interfacesOf(which)) {
        if (!iface) {
            setError(error, std::string("cannot search ") + interfaceName(which));
            return {};
        }
        arv_interface_update_device_list(iface);
        const unsigned count = arv_interface_get_n_devices(iface);
        for (unsigned i = 0; i < count; ++i) {
            devices.push_back({orEmpty(arv_interface_get_device_id(iface, i)),
                               orEmpty(arv_interface_get_device_vendor(iface, i)),
                               orEmpty(arv_interface_get_device_model(iface, i)),
                               orEmpty(arv_interface_get_device_serial_nbr(iface, i)),
                               orEmpty(arv_interface_get_device_address(iface, i)),
                               orEmpty(arv_interface_get_device_protocol(iface, i))});
        }
    }
    return devices;
}

namespace {

// Opens the device of `config`, setting `name` to how messages should call it. An IPv4 address
// is opened directly: Aravis's own lookup by address falls back to a discovery broadcast when
// the camera does not answer at once.
ArvDevice* openDevice(const GenICamCameraConfig& config, std::string& name, std::string& error) {
    selectInterfaces(config.interfaces);
    GError* gerror = nullptr;
    name = config.deviceId;

    in_addr ipv4{};
    const bool byAddress = !config.deviceId.empty() &&
                           inet_pton(AF_INET, config.deviceId.c_str(), &ipv4) == 1;
    if (byAddress) {
        if (config.interfaces != GenICamInterfaces::All &&
            config.interfaces != GenICamInterfaces::GigEVision) {
            error = "camera address " + config.deviceId + " needs the GigE Vision interface, not " +
                    interfaceName(config.interfaces);
            return nullptr;
        }
        GObjectPtr<GInetAddress> local(localAddressFor(ipv4));
        if (!local) {
            error = "camera " + config.deviceId + ": no route to that address";
            return nullptr;
        }
        GObjectPtr<GInetAddress> remote(g_inet_address_new_from_bytes(
            reinterpret_cast<const guint8*>(&ipv4), G_SOCKET_FAMILY_IPV4));
        ArvDevice* device = arv_gv_device_new(local.get(), remote.get(), &gerror);
        if (!device) error = "camera " + config.deviceId + ": " + takeMessage(gerror);
        return device;
    }

    if (config.deviceId.empty() || config.interfaces != GenICamInterfaces::All) {
        for (ArvInterface* iface : interfacesOf(config.interfaces)) {
            arv_interface_update_device_list(iface);
            const unsigned count = arv_interface_get_n_devices(iface);
            for (unsigned i = 0; i < count; ++i) {
                const std::string id = orEmpty(arv_interface_get_device_id(iface, i));
                if (!config.deviceId.empty() && id != config.deviceId) continue;
                name = id;
                ArvDevice* device = arv_interface_open_device(iface, id.c_str(), &gerror);
                if (!device) error = "camera " + id + ": " + takeMessage(gerror);
                return device;
            }
        }
        error = config.deviceId.empty()
                    ? std::string("no camera found on ") + interfaceName(config.interfaces)
                    : "no camera " + config.deviceId + " on " + interfaceName(config.interfaces);
        return nullptr;
    }
    ArvDevice* device = arv_open_device(config.deviceId.c_str(), &gerror);
    if (!device) error = "camera " + config.deviceId + ": " + takeMessage(gerror);
    return device;
}

// Sets an integer feature and reads it back: cameras may round or clamp instead of refusing.
bool setInteger(ArvCamera* camera, const std::string& name, const char* feature, int64_t value,
                std::string& error) {
    GError* gerror = nullptr;
    // Aravis leaves range checks to the camera by default, and simulated cameras do none.
    gint64 min = 0, max = 0;
    arv_camera_get_integer_bounds(camera, feature, &min, &max, &gerror);
    if (!gerror && (value < min || value > max)) {
        error = "camera " + name + " refused " + feature + " = " + std::to_string(value) +
                " (allowed: " + std::to_string(min) + " to " + std::to_string(max) + ")";
        return false;
    }
    g_clear_error(&gerror);
    arv_camera_set_integer(camera, feature, value, &gerror);
    if (gerror) {
        error = "camera " + name + " refused " + feature + " = " + std::to_string(value) + ": " +
                takeMessage(gerror);
        return false;
    }
    const int64_t actual = arv_camera_get_integer(camera, feature, &gerror);
    if (gerror || actual != value) {
        error = "camera " + name + " refused " + feature + " = " + std::to_string(value) +
                (gerror ? ": " + takeMessage(gerror) : " (it keeps " + std::to_string(actual) + ")");
        return false;
    }
    return true;
}

bool setPixelFormat(ArvCamera* camera, const std::string& name, uint32_t code, std::string& error) {
    GError* gerror = nullptr;
    guint count = 0;
    gint64* offered = arv_camera_dup_available_pixel_formats(camera, &count, &gerror);
    bool found = false;
    for (guint i = 0; i < count; ++i) found = found || static_cast<uint32_t>(offered[i]) == code;
    g_free(offered);
    if (!found) {
        std::string names;
        const char** strings = arv_camera_dup_available_pixel_formats_as_strings(camera, &count,
                                                                                 nullptr);
        for (guint i = 0; i < count && strings; ++i) names += (i ? ", " : "") + orEmpty(strings[i]);
        g_free(strings);
        error = "camera " + name + " does not offer PixelFormat " + hexCode(code) +
                (gerror ? " (" + takeMessage(gerror) + ")" : "; it offers " + names);
        g_clear_error(&gerror);
        return false;
    }
    arv_camera_set_pixel_format(camera, code, &gerror);
    if (!gerror && arv_camera_get_pixel_format(camera, &gerror) == code) return true;
    error = "camera " + name + " refused PixelFormat = " + hexCode(code) +
            (gerror ? ": " + takeMessage(gerror) : "");
    return false;
}

bool applySettings(ArvCamera* camera, const std::string& name, const GenICamCameraConfig& config,
                   std::string& error) {
    GError* gerror = nullptr;
    if (config.pixelType && !setPixelFormat(camera, name, config.pixelType, error)) return false;
    // A smaller offset first, so that the new size fits the sensor whatever the old offset was.
    if ((config.width || config.height) && arv_camera_is_region_offset_available(camera, nullptr)) {
        arv_camera_set_integer(camera, "OffsetX", 0, nullptr);
        arv_camera_set_integer(camera, "OffsetY", 0, nullptr);
    }
    const std::pair<const char*, uint32_t> region[] = {{"Width", config.width},
                                                       {"Height", config.height},
                                                       {"OffsetX", config.offsetX},
                                                       {"OffsetY", config.offsetY}};
    for (const auto& [feature, value] : region) {
        if (value && !setInteger(camera, name, feature, value, error)) return false;
    }
    if (config.frameRate > 0) {
        arv_camera_set_frame_rate(camera, config.frameRate, &gerror);
        if (gerror) {
            error = "camera " + name + " refused AcquisitionFrameRate = " +
                    std::to_string(config.frameRate) + ": " + takeMessage(gerror);
            return false;
        }
    }
    if (config.packetSize) {
        if (!arv_camera_is_gv_device(camera)) {
            error = "camera " + name + " is not a GigE Vision camera: GevSCPSPacketSize = " +
                    std::to_string(config.packetSize) + " does not apply";
            return false;
        }
        arv_camera_gv_set_packet_size(camera, static_cast<gint>(config.packetSize), &gerror);
        const guint actual = gerror ? 0 : arv_camera_gv_get_packet_size(camera, &gerror);
        if (gerror || actual != config.packetSize) {
            error = "camera " + name + " refused GevSCPSPacketSize = " +
                    std::to_string(config.packetSize) +
                    (gerror ? ": " + takeMessage(gerror) : " (it keeps " + std::to_string(actual) + ")");
            return false;
        }
    }
    return true;
}

}  // namespace

std::unique_ptr<GenICamCamera> GenICamCamera::open(const GenICamCameraConfig& config,
                                                   std::string* error) {
    if (config.bufferCount < 1) {
        setError(error, "bufferCount must be at least 1");
        return nullptr;
    }
    auto state = std::make_unique<State>();
    std::string message;
    ArvDevice* device = openDevice(config, state->name, message);
    if (!device) {
        setError(error, message);
        return nullptr;
    }
    GError* gerror = nullptr;
    state->camera.reset(arv_camera_new_with_device(device, &gerror));
    g_object_unref(device);  // the camera holds its own reference
    if (!state->camera) {
        setError(error, "camera " + state->name + ": " + takeMessage(gerror));
        return nullptr;
    }
    if (state->name.empty()) state->name = orEmpty(arv_camera_get_device_id(state->camera.get(), nullptr));
    if (!applySettings(state->camera.get(), state->name, config, message)) {
        setError(error, message);
        return nullptr;
    }
    ArvCamera* camera = state->camera.get();
    state->pixelType = arv_camera_get_pixel_format(camera, nullptr);
    state->width = static_cast<uint32_t>(arv_camera_get_integer(camera, "Width", nullptr));
    state->height = static_cast<uint32_t>(arv_camera_get_integer(camera, "Height", nullptr));
    if (arv_camera_is_feature_available(camera, "PaddingX", nullptr)) {
        state->paddingX = static_cast<uint32_t>(arv_camera_get_integer(camera, "PaddingX", nullptr));
    }
    state->bufferCount = config.bufferCount;
    return std::unique_ptr<GenICamCamera>(new GenICamCamera(std::move(state)));
}

GenICamCamera::GenICamCamera(std::unique_ptr<State> state) : state_(std::move(state)) {}

GenICamCamera::~GenICamCamera() { stop(); }

bool GenICamCamera::start(std::string* error) {
    State& s = *state_;
    if (s.stream) return true;
    GError* gerror = nullptr;
    const guint payload = arv_camera_get_payload(s.camera.get(), &gerror);
    if (gerror || payload == 0) {
        setError(error, "camera " + s.name + ": cannot read PayloadSize" +
                            (gerror ? ": " + takeMessage(gerror) : ""));
        return false;
    }
    ArvStream* stream = arv_camera_create_stream(s.camera.get(), nullptr, nullptr, &gerror);
    if (!stream) {
        setError(error, "camera " + s.name + ": cannot open a stream: " + takeMessage(gerror));
        return false;
    }
    // A kernel receive buffer of one whole frame: the default one overflows at the first frame
    // of a few megabytes, and every overflow is a lost packet.
    if (ARV_IS_GV_STREAM(stream)) g_object_set(stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_AUTO, nullptr);
    s.payload = payload;
    for (unsigned i = 0; i < s.bufferCount; ++i) arv_stream_push_buffer(stream, arv_buffer_new_allocate(payload));
    arv_camera_start_acquisition(s.camera.get(), &gerror);
    if (gerror) {
        setError(error, "camera " + s.name + " refused AcquisitionStart: " + takeMessage(gerror));
        g_object_unref(stream);
        return false;
    }
    s.stream = stream;
    s.countIdGaps = ARV_IS_GV_STREAM(stream);
    s.haveFrameId = false;
    s.idGaps = 0;
    std::lock_guard<std::mutex> lock(s.shared->mutex);
    s.shared->stream = stream;
    return true;
}

void GenICamCamera::stop() {
    State& s = *state_;
    if (!s.stream) return;
    arv_camera_stop_acquisition(s.camera.get(), nullptr);
    s.underrunsOfEarlierStreams += s.streamUnderruns();
    {
        // From here on, frames still held free their buffers when released.
        std::lock_guard<std::mutex> lock(s.shared->mutex);
        s.shared->stream = nullptr;
    }
    g_object_unref(s.stream);  // frees the buffers queued in it
    s.stream = nullptr;
}

ZTGrabResultPtr GenICamCamera::grab(std::chrono::milliseconds timeout) {
    State& s = *state_;
    if (!s.stream) return {};
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
            deadline - std::chrono::steady_clock::now());
        ArvBuffer* buffer = arv_stream_timeout_pop_buffer(
            s.stream, left.count() > 0 ? static_cast<guint64>(left.count()) : 0);
        if (!buffer) return {};
        if (s.countIdGaps) s.noteFrameId(arv_buffer_get_frame_id(buffer));
        if (arv_buffer_get_status(buffer) != ARV_BUFFER_STATUS_SUCCESS ||
            arv_buffer_get_payload_type(buffer) != ARV_BUFFER_PAYLOAD_TYPE_IMAGE) {
            ++s.incomplete;
            arv_stream_push_buffer(s.stream, buffer);
            continue;
        }
        size_t size = 0;
        const void* data = arv_buffer_get_image_data(buffer, &size);
        if (size == 0) size = s.payload;  // the simulated camera states no size of its own
        guint32 padX = 0, padY = 0;
        arv_buffer_get_image_padding(buffer, reinterpret_cast<gint*>(&padX), reinterpret_cast<gint*>(&padY));
        s.shared->held.fetch_add(1, std::memory_order_acq_rel);
        ++s.delivered;
        std::shared_ptr<SharedStream> shared = s.shared;
        return createGrabResult(arv_buffer_get_image_pixel_format(buffer),
                                static_cast<uint32_t>(arv_buffer_get_image_width(buffer)),
                                static_cast<uint32_t>(arv_buffer_get_image_height(buffer)), padX,
                                const_cast<void*>(data), size,
                                [shared, buffer] { shared->giveBack(buffer); });
    }
}

GenICamStreamStats GenICamCamera::stats() const {
    return {state_->delivered, state_->incomplete,
            state_->underrunsOfEarlierStreams + state_->streamUnderruns()};
}

unsigned GenICamCamera::buffersInUse() const {
    return state_->shared->held.load(std::memory_order_acquire);
}

uint32_t GenICamCamera::pixelType() const { return state_->pixelType; }
uint32_t GenICamCamera::width() const { return state_->width; }
uint32_t GenICamCamera::height() const { return state_->height; }
uint32_t GenICamCamera::paddingX() const { return state_->paddingX; }

ArvCamera* GenICamCameraAccess::arvCamera(GenICamCamera& camera) {
    return camera.state_->camera.get();
}

}  // namespace ZTI

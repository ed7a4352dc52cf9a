// GenICam cameras (through the GenICam library) as iterators of frames. Frames are read with
// the published packed layouts, the ones cameras send.
#include <chrono>
#include <mutex>

#include <GenICamCamera.h>

#include "Bindings.h"

namespace ztpy {
namespace {

using ZTI::GenICamInterfaces;

/// The library's camera behind a mutex: its methods serve one thread at a time, and a Python
/// camera may be shared by threads. The mutex is only taken without the GIL.
struct GenICamCamera {
    std::unique_ptr<ZTI::GenICamCamera> camera;
    std::mutex mutex;
};

GenICamInterfaces interfacesOf(int value, const char* fn) {
    if (value < 0 || value > 3) fail(std::string(fn) + ": interfaces " + std::to_string(value) + " is not a GenICamInterfaces");
    return static_cast<GenICamInterfaces>(value);
}

GenICamCamera* openCamera(int interfaces, const std::string& deviceId, ZTI::PfncFormat_ format, uint32_t width,
                          uint32_t height, uint32_t offsetX, uint32_t offsetY, double frameRate,
                          unsigned bufferCount, uint32_t packetSize) {
    ZTI::GenICamCameraConfig config;
    config.interfaces = interfacesOf(interfaces, "GenICamCamera");
    config.deviceId = deviceId;
    config.pixelType = format;
    config.width = width;
    config.height = height;
    config.offsetX = offsetX;
    config.offsetY = offsetY;
    config.frameRate = frameRate;
    config.bufferCount = bufferCount;
    config.packetSize = packetSize;
    auto camera = std::make_unique<GenICamCamera>();
    std::string error;
    {
        py::gil_scoped_release release;
        camera->camera = ZTI::GenICamCamera::open(config, &error);
    }
    if (!camera->camera) fail("GenICamCamera: " + error);
    return camera.release();
}

void start(GenICamCamera& self) {
    std::string error;
    bool started;
    {
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(self.mutex);
        started = self.camera->start(&error);
    }
    if (!started) throw std::runtime_error("GenICamCamera.start: " + error);
}

Image grab(GenICamCamera& self, double timeout) {
    if (!(timeout >= 0)) fail("GenICamCamera.grab: timeout must be a number of seconds, at least 0");
    const auto wait = std::chrono::milliseconds(static_cast<int64_t>(timeout * 1000 + 0.5));
    auto image = std::make_shared<ZTI::ZTImage>();
    bool grabbed;
    unsigned held;
    {
        py::gil_scoped_release release;  // waiting for a frame must not stop other threads
        std::lock_guard<std::mutex> lock(self.mutex);
        ZTI::ZTGrabResultPtr frame = self.camera->grab(wait);
        grabbed = static_cast<bool>(frame);
        held = self.camera->buffersInUse();
        if (grabbed) image->attachGrabResult(frame, ZTI::PackedLayout::Published);
    }
    if (!grabbed) {
        PyErr_SetString(PyExc_TimeoutError, ("GenICamCamera.grab: no frame within " + std::to_string(wait.count()) +
                                             " ms (stopped, or " + std::to_string(held) +
                                             " buffers held by frames or arrays)").c_str());
        throw py::error_already_set();
    }
    if (!image->isValid()) fail("GenICamCamera.grab: the frame (" + describe(*image) + ") could not be read");
    Image result;
    result.image = std::move(image);
    result.extent = result.image->getByteCount();
    return result;
}

py::dict deviceDict(const ZTI::GenICamDeviceInfo& d) {
    py::dict info;
    info["id"] = d.id;
    info["vendor"] = d.vendor;
    info["model"] = d.model;
    info["serial"] = d.serial;
    info["address"] = d.address;
    info["protocol"] = d.protocol;
    return info;
}

}  // namespace

void bindGenICam(py::module_& m) {
    addEnum(m, "GenICamInterfaces",
            {{"ALL", static_cast<int>(GenICamInterfaces::All)},
             {"GIGE_VISION", static_cast<int>(GenICamInterfaces::GigEVision)},
             {"USB3_VISION", static_cast<int>(GenICamInterfaces::USB3Vision)},
             {"FAKE", static_cast<int>(GenICamInterfaces::Fake)}},
            "Where GenICam cameras are looked for. ALL and GIGE_VISION broadcast a discovery on every network "
            "the machine is on; FAKE is Aravis's in-process simulated camera and sends nothing.");

    py::class_<GenICamCamera>(m, "GenICamCamera", R"doc(A GenICam camera (GigE Vision, USB3 Vision or Aravis's simulated one).

Frames come from a fixed set of stream buffers: a frame holds its buffer until the frame and
every array viewing it are gone. Packed 10- and 12-bit frames are unpacked to 16 bits with
the layouts the standards publish.)doc")
        .def(py::init(&openCamera), py::arg("interfaces") = 0, py::arg("device_id") = "", py::arg("format") = 0,
             py::arg("width") = 0, py::arg("height") = 0, py::arg("offset_x") = 0, py::arg("offset_y") = 0,
             py::arg("frame_rate") = 0.0, py::arg("buffer_count") = 8, py::arg("packet_size") = 0,
             R"doc(Opens a camera and applies its settings; zero or empty values keep the camera's own.

interfaces: a GenICamInterfaces. device_id: an Aravis device id or a GigE Vision camera's
IPv4 address (opened directly, without discovery); empty opens the first camera found.
format: PFNC code; width, height, offset_x, offset_y: region of interest in pixels;
frame_rate: frames per second; buffer_count: stream buffers; packet_size: GigE Vision
packet size in bytes. Raises ValueError naming the camera, feature and value that failed.)doc")
        .def_static("list", [](int which) {
                std::string error;
                std::vector<ZTI::GenICamDeviceInfo> devices;
                const GenICamInterfaces where = interfacesOf(which, "GenICamCamera.list");
                {
                    py::gil_scoped_release release;
                    devices = ZTI::GenICamCamera::list(where, &error);
                }
                if (!error.empty()) throw std::runtime_error("GenICamCamera.list: " + error);
                py::list result;
                for (const auto& d : devices) result.append(deviceDict(d));
                return result;
            },
            py::arg("interfaces") = 0,
            "The cameras found on ``interfaces``, as dicts (id, vendor, model, serial, address, protocol). ALL and "
            "GIGE_VISION send a discovery broadcast on every network.")
        .def("start", &start, "Starts acquisition (frames() starts it too). Raises RuntimeError when the camera refuses.")
        .def("stop", [](GenICamCamera& self) {
                py::gil_scoped_release release;
                std::lock_guard<std::mutex> lock(self.mutex);
                self.camera->stop();
            }, "Stops acquisition. Frames still held stay valid.")
        .def("grab", &grab, py::arg("timeout") = 1.0,
             "The next complete frame as an Image, waiting up to ``timeout`` seconds. Raises TimeoutError when none "
             "comes (camera stopped, or every buffer held).")
        .def("frames", [](py::object self, py::object count, double timeout) {
                 py::object frames = frameIterator(
                     py::module_::import("functools").attr("partial")(self.attr("grab"), timeout), count,
                     "GenICamCamera.frames");
                 start(self.cast<GenICamCamera&>());
                 return frames;
             },
             py::arg("count") = py::none(), py::arg("timeout") = 1.0,
             "Starts acquisition and iterates over the next ``count`` frames (without end when None), each "
             "waited for up to ``timeout`` seconds.")
        .def_property_readonly("format", [](GenICamCamera& c) { return formatObject(c.camera->pixelType()); },
                               "Pixel format the camera sends.")
        .def_property_readonly("width", [](GenICamCamera& c) { return c.camera->width(); }, "Frame width.")
        .def_property_readonly("height", [](GenICamCamera& c) { return c.camera->height(); }, "Frame height.")
        .def_property_readonly("padding", [](GenICamCamera& c) { return c.camera->paddingX(); },
                               "Bytes of padding after every row of a frame.")
        .def_property_readonly("buffers_in_use", [](GenICamCamera& c) {
                 py::gil_scoped_release release;
                 std::lock_guard<std::mutex> lock(c.mutex);
                 return c.camera->buffersInUse();
             },
                               "Stream buffers currently held by frames (or arrays of them).")
        .def_property_readonly("stats", [](GenICamCamera& c) {
                 ZTI::GenICamStreamStats s;
                 {
                     py::gil_scoped_release release;
                     std::lock_guard<std::mutex> lock(c.mutex);
                     s = c.camera->stats();
                 }
                 py::dict d;
                 d["delivered"] = s.delivered;
                 d["incomplete"] = s.incomplete;
                 d["underruns"] = s.underruns;
                 return d;
             }, "Counters since the camera was opened: delivered, incomplete and underruns (dropped) frames.");
}

}  // namespace ztpy

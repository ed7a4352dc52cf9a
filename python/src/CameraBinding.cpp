// Cameras as iterators of frames. A frame is an Image that holds its camera buffer (or, for
// packed formats, its unpacked copy) until the frame and every array viewing it are gone.
#include <mutex>

#include <VirtualCamera.h>

#include "Bindings.h"

namespace ztpy {
namespace {

/// The library's camera; grab() and its accessors take the mutex, since Python threads may
/// share the object and the camera serves one thread at a time.
struct VirtualCamera {
    std::unique_ptr<ZTI::VirtualCamera> camera;
    std::mutex mutex;
};

VirtualCamera* openCamera(ZTI::PfncFormat_ format, uint32_t width, uint32_t height, uint32_t padding,
                          int scene, unsigned bufferCount, bool moving) {
    ZTI::VirtualCameraConfig config;
    config.pixelType = format;
    config.width = width;
    config.height = height;
    config.paddingX = padding;
    if (scene != 0 && scene != 1) fail("VirtualCamera: scene " + std::to_string(scene) + " is not a VirtualScene");
    config.scene = scene == 0 ? ZTI::VirtualScene::Colour : ZTI::VirtualScene::Polarization;
    config.bufferCount = bufferCount;
    config.moving = moving;
    std::string error;
    auto camera = std::make_unique<VirtualCamera>();
    {
        py::gil_scoped_release release;  // the scene is computed here
        camera->camera = ZTI::VirtualCamera::open(config, &error);
    }
    if (!camera->camera) fail("VirtualCamera: " + error);
    return camera.release();
}

Image grab(VirtualCamera& self) {
    auto image = std::make_shared<ZTI::ZTImage>();
    bool grabbed;
    unsigned buffers;
    {
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(self.mutex);
        ZTI::ZTGrabResultPtr frame = self.camera->grab();
        grabbed = static_cast<bool>(frame);
        buffers = self.camera->config().bufferCount;
        if (grabbed) image->attachGrabResult(frame);
    }
    if (!grabbed)
        throw std::runtime_error("VirtualCamera.grab: all " + std::to_string(buffers) +
                                 " frame buffers are held by frames or arrays still alive");
    if (!image->isValid()) fail("VirtualCamera.grab: the frame (" + describe(*image) + ") could not be read");
    Image result;
    result.image = std::move(image);
    result.extent = result.image->getByteCount();  // the frame's stated size, or the unpacked size
    return result;
}

/// Calls `grab` (a camera's bound method, which keeps the camera open while the loop runs)
/// `remaining` times, or without end when negative.
struct FrameIterator {
    py::object grab;
    int64_t remaining;
};

}  // namespace

py::object frameIterator(py::object grab, py::object count, const char* function) {
    const int64_t n = count.is_none() ? -1 : count.cast<int64_t>();
    if (!count.is_none() && n < 0) fail(std::string(function) + ": count must not be negative");
    return py::cast(FrameIterator{std::move(grab), n});
}

void bindCameras(py::module_& m) {
    addEnum(m, "VirtualScene", {{"COLOUR", 0}, {"POLARIZATION", 1}},
            "What a virtual camera looks at: COLOUR (patches, ramps, a star, gratings, edges) or POLARIZATION "
            "(regions of known angle and degree seen through a polarized sensor; monochrome formats only).");

    py::class_<FrameIterator>(m, "FrameIterator", "Frames of a camera; see VirtualCamera.frames and GenICamCamera.frames.")
        .def("__iter__", [](py::object self) { return self; })
        .def("__next__", [](FrameIterator& it) {
            if (it.remaining == 0) throw py::stop_iteration();
            py::object frame = it.grab();
            if (it.remaining > 0) --it.remaining;
            return frame;
        });

    py::class_<VirtualCamera>(m, "VirtualCamera", R"doc(A camera without hardware that renders a synthetic scene.

Frames come from a fixed set of buffers: a frame holds its buffer until the frame and every
array viewing it are gone, and grabbing while all buffers are held raises RuntimeError.
Packed 10- and 12-bit frames arrive unpacked to 16 bits (and give their buffer back at once).)doc")
        .def(py::init(&openCamera), py::arg("format") = ZTI::Mono8, py::arg("width") = 640, py::arg("height") = 480,
             py::arg("padding") = 0, py::arg("scene") = 0, py::arg("buffer_count") = 4, py::arg("moving") = true,
             R"doc(Opens a virtual camera.

format: PFNC code of the frames (VirtualCamera.supports_format tells which). width, height:
frame size. padding: bytes after each row (0 for packed formats). scene: a VirtualScene.
buffer_count: frame buffers to cycle through. moving: the scene shifts over a loop of 8
frames. Raises ValueError naming the value that cannot be served.)doc")
        .def_static("supports_format", &ZTI::VirtualCamera::supportsFormat, py::arg("format"),
                    "True when the camera can produce frames of this format.")
        .def("grab", &grab, "The next frame as an Image. Raises RuntimeError when every frame buffer is still held.")
        .def("frames", [](py::object self, py::object count) {
                 return frameIterator(self.attr("grab"), count, "VirtualCamera.frames");
             },
             py::arg("count") = py::none(),
             "An iterator over the next ``count`` frames (without end when None): ``for frame in camera.frames(100):``.")
        .def_property_readonly("format", [](VirtualCamera& c) { return formatObject(c.camera->config().pixelType); },
                               "Pixel format of the frames.")
        .def_property_readonly("width", [](VirtualCamera& c) { return c.camera->config().width; }, "Frame width.")
        .def_property_readonly("height", [](VirtualCamera& c) { return c.camera->config().height; }, "Frame height.")
        .def_property_readonly("frame_number", [](VirtualCamera& c) {
                 std::lock_guard<std::mutex> lock(c.mutex);
                 return c.camera->frameNumber();
             }, "Number of the frame the next grab returns; the first is 0.")
        .def_property_readonly("buffers_in_use", [](VirtualCamera& c) {
                 std::lock_guard<std::mutex> lock(c.mutex);
                 return c.camera->buffersInUse();
             }, "Frame buffers currently held by frames (or arrays of them).");
}

}  // namespace ztpy

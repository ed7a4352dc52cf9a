// Shared pieces of the Python module: the Python image handle, format names and the errors
// every binding raises.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <initializer_list>
#include <utility>
#include <memory>
#include <string>

#include <ZTImageLib.h>

namespace ztpy {

namespace py = pybind11;

/// What a Python `Image` holds. The library image sits behind a shared pointer that every
/// NumPy view of its pixels shares too, so the pixel memory (pool buffer, wrapped array or
/// camera frame) lives as long as the last of them. Operations that would give the image new
/// memory (a destination of another format or size) put a fresh library image behind the
/// handle instead of resetting the old one, so no view is ever left over freed memory.
struct Image {
    std::shared_ptr<ZTI::ZTImage> image = std::make_shared<ZTI::ZTImage>();
    /// Bytes that may be read from the image's buffer: the stated size of attached memory, or
    /// for pool memory every padded row (the pool allocates them all).
    uint64_t extent = 0;
};

/// An Image around a library image whose memory comes from the pool.
Image adopt(std::shared_ptr<ZTI::ZTImage> image);

/// Recomputes the extent of pool memory after the library (re)shaped it.
void refreshExtent(Image& image);

/// "BayerRG12", or the code in hex for formats without a name.
std::string formatName(ZTI::PfncFormat_ format);

/// "BayerRG12 640 x 480" for messages.
std::string describe(const ZTI::ZTImage& image);

/// Raises ValueError with `message`.
[[noreturn]] void fail(const std::string& message);

/// Raises ValueError unless `image` holds pixels; `function` names the caller in the message.
void requireValid(const Image& image, const char* function);

/// Adds an IntEnum `name` of (name, value) pairs to the module and returns it.
py::object addEnum(py::module_& module, const char* name, const py::list& members, const char* doc);
py::object addEnum(py::module_& module, const char* name,
                   std::initializer_list<std::pair<const char*, int>> members, const char* doc);

/// An iterator that calls `grab` (a callable returning an Image) `count` times, or without end
/// when `count` is None; `function` names the caller in messages.
py::object frameIterator(py::object grab, py::object count, const char* function);

/// The PixelFormat member of a code, or the plain int for codes without a name.
py::object formatObject(ZTI::PfncFormat_ format);

void bindImage(py::module_& module);
void bindProcessing(py::module_& module);
void bindCameras(py::module_& module);
void bindBenchSupport(py::module_& module);
#ifdef ZT_PYTHON_GENICAM
void bindGenICam(py::module_& module);
#endif

}  // namespace ztpy

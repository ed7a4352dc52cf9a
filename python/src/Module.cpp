// The module `ztimage`: its documentation, version, enumerations and the shared helpers.
#include <cinttypes>
#include <cstdio>

#include "Bindings.h"

namespace ztpy {
namespace {

// The PixelFormat class, made once at import. Deliberately never released: the interpreter may
// still format an image's repr while it shuts modules down.
PyObject* pixelFormatClass = nullptr;

const char* const kModuleDoc = R"doc(Machine-vision images as NumPy arrays.

Images live in the library's memory and are seen from Python as NumPy arrays without copying:
``numpy.asarray(image)`` views the pixels, ``Image.from_array(array, format)`` wraps an array.
An array keeps the pixel memory it views alive (the image's pool buffer, the wrapped array or
the camera frame) for as long as the array exists, even after its Image is gone.

Formats are GenICam PFNC codes: members of ``PixelFormat`` or plain ints. Array layout:

* one-sample formats (Mono, Bayer): shape (height, width);
* RGB, BGR and YUV 4:4:4: (height, width, 3); with alpha (height, width, 4);
* dtype uint8 for 8-bit formats, uint16 for 10- to 16-bit ones (samples right-aligned);
* YUV 4:2:2 and the packed 10- and 12-bit formats: their bytes, uint8 of shape
  (height, bytes per row); a packed image whose rows do not end on a byte boundary (12-bit
  formats of odd width) is one flat row of bytes;
* rows are ``stride`` bytes apart; row padding is not part of the array.

Every failure raises: ValueError for images, formats and sizes the call cannot take,
OSError when a file cannot be written, RuntimeError when a camera has no free frame buffer.
Calls that touch pixels release the GIL, so threads working on distinct images run in
parallel. An Image or a Converter is used by one thread at a time.
)doc";

void bindEnums(py::module_& m) {
    py::list formats;
    for (const ZTI::PixelFormatInfo& info : ZTI::getPixelFormats())
        if (info.name != nullptr) formats.append(py::make_tuple(info.name, info.code));
    py::object pixelFormat = addEnum(m, "PixelFormat", formats,
        "GenICam PFNC pixel-format codes by name (PixelFormat.Mono8 == 0x01080001). Plain ints "
        "are accepted wherever a format is expected.");
    pixelFormatClass = pixelFormat.release().ptr();

    addEnum(m, "ImageFileFormat",
            {{"BMP", ZTI::Bmp}, {"JPEG", ZTI::Jpeg}, {"PNG", ZTI::Png}, {"TIFF", ZTI::Tiff}, {"PNM", ZTI::Pnm}},
            "File formats by the depth they hold: BMP and JPEG take 8-bit samples, PNG, TIFF and PNM "
            "also 16-bit ones. The codec itself always follows the path's extension.");

    addEnum(m, "PolarizationQuadrant",
            {{"I0", ZTI::PolarQuadrantI0}, {"I45", ZTI::PolarQuadrantI45}, {"I90", ZTI::PolarQuadrantI90},
             {"I135", ZTI::PolarQuadrantI135}},
            "Polarizer angle of one plane of a polarized-sensor frame: I90 top left, I45 top right, "
            "I135 bottom left and I0 bottom right of every 2 x 2 cell.");
}

}  // namespace

py::object addEnum(py::module_& module, const char* name, const py::list& members, const char* doc) {
    py::module_ enumModule = py::module_::import("enum");
    py::object cls = enumModule.attr("IntEnum")(name, members, py::arg("module") = "ztimage");
    cls.attr("__doc__") = doc;
    // Printed as "PixelFormat.Mono8" rather than the bare number IntEnum prints since 3.11.
    cls.attr("__str__") = enumModule.attr("Enum").attr("__str__");
    module.attr(name) = cls;
    return cls;
}

py::object addEnum(py::module_& module, const char* name,
                   std::initializer_list<std::pair<const char*, int>> members, const char* doc) {
    py::list list;
    for (const auto& [member, value] : members) list.append(py::make_tuple(member, value));
    return addEnum(module, name, list, doc);
}

std::string formatName(ZTI::PfncFormat_ format) {
    if (const char* name = ZTI::getPixelFormatName(format)) return name;
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08" PRIx32, format);
    return hex;
}

std::string describe(const ZTI::ZTImage& image) {
    return formatName(image.getPixelType()) + " " + std::to_string(image.getWidth()) + " x " +
           std::to_string(image.getHeight());
}

void fail(const std::string& message) { throw py::value_error(message); }

void requireValid(const Image& image, const char* function) {
    if (!image.image->isValid())
        fail(std::string(function) + ": the image (" + describe(*image.image) + ") holds no pixels");
}

py::object formatObject(ZTI::PfncFormat_ format) {
    py::handle cls(pixelFormatClass);
    py::dict members = cls.attr("_value2member_map_");
    py::int_ code(format);
    if (members.contains(code)) return members[code];
    return std::move(code);
}

Image adopt(std::shared_ptr<ZTI::ZTImage> image) {
    Image result;
    result.image = std::move(image);
    refreshExtent(result);
    return result;
}

void refreshExtent(Image& image) {
    const ZTI::ZTImage& im = *image.image;
    const uint64_t rows = static_cast<uint64_t>(im.getStride()) * im.getHeight();
    image.extent = im.getpaddingX() > 0 ? std::max<uint64_t>(im.getByteCount(), rows) : im.getByteCount();
}

}  // namespace ztpy

PYBIND11_MODULE(ztimage, m) {
    m.doc() = ztpy::kModuleDoc;
    m.attr("__version__") = ZT_VERSION;
    ztpy::bindEnums(m);
    ztpy::bindImage(m);
    ztpy::bindProcessing(m);
    ztpy::bindCameras(m);
    ztpy::bindBenchSupport(m);
#ifdef ZT_PYTHON_GENICAM
    ztpy::bindGenICam(m);
#endif
}

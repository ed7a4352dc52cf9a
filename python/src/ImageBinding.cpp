// ztimage.Image: library images seen as NumPy arrays and NumPy arrays wrapped as images, both
// without copying.
#include <cstring>

#include "Bindings.h"

namespace ztpy {
namespace {

using ZTI::PfncFormat_;
using ZTI::PixelFormatInfo;
using ZTI::PixelPacking;
using ZTI::ZTImage;

/// How the pixels of one format and width appear as an array.
struct ArrayLayout {
    enum class Kind {
        Samples,  ///< (height, width) or (height, width, channels) of uint8 or uint16
        Bytes,    ///< (height, rowBytes) uint8: 4:2:2 and packed rows that end on a byte
        Flat,     ///< (byte count,) uint8: layouts without addressable rows
    };
    Kind kind = Kind::Flat;
    unsigned channels = 1;
    size_t itemSize = 1;
    size_t rowBytes = 0;  ///< bytes of one row's pixels, padding excluded
};

ArrayLayout layoutOf(PfncFormat_ format, uint64_t width) {
    ArrayLayout layout;
    const PixelFormatInfo* info = ZTI::getPixelFormatInfo(format);
    if (info == nullptr) return layout;
    const uint64_t rowBits = width * info->bitsPerPixel;
    if (info->packing == PixelPacking::None && info->channels == 2) {
        // 4:2:2 pixels share their chroma in pairs: a per-pixel channel axis would mislead.
        layout.kind = ArrayLayout::Kind::Bytes;
        layout.rowBytes = rowBits / 8;
    } else if (info->packing == PixelPacking::None && (info->containerBits == 8 || info->containerBits == 16) &&
               info->channels * info->containerBits == info->bitsPerPixel) {
        layout.kind = ArrayLayout::Kind::Samples;
        layout.channels = info->channels;
        layout.itemSize = info->containerBits / 8;
        layout.rowBytes = rowBits / 8;
    } else if ((info->packing == PixelPacking::LsbFirst || info->packing == PixelPacking::PackedPairs) &&
               rowBits % 8 == 0) {
        layout.kind = ArrayLayout::Kind::Bytes;
        layout.rowBytes = rowBits / 8;
    }
    return layout;
}

std::string shapeText(const py::array& array) {
    std::string text = "(";
    for (py::ssize_t i = 0; i < array.ndim(); ++i)
        text += (i ? ", " : "") + std::to_string(array.shape(i));
    return text + (array.ndim() == 1 ? ",)" : ")");
}

/// Owns a library image that views a NumPy array's memory and holds a reference to that
/// array, dropped (under the GIL) after the image is gone.
struct ArrayOwner {
    PyObject* array;
    void operator()(ZTImage* image) const {
        delete image;
        py::gil_scoped_acquire gil;
        Py_DECREF(array);
    }
};

py::array viewOf(const Image& self) {
    const ZTImage& image = *self.image;
    requireValid(self, "numpy view");
    const uint64_t width = image.getWidth(), height = image.getHeight();
    const ArrayLayout layout = layoutOf(image.getPixelType(), width);
    const uint64_t rowStep = layout.rowBytes + static_cast<uint64_t>(image.getpaddingX());

    std::vector<py::ssize_t> shape, strides;
    uint64_t span = 0;
    switch (layout.kind) {
        case ArrayLayout::Kind::Samples:
            shape = {static_cast<py::ssize_t>(height), static_cast<py::ssize_t>(width)};
            strides = {static_cast<py::ssize_t>(rowStep), static_cast<py::ssize_t>(layout.channels * layout.itemSize)};
            if (layout.channels > 1) {
                shape.push_back(layout.channels);
                strides.push_back(static_cast<py::ssize_t>(layout.itemSize));
            }
            span = height == 0 ? 0 : rowStep * (height - 1) + layout.rowBytes;
            break;
        case ArrayLayout::Kind::Bytes:
            shape = {static_cast<py::ssize_t>(height), static_cast<py::ssize_t>(layout.rowBytes)};
            strides = {static_cast<py::ssize_t>(rowStep), 1};
            span = height == 0 ? 0 : rowStep * (height - 1) + layout.rowBytes;
            break;
        case ArrayLayout::Kind::Flat:
            shape = {static_cast<py::ssize_t>(image.getByteCount())};
            strides = {1};
            span = image.getByteCount();
            break;
    }
    if (span > self.extent)
        fail("numpy view: " + describe(image) + " with padding " + std::to_string(image.getpaddingX()) +
             " spans " + std::to_string(span) + " bytes, the image holds " + std::to_string(self.extent));

    py::dtype dtype = layout.itemSize == 2 ? py::dtype::of<uint16_t>() : py::dtype::of<uint8_t>();
    // The capsule shares the library image, so the memory outlives this Image object.
    auto* keep = new std::shared_ptr<ZTImage>(self.image);
    py::capsule owner(keep, [](void* p) { delete static_cast<std::shared_ptr<ZTImage>*>(p); });
    return py::array(dtype, shape, strides, image.getBuffer(), owner);
}

py::object arrayProtocol(const Image& self, py::object dtype, py::object copy) {
    py::object array = viewOf(self);
    if (!dtype.is_none()) array = array.attr("astype")(dtype, py::arg("copy") = false);
    if (!copy.is_none() && py::bool_(copy)) array = array.attr("copy")();
    return array;
}

void requireFormatKnown(PfncFormat_ format, const char* function) {
    if (format == 0 || ZTI::getPixelFormatInfo(format) == nullptr)
        fail(std::string(function) + ": unknown pixel format " + formatName(format));
}

/// Rejects sizes whose byte count the library's 32-bit arithmetic would wrap.
void requireSizeFits(PfncFormat_ format, uint64_t width, uint64_t height, const char* function) {
    if (width == 0 || height == 0)
        fail(std::string(function) + ": " + formatName(format) + " " + std::to_string(width) + " x " +
             std::to_string(height) + " has no pixels");
    const uint64_t bits = width * height * ZTI::getBitsPerPixel(format);
    if (width > UINT32_MAX || height > UINT32_MAX || bits / 8 != ZTI::getPackedByteCount(format, width, height))
        fail(std::string(function) + ": " + formatName(format) + " " + std::to_string(width) + " x " +
             std::to_string(height) + " needs " + std::to_string(bits / 8) +
             " bytes, more than the library's 32-bit byte count holds");
}

Image create(PfncFormat_ format, uint64_t width, uint64_t height, int padding) {
    requireFormatKnown(format, "Image.create");
    requireSizeFits(format, width, height, "Image.create");
    if (padding < 0) fail("Image.create: padding must not be negative (got " + std::to_string(padding) + ")");
    auto image = std::make_shared<ZTImage>(ZTImage::create(format, static_cast<unsigned>(width),
                                                           static_cast<unsigned>(height), padding));
    if (!image->isValid()) throw std::bad_alloc();
    return adopt(std::move(image));
}

Image fromArray(py::array array, PfncFormat_ format, bool copy) {
    const char* fn = "Image.from_array";
    requireFormatKnown(format, fn);
    const std::string name = formatName(format);
    const ZTI::PixelFormatInfo& info = *ZTI::getPixelFormatInfo(format);
    const bool packed = info.packing == PixelPacking::LsbFirst || info.packing == PixelPacking::PackedPairs;
    const ArrayLayout probe = layoutOf(format, 8);  // the kind does not depend on the width here
    if ((probe.kind == ArrayLayout::Kind::Flat && !packed) || info.unpackedFormat == 0)
        fail(std::string(fn) + ": " + name + " has no array layout the library reads");

    const bool samples = probe.kind == ArrayLayout::Kind::Samples;
    const unsigned channels = samples ? probe.channels : 1;
    const size_t item = samples ? probe.itemSize : 1;
    const py::ssize_t ndim = channels > 1 ? 3 : 2;
    if (array.ndim() != ndim)
        fail(std::string(fn) + ": " + name + " needs a " + std::to_string(ndim) + "-dimensional array (" +
             (samples ? (channels > 1 ? "height, width, " + std::to_string(channels) : std::string("height, width"))
                      : std::string("height, bytes per row")) +
             "), got shape " + shapeText(array));
    if (ndim == 3 && array.shape(2) != channels)
        fail(std::string(fn) + ": " + name + " needs " + std::to_string(channels) + " channels, got shape " +
             shapeText(array));
    const bool dtypeOk = item == 2 ? py::isinstance<py::array_t<uint16_t>>(array)
                                   : py::isinstance<py::array_t<uint8_t>>(array);
    if (!dtypeOk)
        fail(std::string(fn) + ": " + name + " needs dtype " + (item == 2 ? "uint16" : "uint8") + ", got " +
             std::string(py::str(array.dtype())));

    const uint64_t height = static_cast<uint64_t>(array.shape(0));
    const uint64_t columns = static_cast<uint64_t>(array.shape(1));
    // Bytes layouts give bytes per row; the width follows from the bits per pixel.
    const uint64_t width = samples ? columns : columns * 8 / info.bitsPerPixel;
    if (!samples && columns * 8 % info.bitsPerPixel != 0)
        fail(std::string(fn) + ": " + std::to_string(columns) + " bytes per row do not hold whole " + name +
             " pixels");
    requireSizeFits(format, width, height, fn);

    const ArrayLayout layout = layoutOf(format, width);
    for (py::ssize_t i = 0; i < ndim; ++i)
        if (array.strides(i) < 0) fail(std::string(fn) + ": negative strides (shape " + shapeText(array) + ")");
    const uint64_t pixelStep = channels * item;
    if (static_cast<uint64_t>(array.strides(1)) != pixelStep || (ndim == 3 && static_cast<uint64_t>(array.strides(2)) != item))
        fail(std::string(fn) + ": the samples of a row must be adjacent: " + name + " steps " +
             std::to_string(pixelStep) + " bytes from pixel to pixel, the array " + std::to_string(array.strides(1)));
    const uint64_t rowStep = height == 1 ? layout.rowBytes : static_cast<uint64_t>(array.strides(0));
    if (rowStep < layout.rowBytes || rowStep % item != 0)
        fail(std::string(fn) + ": a row stride of " + std::to_string(rowStep) + " bytes does not fit rows of " +
             std::to_string(layout.rowBytes) + " bytes of " + name);
    const uint64_t padding = rowStep - layout.rowBytes;
    if (packed && padding != 0)
        fail(std::string(fn) + ": " + name + " pixels run on from row to row; the array's rows must be "
             "contiguous (row stride " + std::to_string(rowStep) + ", rows of " + std::to_string(layout.rowBytes) + ")");
    const uint64_t extent = rowStep * (height - 1) + layout.rowBytes;
    const auto w = static_cast<unsigned>(width), h = static_cast<unsigned>(height);

    if (copy) {
        auto image = std::make_shared<ZTImage>(ZTImage::create(format, w, h, 0));
        if (!image->isValid()) throw std::bad_alloc();
        const auto* from = static_cast<const unsigned char*>(array.data());
        unsigned char* to = image->getBuffer();
        {
            py::gil_scoped_release release;
            for (uint64_t y = 0; y < height; ++y) std::memcpy(to + y * layout.rowBytes, from + y * rowStep, layout.rowBytes);
        }
        return adopt(std::move(image));
    }
    if (!array.writeable())
        fail(std::string(fn) + ": the array is read-only; pass copy=True for an image the library may write");
    Image result;
    result.image = std::shared_ptr<ZTImage>(new ZTImage, ArrayOwner{array.inc_ref().ptr()});
    result.image->attachUserBuffer(array.mutable_data(), extent, format, w, h, padding);
    result.extent = extent;
    return result;
}

std::string repr(const Image& self) {
    const ZTImage& image = *self.image;
    if (!image.isValid() && image.getPixelType() == 0) return "<ztimage.Image empty>";
    return "<ztimage.Image " + describe(image) + ", padding " + std::to_string(image.getpaddingX()) +
           (image.isValid() ? "" : ", no pixels") + ">";
}

}  // namespace

void bindImage(py::module_& m) {
    py::class_<Image>(m, "Image", R"doc(An image: pixel format, width, height, row padding and pixel memory.

The memory comes from the library's pool (Image.create, the results of every function), from
a NumPy array (Image.from_array) or from a camera frame. ``numpy.asarray(image)`` is a view
of that memory, which stays alive as long as any such view does.

Array layout by format: (height, width) for one-sample formats, (height, width, channels)
for RGB/BGR/YUV 4:4:4 and alpha formats, dtype uint8 (8-bit) or uint16 (10- to 16-bit
samples, right-aligned); YUV 4:2:2 and packed 10/12-bit formats give their bytes as uint8
(height, bytes per row), or as one flat row of bytes when rows do not end on a byte.
Rows are ``stride`` bytes apart in memory; the padding is not part of the array.)doc")
        .def(py::init<>(), "An empty image without pixels; for instance the first destination of Converter.convert.")
        .def_static("create", &create, py::arg("format"), py::arg("width"), py::arg("height"), py::arg("padding") = 0,
                    R"doc(A new image from the library's pool; its pixels are undefined until written.

format: a PixelFormat or a plain PFNC code. width, height: at least 1. padding: bytes
after every row. Raises ValueError for an unknown format or a size the library cannot
hold, MemoryError when the memory cannot be had.)doc")
        .def_static("from_array", &fromArray, py::arg("array"), py::arg("format"), py::arg("copy") = false,
                    R"doc(An image over a NumPy array's memory, without copying.

The array must have the layout ``numpy.asarray`` gives for ``format`` (see the class help):
right shape and dtype, adjacent samples within a row, any row stride that is whole samples
(the surplus becomes row padding; packed formats need contiguous rows). The image keeps the
array alive, and writes to either show in the other. With ``copy=True`` the pixels are copied
into pool memory instead (also the way to wrap a read-only array). Raises ValueError naming
what does not fit.)doc")
        .def_property_readonly("format", [](const Image& s) { return formatObject(s.image->getPixelType()); },
                               "Pixel format: a PixelFormat member, or a plain int for a code without a name.")
        .def_property_readonly("width", [](const Image& s) { return s.image->getWidth(); }, "Pixels per row.")
        .def_property_readonly("height", [](const Image& s) { return s.image->getHeight(); }, "Rows.")
        .def_property_readonly("padding", [](const Image& s) { return s.image->getpaddingX(); },
                               "Bytes after the pixels of every row.")
        .def_property_readonly("stride", [](const Image& s) { return s.image->getStride(); },
                               "Bytes per pixel (rounded down, so 12-bit packed formats count 1) times width, "
                               "plus the padding, as the library computes it.")
        .def_property_readonly("byte_count", [](const Image& s) { return s.image->getByteCount(); },
                               "Size of the pixel memory as recorded: the packed size for pool memory, the "
                               "stated size for an array or a camera frame.")
        .def_property_readonly("is_valid", [](const Image& s) { return s.image->isValid(); },
                               "True when the image has pixel memory.")
        .def("__array__", &arrayProtocol, py::arg("dtype") = py::none(), py::arg("copy") = py::none(),
             "The pixels as a NumPy array viewing the image's memory (see the class help for the layout).")
        .def("__repr__", &repr);
}

}  // namespace ztpy

// Conversion, contrast, polarization, saving and unpacking. Every call checks beforehand what
// the library would refuse (or treat as a programming error and abort on), so that a Python
// caller gets an exception naming the function, the format and the size instead.
#include <algorithm>
#include <cctype>
#include <mutex>
#include <string>

#include "Bindings.h"

namespace ztpy {
namespace {

using ZTI::PfncFormat_;
using ZTI::ZTImage;

/// Formats some usable conversion produces: the only outputs a converter may be set to.
bool isOutputFormat(PfncFormat_ format) {
    for (const ZTI::ConversionInfo& c : ZTI::ImageConverterFactory::listConversions())
        if (c.usable && c.dst == format) return true;
    return false;
}

std::string targetsOf(PfncFormat_ src) {
    std::string list;
    for (const ZTI::ConversionInfo& c : ZTI::ImageConverterFactory::listConversions())
        if (c.usable && c.src == src) list += (list.empty() ? "" : ", ") + formatName(c.dst);
    return list.empty() ? "nothing" : list;
}

void requireOutputFormat(PfncFormat_ format, const char* function) {
    if (!isOutputFormat(format))
        fail(std::string(function) + ": no conversion produces " + formatName(format));
}

/// A converter to one output format. The mutex keeps a converter shared by Python threads to
/// one conversion at a time, as the library requires; it is taken without the GIL.
struct Converter {
    explicit Converter(PfncFormat_ format, const std::string& demosaic = "ha") {
        requireOutputFormat(format, "Converter");
        converter.setOutputFormat(format);
        if (demosaic == "quality")
            converter.setDemosaicMethod(ZTI::DemosaicMethod::Quality);
        else if (demosaic != "ha")
            fail("Converter: unknown demosaic '" + demosaic + "' (\"ha\" or \"quality\")");
    }
    ZTI::ZTImageFormatConverter converter;
    std::mutex mutex;
};

/// Converts src into dst (a fresh library image unless dst already has the result's format
/// and size, so that views of dst's old memory stay valid).
void convertInto(Converter& self, Image& dst, const Image& src, const char* fn) {
    requireValid(src, fn);
    const ZTImage& in = *src.image;
    const PfncFormat_ to = self.converter.getOutputFormat();
    if (!ZTI::ImageConverterFactory::canConvert(to, in.getPixelType()))
        fail(std::string(fn) + ": no conversion from " + formatName(in.getPixelType()) + " to " + formatName(to) +
             "; " + formatName(in.getPixelType()) + " converts to: " + targetsOf(in.getPixelType()));
    const ZTI::PixelFormatInfo* info = ZTI::getPixelFormatInfo(in.getPixelType());
    if (info != nullptr && info->channels == 2 && in.getWidth() % 2 != 0)
        fail(std::string(fn) + ": " + describe(in) + " has an odd width; 4:2:2 pixels come in pairs");
    if (dst.image->getPixelType() != to || dst.image->getWidth() != in.getWidth() ||
        dst.image->getHeight() != in.getHeight() || !dst.image->isValid() || dst.image == src.image)
        dst.image = std::make_shared<ZTImage>();
    std::shared_ptr<ZTImage> out = dst.image, source = src.image;
    int status;
    {
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(self.mutex);
        status = self.converter.convert(*out, *source);
    }
    refreshExtent(dst);
    if (status != 0)
        fail(std::string(fn) + ": " + formatName(to) + " <- " + describe(in) +
             " failed: an image holds less memory than its rows span");
}

py::object convertMethod(Converter& self, const Image& src, py::object dst) {
    if (dst.is_none()) dst = py::cast(Image());
    convertInto(self, dst.cast<Image&>(), src, "Converter.convert");
    return dst;
}

Image convertFunction(const Image& src, PfncFormat_ format) {
    requireValid(src, "convert");
    Converter converter(format);
    Image dst;
    convertInto(converter, dst, src, "convert");
    return dst;
}

/// Runs one of the library's processing functions on the pixels without the GIL and raises
/// when it reports failure.
template <typename Call>
Image process(const Image& src, const char* fn, Call call) {
    requireValid(src, fn);
    auto out = std::make_shared<ZTImage>();
    std::shared_ptr<ZTImage> in = src.image;
    int status;
    {
        py::gil_scoped_release release;
        status = call(*in, *out);
    }
    if (status != 0 || !out->isValid())
        fail(std::string(fn) + ": " + describe(*in) + " failed: the image holds less memory than its rows span");
    return adopt(std::move(out));
}

void requireUnpadded(const Image& src, const char* fn) {
    if (src.image->getpaddingX() != 0)
        fail(std::string(fn) + ": " + describe(*src.image) + " has row padding " +
             std::to_string(src.image->getpaddingX()) + "; this function reads rows packed, so give it none");
}

Image histStretch(const Image& src, unsigned low, unsigned high) {
    const char* fn = "hist_stretch";
    requireValid(src, fn);
    const PfncFormat_ format = src.image->getPixelType();
    if (format != ZTI::Mono8 && format != ZTI::Mono12 && format != ZTI::Mono12Packed && format != ZTI::Mono12p)
        fail(std::string(fn) + ": " + describe(*src.image) + " is not Mono8, Mono12, Mono12Packed or Mono12p");
    requireUnpadded(src, fn);
    const bool packed = format == ZTI::Mono12Packed || format == ZTI::Mono12p;
    return process(src, fn, [&](ZTImage& in, ZTImage& out) {
        // Packed formats are stretched in place in the destination, which starts as a copy.
        if (packed) {
            out = ZTImage(format, in.getWidth(), in.getHeight(), 0, in.getBuffer());
        } else {
            out = ZTImage::create(format, in.getWidth(), in.getHeight(), 0);
        }
        return out.isValid() ? ZTI::histStretch(in, out, low, high) : -1;
    });
}

Image histEqual(const Image& src) {
    const char* fn = "hist_equal";
    requireValid(src, fn);
    const PfncFormat_ format = src.image->getPixelType();
    const ZTI::PixelFormatInfo* info = ZTI::getPixelFormatInfo(format);
    if (ZTI::getBitsPerPixel(format) != 8 || info == nullptr || info->channels != 1)
        fail(std::string(fn) + ": " + describe(*src.image) + " is not an 8-bit one-channel image (Mono8, BayerXX8)");
    requireUnpadded(src, fn);
    return process(src, fn, [&](ZTImage& in, ZTImage& out) {
        out = ZTImage::create(format, in.getWidth(), in.getHeight(), 0);
        return out.isValid() ? ZTI::histEqual(in, out) : -1;
    });
}

/// Sources of the polarization functions: Mono8, or a format that converts to it.
void requirePolarSource(const Image& src, const char* fn, bool evenSize) {
    requireValid(src, fn);
    const ZTImage& in = *src.image;
    const PfncFormat_ format = in.getPixelType();
    if (format != ZTI::Mono8 && !ZTI::ImageConverterFactory::canConvert(ZTI::Mono8, format))
        fail(std::string(fn) + ": " + describe(in) + " has no conversion to Mono8");
    if (in.getWidth() < 2 || in.getHeight() < 2 || (evenSize && (in.getWidth() % 2 || in.getHeight() % 2)))
        fail(std::string(fn) + ": " + describe(in) + ": polarized frames need an even width and height of at least 2");
}

using PolarFunction = int (*)(const ZTImage&, ZTImage&);

void bindPolarProduct(py::module_& m, const char* name, PolarFunction function, const char* doc) {
    m.def(
        name,
        [name, function](const Image& src) {
            requirePolarSource(src, name, true);
            return process(src, name, [&](ZTImage& in, ZTImage& out) { return function(in, out); });
        },
        py::arg("src"), doc);
}

Image heatmap(const Image& src, unsigned low, unsigned high, unsigned lowColor, unsigned highColor) {
    requirePolarSource(src, "heatmap", true);
    return process(src, "heatmap", [&](ZTImage& in, ZTImage& out) {
        return ZTI::CreateHeatmap(in, out, low, high, lowColor, highColor);
    });
}

Image extractQuadrant(const Image& src, int quadrant) {
    if (quadrant < 0 || quadrant > 3)
        fail("extract_quadrant: quadrant " + std::to_string(quadrant) + " is not 0..3 (PolarizationQuadrant)");
    requirePolarSource(src, "extract_quadrant", false);
    return process(src, "extract_quadrant", [&](ZTImage& in, ZTImage& out) {
        return ZTI::ExtractPolarQuadrant(in, out, static_cast<ZTI::PolarizationQuadrant>(quadrant));
    });
}

Image fullQuadrants(const Image& src) {
    requirePolarSource(src, "full_quadrants", true);
    if (src.image->getPixelType() == ZTI::Mono8) requireUnpadded(src, "full_quadrants");
    return process(src, "full_quadrants", [](ZTImage& in, ZTImage& out) { return ZTI::ExtractFullPolarQuadrant(in, out); });
}

Image fullQuadrantsRaw(const Image& src) {
    const char* fn = "full_quadrants_raw";
    requireValid(src, fn);
    const ZTImage& in = *src.image;
    const ZTI::PixelFormatInfo* info = ZTI::getPixelFormatInfo(in.getPixelType());
    if (info == nullptr || info->packing != ZTI::PixelPacking::None || info->channels != 1 ||
        (info->containerBits != 8 && info->containerBits != 16))
        fail(std::string(fn) + ": " + describe(in) + " is not a one-sample 8- or 16-bit format");
    if (in.getWidth() < 2 || in.getHeight() < 2 || in.getWidth() % 2 || in.getHeight() % 2)
        fail(std::string(fn) + ": " + describe(in) + ": polarized frames need an even width and height of at least 2");
    requireUnpadded(src, fn);
    return process(src, fn, [](ZTImage& i, ZTImage& out) { return ZTI::extractFullPolarQuadrant(i, out); });
}

ZTI::ImageFileFormat fileFormatOfPath(const std::string& path) {
    const size_t dot = path.find_last_of('.');
    const size_t slash = path.find_last_of('/');
    std::string ext = dot == std::string::npos || (slash != std::string::npos && dot < slash) ? "" : path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    if (ext == "png") return ZTI::Png;
    if (ext == "tif" || ext == "tiff") return ZTI::Tiff;
    if (ext == "bmp") return ZTI::Bmp;
    if (ext == "jpg" || ext == "jpeg") return ZTI::Jpeg;
    if (ext == "pgm" || ext == "ppm" || ext == "pnm") return ZTI::Pnm;
    fail("save: no file format for the extension of '" + path + "' (.png .tif .tiff .bmp .jpg .jpeg .pgm .ppm .pnm)");
}

void save(const Image& image, py::object pathObject, py::object fileFormat) {
    const std::string path = py::str(py::module_::import("os").attr("fspath")(pathObject));
    requireValid(image, "save");
    const ZTI::ImageFileFormat format =
        fileFormat.is_none() ? fileFormatOfPath(path) : static_cast<ZTI::ImageFileFormat>(fileFormat.cast<int>());
    if (format < ZTI::Bmp || format > ZTI::Pnm)
        fail("save: file format " + std::to_string(static_cast<int>(format)) + " is not an ImageFileFormat");
    const PfncFormat_ pixels = image.image->getPixelType();
    if (!ZTI::ImagePersistence::canSave(format, pixels))
        fail("save: " + describe(*image.image) + " cannot be saved as " +
             std::string(py::str(py::module_::import("ztimage").attr("ImageFileFormat")(static_cast<int>(format)))));
    std::shared_ptr<ZTImage> in = image.image;
    std::string error;
    bool saved;
    {
        py::gil_scoped_release release;
        saved = ZTI::ImagePersistence::trySave(format, *in, path.c_str(), error);
    }
    // The checks above leave only failures of the file system.
    if (!saved) {
        PyErr_SetString(PyExc_OSError, ("save: " + error).c_str());
        throw py::error_already_set();
    }
}

/// unpack10 / unpack12: packed camera bytes to a (height, width) uint16 array.
py::array_t<uint16_t> unpack(py::object data, PfncFormat_ format, int64_t width, int64_t height, unsigned bits) {
    const char* fn = bits == 10 ? "unpack10" : "unpack12";
    const ZTI::PixelFormatInfo* info = ZTI::getPixelFormatInfo(format);
    const bool accepted = info != nullptr && info->channels == 1 && info->bitsPerChannel == bits &&
                          (info->packing == ZTI::PixelPacking::LsbFirst || info->packing == ZTI::PixelPacking::PackedPairs);
    if (!accepted) fail(std::string(fn) + ": " + formatName(format) + " is not a packed " + std::to_string(bits) +
                        "-bit mono or Bayer format");
    const int64_t pixels = width * height;
    if (width < 1 || height < 1 || pixels > INT32_MAX)
        fail(std::string(fn) + ": " + std::to_string(width) + " x " + std::to_string(height) +
             " is not a size the unpacker takes (1 to 2^31 - 1 pixels)");
    py::array_t<uint8_t> bytes = py::module_::import("numpy").attr("frombuffer")(data, "uint8");
    const uint64_t needed = bits == 10 ? (10 * static_cast<uint64_t>(pixels) + 7) / 8 : 3 * (static_cast<uint64_t>(pixels) / 2);
    if (static_cast<uint64_t>(bytes.size()) < needed)
        fail(std::string(fn) + ": " + std::to_string(bytes.size()) + " bytes hold too little for " + formatName(format) +
             " " + std::to_string(width) + " x " + std::to_string(height) + ", which needs " + std::to_string(needed));
    py::array_t<uint16_t> out({height, width});
    // An odd 12-bit pixel count leaves the last pixel unwritten: it reads 0, not old memory.
    std::fill_n(out.mutable_data(), pixels, uint16_t{0});
    auto* src = const_cast<unsigned char*>(bytes.data());
    auto* dst = reinterpret_cast<unsigned char*>(out.mutable_data());
    {
        py::gil_scoped_release release;
        (bits == 10 ? unpack10BitsPixelBuffer : unpack12BitsPixelBuffer)(format, static_cast<int>(width),
                                                                         static_cast<int>(height), src, dst);
    }
    return out;
}

}  // namespace

void bindProcessing(py::module_& m) {
    py::class_<Converter>(m, "Converter", R"doc(Converts images into one output format.

A converter remembers the conversions it has made, so a stream of frames through one converter
sets nothing up after the first frame; with a ``dst`` that already has the result's format and
size, the conversion writes into dst's memory and allocates nothing. Use one converter per
thread (a shared one converts one frame at a time).)doc")
        .def(py::init<PfncFormat_, const std::string&>(), py::arg("format"), py::arg("demosaic") = "ha",
             R"doc(A converter to ``format``. ``demosaic`` chooses how Bayer frames are demosaiced:
"ha" (Hamilton-Adams, the default) or "quality" (residual interpolation: finer detail and
colour edges, many times slower); the scaling to the output depth is the same for both.
Raises ValueError when no conversion produces that format or the demosaic is unknown.)doc")
        .def_property_readonly("demosaic",
                               [](const Converter& c) {
                                   return c.converter.demosaicMethod() == ZTI::DemosaicMethod::Quality ? "quality" : "ha";
                               },
                               "The demosaic of Bayer conversions: \"ha\" or \"quality\".")
        .def_property_readonly("format", [](const Converter& c) { return formatObject(c.converter.getOutputFormat()); },
                               "The output format.")
        .def("convert", &convertMethod, py::arg("src"), py::arg("dst") = py::none(),
             R"doc(Converts ``src`` into the output format and returns the result.

With ``dst`` given, the result goes into it and dst is returned: into its own memory when
it already has the output format and src's size (arrays viewing dst then show the new
frame), otherwise into new memory (arrays of the old memory keep it). Equal formats give a
copy. Raises ValueError when src has no pixels, when no conversion exists (naming what the
source converts to), or when an image holds less memory than its rows span.)doc");

    m.def("convert", &convertFunction, py::arg("src"), py::arg("format"),
          "``src`` converted to ``format`` as a new image (see Converter.convert).");
    m.def("hist_stretch", &histStretch, py::arg("src"), py::arg("low"), py::arg("high"),
          R"doc(Contrast stretch: [low, high] onto the format's full range, as a new image of src's format.

Takes Mono8 (out 0..255) and Mono12, Mono12Packed, Mono12p (out 0..4095); a value v becomes
clamp(trunc((v - low) / (high - low) * max), 0, max). high == low makes a step at low;
low > high inverts. Raises ValueError for other formats and for row padding.)doc");
    m.def("hist_equal", &histEqual, py::arg("src"),
          "Histogram equalization (OpenCV's equalizeHist) of an 8-bit one-channel image (Mono8, 8-bit "
          "Bayer), as a new image of src's format. Raises ValueError for other formats and for row padding.");

    const char* polarNote = " Takes a polarized-sensor frame (Mono8, or a format that converts to it) of even "
                            "width and height; returns Mono8 of the frame's size.";
    struct Product { const char* name; PolarFunction function; std::string doc; };
    const Product products[] = {
        {"stokes_s0", &ZTI::CreateStokesS0, "Stokes S0 / 2, the total intensity halved."},
        {"stokes_s1", &ZTI::CreateStokesS1, "Stokes S1 = I0 - I90 as (S1 + 255) / 2, so 128 means 0."},
        {"stokes_s2", &ZTI::CreateStokesS2, "Stokes S2 = I45 - I135 as (S2 + 255) / 2, so 128 means 0."},
        {"dolp", &ZTI::CreateDolp, "Degree of linear polarization times 255."},
        {"aolp", &ZTI::CreateAolp, "Angle of linear polarization as 255 (AoLP + pi/2) / pi."},
        {"glare_reduced", &ZTI::CreateGlareReduced, "The least intensity over all polarizer angles, (S0 - sqrt(S1^2 + S2^2)) / 2."},
    };
    for (const Product& p : products) {
        const std::string doc = p.doc + polarNote;  // pybind11 keeps its own copy
        bindPolarProduct(m, p.name, p.function, doc.c_str());
    }
    m.def("heatmap", &heatmap, py::arg("src"), py::arg("low") = 0, py::arg("high") = 100, py::arg("low_color") = 1,
          py::arg("high_color") = 5,
          R"doc(A colour map of the degree of linear polarization, as RGB8 of the frame's size.

low, high: DoLP range in percent; at or below low a pixel gets low_color, at or above high
high_color, linear in between through every palette entry on the way. Palette: 0 black,
1 blue, 2 cyan, 3 green, 4 yellow, 5 red, 6 white.)doc");
    m.def("extract_quadrant", &extractQuadrant, py::arg("src"), py::arg("quadrant"),
          "The samples behind one polarizer angle (PolarizationQuadrant) as Mono8 of half the frame's width "
          "and height.");
    m.def("full_quadrants", &fullQuadrants, py::arg("src"),
          "The four polarizer planes tiled into Mono8 of the frame's size: I90 top left, I45 top right, I135 "
          "bottom left, I0 bottom right.");
    m.def("full_quadrants_raw", &fullQuadrantsRaw, py::arg("src"),
          "The same tiling as full_quadrants in the frame's own format and depth, by plain copying (one-sample "
          "8- or 16-bit formats, no row padding).");
    m.def("save", &save, py::arg("image"), py::arg("path"), py::arg("file_format") = py::none(),
        R"doc(Writes ``image`` to the file ``path`` (str or path-like).

file_format: an ImageFileFormat, or None to take it from the extension (.png .tif .tiff .bmp
.jpg .jpeg .pgm .ppm .pnm). Colour images are written as 8-bit colour, or 16-bit for PNG,
TIFF and PNM when deeper; mono images likewise as grey. The file appears complete or not at
all. Raises ValueError for an image or extension that cannot be saved, OSError when writing
fails.)doc");
    m.def(
        "unpack10", [](py::object data, PfncFormat_ format, int64_t width, int64_t height) {
            return unpack(data, format, width, height, 10);
        },
        py::arg("data"), py::arg("format"), py::arg("width"), py::arg("height"),
        R"doc(Unpacks packed 10-bit camera bytes into a (height, width) uint16 array.

data: bytes-like (bytes, bytearray, a uint8 array ...), one continuous stream of five-byte
groups of four pixels, most significant bits first. format: a packed 10-bit mono or Bayer
code (Mono10p, Mono10Packed, BayerRG10p ...).)doc");
    m.def(
        "unpack12", [](py::object data, PfncFormat_ format, int64_t width, int64_t height) {
            return unpack(data, format, width, height, 12);
        },
        py::arg("data"), py::arg("format"), py::arg("width"), py::arg("height"),
        R"doc(Unpacks packed 12-bit camera bytes into a (height, width) uint16 array.

Pairs of pixels in three bytes: least significant bits first for the "p" codes (Mono12p,
BayerRG12p ...), GigE Vision packing for the "Packed" codes (Mono12Packed ...). For an odd
pixel count the last pixel is not in the data and reads 0.)doc");
}

}  // namespace ztpy

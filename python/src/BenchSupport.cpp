// The C++ side of the module's benchmark: the same conversion call as Converter.convert,
// repeated in a C++ loop, so that the Python per-call overhead can be measured against it in
// the same process, on the same images.
#include <chrono>

#include "Bindings.h"

namespace ztpy {

void bindBenchSupport(py::module_& m) {
    m.def(
        "_convert_loop",
        [](ZTI::PfncFormat_ format, const Image& src, Image& dst, int64_t count) {
            requireValid(src, "_convert_loop");
            // A destination already shaped by Converter.convert: the loop never reallocates it.
            if (dst.image->getPixelType() != format || dst.image->getWidth() != src.image->getWidth() ||
                dst.image->getHeight() != src.image->getHeight() || !dst.image->isValid())
                fail("_convert_loop: dst must already hold the result's format and size");
            ZTI::ZTImageFormatConverter converter;
            converter.setOutputFormat(format);
            std::shared_ptr<ZTI::ZTImage> in = src.image, out = dst.image;
            py::gil_scoped_release release;
            if (converter.convert(*out, *in) != 0) throw std::runtime_error("_convert_loop: conversion failed");
            const auto start = std::chrono::steady_clock::now();
            for (int64_t i = 0; i < count; ++i) converter.convert(*out, *in);
            return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        },
        py::arg("format"), py::arg("src"), py::arg("dst"), py::arg("count"),
        "Benchmark helper: seconds for ``count`` C++ conversions of src into dst (after one untimed call).");
}

}  // namespace ztpy

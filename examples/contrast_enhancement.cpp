// Improves the contrast of a dim 12-bit mono frame two ways: a linear stretch of a chosen
// sample range, and histogram equalization of its 8-bit version.
//
//   contrast_enhancement [OUTPUT_DIR]
#include <cstdint>
#include <cstdio>
#include <string>

#include "ZTImageLib.h"

namespace {

bool save(const ZTI::ZTImage& image, const std::string& path) {
    std::string error;
    if (ZTI::ImagePersistence::trySave(ZTI::Png, image, path.c_str(), error)) return true;
    std::fprintf(stderr, "%s\n", error.c_str());
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string directory = argc > 1 ? argv[1] : ".";
    const unsigned int width = 320, height = 240;

    // A dim Mono12 frame: samples between 600 and 1400 of 4095.
    ZTI::ZTImage mono12 = ZTI::ZTImage::create(ZTI::Mono12, width, height);
    auto* samples = reinterpret_cast<uint16_t*>(mono12.getBuffer());
    for (unsigned int y = 0; y < height; ++y) {
        for (unsigned int x = 0; x < width; ++x) samples[y * width + x] = static_cast<uint16_t>(600 + (x * 5 + y * 3) % 800);
    }

    // Stretch 600..1400 onto 0..4095. The destination must already have the source's format
    // and size.
    ZTI::ZTImage stretched = ZTI::ZTImage::create(ZTI::Mono12, width, height);
    if (ZTI::histStretch(mono12, stretched, 600, 1400) != 0) return 1;

    // Equalization works on 8-bit images: convert first.
    ZTI::ZTImageFormatConverter toMono8;
    toMono8.setOutputFormat(ZTI::Mono8);
    ZTI::ZTImage mono8, equalized = ZTI::ZTImage::create(ZTI::Mono8, width, height);
    if (toMono8.convert(mono8, mono12) != 0 || ZTI::histEqual(mono8, equalized) != 0) return 1;

    // A Mono12 image is written as a 16-bit PNG; PNG viewers show 12-bit samples dark, so the
    // stretched image is saved as Mono8 as well.
    ZTI::ZTImage stretched8;
    if (toMono8.convert(stretched8, stretched) != 0) return 1;
    if (!save(mono8, directory + "/original.png") || !save(stretched8, directory + "/stretched.png") ||
        !save(equalized, directory + "/equalized.png")) {
        return 1;
    }
    std::printf("wrote original.png, stretched.png and equalized.png to %s\n", directory.c_str());
    return 0;
}

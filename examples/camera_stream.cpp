// Streams camera frames through a conversion and saves the last one.
//
// A camera library hands over each frame as a ZTGrabResultPtr. attachGrabResult turns it into
// an image: packed 10- and 12-bit frames are unpacked to 16-bit samples, other formats are
// viewed in the camera's memory without a copy. One ZTImageFormatConverter converts the whole
// stream, into a destination that keeps its memory from frame to frame. Colour (Bayer)
// frames go the same way, with RGB8 as the output format.
//
//   camera_stream [OUTPUT_DIR]
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ZTImageLib.h"

namespace {

// Stands in for a camera: a Mono12p frame (two 12-bit pixels in three bytes, low bits first)
// of a moving gradient, in memory that the frame owns until its last handle is dropped.
ZTI::ZTGrabResultPtr grabFrame(unsigned int width, unsigned int height, unsigned int index) {
    auto* bytes = new std::vector<unsigned char>(ZTI::getPackedByteCount(ZTI::Mono12p, width, height));
    for (unsigned int y = 0; y < height; ++y) {
        for (unsigned int x = 0; x < width; x += 2) {
            const unsigned int a = (x * 4095 / width + index * 64) % 4096, b = y * 4095 / height;
            unsigned char* p = bytes->data() + (size_t{y} * width + x) * 3 / 2;
            p[0] = static_cast<unsigned char>(a & 0xFF);
            p[1] = static_cast<unsigned char>((a >> 8) | ((b & 0x0F) << 4));
            p[2] = static_cast<unsigned char>(b >> 4);
        }
    }
    return ZTI::createGrabResult(ZTI::Mono12p, width, height, 0, bytes->data(), bytes->size(),
                                 [bytes]() { delete bytes; });
}

}  // namespace

int main(int argc, char** argv) {
    const std::string directory = argc > 1 ? argv[1] : ".";
    const unsigned int width = 320, height = 240;

    ZTI::ZTImageFormatConverter converter;
    converter.setOutputFormat(ZTI::Mono8);
    ZTI::ZTImage frame, converted;
    for (unsigned int i = 0; i < 10; ++i) {
        frame.attachGrabResult(grabFrame(width, height, i));  // unpacked to Mono12
        if (converter.convert(converted, frame) != 0) {
            std::fprintf(stderr, "no conversion from %s to Mono8\n", ZTI::getPixelFormatName(frame.getPixelType()));
            return 1;
        }
    }

    // The codec is chosen by the extension; nothing is left at the path on failure.
    const std::string path = directory + "/last-frame.png";
    std::string error;
    if (!ZTI::ImagePersistence::trySave(ZTI::Png, converted, path.c_str(), error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    std::printf("%s: %u x %u %s\n", path.c_str(), converted.getWidth(), converted.getHeight(),
                ZTI::getPixelFormatName(converted.getPixelType()));
    return 0;
}

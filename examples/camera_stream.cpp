// Streams frames from a camera through a conversion and saves the last one.
//
// The camera library hands over each frame as a ZTGrabResultPtr; here a virtual camera of the
// camera library plays the part of a real one. attachGrabResult turns a frame into an image:
// packed 10- and 12-bit frames are unpacked to 16-bit samples (and the frame goes back to the
// camera at once), other formats are viewed in the camera's memory without a copy. One
// ZTImageFormatConverter converts the whole stream, into a destination that keeps its memory
// from frame to frame.
//
//   camera_stream [OUTPUT_DIR]
#include <cstdio>
#include <memory>
#include <string>

#include "VirtualCamera.h"
#include "ZTImageLib.h"

int main(int argc, char** argv) {
    const std::string directory = argc > 1 ? argv[1] : ".";

    // A colour camera delivering 12-bit Bayer frames, two pixels in three bytes.
    ZTI::VirtualCameraConfig config;
    config.pixelType = ZTI::BayerRG12p;
    config.width = 320;
    config.height = 240;
    std::string error;
    std::unique_ptr<ZTI::VirtualCamera> camera = ZTI::VirtualCamera::open(config, &error);
    if (!camera) {
        std::fprintf(stderr, "cannot open the camera: %s\n", error.c_str());
        return 1;
    }

    ZTI::ZTImageFormatConverter converter;
    converter.setOutputFormat(ZTI::RGB8);
    ZTI::ZTImage frame, rgb;
    for (int i = 0; i < 10; ++i) {
        ZTI::ZTGrabResultPtr grab = camera->grab();  // empty when every frame buffer is in use
        if (!grab) continue;
        frame.attachGrabResult(grab);  // unpacked to BayerRG12
        if (converter.convert(rgb, frame) != 0) {  // demosaiced
            std::fprintf(stderr, "no conversion from %s to RGB8\n", ZTI::getPixelFormatName(frame.getPixelType()));
            return 1;
        }
    }

    // The codec is chosen by the extension; nothing is left at the path on failure.
    const std::string path = directory + "/last-frame.png";
    if (!ZTI::ImagePersistence::trySave(ZTI::Png, rgb, path.c_str(), error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    std::printf("%s: %u x %u %s\n", path.c_str(), rgb.getWidth(), rgb.getHeight(),
                ZTI::getPixelFormatName(rgb.getPixelType()));
    return 0;
}

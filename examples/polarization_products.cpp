// Polarization products of a polarized-sensor frame: Stokes S0, degree and angle of linear
// polarization, a glare-reduced image, a heat map and the four polarizer-angle planes.
//
// Every 2 x 2 cell of the sensor holds the polarizer angles 90, 45 (top row) and 135, 0
// (bottom row). The functions take any format that converts to Mono8.
//
//   polarization_products [OUTPUT_DIR]
#include <cmath>
#include <cstdio>
#include <string>

#include "PolarizationProducts.h"
#include "ZTImageLib.h"

int main(int argc, char** argv) {
    const std::string directory = argc > 1 ? argv[1] : ".";
    const unsigned int width = 320, height = 240;
    const double pi = 3.14159265358979323846;

    // Light polarized at an angle that turns across the frame, more strongly towards the
    // bottom: behind a polarizer at theta the intensity is S0 / 2 (1 + DoLP cos 2 (theta - AoLP)).
    ZTI::ZTImage mosaic = ZTI::ZTImage::create(ZTI::Mono8, width, height);
    unsigned char* pixels = mosaic.getBuffer();
    const double angles[2][2] = {{90, 45}, {135, 0}};
    for (unsigned int y = 0; y < height; ++y) {
        for (unsigned int x = 0; x < width; ++x) {
            const double aolp = 180.0 * x / width, dolp = double(y) / height, s0 = 400;
            const double theta = angles[y % 2][x % 2];
            pixels[y * width + x] =
                static_cast<unsigned char>(std::lround(s0 / 2 * (1 + dolp * std::cos(2 * (theta - aolp) * pi / 180)) / 2));
        }
    }

    struct Product {
        const char* file;
        int (*create)(const ZTI::ZTImage&, ZTI::ZTImage&);
    };
    const Product products[] = {
        {"s0.png", &ZTI::CreateStokesS0},         {"dolp.png", &ZTI::CreateDolp},
        {"aolp.png", &ZTI::CreateAolp},           {"glare.png", &ZTI::CreateGlareReduced},
        {"quadrants.png", &ZTI::ExtractFullPolarQuadrant},
    };
    ZTI::ZTImage result;
    std::string error;
    for (const Product& product : products) {
        const std::string path = directory + "/" + product.file;
        if (product.create(mosaic, result) != 0 || !ZTI::ImagePersistence::trySave(ZTI::Png, result, path.c_str(), error)) {
            std::fprintf(stderr, "%s failed %s\n", product.file, error.c_str());
            return 1;
        }
    }
    // Heat map of the degree of polarization: 0 % blue (palette index 1) to 100 % red (5).
    const std::string heatmap = directory + "/heatmap.png";
    if (ZTI::CreateHeatmap(mosaic, result, 0, 100, 1, 5) != 0 ||
        !ZTI::ImagePersistence::trySave(ZTI::Png, result, heatmap.c_str(), error)) {
        std::fprintf(stderr, "heat map failed %s\n", error.c_str());
        return 1;
    }
    std::printf("wrote s0, dolp, aolp, glare, quadrants and heatmap PNGs to %s\n", directory.c_str());
    return 0;
}

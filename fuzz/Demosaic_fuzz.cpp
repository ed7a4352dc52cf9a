// Fuzz target: the demosaic library's two demosaics (HamiltonAdams and QualityDemosaic, same
// contract) on small random mosaics of every depth and pattern (also invalid ones), and the
// Bayer converter objects with destinations of any shape and either method. Buffers are
// exactly as large as the demosaic library's interface says.
#include <cstdlib>

#include <HamiltonAdams.h>
#include <QualityDemosaic.h>

#include "FuzzInput.h"

using namespace ZTI;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::FuzzInput in(data, size);
    const int rows = static_cast<int>(in.below(26)) - 1, cols = static_cast<int>(in.below(26)) - 1;
    const int bitDepth = static_cast<int>(in.below(19)) - 1;
    static const char* const kPatterns[] = {"RGGB", "BGGR", "GRBG", "GBRG", "", "RGB", "RGGBX", "rggb", nullptr};
    const char* pattern = in.pick(kPatterns);

    const size_t pixels = rows > 0 && cols > 0 ? static_cast<size_t>(rows) * static_cast<size_t>(cols) : 0;
    fuzz::Memory input(2 * pixels), output(6 * pixels);
    in.fill(input.data(), input.size);
    const std::vector<unsigned char> before(input.block);
    const bool nullBuffers = pixels == 0 && !in.flag();
    for (auto demosaic : {HamiltonAdams, QualityDemosaic}) {
        if (!nullBuffers)
            demosaic(reinterpret_cast<unsigned short*>(input.data()), reinterpret_cast<unsigned short*>(output.data()),
                     rows, cols, bitDepth, pattern);
        if (input.block != before) std::abort();  // the input is never written
        // Every output sample lies within the depth (zeros for a depth or pattern it refuses).
        if (pixels != 0) {
            const unsigned limit = bitDepth >= 1 && bitDepth <= 16 ? (1u << bitDepth) - 1 : 0;
            for (size_t i = 0; i < 3 * pixels; ++i) {
                uint16_t v;
                std::memcpy(&v, output.data() + 2 * i, 2);
                if (v > limit) std::abort();
            }
        }
    }

    // The converter objects on a Bayer image, the destination of any format among theirs and
    // any size: they must write into it only when it has the source's shape.
    static const PfncFormat_ kBayer[] = {BayerRG8, BayerGB10, BayerGR12, BayerBG16};
    static const PfncFormat_ kOutputs[] = {RGB8, RGB16, Mono8, Mono16};
    const PfncFormat_ source = in.pick(kBayer), output8 = in.pick(kOutputs);
    std::unique_ptr<fuzz::Memory> memory;
    ZTImage src;
    const uint32_t width = in.below(20), height = in.below(20), padding = in.below(5);
    if (!fuzz::makeImage(in, source, width, height, padding, memory, src)) return 0;
    const uint32_t dstWidth = in.flag() ? width : in.below(20);
    const uint32_t dstHeight = in.flag() ? height : in.below(20);
    const int dstPadding = static_cast<int>(in.below(3) * 2);
    ZTImage dst = ZTImage::create(output8, dstWidth, dstHeight, dstPadding);
    const DemosaicMethod method = in.flag() ? DemosaicMethod::Quality : DemosaicMethod::HamiltonAdams;
    try {
        if (output8 == RGB8 || output8 == RGB16)
            Bayer2Rgb().convert(dst, src, method);
        else
            Bayer2Mono().convert(dst, src, method);
    } catch (const cv::Exception&) {
    }
    return 0;
}

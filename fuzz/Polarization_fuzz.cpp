// Fuzz target: every polarization function on random mosaics: formats that convert to Mono8
// and some that do not, odd and tiny sizes, row paddings and memory of any size; the
// destination fresh, reused, or the source itself.
#include <climits>
#include <cstdlib>

#include "FuzzInput.h"

using namespace ZTI;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::FuzzInput in(data, size);
    static const PfncFormat_ kFormats[] = {Mono8, Mono8, Mono8, Mono12, Mono16, BayerRG8, RGB8, YUV422_8, Mono12p, 0};
    const PfncFormat_ format = in.below(10) == 0 ? fuzz::anyFormat(in) : in.pick(kFormats);
    const uint32_t width = fuzz::dimension(in, 40), height = fuzz::dimension(in, 40);
    static const uint64_t kPaddings[] = {0, 0, 0, 1, 2, 5, ULONG_MAX - 40};
    const uint64_t padding = in.pick(kPaddings);
    std::unique_ptr<fuzz::Memory> memory;
    ZTImage src;
    // Sources whose conversion to Mono8 is a listed pair without colour code (deep RGB and
    // BGR) abort in that conversion by design.
    if (!ImageConverterFactory::canConvert(Mono8, format) && ImageConverterFactory().createConverter(Mono8, format))
        return 0;
    if (!fuzz::makeImage(in, format, width, height, padding, memory, src)) return 0;

    const int function = in.below(11);
    const int dstMode = in.below(3);  // 0: fresh, 1: an image with memory of its own, 2: the source
    ZTImage other = dstMode == 1 ? ZTImage::create(Mono8, 3, 3, 1) : ZTImage();
    ZTImage& dst = dstMode == 2 ? src : other;
    const ZTImage before = dst;
    int result = 0;
    // The conversion to Mono8 lets OpenCV's errors through (a 16-bit source whose padding
    // splits a sample), and so do the functions.
    try {
        switch (function) {
            case 0: result = CreateStokesS0(src, dst); break;
            case 1: result = CreateStokesS1(src, dst); break;
            case 2: result = CreateStokesS2(src, dst); break;
            case 3: result = CreateDolp(src, dst); break;
            case 4: result = CreateAolp(src, dst); break;
            case 5: result = CreateGlareReduced(src, dst); break;
            case 6: {
                const unsigned low = in.dword(), high = in.dword(), lowColor = in.below(8), highColor = in.below(8);
                result = CreateHeatmap(src, dst, low, high, lowColor, highColor);
                break;
            }
            case 7: {
                const auto quadrant = static_cast<PolarizationQuadrant>(static_cast<int>(in.below(6)) - 1);
                result = ExtractPolarQuadrant(src, dst, quadrant);
                break;
            }
            case 8: result = ExtractFullPolarQuadrant(src, dst); break;
            default: result = extractFullPolarQuadrant(src, dst); break;
        }
    } catch (const cv::Exception&) {
        return 0;
    }
    if (result != 0 && result != -1) std::abort();
    if (result == 0) fuzz::touchLastRow(dst);  // the result's last row exists
    // Functions that promise to leave the destination alone on failure do so.
    if (result == -1 && function <= 7 && dstMode == 1 && dst.getBuffer() != nullptr &&
        (dst.getWidth() != before.getWidth() || dst.getPixelType() != before.getPixelType()))
        std::abort();
    return 0;
}

// Fuzz target: histStretch and histEqual on random formats, sizes, ranges and memory, with the
// destination the source itself, a copy, a fresh image or a caller's buffer of any size.
#include <climits>

#include "FuzzInput.h"

using namespace ZTI;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::FuzzInput in(data, size);
    static const PfncFormat_ kFormats[] = {Mono8, Mono12, Mono12Packed, Mono12p, Mono16, BayerRG8, RGB8, 0};
    const PfncFormat_ format = in.below(8) == 0 ? fuzz::anyFormat(in) : in.pick(kFormats);
    const uint32_t width = fuzz::dimension(in, 64), height = fuzz::dimension(in, 48);
    static const uint64_t kPaddings[] = {0, 0, 1, 3, 8, ULONG_MAX - 40};
    const uint64_t padding = in.pick(kPaddings);
    static const unsigned kLevels[] = {0, 1, 50, 100, 255, 256, 4095, 4096, 65535, UINT_MAX};
    const unsigned low = in.flag() ? in.pick(kLevels) : in.dword();
    const unsigned high = in.flag() ? in.pick(kLevels) : in.dword();

    std::unique_ptr<fuzz::Memory> srcMemory, dstMemory;
    ZTImage src, dst;
    if (!fuzz::makeImage(in, format, width, height, padding, srcMemory, src)) return 0;
    const int dstMode = in.below(4);
    if (dstMode == 1) dst = src;
    if (dstMode == 2 && getPackedByteCount(format, width, height) <= fuzz::kMaxBytes)
        dst = ZTImage::create(format, width, height);
    if (dstMode == 3) {
        const PfncFormat_ dstFormat = in.flag() ? format : Mono8;
        const uint32_t dstPadding = in.below(4);
        if (!fuzz::makeImage(in, dstFormat, width, height, dstPadding, dstMemory, dst)) return 0;
    }

    histStretch(src, dstMode == 0 ? src : dst, low, high);
    ZTImage equalized = dstMode == 0 && width <= 64 && height <= 64 ? ZTImage::create(Mono8, width, height) : dst;
    histEqual(src, equalized);
    histEqual(src, src);
    return 0;
}

// Fuzz target: attachGrabResult on random frames, read by either packed layout. The frame's buffer is exactly as large as
// the frame states (or, for a frame that states no size, as large as its geometry), is null
// now and then, and the frame must be released exactly once whatever happens to the images.
#include <cstdlib>

#include "FuzzInput.h"

using namespace ZTI;

namespace {

const PfncFormat_ kFrames[] = {Mono10Packed, Mono10p,  BayerRG10Packed, BayerBG10Packed, Mono12Packed,
                               Mono12p,      BayerGR12p, BayerBG12Packed, BayerRG10p,    Mono8,
                               Mono12,       BayerRG12, BayerGB8,        RGB8,          BGRa8,
                               YUV422_8,     YUV8_UYV,  RGB10V1Packed,   Mono1p,        Mono16};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::FuzzInput in(data, size);
    const PfncFormat_ format = in.below(5) == 0 ? fuzz::anyFormat(in) : in.pick(kFrames);
    const uint32_t width = fuzz::dimension(in, 40), height = fuzz::dimension(in, 40);
    static const uint32_t kPaddings[] = {0, 0, 0, 1, 3, 7, 16, 0x80000000u, 0xFFFFFFFFu};
    const uint32_t padding = in.pick(kPaddings);
    const int sizeMode = in.below(4);  // 0: not stated, 1: stated exactly, 2: stated short, 3: null buffer
    const PackedLayout layout = in.flag() ? PackedLayout::Published : PackedLayout::Legacy;

    // What the frame really holds when it is honest: every row through the stride, and at
    // least the packed stream.
    const uint64_t stride = uint64_t{getBytesPerPixel(format)} * width + padding;
    uint64_t honest = 0;
    if (__builtin_mul_overflow(stride, uint64_t{height}, &honest)) honest = UINT64_MAX;
    const uint64_t packed = (uint64_t{getBitsPerPixel(format)} * width * height + 7) / 8;
    if (packed > honest) honest = packed;
    // The published layouts read padded packed rows from their own starts.
    const uint64_t packedRow = (uint64_t{getBitsPerPixel(format)} * width + 7) / 8;
    if (layout == PackedLayout::Published && padding != 0 && height != 0) {
        const uint64_t rows = (packedRow + padding) * (height - 1) + packedRow;
        if (rows > honest) honest = rows;
    }
    uint64_t stated = 0, bytes = honest;
    if (sizeMode == 1) stated = honest;
    if (sizeMode == 2 && honest != 0)  // 1 up to the honest size: 0 would mean "not stated"
        stated = bytes = 1 + in.dword() % std::min(honest, fuzz::kMaxBytes);
    if (sizeMode == 3) stated = bytes = in.dword() % (fuzz::kMaxBytes + 1);
    if (bytes > fuzz::kMaxBytes) return 0;
    const int priorPadding = static_cast<int>(in.below(9));
    // Copies and unpacked images get memory for every padded row (the frame's padding, or the
    // one an unpacked image keeps from before), and at least their (32-bit wrapped) byte count:
    // the frame format's for a copy, 16 bits per pixel for an unpacked image.
    if (fuzz::copyTooLarge(format, width, height, padding) || fuzz::copyTooLarge(Mono16, width, height, priorPadding) ||
        getPackedByteCount(format, width, height) > fuzz::kMaxPoolBytes ||
        getPackedByteCount(Mono16, width, height) > fuzz::kMaxPoolBytes)
        return 0;

    fuzz::Memory frame(bytes);
    in.fill(frame.data(), frame.size);
    int released = 0;
    {
        ZTImage image;
        if (in.flag()) image = ZTImage::create(Mono8, 8, 8, priorPadding);  // the padding is kept
        ZTGrabResultPtr grab = createGrabResult(format, width, height, padding, sizeMode == 3 ? nullptr : frame.data(),
                                                stated, [&] { ++released; });
        image.attachGrabResult(grab, layout);
        if (in.flag()) grab.Release();  // the image alone keeps a viewed frame
        fuzz::useImage(image);
        ZTImage stretched = image;
        const unsigned low = in.word(), high = in.word();
        if (image.getPixelType() == Mono12) histStretch(image, stretched, low, high);
        image.attachGrabResult(ZTGrabResultPtr());  // an empty handle lets any frame go
        fuzz::useImage(image);
    }
    if (released != 1) std::abort();
    return 0;
}

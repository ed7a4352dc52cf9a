// Turning camera frames into images: attach in place, or unpack packed formats.
#include "PixelUnpack.h"
#include "ZTImageImpl.h"

namespace ZTI {
namespace {

enum class FrameHandling { Attach, Unpack, NoFormat };

struct FrameRule {
    FrameHandling handling;
    PfncFormat_ target;  // format of the image after unpacking; 0 when not unpacked
};

FrameRule frameRule(PfncFormat_ code) {
    switch (code) {
        case Mono10Packed: case Mono10p: return {FrameHandling::Unpack, Mono10};
        case BayerGR10Packed: return {FrameHandling::Unpack, BayerGR10};
        case BayerRG10Packed: return {FrameHandling::Unpack, BayerRG10};
        case BayerGB10Packed: return {FrameHandling::Unpack, BayerGB10};
        case BayerBG10Packed: return {FrameHandling::Unpack, BayerBG10};
        case Mono12Packed: case Mono12p: return {FrameHandling::Unpack, Mono12};
        case BayerGR12Packed: case BayerGR12p: return {FrameHandling::Unpack, BayerGR12};
        case BayerRG12Packed: case BayerRG12p: return {FrameHandling::Unpack, BayerRG12};
        case BayerGB12Packed: case BayerGB12p: return {FrameHandling::Unpack, BayerGB12};
        case BayerBG12Packed: case BayerBG12p: return {FrameHandling::Unpack, BayerBG12};
        // Layouts the library cannot hold: the image gets no format.
        case Mono1p: case Mono2p: case Mono4p: case RGB10V1Packed: case RGB12V1Packed:
        case 0x02240086u: case 0x02180088u: case 0x021E0084u: case 0x02140087u:
            return {FrameHandling::NoFormat, 0};
        // Everything else, the Bayer 10p codes included, is viewed as it is.
        default:
            return {FrameHandling::Attach, 0};
    }
}

}  // namespace

void ZTImage::ZTImageImpl::attachGrabResult(const ZTGrabResultPtr& grab) {
    userBuffer_ = nullptr;
    grabResult_.Release();
    if (!grab) return;  // nothing to attach; the image keeps its own memory, if any

    const ZTGrabResultDataImpl* frame = grab->GetGrabResultDataImpl();
    const PfncFormat_ code = frame->GetPixelType();
    width_ = frame->GetWidth();
    height_ = frame->GetHeight();

    const FrameRule rule = frameRule(code);
    switch (rule.handling) {
        case FrameHandling::Attach: {
            uint64_t size = grab->GetImageSize();
            if (size == 0) size = getPackedByteCount(code, width_, height_);
            attachUserBuffer(frame->GetBuffer(), static_cast<unsigned long>(size), code, width_,
                             height_, static_cast<unsigned long>(frame->GetPaddingX()));
            grabResult_ = grab;
            pixelType_ = code;
            break;
        }
        case FrameHandling::Unpack: {
            // The frame's row padding is not used: the unpackers read one continuous stream.
            allocateBuffer(rule.target, width_, height_, nullptr);
            auto* src = static_cast<unsigned char*>(frame->GetBuffer());
            const int w = static_cast<int>(width_), h = static_cast<int>(height_);
            if (getBitsPerChannel(rule.target) == 10)
                unpack10BitsPixelBuffer(code, w, h, src, ownedBuffer_);
            else if (getBitsPerChannel(rule.target) == 12)
                unpack12BitsPixelBuffer(code, w, h, src, ownedBuffer_);
            pixelType_ = rule.target;
            break;
        }
        case FrameHandling::NoFormat:
            allocateBuffer(0, width_, height_, nullptr);
            pixelType_ = 0;
            break;
    }
}

}  // namespace ZTI

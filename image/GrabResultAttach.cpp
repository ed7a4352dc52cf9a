// Turning camera frames into images: attach in place, or unpack packed formats.
#include "PixelUnpack.h"
#include "PublishedUnpack.h"
#include "ZTImageImpl.h"

#include <string>

namespace ZTI {
namespace {

enum class FrameHandling { Attach, Unpack, NoFormat };

struct FrameRule {
    FrameHandling handling;
    PfncFormat_ target;  // format of the image after unpacking; 0 when not unpacked
};

// Bytes of packed source the unpacker for `targetBits` reads for width x height pixels (the
// pixel count taken as a signed 32-bit product, as the unpackers take it): five per group of
// four 10-bit pixels and k + 1 for a last partial group of k; three per pair of 12-bit pixels.
uint64_t packedBytesRead(unsigned targetBits, uint32_t width, uint32_t height) {
    const int32_t n = static_cast<int32_t>(width * height);
    if (n <= 0) return 0;
    const uint64_t pixels = static_cast<uint64_t>(n);
    if (targetBits == 10) return pixels / 4 * 5 + (pixels % 4 != 0 ? pixels % 4 + 1 : 0);
    return pixels / 2 * 3;
}

// What the format table says a frame becomes: itself (viewed as it is), another format
// (unpacked into it) or nothing (a layout the library cannot hold). A code the table does not
// know is viewed as it is.
FrameRule frameRule(PfncFormat_ code) {
    const PixelFormatInfo* info = getPixelFormatInfo(code);
    if (info == nullptr || info->unpackedFormat == code) return {FrameHandling::Attach, 0};
    if (info->unpackedFormat == 0) return {FrameHandling::NoFormat, 0};
    return {FrameHandling::Unpack, info->unpackedFormat};
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
            frameSizeUnknown_ = grab->GetImageSize() == 0;
            break;
        }
        case FrameHandling::Unpack: {
            // The frame's row padding is not used: the unpackers read one continuous stream.
            allocateBuffer(rule.target, width_, height_, nullptr);
            auto* src = static_cast<unsigned char*>(frame->GetBuffer());
            const int w = static_cast<int>(width_), h = static_cast<int>(height_);
            const unsigned bits = getBitsPerChannel(rule.target);
            // A frame without memory, one stated shorter than its pixels need (a truncated
            // transfer), or pixels that do not fit the memory whose 32-bit byte count wrapped,
            // are not unpacked: the image is left without memory, as after a failed
            // allocation. An unstated size (0) is trusted.
            const uint64_t stated = grab->GetImageSize();
            const uint64_t pixels = static_cast<uint64_t>(width_) * height_;
            if (src == nullptr || (stated != 0 && stated < packedBytesRead(bits, width_, height_)) ||
                (ownedBuffer_ != nullptr && allocatedSize_ < 2 * pixels))
                releaseOwned();
            if (bits == 10)
                unpack10BitsPixelBuffer(code, w, h, src, ownedBuffer_);
            else if (bits == 12)
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

namespace {

// The 16-bit format a published-layout frame unpacks into: Mono or the Bayer pattern of the
// frame, at its depth (BayerRG10p gives BayerRG10).
PfncFormat_ publishedTarget(const PixelFormatInfo& info) {
    std::string name = info.bayerPattern ? std::string("Bayer") + info.bayerPattern[0] + info.bayerPattern[1]
                                         : std::string("Mono");
    name += std::to_string(info.bitsPerChannel);
    return findPixelFormat(name.c_str());
}

}  // namespace

void ZTImage::ZTImageImpl::attachGrabResult(const ZTGrabResultPtr& grab, PackedLayout layout) {
    const PfncFormat_ code = grab ? grab->GetGrabResultDataImpl()->GetPixelType() : 0;
    if (layout == PackedLayout::Legacy || !hasPublishedUnpacking(code)) {
        attachGrabResult(grab);
        return;
    }
    userBuffer_ = nullptr;
    grabResult_.Release();
    const ZTGrabResultDataImpl* frame = grab->GetGrabResultDataImpl();
    width_ = frame->GetWidth();
    height_ = frame->GetHeight();
    const PfncFormat_ target = publishedTarget(*getPixelFormatInfo(code));
    allocateBuffer(target, width_, height_, nullptr);

    // Rows with padding start at their own byte; without, the pixels run on from row to row.
    // As for the legacy layouts, a frame stated shorter than its pixels need, or too large for
    // the memory, is not unpacked and leaves the image without memory.
    const uint32_t padding = frame->GetPaddingX();
    const uint64_t rowBytes = publishedRowBytes(code, width_);
    const uint64_t needed = height_ == 0 ? 0
                            : padding == 0 ? (uint64_t{width_} * height_ * getBitsPerPixel(code) + 7) / 8
                                           : (rowBytes + padding) * (height_ - 1) + rowBytes;
    const uint64_t stated = grab->GetImageSize();
    const auto* src = static_cast<const unsigned char*>(frame->GetBuffer());
    if (src == nullptr || (stated != 0 && stated < needed) ||
        (ownedBuffer_ != nullptr && allocatedSize_ < 2 * uint64_t{width_} * height_))
        releaseOwned();
    unpackPublished(code, width_, height_, padding, src, ownedBuffer_);
    pixelType_ = target;
}

}  // namespace ZTI

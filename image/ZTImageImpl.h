// Implementation object of ZTImage: format, geometry and the owner of the pixel memory.
#pragma once

#include <cstdint>

#include "ZTImage.h"

namespace ZTI {

// Hidden although nested in an exported class: the implementation object is not part of the
// library's interface.
class __attribute__((visibility("hidden"))) ZTImage::ZTImageImpl {
public:
    ZTImageImpl() = default;
    /// Copy rule: pool memory and caller buffers are copied into new pool memory; a view of a
    /// camera frame is shared by holding the same frame.
    ZTImageImpl(const ZTImageImpl& other);
    ZTImageImpl& operator=(const ZTImageImpl&) = delete;
    ~ZTImageImpl();

    PfncFormat_ getPixelType() const { return pixelType_; }
    unsigned int getWidth() const { return width_; }
    unsigned int getHeight() const { return height_; }
    int getpaddingX() const { return static_cast<int>(paddingX_); }
    size_t getStride() const { return getRowStride(pixelType_, width_, paddingX_); }
    size_t getByteCount() const { return byteCount_; }
    unsigned char* getBuffer() const { return ownedBuffer_ != nullptr ? ownedBuffer_ : userBuffer_; }
    unsigned char* getBuffer() { return ownedBuffer_ != nullptr ? ownedBuffer_ : userBuffer_; }
    unsigned char* getBufferData() const { return getBuffer(); }
    bool isValid() const { return ownedBuffer_ != nullptr || userBuffer_ != nullptr; }

    void setGeometry(unsigned int width, unsigned int height) {
        width_ = width;
        height_ = height;
    }
    void setPaddingX(int64_t paddingX) { paddingX_ = paddingX; }

    /// Replaces the owned memory by pool memory for this format and the stored size, copying
    /// the byte count from `source` when it is not null.
    void allocateBuffer(PfncFormat_ pixelType, unsigned int width, unsigned int height,
                        void* source);
    void reset(PfncFormat_ pixelType, unsigned int width, unsigned int height);
    void attachUserBuffer(void* buffer, unsigned long size, PfncFormat_ pixelType,
                          unsigned int width, unsigned int height, unsigned long paddingX);
    void attachGrabResult(const ZTGrabResultPtr& grab);
    void attachGrabResult(const ZTGrabResultPtr& grab, PackedLayout layout);

    /// Bytes that may be read from getBuffer(): the whole allocation for owned memory, the
    /// stated size for a caller's buffer or a camera frame. A frame that did not state its size
    /// is trusted to hold every row its geometry spans.
    uint64_t readableBytes() const {
        if (ownedBuffer_ != nullptr) return allocatedSize_;
        uint64_t rows = 0;
        if (frameSizeUnknown_ && !__builtin_mul_overflow(static_cast<uint64_t>(getStride()), height_, &rows))
            return rows > byteCount_ ? rows : byteCount_;
        return byteCount_;
    }

private:
    void releaseOwned();
    /// Pool memory to request for this image: the packed byte count, or every full padded row
    /// when that is larger, so that row-wise access through the stride stays inside the buffer.
    uint64_t allocationSize() const;
    void copyOwnedFrom(const ZTImageImpl& other);

    unsigned char* ownedBuffer_ = nullptr;
    unsigned char* userBuffer_ = nullptr;
    ZTGrabResultPtr grabResult_;
    PfncFormat_ pixelType_ = 0;
    unsigned int width_ = 0;
    unsigned int height_ = 0;
    uint64_t byteCount_ = 0;
    int64_t paddingX_ = 0;
    /// Size the owned buffer was acquired with and is given back under.
    uint64_t allocatedSize_ = 0;
    /// Set while viewing a camera frame whose size was not stated (byteCount_ then holds the
    /// packed size the format implies, not what the frame holds).
    bool frameSizeUnknown_ = false;
};

/// Library-internal access to an image's implementation object.
struct ZTImageAccess {
    static const ZTImage::ZTImageImpl* impl(const ZTImage& image) { return image.impl_.get(); }
};

/// Bytes that may be read from image.getBuffer(); 0 for an invalid image.
inline uint64_t readableBytes(const ZTImage& image) {
    const ZTImage::ZTImageImpl* impl = ZTImageAccess::impl(image);
    return impl != nullptr && impl->isValid() ? impl->readableBytes() : 0;
}

}  // namespace ZTI

#include "ZTImage.h"

#include <algorithm>
#include <cstring>

#include "PoolRelease.h"
#include "ZTImageImpl.h"

namespace ZTI {

// ---- implementation object ------------------------------------------------------------------

ZTImage::ZTImageImpl::ZTImageImpl(const ZTImageImpl& other)
    : pixelType_(other.pixelType_),
      width_(other.width_),
      height_(other.height_),
      byteCount_(other.byteCount_),
      paddingX_(other.paddingX_) {
    if (other.grabResult_) {
        if (other.userBuffer_ != nullptr) {
            // A view of camera memory: share the frame, copy no pixels.
            grabResult_ = other.grabResult_;
            userBuffer_ = other.userBuffer_;
            frameSizeUnknown_ = other.frameSizeUnknown_;
        } else if (other.ownedBuffer_ != nullptr) {
            copyOwnedFrom(other);
        }
        return;
    }
    if (other.ownedBuffer_ != nullptr) {
        copyOwnedFrom(other);
    } else if (other.userBuffer_ != nullptr) {
        // A caller's buffer becomes a private pool copy. Only the size the caller stated is
        // read; the rest of the allocation (padding of the last rows) stays undefined.
        allocatedSize_ = allocationSize();
        ownedBuffer_ = acquirePixelMemory(allocatedSize_);
        if (ownedBuffer_ != nullptr && byteCount_ != 0)
            std::memmove(ownedBuffer_, other.userBuffer_, byteCount_);
    }
}

void ZTImage::ZTImageImpl::copyOwnedFrom(const ZTImageImpl& other) {
    allocatedSize_ = allocationSize();
    ownedBuffer_ = acquirePixelMemory(allocatedSize_);
    // Owned memory is the library's own: copy all of it, row padding included.
    const uint64_t bytes = std::min(allocatedSize_, other.allocatedSize_);
    if (ownedBuffer_ != nullptr && bytes != 0) std::memcpy(ownedBuffer_, other.ownedBuffer_, bytes);
}

ZTImage::ZTImageImpl::~ZTImageImpl() { releaseOwned(); }

void ZTImage::ZTImageImpl::releaseOwned() {
    if (ownedBuffer_ != nullptr) {
        releasePixelMemory(ownedBuffer_, allocatedSize_);
        ownedBuffer_ = nullptr;
        allocatedSize_ = 0;
    }
}

uint64_t ZTImage::ZTImageImpl::allocationSize() const {
    uint64_t size = byteCount_;
    if (paddingX_ > 0 && pixelType_ != 0) {
        uint64_t rows = 0;
        if (__builtin_mul_overflow(static_cast<uint64_t>(getStride()), height_, &rows))
            return UINT64_MAX;  // cannot exist; the allocation fails and the image is invalid
        size = std::max(size, rows);
    }
    return size;
}

void ZTImage::ZTImageImpl::allocateBuffer(PfncFormat_ pixelType, unsigned int width,
                                          unsigned int height, void* source) {
    releaseOwned();
    frameSizeUnknown_ = false;
    pixelType_ = pixelType;
    byteCount_ = getPackedByteCount(pixelType, width, height);
    allocatedSize_ = allocationSize();
    ownedBuffer_ = acquirePixelMemory(allocatedSize_);
    if (ownedBuffer_ == nullptr) allocatedSize_ = 0;
    if (ownedBuffer_ != nullptr && source != nullptr && byteCount_ != 0)
        std::memmove(ownedBuffer_, source, byteCount_);
}

void ZTImage::ZTImageImpl::reset(PfncFormat_ pixelType, unsigned int width, unsigned int height) {
    userBuffer_ = nullptr;
    grabResult_.Release();
    pixelType_ = pixelType;
    width_ = width;
    height_ = height;
    // paddingX_ is kept on purpose: an image that had padding keeps it across reset.
    allocateBuffer(pixelType, width, height, nullptr);
}

void ZTImage::ZTImageImpl::attachUserBuffer(void* buffer, unsigned long size, PfncFormat_ pixelType,
                                            unsigned int width, unsigned int height,
                                            unsigned long paddingX) {
    releaseOwned();
    frameSizeUnknown_ = false;
    // A held grab result stays held: the frame remains alive while this image exists.
    userBuffer_ = static_cast<unsigned char*>(buffer);
    pixelType_ = pixelType;
    width_ = width;
    height_ = height;
    byteCount_ = size;
    paddingX_ = static_cast<int64_t>(paddingX);
}

// ---- ZTImage ---------------------------------------------------------------------------------

ZTImage::ZTImage() : impl_(std::make_shared<ZTImageImpl>()) {}

ZTImage::ZTImage(PfncFormat_ pixelType, unsigned int width, unsigned int height, int paddingX,
                 void* data)
    : impl_(std::make_shared<ZTImageImpl>()) {
    impl_->setGeometry(width, height);
    impl_->setPaddingX(paddingX);
    impl_->allocateBuffer(pixelType, width, height, data);
}

ZTImage ZTImage::create(PfncFormat_ pixelType, unsigned int width, unsigned int height,
                        int paddingX) {
    return ZTImage(pixelType, width, height, paddingX, nullptr);
}

ZTImage::ZTImage(const ZTImage& other)
    : impl_(other.isValid() ? std::make_shared<ZTImageImpl>(*other.impl_)
                            : std::make_shared<ZTImageImpl>()) {}

ZTImage& ZTImage::operator=(const ZTImage& other) {
    if (this == &other) return *this;
    // Build the copy first, then drop the old implementation (returning its memory).
    std::shared_ptr<ZTImageImpl> copy = other.isValid() ? std::make_shared<ZTImageImpl>(*other.impl_)
                                                        : std::make_shared<ZTImageImpl>();
    impl_ = std::move(copy);
    return *this;
}

ZTImage::ZTImage(ZTImage&& other) noexcept : impl_(std::move(other.impl_)) {}

ZTImage& ZTImage::operator=(ZTImage&& other) noexcept {
    if (this != &other) impl_ = std::move(other.impl_);
    return *this;
}

ZTImage::~ZTImage() = default;

PfncFormat_ ZTImage::getPixelType() const { return impl_ ? impl_->getPixelType() : 0; }
unsigned int ZTImage::getWidth() const { return impl_ ? impl_->getWidth() : 0; }
unsigned int ZTImage::getHeight() const { return impl_ ? impl_->getHeight() : 0; }
int ZTImage::getpaddingX() const { return impl_ ? impl_->getpaddingX() : 0; }
size_t ZTImage::getStride() const { return impl_ ? impl_->getStride() : 0; }
size_t ZTImage::getByteCount() const { return impl_ ? impl_->getByteCount() : 0; }
unsigned char* ZTImage::getBuffer() const { return impl_ ? impl_->getBuffer() : nullptr; }
bool ZTImage::isValid() const { return impl_ && impl_->isValid(); }

unsigned char* ZTImage::getBuffer() {
    detach();
    return impl_ ? impl_->getBuffer() : nullptr;
}

void ZTImage::reset(PfncFormat_ pixelType, unsigned int width, unsigned int height) {
    detach();
    if (!impl_) impl_ = std::make_shared<ZTImageImpl>();
    impl_->reset(pixelType, width, height);
}

void ZTImage::attachUserBuffer(void* buffer, unsigned long size, PfncFormat_ pixelType,
                               unsigned int width, unsigned int height, unsigned long paddingX) {
    detach();
    if (!impl_) impl_ = std::make_shared<ZTImageImpl>();
    impl_->attachUserBuffer(buffer, size, pixelType, width, height, paddingX);
}

void ZTImage::attachGrabResult(const ZTGrabResultPtr& grab) {
    detach();
    if (!impl_) impl_ = std::make_shared<ZTImageImpl>();
    impl_->attachGrabResult(grab);
}

void ZTImage::attachGrabResult(const ZTGrabResultPtr& grab, PackedLayout layout) {
    detach();
    if (!impl_) impl_ = std::make_shared<ZTImageImpl>();
    impl_->attachGrabResult(grab, layout);
}

void ZTImage::detach() {
    if (!impl_ || impl_.use_count() <= 1) return;
    impl_ = std::make_shared<ZTImageImpl>(*impl_);
}

}  // namespace ZTI

#include "ZTGrabResult.h"

#include <utility>

namespace ZTI {

ZTGrabResultDataImpl::ZTGrabResultDataImpl(uint32_t pixelType, uint32_t width, uint32_t height,
                                           uint32_t paddingX, void* buffer) noexcept
    : pixelType_(pixelType), width_(width), height_(height), paddingX_(paddingX), buffer_(buffer) {}

ZTGrabResultData::ZTGrabResultData(const ZTGrabResultDataImpl& impl, uint64_t imageSize,
                                   std::function<void()> onRelease)
    : impl_(impl), imageSize_(imageSize), onRelease_(std::move(onRelease)) {}

ZTGrabResultData::~ZTGrabResultData() {
    // Destructors are noexcept: a throwing callback terminates the process, which is the
    // only safe outcome when a camera buffer could not be handed back.
    if (onRelease_) onRelease_();
}

ZTGrabResultPtr createGrabResult(uint32_t pixelType, uint32_t width, uint32_t height,
                                 uint32_t paddingX, void* buffer, uint64_t imageSize,
                                 std::function<void()> onRelease) {
    ZTGrabResultDataImpl impl(pixelType, width, height, paddingX, buffer);
    return ZTGrabResultPtr(std::make_shared<ZTGrabResultData>(impl, imageSize, std::move(onRelease)));
}

}  // namespace ZTI

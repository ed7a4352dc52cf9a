// Camera frame handle of the camera library: a reference-counted view of one frame buffer.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "ZTCameraExport.h"

namespace ZTI {

/// Geometry and pixel memory of one camera frame. Owned by the frame; valid while a
/// ZTGrabResultPtr holds the frame.
class ZTCAMERA_API ZTGrabResultDataImpl {
public:
    ZTGrabResultDataImpl(uint32_t pixelType, uint32_t width, uint32_t height, uint32_t paddingX,
                         void* buffer) noexcept;

    /// PFNC pixel-format code of the frame.
    uint32_t GetPixelType() const noexcept { return pixelType_; }
    uint32_t GetWidth() const noexcept { return width_; }
    uint32_t GetHeight() const noexcept { return height_; }
    /// Bytes of padding at the end of every row.
    uint32_t GetPaddingX() const noexcept { return paddingX_; }
    /// Address of the first pixel byte; the camera's memory, not copied.
    void* GetBuffer() const noexcept { return buffer_; }

private:
    uint32_t pixelType_;
    uint32_t width_;
    uint32_t height_;
    uint32_t paddingX_;
    void* buffer_;
};

/// One grabbed frame: its description and the size of its pixel data.
class ZTCAMERA_API ZTGrabResultData {
public:
    ZTGrabResultData(const ZTGrabResultDataImpl& impl, uint64_t imageSize,
                     std::function<void()> onRelease);
    /// Calls the release callback given at creation (once, when the last handle drops the frame).
    ~ZTGrabResultData();

    ZTGrabResultData(const ZTGrabResultData&) = delete;
    ZTGrabResultData& operator=(const ZTGrabResultData&) = delete;

    ZTGrabResultDataImpl* GetGrabResultDataImpl() noexcept { return &impl_; }
    const ZTGrabResultDataImpl* GetGrabResultDataImpl() const noexcept { return &impl_; }
    /// Size of the frame's pixel data in bytes; 0 when the camera did not state it.
    uint64_t GetImageSize() const noexcept { return imageSize_; }

private:
    ZTGrabResultDataImpl impl_;
    uint64_t imageSize_;
    std::function<void()> onRelease_;
};

/// Shared handle of a frame. Copies share the frame; the frame is released (its buffer
/// handed back to the camera) when the last handle drops it. Reference counting is atomic,
/// so handles of one frame may be copied and dropped on different threads; one handle
/// object must not be modified by two threads at once.
class ZTCAMERA_API ZTGrabResultPtr {
public:
    /// An empty handle.
    ZTGrabResultPtr() noexcept = default;
    explicit ZTGrabResultPtr(std::shared_ptr<ZTGrabResultData> data) noexcept
        : data_(std::move(data)) {}

    /// Drops this handle's reference now; the handle becomes empty.
    void Release() noexcept { data_.reset(); }
    /// True when the handle holds a frame.
    explicit operator bool() const noexcept { return static_cast<bool>(data_); }
    /// The frame; the handle must not be empty.
    ZTGrabResultData* operator->() const noexcept { return data_.get(); }
    /// Number of handles sharing this frame (0 for an empty handle).
    long UseCount() const noexcept { return data_.use_count(); }

private:
    std::shared_ptr<ZTGrabResultData> data_;
};

/// Makes a frame that views `buffer` (imageSize bytes; 0 when unknown) without copying it.
/// `onRelease` is called exactly once, on the thread that drops the last handle, and must not
/// throw. Safe to call from any thread.
ZTCAMERA_API ZTGrabResultPtr createGrabResult(uint32_t pixelType, uint32_t width, uint32_t height,
                                              uint32_t paddingX, void* buffer, uint64_t imageSize,
                                              std::function<void()> onRelease = nullptr);

}  // namespace ZTI

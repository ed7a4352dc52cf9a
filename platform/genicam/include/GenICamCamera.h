// Frames from GenICam cameras (GigE Vision, USB3 Vision, or Aravis's in-process simulated camera)
// handed out as grab results of the camera library, without copying.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ZTGenICamExport.h"
#include "ZTGrabResult.h"

namespace ZTI {

/// Where cameras are looked for. Fake is Aravis's in-process simulated camera; choosing it
/// disables every other interface of the process, so that nothing at all is sent on a network.
enum class GenICamInterfaces { All, GigEVision, USB3Vision, Fake };

/// One camera as the transport layer describes it; fields the camera does not state are empty.
struct GenICamDeviceInfo {
    std::string id;        ///< Aravis device id, accepted by GenICamCameraConfig::deviceId
    std::string vendor;
    std::string model;
    std::string serial;
    std::string address;   ///< IP address for GigE Vision, empty otherwise
    std::string protocol;  ///< "GigEVision", "USB3Vision" or "Fake"
};

/// How a camera is opened and set up. Zero or empty fields keep the camera's own setting.
struct GenICamCameraConfig {
    GenICamInterfaces interfaces = GenICamInterfaces::All;
    /// Aravis device id or a GigE Vision camera's IPv4 address (opened directly, without
    /// discovery); empty opens the first camera found on `interfaces`.
    std::string deviceId;
    uint32_t pixelType = 0;                ///< PFNC code of the frames
    uint32_t width = 0, height = 0, offsetX = 0, offsetY = 0;  ///< region of interest, pixels
    double frameRate = 0;                  ///< frames per second
    unsigned bufferCount = 8;              ///< frame buffers of the stream, at least 1
    uint32_t packetSize = 0;               ///< GigE Vision stream packet size in bytes
};

/// Counters of one camera since it was opened.
struct GenICamStreamStats {
    uint64_t delivered;   ///< complete frames handed out by grab()
    uint64_t incomplete;  ///< frames that lost data on the way; never handed out
    uint64_t underruns;   ///< frames the camera sent while every buffer was held; dropped
};

/// A GenICam camera streaming into a fixed set of frame buffers. grab() hands out a buffer as a
/// grab result that views it; dropping the last handle gives the buffer back to the stream, on
/// any thread. Frames held after stop() or after the camera object is gone stay valid and are
/// freed when let go. The methods must be called from one thread at a time.
class GenICamCamera {
public:
    /// The cameras found on `which`; empty with `error` set (when not null) when the interfaces
    /// cannot be searched. All and GigEVision send a discovery broadcast on every network the
    /// machine is on.
    ZTGENICAM_API static std::vector<GenICamDeviceInfo> list(
        GenICamInterfaces which = GenICamInterfaces::All, std::string* error = nullptr);

    /// Opens the camera of `config` and applies its settings, or returns null with `error`
    /// (when not null) naming the camera, the feature and the value that failed.
    ZTGENICAM_API static std::unique_ptr<GenICamCamera> open(const GenICamCameraConfig& config,
                                                             std::string* error = nullptr);
    ZTGENICAM_API ~GenICamCamera();
    GenICamCamera(const GenICamCamera&) = delete;
    GenICamCamera& operator=(const GenICamCamera&) = delete;

    /// Allocates the stream's buffers and starts acquisition; true when it runs (also when it
    /// already did). False with `error` set when the camera refuses.
    ZTGENICAM_API bool start(std::string* error = nullptr);
    /// Stops acquisition and frees the buffers not held by grab results. Does nothing when
    /// stopped.
    ZTGENICAM_API void stop();
    /// The next complete frame, waiting up to `timeout`; an empty handle on timeout or when the
    /// camera is stopped. Incomplete frames are counted and skipped.
    ZTGENICAM_API ZTGrabResultPtr grab(std::chrono::milliseconds timeout);

    ZTGENICAM_API GenICamStreamStats stats() const;
    /// Frame buffers currently held by grab results.
    ZTGENICAM_API unsigned buffersInUse() const;

    ZTGENICAM_API uint32_t pixelType() const;
    ZTGENICAM_API uint32_t width() const;
    ZTGENICAM_API uint32_t height() const;
    /// Bytes of padding after every row of a frame.
    ZTGENICAM_API uint32_t paddingX() const;

private:
    friend struct GenICamCameraAccess;  // the library's own tests reach the Aravis camera
    struct State;
    explicit GenICamCamera(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

}  // namespace ZTI

// Simulated GenICam cameras that show the virtual camera's frames: a GenICam description of
// Aravis's simulated camera that offers every format the virtual camera encodes at sizes up to
// 8192 x 8192, and a fill pattern that copies virtual-camera frames into Aravis's buffers.
// Used by the tests and benchmarks; never installed.
#pragma once

#include <arv.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "VirtualCamera.h"

namespace ZTI {

/// Writes the extended GenICam description into `directory` and returns its path; empty when
/// the file cannot be written.
std::string writeFakeCameraGenICam(const std::string& directory);

/// Copies frames of a virtual camera into the buffers of one simulated camera. The virtual
/// camera is made for the format and size the Aravis camera has when the first frame is filled.
/// `mutex` is held while pixels are written: readers that take it too make the hand-over of a
/// buffer visible to race detectors, which do not see GLib's own queues.
struct VirtualFill {
    VirtualCameraConfig config;  ///< pixelType, width and height are taken from each frame
    std::unique_ptr<VirtualCamera> camera;
    ArvFakeCamera* fake = nullptr;
    std::mutex mutex;
    uint64_t framesFilled = 0;
};

/// Makes `fake` fill its frames from `fill`, which must outlive the camera's stream.
void installVirtualFill(ArvFakeCamera* fake, VirtualFill& fill);

}  // namespace ZTI

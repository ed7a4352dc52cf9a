// A camera without hardware: synthetic scenes encoded as frames in the pixel formats the image
// library reads, handed out as grab results from a fixed set of frame buffers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "ZTCameraExport.h"
#include "ZTGrabResult.h"

namespace ZTI {

/// What a virtual camera looks at.
enum class VirtualScene {
    /// Colour patches, colour and grey ramps, a radial star, line gratings and slanted edges at
    /// several angles: demosaicing and colour conversion errors show up on it.
    Colour,
    /// Rectangular regions of known angle and degree of linear polarization, seen by a
    /// polarized monochrome sensor whose 2 x 2 cells hold polarizers at 90 degrees at
    /// (row 0, column 0), 45 at (0, 1), 135 at (1, 0) and 0 at (1, 1). Monochrome formats only.
    Polarization,
};

/// How a virtual camera is set up. Checked by VirtualCamera::open.
struct VirtualCameraConfig {
    /// PFNC code of the frames; VirtualCamera::supportsFormat tells which are produced.
    uint32_t pixelType = 0x01080001;
    /// Frame size in pixels, both at least 1, at most 2^31 - 1 pixels in all. 4:2:2 formats
    /// need an even width.
    uint32_t width = 640;
    uint32_t height = 480;
    /// Bytes after the pixels of every row (stride = bytes per row + paddingX). Must be 0 for
    /// the packed 10- and 12-bit formats, whose pixels run on from row to row.
    uint32_t paddingX = 0;
    VirtualScene scene = VirtualScene::Colour;
    /// Frame buffers the camera cycles through, at least 1.
    unsigned bufferCount = 4;
    /// When true the scene shifts by up to 2 pixels (4 for the polarization scene, keeping
    /// its regions on whole 2 x 2 cells) along a loop of 8 frames, so a stream is not static.
    bool moving = true;
    /// When true the 10-bit packed codes are encoded as cameras send them: Mono10p and Bayer
    /// 10p as four pixels in five bytes, least significant bits first; Mono10Packed and Bayer
    /// 10Packed as two pixels in three bytes (the high 8 bits of each in bytes 0 and 2, the low
    /// 2 bits in bits 1..0 and 5..4 of byte 1). Other codes are encoded alike either way.
    bool publishedLayout = false;
};

/// Colour of the scene at one point: linear values, 16 bits per channel.
struct SceneRgb {
    uint16_t r;
    uint16_t g;
    uint16_t b;
};

/// Polarization of the scene at one point.
struct ScenePolarization {
    double s0;            ///< total intensity, on the sensor's 16-bit scale (0..65535)
    double angleDegrees;  ///< angle of linear polarization, [0, 180)
    double degree;        ///< degree of linear polarization, 0..1
};

/// A synthetic camera. The scene is computed once when the camera is opened; every grab()
/// encodes the next frame into a free frame buffer and hands it out as a grab result, whose
/// buffer returns to the camera when the last handle to it is dropped (also after the camera
/// itself is gone). grab() and the accessors must be called from one thread at a time; frames
/// may be released on any thread.
///
/// Frame encodings: Mono8/10/12/16 and Bayer 8/10/12/16 in all four patterns hold one sample
/// per pixel (10 to 16 bits in 16-bit little-endian words, right-aligned). The packed codes
/// hold one continuous stream of width x height samples without row padding: every 10-bit code
/// (Mono10p, Mono10Packed, Bayer 10p and 10Packed) as five-byte groups of four pixels, most
/// significant bits first; Mono12p and Bayer 12p as pairs in three bytes, least significant
/// bits first; Mono12Packed and Bayer 12Packed as pairs with the high 8 bits of each pixel in
/// bytes 0 and 2 and the low nibbles in byte 1 (first pixel in the low nibble). RGB8, BGR8,
/// RGBa8 and BGRa8 (alpha 255) hold 8-bit channels in their order. YUV formats hold full-range
/// BT.601 luma and chroma (Y = 0.299 R + 0.587 G + 0.114 B, Cb = 128 + 0.564 (B - Y),
/// Cr = 128 + 0.713 (R - Y), as OpenCV's RGB to YCrCb conversion computes them) in the byte
/// orders U Y V Y (YUV422_8_UYVY), Y U Y V (YUV422_8, YCbCr422_8), U Y V (YUV8_UYV) and
/// Y Cb Cr (YCbCr8); 4:2:2 chroma is the mean of the pixel pair's chroma.
class ZTCAMERA_API VirtualCamera {
public:
    /// True when frames of this PFNC code can be produced.
    static bool supportsFormat(uint32_t pixelType);

    /// A camera for `config`, or null when the configuration cannot be served; then `error`
    /// (when not null) says which value was wrong and why. Computing the scene takes time in
    /// proportion to the frame size (a fraction of a second at 2448 x 2048).
    static std::unique_ptr<VirtualCamera> open(const VirtualCameraConfig& config,
                                               std::string* error = nullptr);
    ~VirtualCamera();
    VirtualCamera(const VirtualCamera&) = delete;
    VirtualCamera& operator=(const VirtualCamera&) = delete;

    /// The next frame (number frameNumber()), or an empty handle when every frame buffer is
    /// still held by the application; a frame in use is never overwritten. The frame's image
    /// size is stride x height, or the packed stream's ceil(bits x pixels / 8) bytes.
    ZTGrabResultPtr grab();

    const VirtualCameraConfig& config() const;
    /// Number of the frame the next successful grab() returns; the first is 0.
    uint64_t frameNumber() const;
    /// Bytes of one frame as its grab result states them.
    size_t frameBytes() const;
    /// Frame buffers currently held by grab results.
    unsigned buffersInUse() const;

    // ---- ground truth: what frame `frame` shows at sensor pixel (x, y) -----------------------
    // x < width and y < height; other positions abort.

    /// Colour of the scene; for the polarization scene the grey S0 / 2 that a sensor without
    /// polarizers would record.
    SceneRgb sceneRgb(uint64_t frame, uint32_t x, uint32_t y) const;
    /// The 16-bit value the sensor records before it is cut to the format's depth: the luma
    /// 0.299 R + 0.587 G + 0.114 B for monochrome (and colour) formats, the channel of the
    /// pixel's filter for Bayer formats, the intensity behind the pixel's polarizer,
    /// S0 / 2 x (1 + degree x cos(2 (theta - angle))), for the polarization scene.
    uint16_t sensorValue(uint64_t frame, uint32_t x, uint32_t y) const;
    /// Polarization of the region under the pixel. Polarization scene only; aborts otherwise.
    ScenePolarization scenePolarization(uint64_t frame, uint32_t x, uint32_t y) const;
    /// Polarizer angle of a sensor pixel in degrees: 90, 45, 135 or 0.
    static double polarizerAngle(uint32_t x, uint32_t y);
    /// The value the frame stores for channel `channel` of pixel (x, y), at the format's own
    /// depth: for single-sample formats channel 0 = sensorValue >> (16 - bits); for RGB-family
    /// formats channels 0, 1, 2 = R, G, B of sceneRgb >> 8 (and 3 = alpha, 255); for YUV formats
    /// channels 0, 1, 2 = Y, Cb (U), Cr (V), the chroma of a 4:2:2 format being its pair's.
    /// Channels past the format's own abort.
    unsigned expectedSample(uint64_t frame, uint32_t x, uint32_t y, unsigned channel) const;

private:
    struct State;
    explicit VirtualCamera(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

}  // namespace ZTI

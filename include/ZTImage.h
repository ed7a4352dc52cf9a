// The image value type: a pixel format, a geometry and pixel memory.
#pragma once

#include <cstddef>
#include <memory>

#include "PixelFormat.h"
#include "ZTExport.h"
#include "ZTGrabResult.h"

namespace ZTI {

struct ZTImageAccess;

/// How attachGrabResult reads packed 10- and 12-bit frames.
enum class PackedLayout {
    /// The library's own reading: every 10-bit code as five-byte groups of four pixels, most
    /// significant bits first; Bayer 10p frames attached without unpacking.
    Legacy,
    /// The layouts the standards publish, as cameras send them: Mono10p and Bayer 10p as four
    /// pixels in five bytes, least significant bits first; Mono10Packed and Bayer 10Packed as
    /// two pixels in three bytes (byte 0 and byte 2 the high 8 bits of each, byte 1 the low
    /// bits in bits 1..0 and 5..4); the 12-bit codes as in Legacy. A frame's row padding is
    /// honoured: each row is read from its own start.
    Published,
};

/// An image: PFNC format, width, height, row padding and pixel memory. The memory belongs to
/// the library's buffer pool, to the caller (attachUserBuffer) or to a camera frame that the
/// image keeps alive (attachGrabResult). Copying an image copies its pixels into pool memory,
/// except that a copy of an image viewing a camera frame views the same frame. The image core
/// reports no errors: a failed allocation leaves an image that is not valid.
/// An image must not be used by two threads at once; distinct images may be used freely.
class ZTI_API ZTImage {
public:
    class ZTImageImpl;

    /// An empty, invalid image (format 0, size 0).
    ZTImage();
    /// An image of the given format and size whose pixels come from the pool; `paddingX` bytes
    /// end every row. When `data` is not null, byte count bytes are copied from it (never
    /// attached).
    ZTImage(PfncFormat_ pixelType, unsigned int width, unsigned int height, int paddingX = 0,
            void* data = nullptr);
    /// Like the constructor, without source data: the pixels are undefined.
    static ZTImage create(PfncFormat_ pixelType, unsigned int width, unsigned int height,
                          int paddingX = 0);

    /// A private copy of `other` (see the class comment); an invalid source gives an empty image.
    ZTImage(const ZTImage& other);
    /// Replaces this image by a private copy of `other`; self-assignment does nothing.
    ZTImage& operator=(const ZTImage& other);
    /// Takes over `other`'s pixels without copying; `other` becomes an empty image.
    ZTImage(ZTImage&& other) noexcept;
    /// Takes over `other`'s pixels without copying; `other` becomes an empty image.
    ZTImage& operator=(ZTImage&& other) noexcept;
    virtual ~ZTImage();

    PfncFormat_ getPixelType() const;
    unsigned int getWidth() const;
    unsigned int getHeight() const;
    /// Bytes of padding at the end of every row.
    int getpaddingX() const;
    /// Bytes from one row to the next: bytes per pixel (rounded down) times width plus padding;
    /// 0 for format 0.
    size_t getStride() const;
    /// Size of the pixel memory as recorded: the tightly packed size for memory the library
    /// allocated (padding excluded), the stated size for attached memory.
    size_t getByteCount() const;
    /// The pixels without detaching (for reading); null when the image is not valid.
    unsigned char* getBuffer() const;
    /// The pixels, writable; gives this image its own memory first if it shares it.
    unsigned char* getBuffer();
    /// True when the image has pixel memory.
    bool isValid() const;

    /// Gives the image new pool memory for this format and size; the padding is kept.
    void reset(PfncFormat_ pixelType, unsigned int width, unsigned int height);
    /// Views a caller's buffer of `size` bytes without copying; the caller keeps it alive and
    /// frees it. Nothing is checked: a null buffer leaves the image invalid.
    void attachUserBuffer(void* buffer, unsigned long size, PfncFormat_ pixelType,
                          unsigned int width, unsigned int height, unsigned long paddingX);
    /// Turns a camera frame into this image: packed 10- and 12-bit mono and Bayer frames are
    /// unpacked into 16-bit pool memory (and the frame is let go at once); other formats are
    /// viewed in the frame's memory, which stays alive while this image or a copy views it.
    /// The frame's stated size (GetImageSize) bounds every read; a frame that states none (0)
    /// is trusted to hold its pixels. A packed frame stated shorter than its pixels need, or
    /// too large for the 32-bit byte count, is not unpacked: the image gets the unpacked format
    /// and size but no memory (not valid), as after a failed allocation.
    void attachGrabResult(const ZTGrabResultPtr& grab);
    /// As attachGrabResult(grab), reading packed 10- and 12-bit mono and Bayer frames by
    /// `layout`; every such frame, Bayer 10p included, is unpacked into the 16-bit format of
    /// its depth (Mono10, BayerRG12 ...). Legacy behaves exactly as the one-argument form.
    ZTI_API void attachGrabResult(const ZTGrabResultPtr& grab, PackedLayout layout);
    /// Gives this image a private implementation if it shares one (copy-on-write).
    void detach();

private:
    friend struct ZTImageAccess;
    std::shared_ptr<ZTImageImpl> impl_;
};

}  // namespace ZTI

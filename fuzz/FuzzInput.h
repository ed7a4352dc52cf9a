// Helpers shared by the fuzz targets: reading bounded parameters from the fuzzer's bytes and
// laying out images over memory that is exactly as large as stated.
#pragma once

#include <ZTImageLib.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace fuzz {

/// Reads parameters from the front of the input; once it runs out, every value reads as 0.
/// Whatever is left at the end serves as pixel bytes.
class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    uint8_t byte() {
        if (size_ == 0) return 0;
        --size_;
        return *data_++;
    }
    uint16_t word() { return static_cast<uint16_t>(byte() | byte() << 8); }
    uint32_t dword() { return static_cast<uint32_t>(word()) | static_cast<uint32_t>(word()) << 16; }
    /// A value in [0, limit).
    uint32_t below(uint32_t limit) { return limit <= 256 ? byte() % limit : word() % limit; }
    bool flag() { return byte() & 1; }

    template <typename T, size_t N>
    const T& pick(const T (&options)[N]) {
        return options[below(static_cast<uint32_t>(N))];
    }

    /// Fills `bytes` from the remaining input, repeated as often as needed (zeros when none is
    /// left), so that large images still get varied pixels from a short input.
    void fill(unsigned char* bytes, size_t count) {
        if (size_ == 0) {
            std::memset(bytes, 0, count);
            return;
        }
        for (size_t i = 0; i < count; i += size_) std::memcpy(bytes + i, data_, count - i < size_ ? count - i : size_);
    }

private:
    const uint8_t* data_;
    size_t size_;
};

/// A width or height: mostly small, sometimes a value whose products wrap 32 bits or leave
/// the matrix library's int range.
inline uint32_t dimension(FuzzInput& in, uint32_t smallLimit) {
    static const uint32_t kLarge[] = {65536, 65537, 0x80000000u, 0xFFFFFFFFu, 46341};
    return in.below(16) == 0 ? in.pick(kLarge) : in.below(smallLimit + 1);
}

/// A pixel format: one of the library's table or 0 mostly, now and then any 32-bit code.
inline PfncFormat_ anyFormat(FuzzInput& in) {
    const ZTI::PixelFormatRange formats = ZTI::getPixelFormats();
    const uint32_t index = in.below(static_cast<uint32_t>(formats.size() + 2));
    if (index < formats.size()) return formats.first[index].code;
    return index == formats.size() ? 0 : in.dword();
}

/// Caller memory of exactly `size` bytes, in its own heap block, so that AddressSanitizer
/// flags any access beyond it.
struct Memory {
    explicit Memory(size_t bytes) : block(bytes != 0 ? bytes : 1), size(bytes) {}
    unsigned char* data() { return block.data(); }
    std::vector<unsigned char> block;
    size_t size;
};

/// Bytes the rows of `image` span through its stride (the last row without padding); 0 for
/// an empty image, SIZE_MAX when the sum does not fit.
inline uint64_t rowBytes(PfncFormat_ format, uint64_t width, uint64_t height, uint64_t padding) {
    if (width == 0 || height == 0) return 0;
    const uint64_t stride = ZTI::getRowStride(format, static_cast<uint32_t>(width), static_cast<int64_t>(padding));
    uint64_t rows = 0, total = 0;
    const uint64_t last = (ZTI::getBitsPerPixel(format) * width + 7) / 8;
    if (__builtin_mul_overflow(height - 1, stride, &rows) || __builtin_add_overflow(rows, last, &total))
        return UINT64_MAX;
    return total;
}

/// Largest caller buffer a target allocates: keeps every input fast.
constexpr uint64_t kMaxBytes = 1 << 16;

/// Most pool memory a target lets one image, copy or conversion ask for. The pool keeps every
/// buffer it ever handed out (a large one filed under a smaller size once it served a smaller
/// image), and under AddressSanitizer even an untouched buffer costs an eighth of its size in
/// shadow memory: with gigabyte requests a run of a few minutes reached libFuzzer's memory limit.
constexpr uint64_t kMaxPoolBytes = uint64_t{64} << 20;

/// True when a copy of an image with this geometry would ask the pool for more than
/// kMaxPoolBytes: images the library owns get memory for every padded row, stride x height,
/// whatever a caller's buffer stated, and a fuzz run should not spend its time and memory on
/// those.
inline bool copyTooLarge(PfncFormat_ format, uint32_t width, uint32_t height, int64_t padding) {
    if (padding <= 0) return false;  // then only the packed (32-bit wrapped) byte count
    uint64_t bytes = 0;
    return __builtin_mul_overflow(uint64_t{ZTI::getRowStride(format, width, padding)}, uint64_t{height}, &bytes) ||
           bytes > kMaxPoolBytes;
}

/// Reads the last byte of a converted image's last row: a conversion that succeeded must have
/// given its destination memory for every row.
inline void touchLastRow(const ZTI::ZTImage& image) {
    if (!image.isValid() || image.getWidth() == 0 || image.getHeight() == 0) return;
    const uint64_t row = uint64_t{ZTI::getBytesPerPixel(image.getPixelType())} * image.getWidth();
    // A negative padding (a stride below the packed row, or one that wrapped round to a huge
    // value) leaves no rows to speak of: nothing to check.
    if (row == 0 || static_cast<int64_t>(image.getStride()) < static_cast<int64_t>(row)) return;
    uint64_t end = ZTI::getSpannedByteCount(row, image.getStride(), image.getHeight());
    if (end == UINT64_MAX) return;
    // The library counts an image's bits and bytes in 32 bits, as it always has: an unpadded
    // image whose count wrapped gets memory for the wrapped count only, so only that much can
    // be asked of it.
    // (A padded one gets every row, or no memory at all.)
    const unsigned __int128 exact = static_cast<unsigned __int128>(ZTI::getBitsPerPixel(image.getPixelType())) *
                                    image.getWidth() * image.getHeight() / 8;
    const bool wrapped = exact != ZTI::getPackedByteCount(image.getPixelType(), image.getWidth(), image.getHeight());
    const bool padded = image.getStride() != ZTI::getRowStride(image.getPixelType(), image.getWidth(), 0);
    if (wrapped && !padded) end = std::min<uint64_t>(end, image.getByteCount());
    if (end == 0) return;
    volatile unsigned char last = image.getBuffer()[end - 1];
    (void)last;
}

// An image of `format` whose memory is chosen by the input; `memory` keeps a caller's buffer
// alive. False when the input asks for more memory than a fuzz run should take.
inline bool makeImage(FuzzInput& in, PfncFormat_ format, uint32_t width, uint32_t height, uint64_t padding,
                      std::unique_ptr<Memory>& memory, ZTI::ZTImage& image) {
    const uint64_t rows = rowBytes(format, width, height, padding);
    const int mode = in.below(5);
    // Mode 0 passes the padding to the constructor's int, so it may turn negative there.
    if (copyTooLarge(format, width, height, mode == 0 ? static_cast<int>(padding) : static_cast<int64_t>(padding)))
        return false;
    if (mode == 0) {  // pool memory: the packed size, or every padded row when larger
        const int pad = static_cast<int>(padding);  // the constructor's int: may turn negative
        uint64_t padded = 0;
        if (pad > 0 && __builtin_mul_overflow(uint64_t{ZTI::getRowStride(format, width, pad)}, uint64_t{height}, &padded))
            return false;
        if (ZTI::getPackedByteCount(format, width, height) > kMaxBytes || padded > kMaxBytes) return false;
        image = ZTI::ZTImage::create(format, width, height, pad);
        // Every byte the pixels occupy: the byte count rounds a partial last byte away, but the
        // image holds it (odd pixel counts of packed 12-bit formats).
        const uint32_t bits = ZTI::getBitsPerPixel(format) * (width * height);
        const uint64_t occupied = image.getByteCount() + ((bits & 7u) != 0 ? 1 : 0);
        if (image.isValid()) in.fill(image.getBuffer(), std::max<uint64_t>(occupied, padded));
        return true;
    }
    uint64_t bytes = 0;
    if (mode == 1) bytes = rows;                               // exactly the rows
    if (mode == 2) bytes = rows == 0 ? 0 : in.dword() % rows;  // short
    if (mode == 3) bytes = in.dword() % (kMaxBytes + 1);       // anything
    if (bytes > kMaxBytes) return false;
    memory = std::make_unique<Memory>(bytes);
    in.fill(memory->data(), memory->size);
    image.attachUserBuffer(mode == 4 ? nullptr : memory->data(), memory->size, format, width, height, padding);
    return true;
}

/// What an application does with an image it was handed: a copy, clones, and conversions to
/// the common output formats. OpenCV's own errors are the documented outcome of some inputs
/// (a padding that splits a 16-bit sample) and are let go; anything else is a finding.
inline void useImage(const ZTI::ZTImage& image) {
    ZTI::ZTImage copy = image;
    ZTI::ZTImage clone = imageutil::cloneValue(image);
    std::shared_ptr<ZTI::ZTImage> shared = imageutil::cloneShared(copy);
    for (PfncFormat_ output : {ZTI::Mono8, ZTI::RGB8, ZTI::Mono16}) {
        if (ZTI::getPackedByteCount(output, image.getWidth(), image.getHeight()) > kMaxPoolBytes) continue;
        // Listed pairs without colour code abort by design; an application checks canConvert.
        if (!ZTI::ImageConverterFactory::canConvert(output, image.getPixelType()) &&
            ZTI::ImageConverterFactory().createConverter(output, image.getPixelType()))
            continue;
        ZTI::ZTImageFormatConverter converter;
        converter.setOutputFormat(output);
        ZTI::ZTImage dst;
        try {
            // A copy of a caller's buffer holds only what the caller stated; a conversion
            // holds every row.
            if (converter.convert(dst, image) == 0 && output != image.getPixelType()) touchLastRow(dst);
        } catch (const cv::Exception&) {
        }
    }
}

}  // namespace fuzz

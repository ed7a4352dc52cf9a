// What every public function does with frames and buffers that do not hold what they claim:
// buffers shorter than their geometry, truncated packed frames, sizes whose byte count wraps,
// paddings that split a sample, unknown formats, invalid and empty images, and destinations
// that do not fit. Caller memory here is always exactly as large as stated, so that
// AddressSanitizer (the suite's sanitizer stage) flags any access beyond it.
#include <ZTImageLib.h>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace ZTI;
namespace fs = std::filesystem;

namespace {

// Caller-owned memory of exactly `size` bytes, in its own heap block.
struct CallerBuffer {
    explicit CallerBuffer(size_t bytesStated, unsigned char value = 0x55)
        : bytes(new unsigned char[bytesStated ? bytesStated : 1]), size(bytesStated) {
        std::memset(bytes.get(), value, size);
    }
    ZTImage attach(PfncFormat_ format, unsigned width, unsigned height, unsigned long padding = 0) {
        ZTImage image;
        image.attachUserBuffer(bytes.get(), size, format, width, height, padding);
        return image;
    }
    std::unique_ptr<unsigned char[]> bytes;
    size_t size;
};

// Bytes a row-by-row reader of the image touches: every row but the last at the stride, the
// last one without its padding.
size_t viewBytes(PfncFormat_ format, unsigned width, unsigned height, size_t padding, size_t bytesPerPixel) {
    const size_t stride = getBytesPerPixel(format) * width + padding;
    return getSpannedByteCount(uint64_t{width} * bytesPerPixel, stride, height);
}

int convertTo(PfncFormat_ output, ZTImage& dst, const ZTImage& src) {
    ZTImageFormatConverter converter;
    converter.setOutputFormat(output);
    return converter.convert(dst, src);
}

class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/ztimage-robust-XXXXXX";
        if (mkdtemp(pattern) != nullptr) path_ = pattern;
    }
    ~TempDir() {
        if (!path_.empty()) fs::remove_all(path_);
    }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    size_t count() const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(path_), fs::directory_iterator()));
    }

private:
    std::string path_;
};

// One conversion route per converter family, with a source geometry that has row padding.
struct Route {
    PfncFormat_ output, source;
    unsigned width, height, padding;
    size_t bytesPerPixel;  // of the source, as its rows are read
};
const Route kRoutes[] = {
    {Mono8, Mono10, 9, 5, 4, 2},           // depth (Mono2Mono)
    {RGB8, Mono8, 9, 5, 3, 1},             // channels (Mono2Rgb)
    {RGB8, BGR8, 9, 5, 2, 3},              // one colour code (BGR2Rgb)
    {RGB8, RGBa8, 9, 5, 4, 4},             // the base converter (RGBA2Rgb)
    {RGB8, YUV422_8, 10, 5, 6, 2},         // 4:2:2
    {Mono8, YCbCr8, 9, 5, 3, 3},           // 4:4:4 through RGB8 (Yuv2Mono)
    {RGB8, BayerRG8, 9, 5, 7, 1},          // demosaicing, 8-bit samples widened
    {Mono8, BayerGB12, 9, 5, 2, 2},        // demosaicing, gathered padded rows
    {RGB16, BayerBG16, 9, 5, 0, 2},        // demosaicing in place
};

}  // namespace

TEST(Robustness, ConversionsNeverReadPastAShortCallerBuffer) {
    // A buffer exactly as large as the rows need converts; one byte less is refused with -1
    // by the front end and with an OpenCV error by the converter object itself, and in
    // neither case is the missing byte read.
    for (const Route& r : kRoutes) {
        SCOPED_TRACE(std::string(getPixelFormatName(r.source)) + " -> " + getPixelFormatName(r.output));
        const size_t needed = viewBytes(r.source, r.width, r.height, r.padding, r.bytesPerPixel);
        CallerBuffer exact(needed), shortBy1(needed - 1);
        ZTImage whole = exact.attach(r.source, r.width, r.height, r.padding);
        ZTImage cut = shortBy1.attach(r.source, r.width, r.height, r.padding);
        ZTImage dst;
        EXPECT_EQ(convertTo(r.output, dst, whole), 0);
        EXPECT_EQ(convertTo(r.output, dst, cut), -1);
        EXPECT_EQ(dst.getPixelType(), r.output);  // shaped as for any refused conversion
        EXPECT_EQ(dst.getWidth(), r.width);

        std::unique_ptr<IImageConverter> converter = ImageConverterFactory().createConverter(r.output, r.source);
        ASSERT_TRUE(converter);
        ZTImage shaped = ZTImage::create(r.output, r.width, r.height);
        EXPECT_THROW(converter->convert(shaped, cut), cv::Exception);
    }
}

TEST(Robustness, ProcessingAndSavingNeverReadPastAShortCallerBuffer) {
    TempDir dir;
    for (PfncFormat_ format : {Mono8, Mono12, Mono12p, Mono12Packed}) {
        SCOPED_TRACE(getPixelFormatName(format));
        const size_t needed = getPackedByteCount(format, 6, 4);
        CallerBuffer exact(needed), cut(needed - 1);
        ZTImage whole = exact.attach(format, 6, 4), shortImage = cut.attach(format, 6, 4);
        ZTImage wholeCopy = whole;
        // Packed formats are stretched in the destination, Mono8 and Mono12 read the source.
        EXPECT_EQ(histStretch(whole, wholeCopy, 10, 200), 0);
        EXPECT_EQ(histStretch(shortImage, wholeCopy, 10, 200), format == Mono12p || format == Mono12Packed ? 0 : -1);
        EXPECT_EQ(histStretch(whole, shortImage, 10, 200), -1);
        if (!ImagePersistence::canSave(Png, format)) continue;  // packed: no file format
        ImagePersistence::save(Png, shortImage, dir.file("short.png").c_str());
        std::string error;
        EXPECT_FALSE(ImagePersistence::trySave(Png, shortImage, dir.file("short.png").c_str(), error));
        EXPECT_NE(error.find("bytes"), std::string::npos) << error;
        ImagePersistence::save(Png, whole, dir.file(std::to_string(format) + ".png").c_str());
    }
    EXPECT_EQ(dir.count(), 2u);  // only the whole Mono8 and Mono12 images were written

    // A padded caller's buffer stated one byte short of its packed pixels: a copy of it has
    // memory for every padded row, but nothing defined past the stated size, so it is not
    // saved either.
    CallerBuffer padded(6 * 4 - 1);
    ImagePersistence::save(Png, padded.attach(Mono8, 6, 4, 2), dir.file("padded.png").c_str());
    EXPECT_EQ(dir.count(), 2u);

    CallerBuffer cut(6 * 4 - 1);
    ZTImage shortMono = cut.attach(Mono8, 6, 4), out = ZTImage::create(Mono8, 6, 4);
    EXPECT_EQ(histEqual(shortMono, out), -1);
    EXPECT_EQ(histEqual(out, shortMono), -1);
}

TEST(Robustness, TruncatedPackedFramesAreNotUnpacked) {
    // Packed bytes each unpacker reads: 10-bit, five per group of four pixels and k + 1 for a
    // partial group of k; 12-bit, three per pair (an odd last pixel is not read).
    struct Case {
        PfncFormat_ code, target;
        unsigned width, height;
        size_t packedBytes;
    };
    const Case cases[] = {{Mono10p, Mono10, 5, 1, 7}, {BayerRG10Packed, BayerRG10, 4, 3, 15},
                          {Mono12p, Mono12, 8, 4, 48}, {BayerGR12Packed, BayerGR12, 3, 3, 12}};
    for (const Case& c : cases) {
        SCOPED_TRACE(getPixelFormatName(c.code));
        CallerBuffer frame(c.packedBytes, 0xA5);
        int released = 0;
        for (uint64_t stated : {uint64_t{c.packedBytes}, uint64_t{0}, uint64_t{c.packedBytes - 1}}) {
            ZTImage image;
            image.attachGrabResult(createGrabResult(c.code, c.width, c.height, 0, frame.bytes.get(), stated,
                                                    [&] { ++released; }));
            EXPECT_EQ(image.getPixelType(), c.target);
            EXPECT_EQ(image.getWidth(), c.width);
            // A stated size too small for the pixels leaves the image without memory, like a
            // failed allocation; an unknown size (0) is trusted.
            EXPECT_EQ(image.isValid(), stated != c.packedBytes - 1) << "stated " << stated;
        }
        EXPECT_EQ(released, 3) << "unpacked frames are let go at once";
    }

    // 16384 x 16384 pixels: the 16-bit byte count wraps to 0, so the image cannot hold the
    // unpacked pixels and nothing is unpacked (nor read from the 16-byte frame).
    CallerBuffer tiny(16);
    ZTImage huge;
    huge.attachGrabResult(createGrabResult(Mono12p, 16384, 16384, 0, tiny.bytes.get(), 0));
    EXPECT_EQ(huge.getByteCount(), 0u);
    EXPECT_FALSE(huge.isValid());
    ZTImage out;
    EXPECT_EQ(convertTo(Mono8, out, huge), -1);

    // A failed grab may come without memory: nothing to unpack or view.
    for (PfncFormat_ code : {Mono12Packed, Mono10p, Mono8}) {
        ZTImage image;
        image.attachGrabResult(createGrabResult(code, 4, 4, 0, nullptr, 0));
        EXPECT_FALSE(image.isValid()) << getPixelFormatName(code);
        EXPECT_EQ(convertTo(RGB8, out, image), -1);
    }
}

TEST(Robustness, ViewedFramesAreReadWithinTheirStatedSize) {
    // A padded Mono8 frame: stride 12, three rows need 12 + 12 + 9 = 33 bytes.
    CallerBuffer frame(36, 7);
    ZTImage rgb;
    for (uint64_t stated : {uint64_t{36}, uint64_t{33}, uint64_t{0}}) {
        ZTImage image;
        image.attachGrabResult(createGrabResult(Mono8, 9, 3, 3, frame.bytes.get(), stated));
        EXPECT_EQ(convertTo(RGB8, rgb, image), 0) << "stated " << stated;
        EXPECT_EQ(rgb.getBuffer()[3 * 26], 7);
    }
    // An unknown size (0) is recorded as the packed byte count, but the frame's own geometry
    // is trusted for reading; a stated size one byte short of the rows is not.
    ZTImage cut;
    cut.attachGrabResult(createGrabResult(Mono8, 9, 3, 3, frame.bytes.get(), 32));
    EXPECT_EQ(convertTo(RGB8, rgb, cut), -1);
    ZTImage out = ZTImage::create(Mono8, 9, 3);
    EXPECT_EQ(histEqual(cut, out), 0) << "equalization reads packed rows: 27 bytes exist";
}

TEST(Robustness, GeometriesWhoseByteCountWrapsAreNeverTrusted) {
    TempDir dir;
    // 65536 x 65537 Mono8: 2^32 + 65536 pixels, recorded (32-bit, as always) as 65536 bytes.
    ZTImage wrapped = ZTImage::create(Mono8, 65536, 65537);
    ASSERT_TRUE(wrapped.isValid());
    EXPECT_EQ(wrapped.getByteCount(), 65536u);
    ZTImage dst;
    EXPECT_EQ(convertTo(RGB8, dst, wrapped), -1);
    EXPECT_EQ(convertTo(RGB8, dst, ZTImage::create(Mono8, 4, 4)), 0);
    ZTImage out = ZTImage::create(Mono8, 65536, 65537);
    EXPECT_EQ(histStretch(wrapped, out, 0, 100), -1);
    EXPECT_EQ(histEqual(wrapped, out), -1);
    ImagePersistence::save(Png, wrapped, dir.file("wrapped.png").c_str());
    EXPECT_EQ(dir.count(), 0u);
    ZTImage clone = imageutil::cloneValue(wrapped);  // copies what exists
    EXPECT_EQ(clone.getByteCount(), 65536u);

    // As a destination: 65536 x 65536 RGB8 from a small source whose stated size is honest
    // about its rows is impossible; a source claiming that width is refused before the
    // destination (recorded as 0 bytes) is written.
    CallerBuffer small(64);
    EXPECT_EQ(convertTo(RGB8, dst, small.attach(Mono8, 65536, 65536)), -1);
    // Widths beyond the matrix library's int range, and strides that wrap.
    EXPECT_EQ(convertTo(RGB8, dst, small.attach(Mono8, 0x80000000u, 1)), -1);
    EXPECT_EQ(convertTo(RGB8, dst, small.attach(Mono8, 8, 4, ULONG_MAX - 100)), -1);
    ZTImage negative(Mono8, 8, 4, -100);  // stride 8 - 100 wraps to almost 2^64
    EXPECT_EQ(convertTo(RGB8, dst, negative), -1);
    EXPECT_TRUE(imageutil::cloneValue(negative).isValid());

    // Memory that cannot exist: the allocation fails and the image is simply not valid.
    ZTImage impossible = ZTImage::create(Mono8, 1024, 1024, INT_MAX);
    EXPECT_FALSE(impossible.isValid());
    EXPECT_EQ(impossible.getByteCount(), 1024u * 1024u);
    EXPECT_EQ(convertTo(RGB8, dst, impossible), -1);
}

TEST(Robustness, PaddingsThatSplitASample) {
    // The matrix library refuses a row step that is not a multiple of the channel size: such a
    // 16-bit image throws cv::Exception from the converters that view it, and the exception
    // passes through the front end. The Bayer converters gather rows bytewise and accept it;
    // the histogram functions and saving ignore padding.
    CallerBuffer mono16(viewBytes(Mono16, 5, 3, 1, 2), 0x10), bayer16(viewBytes(BayerRG16, 6, 4, 3, 2), 0x10);
    ZTImage odd = mono16.attach(Mono16, 5, 3, 1);
    ZTImage dst;
    EXPECT_THROW(convertTo(Mono8, dst, odd), cv::Exception);
    EXPECT_EQ(convertTo(RGB8, dst, bayer16.attach(BayerRG16, 6, 4, 3)), 0);
    CallerBuffer rgb(viewBytes(RGB8, 5, 3, 2, 3));
    EXPECT_EQ(convertTo(Mono8, dst, rgb.attach(RGB8, 5, 3, 2)), 0) << "8-bit channels: any step";

    CallerBuffer mono12(2 * 5 * 3 + 1, 0x01);
    ZTImage twelve = mono12.attach(Mono12, 5, 3, 1), out = ZTImage::create(Mono12, 5, 3);
    EXPECT_EQ(histStretch(twelve, out, 0, 4095), 0);
    TempDir dir;
    std::string error;
    EXPECT_TRUE(ImagePersistence::trySave(Png, odd, dir.file("odd.png").c_str(), error)) << error;
}

TEST(Robustness, OddWidthYuv422IsRefused) {
    // 4:2:2 pixels come in pairs sharing chroma; OpenCV converts a row of odd width by reading
    // and writing a whole pair past its end (into the next row, or past the buffer on the last
    // one). Such images are refused before OpenCV sees them.
    TempDir dir;
    for (PfncFormat_ format : {YUV422_8_UYVY, YUV422_8, YCbCr422_8}) {
        SCOPED_TRACE(getPixelFormatName(format));
        CallerBuffer odd(3 * 2 * 2), even(4 * 2 * 2);
        ZTImage dst;
        EXPECT_EQ(convertTo(RGB8, dst, odd.attach(format, 3, 2)), -1);
        EXPECT_EQ(convertTo(Mono8, dst, odd.attach(format, 3, 2)), -1);
        EXPECT_EQ(convertTo(RGB8, dst, even.attach(format, 4, 2)), 0);
        std::unique_ptr<IImageConverter> converter = ImageConverterFactory().createConverter(RGB8, format);
        ZTImage shaped = ZTImage::create(RGB8, 3, 2);
        EXPECT_THROW(converter->convert(shaped, odd.attach(format, 3, 2)), cv::Exception);
        ImagePersistence::save(Png, odd.attach(format, 3, 2), dir.file("odd.png").c_str());
        std::string error;
        EXPECT_FALSE(ImagePersistence::trySave(Png, odd.attach(format, 3, 2), dir.file("odd.png").c_str(), error));
        EXPECT_NE(error.find("odd width"), std::string::npos) << error;
    }
    EXPECT_EQ(dir.count(), 0u);
}

TEST(Robustness, UnknownFormatsAndFormatZero) {
    const PfncFormat_ unknown = 0x01089999;  // 8 bits per pixel, in no table
    ZTImage image = ZTImage::create(unknown, 4, 4), dst;
    ASSERT_TRUE(image.isValid());
    EXPECT_EQ(convertTo(Mono8, dst, image), -1);
    EXPECT_EQ(convertTo(unknown, dst, image), 0) << "equal formats copy, whatever they are";
    EXPECT_EQ(std::memcmp(dst.getBuffer(), image.getBuffer(), 16), 0);
    EXPECT_EQ(histStretch(image, dst, 0, 10), -1);
    EXPECT_EQ(histEqual(image, dst), 0) << "not a one-channel matrix format: left alone";
    EXPECT_FALSE(ImagePersistence::canSave(Png, unknown));

    ZTImage none = ZTImage::create(0, 4, 4);
    EXPECT_EQ(none.getStride(), 0u);
    EXPECT_EQ(none.getByteCount(), 0u);
    EXPECT_EQ(convertTo(RGB8, dst, none), -1);
    EXPECT_EQ(histStretch(none, dst, 0, 10), -1);

    // Frames of unknown codes are viewed as they are; layouts the library cannot hold get
    // format 0 and convert to nothing.
    CallerBuffer frame(32);
    ZTImage viewed, unusable;
    viewed.attachGrabResult(createGrabResult(unknown, 4, 4, 0, frame.bytes.get(), 32));
    EXPECT_EQ(viewed.getBuffer(), frame.bytes.get());
    unusable.attachGrabResult(createGrabResult(RGB10V1Packed, 4, 4, 0, frame.bytes.get(), 32));
    EXPECT_EQ(unusable.getPixelType(), 0u);
    EXPECT_EQ(convertTo(RGB8, dst, unusable), -1);
}

TEST(Robustness, InvalidImagesGiveFailuresNotExceptions) {
    // Images without memory: the default one, one whose caller buffer is null but whose
    // format and size are set, and a failed allocation.
    ZTImage plain, nullBuffer, failed = ZTImage::create(Mono12, 1024, 1024, INT_MAX);
    nullBuffer.attachUserBuffer(nullptr, 0, Mono12, 64, 48, 0);
    TempDir dir;
    for (ZTImage* image : {&plain, &nullBuffer, &failed}) {
        ASSERT_FALSE(image->isValid());
        ZTImage dst, mono = ZTImage::create(Mono8, 64, 48);
        EXPECT_EQ(convertTo(Mono8, dst, *image), -1);
        EXPECT_EQ(convertTo(RGB8, dst, *image), -1);
        EXPECT_EQ(histStretch(*image, mono, 0, 100), -1);
        EXPECT_EQ(histStretch(mono, *image, 0, 100), -1);
        EXPECT_EQ(histEqual(*image, mono), -1);
        EXPECT_EQ(histEqual(mono, *image), -1);
        EXPECT_FALSE(ZTImage(*image).isValid());
        EXPECT_FALSE(imageutil::cloneShared(*image));
        EXPECT_FALSE(imageutil::cloneValue(*image).isValid());
        // A default image has format 0, which saving cannot convert (a programming error,
        // see the death test); the others have a format and no memory.
        if (image != &plain) ImagePersistence::save(Png, *image, dir.file("invalid.png").c_str());
    }
    EXPECT_EQ(dir.count(), 0u);
}

TEST(Robustness, EmptyImagesConvertToEmptyImages) {
    // Zero width or height: nothing to convert, for every converter family; the destination
    // takes the output format and the empty size.
    for (const Route& r : kRoutes) {
        SCOPED_TRACE(getPixelFormatName(r.source));
        for (auto [w, h] : {std::pair<unsigned, unsigned>{0, 5}, {7, 0}}) {
            ZTImage src = ZTImage::create(r.source, w, h), dst;
            EXPECT_EQ(convertTo(r.output, dst, src), 0);
            EXPECT_EQ(dst.getPixelType(), r.output);
            EXPECT_EQ(dst.getWidth(), w);
            EXPECT_EQ(dst.getHeight(), h);
        }
    }
    ZTImage empty = ZTImage::create(Mono8, 0, 5), out = ZTImage::create(Mono8, 0, 5);
    EXPECT_EQ(histStretch(empty, out, 0, 10), 0);
    EXPECT_EQ(histEqual(empty, out), 0);
    TempDir dir;
    ImagePersistence::save(Png, empty, dir.file("empty.png").c_str());
    ImagePersistence::save(Png, ZTImage::create(BayerRG8, 0, 4), dir.file("empty-bayer.png").c_str());
    EXPECT_EQ(dir.count(), 0u);
    std::string error;
    EXPECT_FALSE(ImagePersistence::trySave(Png, empty, dir.file("empty.png").c_str(), error));
}

TEST(Robustness, DestinationsThatDoNotFitAreNotOverrun) {
    // The front end keeps a destination that already has the output format and size, so a
    // caller's buffer attached as destination is written in place; one that is too short for
    // its rows is refused rather than overrun.
    ZTImage src = ZTImage::create(Mono8, 6, 4), dst;
    std::memset(src.getBuffer(), 9, 24);
    CallerBuffer exact(3 * 24, 0), cut(3 * 24 - 1, 0);
    dst = exact.attach(RGB8, 6, 4);
    EXPECT_EQ(convertTo(RGB8, dst, src), 0);
    EXPECT_EQ(dst.getBuffer(), exact.bytes.get());
    EXPECT_EQ(exact.bytes[3 * 24 - 1], 9);
    dst = cut.attach(RGB8, 6, 4);
    EXPECT_EQ(convertTo(RGB8, dst, src), -1);
    EXPECT_EQ(cut.bytes[0], 0);

    // A converter object given a destination of another size writes into memory of OpenCV's
    // own, not into the image.
    ZTImage small = ZTImage::create(RGB8, 2, 2);
    std::memset(small.getBuffer(), 1, 12);
    Mono2Rgb().convert(small, src);
    EXPECT_EQ(small.getBuffer()[11], 1);

    // The histogram functions check the destination's memory and shape.
    ZTImage tiny = ZTImage::create(Mono8, 2, 2);
    EXPECT_EQ(histStretch(src, tiny, 0, 10), -1);
    EXPECT_EQ(histEqual(src, tiny), -1);
    ZTImage rgb = ZTImage::create(RGB8, 6, 4);
    EXPECT_EQ(histEqual(src, rgb), -1);
}

TEST(Robustness, PolarizationFunctionsReadOnlyWhatExists) {
    using Function = std::function<int(const ZTImage&, ZTImage&)>;
    const std::pair<const char*, Function> functions[] = {
        {"CreateStokesS0", CreateStokesS0},
        {"CreateStokesS1", CreateStokesS1},
        {"CreateStokesS2", CreateStokesS2},
        {"CreateDolp", CreateDolp},
        {"CreateAolp", CreateAolp},
        {"CreateGlareReduced", CreateGlareReduced},
        {"CreateHeatmap", [](const ZTImage& s, ZTImage& d) { return CreateHeatmap(s, d, 10, 90, 1, 5); }},
        {"ExtractPolarQuadrant", [](const ZTImage& s, ZTImage& d) { return ExtractPolarQuadrant(s, d, PolarQuadrantI45); }},
        {"ExtractFullPolarQuadrant", ExtractFullPolarQuadrant},
        {"extractFullPolarQuadrant", extractFullPolarQuadrant},
    };
    for (const auto& [name, function] : functions) {
        SCOPED_TRACE(name);
        // A padded Mono8 mosaic whose buffer ends with its last pixel converts; one byte less
        // is refused, as are a Mono12 source one byte short, invalid images and a byte count
        // that wrapped. The destination keeps its memory on every refusal. The plain tiling
        // reads rows as packed, so its mosaic has no padding.
        const bool plainTiling = name == std::string("extractFullPolarQuadrant");
        const unsigned padding = plainTiling ? 0 : 3;
        const size_t needed = viewBytes(Mono8, 6, 4, padding, 1);
        CallerBuffer exact(needed, 40), cut(needed - 1, 40), cut12(viewBytes(Mono12, 6, 4, 0, 2) - 1, 1);
        ZTImage dst = ZTImage::create(Mono8, 2, 2);
        EXPECT_EQ(function(exact.attach(Mono8, 6, 4, padding), dst), 0);
        dst = ZTImage::create(Mono8, 2, 2);
        unsigned char* kept = dst.getBuffer();
        EXPECT_EQ(function(cut.attach(Mono8, 6, 4, padding), dst), -1);
        ZTImage nullBuffer;
        nullBuffer.attachUserBuffer(nullptr, 0, Mono8, 6, 4, 0);
        EXPECT_EQ(function(nullBuffer, dst), -1);
        EXPECT_EQ(function(ZTImage(), dst), -1);
        EXPECT_EQ(function(ZTImage::create(Mono8, 65536, 65537), dst), -1);
        EXPECT_EQ(function(cut12.attach(Mono12, 6, 4), dst), -1);
        EXPECT_EQ(dst.getBuffer(), kept);
    }
    // An angle outside the four is refused.
    ZTImage mosaic = ZTImage::create(Mono8, 4, 4), dst;
    EXPECT_EQ(ExtractPolarQuadrant(mosaic, dst, static_cast<PolarizationQuadrant>(4)), -1);
    EXPECT_EQ(ExtractPolarQuadrant(mosaic, dst, static_cast<PolarizationQuadrant>(-1)), -1);
    // The plain tiling checks its source memory in its own element size.
    CallerBuffer words(2 * 16 - 1);
    EXPECT_EQ(extractFullPolarQuadrant(words.attach(Mono16, 4, 4), dst), -1);
}

TEST(Robustness, BufferPoolRefusesWhatCannotExist) {
    ImageBufferPool& pool = ImageBufferPool::getInstance();
    // 64 TiB: more than any machine this runs on can map (and, unlike SIZE_MAX, a size that
    // memory checkers take at face value).
    EXPECT_EQ(pool.acquireBuffer(size_t{1} << 46), nullptr);
    pool.releaseBuffer(nullptr, 1000);  // ignored
}

using RobustnessDeathTest = testing::Test;

TEST_F(RobustnessDeathTest, ListedPairsWithoutColourCodeAbortOrAreRefused) {
    // Programming errors: saving pixels no conversion can produce a file from (trySave and
    // canSave are the checked alternatives), and the conversions to Mono8 the polarization
    // functions make of a deep RGB or BGR source (canConvert tells beforehand).
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    TempDir dir;
    const std::string path = dir.file("x.png");
    EXPECT_DEATH(ImagePersistence::save(Png, ZTImage::create(0x01089999, 2, 2), path.c_str()), "Assertion .false. failed");
    EXPECT_DEATH(ImagePersistence::save(Bmp, ZTImage::create(0, 2, 2), path.c_str()), "Assertion .false. failed");
    EXPECT_DEATH(ImagePersistence::save(Png, ZTImage::create(BGR16, 2, 2), path.c_str()), "get_cv_cvt_type");
    EXPECT_EQ(dir.count(), 0u);
    ZTImage dst;
    EXPECT_FALSE(ImageConverterFactory::canConvert(Mono8, RGB12));
    // A frame's format is data: the polarization functions treat these pairs as no conversion.
    EXPECT_EQ(CreateStokesS0(ZTImage::create(RGB12, 4, 4), dst), -1);
    EXPECT_FALSE(dst.isValid());
    EXPECT_EQ(CreateHeatmap(ZTImage::create(BGR10, 4, 4), dst, 0, 100, 1, 5), -1);
    EXPECT_FALSE(dst.isValid());
}

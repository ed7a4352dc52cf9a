// ztimage as a user runs it: its files, messages and exit statuses. Expected pixels come from
// the library itself (the same bytes through attachGrabResult and the converter front end) or
// from OpenCV directly, so the tests check the tool's plumbing, not the library again.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <algorithm>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <random>
#include <string>
#include <vector>

#include "ZTImageLib.h"
#include "ToolRun.h"

using namespace tooltest;
using Bytes = std::vector<unsigned char>;

namespace {

Bytes randomBytes(size_t count, unsigned int seed) {
    std::mt19937 generator(seed);
    Bytes bytes(count);
    for (unsigned char& b : bytes) b = static_cast<unsigned char>(generator() >> 24);
    return bytes;
}

// The image's pixels with packed rows, as the tool writes .raw files.
Bytes packedPixels(const ZTI::ZTImage& image) {
    const size_t row = ZTI::getRowStride(image.getPixelType(), image.getWidth(), 0);
    Bytes bytes(row * image.getHeight());
    for (unsigned int y = 0; y < image.getHeight(); ++y) {
        std::copy_n(image.getBuffer() + y * image.getStride(), row, bytes.begin() + y * row);
    }
    return bytes;
}

// What the library makes of a raw frame of `bytes`: attached as a camera frame, then
// converted to `to`.
Bytes libraryConversion(ZTI::PfncFormat_ from, unsigned int w, unsigned int h, unsigned int padding, Bytes bytes,
                        ZTI::PfncFormat_ to, ZTI::DemosaicMethod method = ZTI::DemosaicMethod::HamiltonAdams) {
    ZTI::ZTImage frame;
    frame.attachGrabResult(ZTI::createGrabResult(from, w, h, padding, bytes.data(), bytes.size()));
    if (frame.getPixelType() == to) return packedPixels(frame);
    ZTI::ZTImageFormatConverter converter;
    converter.setOutputFormat(to);
    converter.setDemosaicMethod(method);
    ZTI::ZTImage converted;
    EXPECT_EQ(converter.convert(converted, frame), 0);
    return packedPixels(converted);
}

std::vector<std::string> rawArgs(const std::string& format, unsigned int w, unsigned int h) {
    return {"--from", format, "--width", std::to_string(w), "--height", std::to_string(h)};
}

std::vector<std::string> operator+(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace

TEST(ToolDemo, SavesEveryResultAsADecodablePngAndReportsStageTimes) {
    TempDirectory dir;
    const RunResult run = runTool({"demo", "--frames", "2", "--width", "256", "--height", "192"}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    // Not a terminal: no progress bar, nothing on standard error.
    EXPECT_EQ(run.err, "");
    EXPECT_NE(run.out.find("ms/frame"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("Mono12 contrast stretch"), std::string::npos) << run.out;

    std::vector<std::string> expected = {
        "colour-BayerRG12p.png", "colour-BayerRG8.png", "mono-Mono8.png", "mono-equalized.png",
        "mono-stretched.png",    "polar-AoLP.png",      "polar-DoLP.png", "polar-S0.png",
        "polar-glare-reduced.png", "polar-heatmap.png", "polar-quadrants-raw.png", "polar-quadrants.png"};
    std::sort(expected.begin(), expected.end());
    // Exactly these files: also no temporary file left behind by the atomic writes.
    ASSERT_EQ(dir.entries("demo-out"), expected);
    for (const std::string& name : expected) {
        const cv::Mat image = cv::imread(dir.file("demo-out/" + name), cv::IMREAD_UNCHANGED);
        ASSERT_FALSE(image.empty()) << name;
        EXPECT_EQ(image.cols, 256) << name;
        EXPECT_EQ(image.rows, 192) << name;
        const bool colour = name.rfind("colour-", 0) == 0 || name == "polar-heatmap.png";
        EXPECT_EQ(image.channels(), colour ? 3 : 1) << name;
        EXPECT_EQ(image.depth(), CV_8U) << name;
    }
}

TEST(ToolConvert, RawFramesConvertAsTheLibraryConvertsThem) {
    struct Case {
        const char* from;
        unsigned int width, height, padding;
        const char* to;
        const char* demosaic = nullptr;  // the --demosaic value, if given
    };
    const std::vector<Case> cases = {
        {"Mono12p", 6, 4, 0, "Mono8"},          // LSB-first pairs, unpacked
        {"mono12packed", 6, 3, 0, "RGB8"},      // packed pairs; names in any case
        {"Mono10Packed", 5, 3, 0, "Mono16"},    // 15 pixels end in a partial five-byte group
        {"YUV422_8", 8, 2, 0, "RGB8"},
        {"BGR8", 5, 3, 0, "Mono8"},
        {"RGBa8", 4, 4, 0, "RGB8"},
        {"Mono12", 5, 3, 6, "Mono16"},          // padded rows are skipped
        {"Mono8", 5, 3, 4, "Mono8"},            // no conversion, padding still removed
        {"BayerRG12p", 8, 6, 0, "RGB8"},        // unpacked, then demosaiced
        {"BayerGR12", 9, 6, 0, "RGB12", "quality"},
        {"BayerBG8", 8, 5, 0, "Mono8", "quality"},
        {"BayerBG8", 8, 5, 0, "Mono8", "ha"},
    };

    TempDirectory dir;
    unsigned int seed = 1;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.from) + " -> " + c.to);
        const ZTI::PfncFormat_ from = ZTI::findPixelFormat(c.from), to = ZTI::findPixelFormat(c.to);
        const uint64_t size = ZTI::getBitsPerPixel(from) % 8 != 0
            ? (uint64_t{ZTI::getBitsPerPixel(from)} * c.width * c.height + 7) / 8
            : ZTI::getRowStride(from, c.width, c.padding) * c.height;
        const Bytes bytes = randomBytes(size, seed++);
        writeBytes(dir.file("in.raw"), bytes);
        std::vector<std::string> args = std::vector<std::string>{"convert", "in.raw", "--to", c.to, "-o", "out.raw",
                                                                 "--padding", std::to_string(c.padding)} +
                                        rawArgs(c.from, c.width, c.height);
        if (c.demosaic) args = args + std::vector<std::string>{"--demosaic", c.demosaic};
        const RunResult run = runTool(args, dir.path());
        ASSERT_EQ(run.status, 0) << run.err;
        const bool quality = c.demosaic && std::string(c.demosaic) == "quality";
        EXPECT_EQ(readBytes(dir.file("out.raw")),
                  libraryConversion(from, c.width, c.height, c.padding, bytes, to,
                                    quality ? ZTI::DemosaicMethod::Quality : ZTI::DemosaicMethod::HamiltonAdams));
    }
}

TEST(ToolConvert, ImageFilesBatchesAndEnhancementMatchTheLibrary) {
    TempDirectory dir;
    // 12-bit samples in a 16-bit grey file, read as Mono12 with --from.
    cv::Mat mono12(6, 10, CV_16UC1);
    cv::randu(mono12, 0, 4096);
    ASSERT_TRUE(cv::imwrite(dir.file("deep.png"), mono12));
    const Bytes deepBytes(mono12.data, mono12.data + mono12.total() * 2);

    RunResult run = runTool({"convert", "deep.png", "--from", "Mono12", "--to", "Mono8", "-o", "deep8.raw"}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(readBytes(dir.file("deep8.raw")), libraryConversion(ZTI::Mono12, 10, 6, 0, deepBytes, ZTI::Mono8));

    // Stretch of Mono12 equals histStretch on the same samples; a PNG file takes Mono12 as
    // Mono16, converted by the library.
    run = runTool({"stretch", "deep.png", "--from", "Mono12", "--low", "100", "--high", "3000", "-o", "s.png"}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    ZTI::ZTImage source(ZTI::Mono12, 10, 6, 0, mono12.data), stretched(ZTI::Mono12, 10, 6);
    ASSERT_EQ(ZTI::histStretch(source, stretched, 100, 3000), 0);
    const cv::Mat saved = cv::imread(dir.file("s.png"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(saved.type(), CV_16UC1);
    EXPECT_EQ(Bytes(saved.data, saved.data + saved.total() * 2),
              libraryConversion(ZTI::Mono12, 10, 6, 0, packedPixels(stretched), ZTI::Mono16));

    // A padded raw Mono8 frame is stretched row by row, padding skipped: histStretch itself
    // addresses rows as packed, so the expectation is built from the packed pixels.
    const Bytes padded = randomBytes((5 + 3) * 4, 9);
    writeBytes(dir.file("padded.raw"), padded);
    run = runTool(std::vector<std::string>{"stretch", "padded.raw", "--padding", "3", "--low", "20", "--high", "200",
                                           "-o", "p.raw"} + rawArgs("Mono8", 5, 4),
                  dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    Bytes packed = libraryConversion(ZTI::Mono8, 5, 4, 3, padded, ZTI::Mono8);
    ZTI::ZTImage packedImage(ZTI::Mono8, 5, 4, 0, packed.data()), paddedStretched(ZTI::Mono8, 5, 4);
    ASSERT_EQ(ZTI::histStretch(packedImage, paddedStretched, 20, 200), 0);
    EXPECT_EQ(readBytes(dir.file("p.raw")), packedPixels(paddedStretched));

    // Equalization of an 8-bit grey file equals histEqual.
    cv::Mat grey(8, 12, CV_8UC1);
    cv::randu(grey, 0, 256);
    ASSERT_TRUE(cv::imwrite(dir.file("grey.png"), grey));
    run = runTool({"equalize", "grey.png", "-o", "e.raw"}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    ZTI::ZTImage greyImage(ZTI::Mono8, 12, 8, 0, grey.data), equalized(ZTI::Mono8, 12, 8);
    ASSERT_EQ(ZTI::histEqual(greyImage, equalized), 0);
    EXPECT_EQ(readBytes(dir.file("e.raw")), packedPixels(equalized));

    // A colour file arrives in OpenCV's blue-green-red order: RGB8 output swaps it back.
    cv::Mat colour(4, 6, CV_8UC3);
    cv::randu(colour, 0, 256);
    ASSERT_TRUE(cv::imwrite(dir.file("colour.png"), colour));
    run = runTool({"convert", "colour.png", "--to", "rgb8", "-o", "colour.raw"}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    const Bytes rgb = readBytes(dir.file("colour.raw"));
    ASSERT_EQ(rgb.size(), colour.total() * 3);
    for (size_t i = 0; i < colour.total(); ++i) {
        const cv::Vec3b bgr = colour.at<cv::Vec3b>(static_cast<int>(i));
        ASSERT_EQ(rgb[3 * i], bgr[2]) << "pixel " << i;
        ASSERT_EQ(rgb[3 * i + 2], bgr[0]) << "pixel " << i;
    }

    // 16-bit colour arrives as RGB16, which converts onwards.
    cv::Mat deepColour(3, 5, CV_16UC3);
    cv::randu(deepColour, 0, 65536);
    ASSERT_TRUE(cv::imwrite(dir.file("deep-colour.png"), deepColour));
    run = runTool({"convert", "deep-colour.png", "--to", "RGB16", "-o", "deep-colour.raw"}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    const Bytes rgb16 = readBytes(dir.file("deep-colour.raw"));
    ASSERT_EQ(rgb16.size(), deepColour.total() * 6);
    for (size_t i = 0; i < deepColour.total(); ++i) {
        const cv::Vec3w bgr = deepColour.at<cv::Vec3w>(static_cast<int>(i));
        uint16_t red = 0;
        std::copy_n(rgb16.data() + 6 * i, 2, reinterpret_cast<unsigned char*>(&red));
        ASSERT_EQ(red, bgr[2]) << "pixel " << i;
    }

    // A batch: one output per input, named after it, with the chosen extension.
    run = runTool({"convert", "grey.png", "colour.png", "--to", "Mono8", "--out-dir", "batch", "--ext", "bmp"}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(dir.entries("batch"), (std::vector<std::string>{"colour.bmp", "grey.bmp"}));
    EXPECT_EQ(cv::imread(dir.file("batch/colour.bmp"), cv::IMREAD_UNCHANGED).type(), CV_8UC1);
}

TEST(ToolErrors, EachBadInputGetsOneLineAStatusAndNoOutputFile) {
    TempDirectory dir;
    writeBytes(dir.file("good.raw"), Bytes(16, 7));     // Mono8 4 x 4
    writeBytes(dir.file("short.raw"), Bytes(100, 7));   // BayerRG12p 16 x 8 needs 192 bytes
    writeBytes(dir.file("text.png"), Bytes(40, 'x'));   // not an image
    writeBytes(dir.file("yuv.raw"), Bytes(12, 7));      // YUV422_8 3 x 2
    cv::Mat colour(4, 4, CV_8UC3, cv::Scalar(1, 2, 3));
    ASSERT_TRUE(cv::imwrite(dir.file("colour.png"), colour));
    const std::vector<std::string> inputs = dir.entries();
    const auto good = [](std::vector<std::string> tail) {
        return std::vector<std::string>{"convert", "good.raw", "--from", "Mono8", "--width", "4", "--height", "4"} + tail;
    };

    struct Case {
        std::vector<std::string> args;
        std::string message;
        int status;
    };
    std::vector<Case> cases = {
        {good({"--to", "BayerRG13", "-o", "o.png"}),
         "unknown pixel format 'BayerRG13' (did you mean BayerRG10, BayerRG12, BayerRG16?)", 2},
        {{"convert", "short.raw", "--from", "BayerRG12p", "--width", "16", "--height", "8", "--to", "Mono8", "-o", "o.png"},
         "raw file 'short.raw' holds 100 bytes, BayerRG12p 16 x 8 needs 192", 1},
        {good({"--to", "RGB8", "--demosaic", "best", "-o", "o.png"}), "unknown demosaic 'best' (ha or quality)", 2},
        {good({"--to", "RGB16", "-o", "o.png"}), "no conversion from Mono8 to RGB16; Mono8 converts to: RGB8", 1},
        {{"convert", "missing.png", "--to", "Mono8", "-o", "o.png"}, "cannot read 'missing.png': No such file", 1},
        {{"convert", "text.png", "--to", "Mono8", "-o", "o.png"}, "cannot decode 'text.png'", 1},
        {good({"--to", "RGB8", "-o", "absent/o.png"}), "cannot write absent/o.png", 1},
        {good({"--to", "RGB8", "-o", "absent/o.raw"}), "cannot write 'absent/o.raw'", 1},
        {good({"--to", "RGB8", "-o", "o.xyz"}), "cannot tell the file type of 'o.xyz'", 2},
        {{"stretch", "colour.png", "--low", "1", "--high", "9", "-o", "o.png"}, "stretch takes Mono8 or Mono12 images", 1},
        {{"convert", "colour.png", "--from", "BayerRG8", "--to", "RGB8", "-o", "o.png"}, "--from BayerRG8 does not fit", 2},
        {{"polar", "good.raw", "--from", "Mono8", "--width", "4", "--height", "4", "--product", "s9", "-o", "o.png"},
         "unknown product 's9'", 2},
        {{"polar", "good.raw", "--from", "Mono8", "--width", "1", "--height", "16", "--product", "dolp", "-o", "o.png"},
         "dolp needs an even width and height; 'good.raw' is 1 x 16", 1},
        // Raw input is bounded: a stream is read one byte past the frame, not to its end.
        {{"convert", "/dev/zero", "--from", "Mono8", "--width", "4", "--height", "4", "--to", "Mono8", "-o", "o.raw"},
         "raw file '/dev/zero' holds more than 16 bytes, Mono8 4 x 4 needs 16", 1},
        // A 12-bit frame of 15 pixels ends in half a pair: 23 bytes, so 22 are one short.
        {{"convert", "good.raw", "--from", "Mono12p", "--width", "5", "--height", "3", "--to", "Mono8", "-o", "o.png"},
         "raw file 'good.raw' holds 16 bytes, Mono12p 5 x 3 needs 23", 1},
        {{"convert", "yuv.raw", "--from", "YUV422_8", "--width", "3", "--height", "2", "--to", "RGB8", "-o", "o.png"},
         "'yuv.raw' is YUV422_8 of odd width 3: 4:2:2 pixels share their colour in pairs", 1},
        {{"polar", "good.raw", "--from", "Mono8", "--width", "1", "--height", "16", "--product", "quadrants", "-o",
          "o.png"},
         "quadrants needs at least one whole 2 x 2 cell; 'good.raw' is 1 x 16", 1},
        {{"polar", "colour.png", "--product", "quadrants-raw", "-o", "o.png"},
         "quadrants-raw takes one sample of 8 or 16 bits per pixel; 'colour.png' holds BGR8", 1},
        // Two inputs of one name would land on one output: refused before anything is made.
        {good({"./good.raw", "--to", "Mono8", "--out-dir", "out"}),
         "output names collide, nothing written: good.raw and ./good.raw would both be written to out/good.png", 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        const RunResult run = runTool(c.args, dir.path());
        EXPECT_EQ(run.status, c.status);
        EXPECT_EQ(run.err.rfind("ztimage: ", 0), 0u) << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_EQ(dir.entries(), inputs) << "a failed run left a file behind";
    }
}

TEST(ToolInfo, HelpVersionAndTheFormatListComeFromTheLibrary) {
    TempDirectory dir;
    RunResult run = runTool({"--version"}, dir.path());
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out.rfind("ztimage 1.", 0), 0u) << run.out;
    run = runTool({"convert", "--to", "x", "--help"}, dir.path());
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out.rfind("usage: ztimage convert", 0), 0u) << run.out;
    run = runTool({}, dir.path());
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err.rfind("usage: ztimage COMMAND", 0), 0u) << run.err;

    // One line per format of the library's table, after the heading.
    run = runTool({"formats"}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(static_cast<size_t>(std::count(run.out.begin(), run.out.end(), '\n')), ZTI::getPixelFormats().size() + 1);
    run = runTool({"formats", "mono12p"}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("read as:        Mono12"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("converts to:    Mono8, Mono16, RGB8"), std::string::npos) << run.out;
}

TEST(ToolPolar, ProductsAndHeatMapOptionsMatchTheLibrary) {
    TempDirectory dir;
    const Bytes mosaic = randomBytes(8 * 6, 42);
    writeBytes(dir.file("m.raw"), mosaic);
    ZTI::ZTImage source(ZTI::Mono8, 8, 6, 0, const_cast<unsigned char*>(mosaic.data()));
    const auto product = [&](std::vector<std::string> args) {
        const RunResult run = runTool(std::vector<std::string>{"polar", "m.raw", "-o", "p.raw"} + rawArgs("Mono8", 8, 6) + args,
                                      dir.path());
        EXPECT_EQ(run.status, 0) << run.err;
        return readBytes(dir.file("p.raw"));
    };
    ZTI::ZTImage expected;
    ASSERT_EQ(ZTI::CreateDolp(source, expected), 0);
    EXPECT_EQ(product({"--product", "dolp"}), packedPixels(expected));
    // Range 10 to 60 %, blue (1) to yellow (4) in the palette's order.
    ASSERT_EQ(ZTI::CreateHeatmap(source, expected, 10, 60, 1, 4), 0);
    EXPECT_EQ(product({"--product", "heatmap", "--range", "10:60", "--colors", "blue:yellow"}), packedPixels(expected));
    ASSERT_EQ(ZTI::ExtractPolarQuadrant(source, expected, ZTI::PolarQuadrantI45), 0);
    EXPECT_EQ(product({"--product", "i45"}), packedPixels(expected));
}

TEST(ToolPolar, TilingsOfOddSizesWriteTheUncoveredEdgeAsZero) {
    TempDirectory dir;
    const Bytes mosaic = randomBytes(5 * 5 * 2, 7);
    writeBytes(dir.file("m.raw"), mosaic);
    // Both tilings of a 5 x 5 mosaic: the library fills the 4 x 4 of whole cells; the last
    // column and row must come out 0, not as whatever the memory held.
    for (const std::string product : {"quadrants", "quadrants-raw"}) {
        SCOPED_TRACE(product);
        const RunResult run =
            runTool(std::vector<std::string>{"polar", "m.raw", "--product", product, "-o", "q.raw"} +
                        rawArgs("Mono16", 5, 5), dir.path());
        ASSERT_EQ(run.status, 0) << run.err;
        ZTI::ZTImage source(ZTI::Mono16, 5, 5, 0, const_cast<unsigned char*>(mosaic.data())), expected;
        ASSERT_EQ(product == "quadrants" ? ZTI::ExtractFullPolarQuadrant(source, expected)
                                         : ZTI::extractFullPolarQuadrant(source, expected), 0);
        const size_t pixelBytes = ZTI::getBitsPerPixel(expected.getPixelType()) / 8;
        Bytes wanted = packedPixels(expected);
        for (size_t y = 0; y < 5; ++y) {
            for (size_t x = 0; x < 5; ++x) {
                if (x == 4 || y == 4) std::fill_n(wanted.begin() + (y * 5 + x) * pixelBytes, pixelBytes, 0);
            }
        }
        EXPECT_EQ(readBytes(dir.file("q.raw")), wanted);
    }
}

TEST(ToolConvert, PackedTwelveBitFramesOfOddPixelCountDecodeEveryPixel) {
    TempDirectory dir;
    // 5 x 3 = 15 pixels in ceil(15 x 1.5) = 23 bytes; the last pixel is the first half of a
    // pair whose second half is absent. Expected values by the published bit layouts.
    const Bytes frame = randomBytes(23, 99);
    writeBytes(dir.file("f.raw"), frame);
    const auto pixel = [&](bool lsbFirst, size_t i) {
        const size_t k = i / 2 * 3;
        if (i % 2 == 0) {
            return lsbFirst ? frame[k] | (frame[k + 1] & 0x0F) << 8 : frame[k] << 4 | (frame[k + 1] & 0x0F);
        }
        return lsbFirst ? frame[k + 1] >> 4 | frame[k + 2] << 4 : frame[k + 2] << 4 | frame[k + 1] >> 4;
    };
    for (const std::string format : {"Mono12p", "Mono12Packed"}) {
        SCOPED_TRACE(format);
        const RunResult run =
            runTool(std::vector<std::string>{"convert", "f.raw", "--to", "Mono12", "-o", "o.raw"} + rawArgs(format, 5, 3),
                    dir.path());
        ASSERT_EQ(run.status, 0) << run.err;
        const Bytes out = readBytes(dir.file("o.raw"));
        ASSERT_EQ(out.size(), 30u);
        for (size_t i = 0; i < 15; ++i) {
            EXPECT_EQ(out[2 * i] | out[2 * i + 1] << 8, pixel(format == "Mono12p", i)) << "pixel " << i;
        }
    }
}

TEST(ToolFiles, WritesRefusedByTheDeviceFailWithTheSystemsReasonAndLeaveNothing) {
    TempDirectory dir;
    writeBytes(dir.file("n.raw"), randomBytes(64 * 64 * 3, 5));
    const std::vector<std::string> inputs = dir.entries();
    // The size limit and the ignored SIGXFSZ pass to the tool, whose writes then fail with EFBIG.
    struct SizeLimit {
        rlimit saved{};
        void (*handler)(int) = std::signal(SIGXFSZ, SIG_IGN);
        SizeLimit() {
            getrlimit(RLIMIT_FSIZE, &saved);
            rlimit limited = saved;
            limited.rlim_cur = 4096;
            setrlimit(RLIMIT_FSIZE, &limited);
        }
        ~SizeLimit() {
            setrlimit(RLIMIT_FSIZE, &saved);
            std::signal(SIGXFSZ, handler);
        }
    } limit;
    for (const std::string output : {"o.bmp", "o.ppm", "o.png", "o.tif", "o.jpg", "o.raw"}) {
        const RunResult run = runTool(std::vector<std::string>{"convert", "n.raw", "--to", "RGB8", "-o", output} +
                                          rawArgs("RGB8", 64, 64),
                                      dir.path());
        EXPECT_EQ(run.status, 1) << output;
        EXPECT_NE(run.err.find(std::strerror(EFBIG)), std::string::npos) << output << ": " << run.err;
        EXPECT_EQ(dir.entries(), inputs) << output;
    }
}

TEST(ToolFiles, InterruptedSavesLeaveNoTemporaryFileAndExitWith128PlusTheSignal) {
    TempDirectory dir;
    const unsigned int width = 2048, height = 1024;
    writeBytes(dir.file("big.raw"), randomBytes(size_t{width} * height * 2, 3));
    for (const int signal : {SIGTERM, SIGINT}) {
        for (const std::string output : {"o.raw", "o.tif"}) {
            SCOPED_TRACE(output + " " + std::to_string(signal));
            // The signal is sent when the temporary file appears, that is during the save. On a
            // busy machine the save may end before the signal lands (status 0); a few attempts
            // make sure one of them is interrupted.
            int status = 0;
            for (int attempt = 0; attempt < 5 && status != 128 + signal; ++attempt) {
                const int watch = inotify_init1(IN_CLOEXEC);
                ASSERT_GE(watch, 0);
                ASSERT_GE(inotify_add_watch(watch, dir.path().c_str(), IN_CREATE), 0);
                const RunResult run = runTool(
                    std::vector<std::string>{"convert", "big.raw", "--to", "Mono16", "-o", output} +
                        rawArgs("Mono16", width, height),
                    dir.path(), [&](pid_t pid) {
                        pollfd ready{watch, POLLIN, 0};
                        alignas(inotify_event) char events[4096];
                        bool sent = false;
                        while (!sent && poll(&ready, 1, 20000) > 0) {
                            const ssize_t n = read(watch, events, sizeof events);
                            for (ssize_t at = 0; at < n && !sent;) {
                                const auto* event = reinterpret_cast<const inotify_event*>(events + at);
                                sent = event->len > 0 && std::string(event->name).rfind(".ztimage-", 0) == 0;
                                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                            }
                        }
                        kill(pid, signal);
                    });
                close(watch);
                status = run.status;
                EXPECT_TRUE(status == 0 || status == 128 + signal) << status << ": " << run.err;
                // The save ran to its end or was undone: a complete file or none, never a temporary.
                for (const std::string& entry : dir.entries()) {
                    EXPECT_TRUE(entry == "big.raw" || entry == output) << entry;
                }
                if (output == "o.tif" && !readBytes(dir.file(output)).empty()) {
                    EXPECT_FALSE(cv::imread(dir.file(output), cv::IMREAD_UNCHANGED).empty());
                }
                std::remove(dir.file(output).c_str());
            }
            EXPECT_EQ(status, 128 + signal);
        }
    }
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: ztimage_tool_test [EMULATOR...] PATH-TO-ZTIMAGE\n");
        return 2;
    }
    setToolCommand(std::vector<std::string>(argv + 1, argv + argc));
    return RUN_ALL_TESTS();
}

// ztimage demo: frames from virtual cameras through every pipeline of the library, with the
// time each stage takes.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Commands.h"
#include "FormatNames.h"
#include "HistogramEnhancement.h"
#include "ImageFiles.h"
#include "Progress.h"
#include "ToolError.h"
#include "VirtualCamera.h"
#include "PolarizationProducts.h"
#include "ZTImageFormatConverter.h"

namespace ztool {

const char* const kDemoHelp =
    "usage: ztimage demo [--out DIR] [--frames N] [--width W --height H]\n"
    "\n"
    "Streams N frames (default 30) of W x H pixels (default 1280 x 1024) from virtual cameras\n"
    "through every pipeline of the library:\n"
    "  colour sensor, BayerRG12p and BayerRG8   unpack, demosaic to RGB8\n"
    "  mono sensor, Mono12p                     unpack, Mono8, contrast stretch, equalization\n"
    "  polarized mono sensor, Mono8             S0, DoLP, AoLP, glare-reduced, heat map and the\n"
    "                                           quadrant tilings\n"
    "saves the last frame of every result as PNG in DIR (default demo-out), and prints the\n"
    "time per frame and the throughput of every stage. A progress bar shows on a terminal.\n";

namespace {

using Clock = std::chrono::steady_clock;

// One step of a pipeline. `run` returns false when the library reports a failure. The
// virtual cameras' own work is not the library's and is left out of the table.
struct Stage {
    std::string name;
    std::function<bool()> run;
    bool timed;
    Clock::duration total{};
};

// A result kept for saving once the stream ends.
struct Output {
    std::string file;
    const ZTI::ZTImage* image;
};

// A virtual camera of one format and scene, or a ToolError saying why it cannot be had.
std::unique_ptr<ZTI::VirtualCamera> openCamera(PfncFormat_ format, unsigned int width, unsigned int height,
                                               ZTI::VirtualScene scene) {
    ZTI::VirtualCameraConfig config;
    config.pixelType = format;
    config.width = width;
    config.height = height;
    config.scene = scene;
    std::string error;
    std::unique_ptr<ZTI::VirtualCamera> camera = ZTI::VirtualCamera::open(config, &error);
    if (!camera) throw ToolError("cannot open a " + formatLabel(format) + " virtual camera: " + error);
    return camera;
}

// Converts into `dst`, reusing its memory from frame to frame, as a stream should.
bool convertInto(ZTI::ZTImageFormatConverter& converter, ZTI::ZTImage& dst, const ZTI::ZTImage& src) {
    return converter.convert(dst, src) == 0;
}

struct ColourPipeline {
    explicit ColourPipeline(PfncFormat_ sensorFormat, unsigned int w, unsigned int h)
        : camera(openCamera(sensorFormat, w, h, ZTI::VirtualScene::Colour)), format(sensorFormat) {
        toRgb.setOutputFormat(ZTI::RGB8);
    }
    std::unique_ptr<ZTI::VirtualCamera> camera;
    PfncFormat_ format;
    ZTI::ZTGrabResultPtr frame;
    ZTI::ZTImage raw, rgb;
    ZTI::ZTImageFormatConverter toRgb;
};

struct MonoPipeline {
    MonoPipeline(unsigned int w, unsigned int h) : camera(openCamera(ZTI::Mono12p, w, h, ZTI::VirtualScene::Colour)) {
        toMono8.setOutputFormat(ZTI::Mono8);
    }
    std::unique_ptr<ZTI::VirtualCamera> camera;
    ZTI::ZTGrabResultPtr frame;
    ZTI::ZTImage raw, mono8, stretched, equalized;
    ZTI::ZTImageFormatConverter toMono8;
    unsigned int low = 0, high = 4095;
};

// The sample values below which 1 % and above which 1 % of a Mono12 image lie: the range the
// stretch maps onto the full scale, fixed from the first frame as a camera application would.
void percentileRange(const ZTI::ZTImage& mono12, unsigned int& low, unsigned int& high) {
    std::vector<size_t> histogram(4096);
    const auto* samples = reinterpret_cast<const uint16_t*>(mono12.getBuffer());
    const size_t count = size_t{mono12.getWidth()} * mono12.getHeight();
    for (size_t i = 0; i < count; ++i) ++histogram[samples[i] & 0x0FFF];
    size_t seen = 0;
    low = 0;
    while (low < 4095 && (seen += histogram[low]) < count / 100) ++low;
    seen = 0;
    high = 4095;
    while (high > low + 1 && (seen += histogram[high]) < count / 100) --high;
}

std::string timingTable(const std::vector<Stage>& stages, unsigned int frames, double megapixels) {
    std::string text;
    char line[160];
    const auto addLine = [&](const std::string& name, double perFrame) {
        std::snprintf(line, sizeof line, "%-36s %10.3f %10.1f\n", name.c_str(), perFrame * 1e3,
                      perFrame > 0 ? megapixels / perFrame : 0.0);
        text += line;
    };
    std::snprintf(line, sizeof line, "%-36s %10s %10s\n", "stage", "ms/frame", "MP/s");
    text += line;
    double sum = 0;
    for (const Stage& stage : stages) {
        if (!stage.timed) continue;
        const double perFrame = std::chrono::duration<double>(stage.total).count() / frames;
        sum += perFrame;
        addLine(stage.name, perFrame);
    }
    // Megapixels per second of the whole: one frame of every sensor through all its stages.
    addLine("all stages", sum);
    return text;
}

}  // namespace

int runDemo(const Args& argv) {
    const Arguments args(argv, {"--out", "--frames", "--width", "--height"}, {});
    if (!args.positional().empty()) throw usageError("demo takes no INPUT (unexpected '" + args.positional()[0] + "')");
    const std::string directory = args.value("--out").value_or("demo-out");
    const unsigned int frames = args.number("--frames", 30, 1, 100000);
    const unsigned int width = args.number("--width", 1280, 16, 8192);
    const unsigned int height = args.number("--height", 1024, 16, 8192);
    // Whole 2 x 2 filter cells keep every Bayer and polarizer pattern in phase.
    if (width % 2 != 0 || height % 2 != 0) throw usageError("demo needs an even --width and --height");
    makeDirectory(directory);

    ColourPipeline bayer12(ZTI::BayerRG12p, width, height);
    ColourPipeline bayer8(ZTI::BayerRG8, width, height);
    MonoPipeline mono(width, height);

    std::vector<Stage> stages;
    std::vector<Output> outputs;
    std::vector<std::string> notes;
    const auto add = [&](std::string name, std::function<bool()> run, bool timed = true) {
        stages.push_back({std::move(name), std::move(run), timed});
    };

    for (ColourPipeline* p : {&bayer12, &bayer8}) {
        const std::string sensor = formatLabel(p->format);
        add(sensor + " grab", [p] { return static_cast<bool>(p->frame = p->camera->grab()); }, false);
        // Attaching a BayerRG8 frame only views its memory: no pixel work worth a line.
        const bool unpacks = p->format == ZTI::BayerRG12p;
        add(sensor + (unpacks ? " unpack" : " attach"), [p] {
            p->raw.attachGrabResult(p->frame);
            p->frame.Release();  // the image keeps the frame alive as long as it needs it
            return p->raw.isValid();
        }, unpacks);
        add(formatLabel(unpacks ? ZTI::BayerRG12 : p->format) + " -> RGB8 demosaic",
            [p] { return convertInto(p->toRgb, p->rgb, p->raw); });
        outputs.push_back({"colour-" + sensor + ".png", &p->rgb});
    }

    add("Mono12p grab", [&mono] { return static_cast<bool>(mono.frame = mono.camera->grab()); }, false);
    add("Mono12p unpack", [&mono] {
        mono.raw.attachGrabResult(mono.frame);
        mono.frame.Release();
        return mono.raw.getPixelType() == ZTI::Mono12;
    });
    add("Mono12 -> Mono8", [&mono] { return convertInto(mono.toMono8, mono.mono8, mono.raw); });
    add("Mono12 contrast stretch", [&mono] {
        if (!mono.stretched.isValid()) {
            mono.stretched = ZTI::ZTImage::create(ZTI::Mono12, mono.raw.getWidth(), mono.raw.getHeight());
            percentileRange(mono.raw, mono.low, mono.high);
        }
        return ZTI::histStretch(mono.raw, mono.stretched, mono.low, mono.high) == 0;
    });
    add("Mono8 equalization", [&mono] {
        if (!mono.equalized.isValid()) {
            mono.equalized = ZTI::ZTImage::create(ZTI::Mono8, mono.raw.getWidth(), mono.raw.getHeight());
        }
        return ZTI::histEqual(mono.mono8, mono.equalized) == 0;
    });
    outputs.push_back({"mono-Mono8.png", &mono.mono8});
    outputs.push_back({"mono-equalized.png", &mono.equalized});
    // The stretched Mono12 image is written as Mono8 (below): a 16-bit file of 12-bit samples
    // would look dark in every viewer.
    ZTI::ZTImage stretchedMono8;

    const auto polarCamera = openCamera(ZTI::Mono8, width, height, ZTI::VirtualScene::Polarization);
    ZTI::ZTGrabResultPtr polarFrame;
    ZTI::ZTImage mosaic;
    struct Product {
        const char* name;
        int (*function)(const ZTI::ZTImage&, ZTI::ZTImage&);
        ZTI::ZTImage result;
    };
    Product products[] = {
        {"S0", &ZTI::CreateStokesS0, {}},
        {"DoLP", &ZTI::CreateDolp, {}},
        {"AoLP", &ZTI::CreateAolp, {}},
        {"glare-reduced", &ZTI::CreateGlareReduced, {}},
        {"quadrants", &ZTI::ExtractFullPolarQuadrant, {}},
        {"quadrants-raw", &ZTI::extractFullPolarQuadrant, {}},
    };
    ZTI::ZTImage heatmap;
    add("Mono8 polarized grab", [&] { return static_cast<bool>(polarFrame = polarCamera->grab()); }, false);
    add("Mono8 polarized attach", [&] {
        mosaic.attachGrabResult(polarFrame);
        polarFrame.Release();
        return mosaic.isValid();
    }, false);
    for (Product& product : products) {
        add(std::string("polarization ") + product.name,
            [&mosaic, &product] { return product.function(mosaic, product.result) == 0; });
        outputs.push_back({std::string("polar-") + product.name + ".png", &product.result});
    }
    // DoLP from 0 to 100 % coloured from blue to red.
    add("polarization heat map", [&] { return ZTI::CreateHeatmap(mosaic, heatmap, 0, 100, 1, 5) == 0; });
    outputs.push_back({"polar-heatmap.png", &heatmap});

    Progress progress("streaming", frames);
    for (unsigned int frame = 0; frame < frames; ++frame) {
        for (Stage& stage : stages) {
            const Clock::time_point start = Clock::now();
            const bool ok = stage.run();
            stage.total += Clock::now() - start;
            if (!ok) throw ToolError("demo stage '" + stage.name + "' failed on frame " + std::to_string(frame));
        }
        progress.step();
    }
    progress.finish();

    ZTI::ZTImageFormatConverter toMono8;
    toMono8.setOutputFormat(ZTI::Mono8);
    if (toMono8.convert(stretchedMono8, mono.stretched) == 0) outputs.push_back({"mono-stretched.png", &stretchedMono8});
    for (const Output& output : outputs) writeImage(*output.image, directory + "/" + output.file);

    std::printf("%u frames of %u x %u pixels per sensor; last frames saved in %s/\n\n", frames, width, height,
                directory.c_str());
    std::fputs(timingTable(stages, frames, width * double(height) / 1e6).c_str(), stdout);
    if (!notes.empty()) std::printf("\n");
    for (const std::string& note : notes) std::printf("note: %s\n", note.c_str());
    return 0;
}

}  // namespace ztool

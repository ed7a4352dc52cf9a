// Throughput of the packed 10- and 12-bit unpackers on a 2448 x 2048 frame, next to memcpy of
// the same output bytes measured in the same iterations; then the whole path a camera frame
// takes: the virtual camera encoding a frame, and attaching it to an image.
//
// Each iteration copies the unpacked size (2 bytes per pixel) with memcpy into the
// destination and unpacks into it, timing both, in alternating order so that neither always
// finds the destination freshly cached by the other. The reported time is the unpacker's; the
// counter `vs_memcpy` is memcpy's total time divided by the unpacker's (1.0: as fast as
// memcpy, 0.5: half as fast). Measuring both in the same iterations keeps them under the same
// cache, clock and load conditions. The `plain_loop` rows run the usual scalar loop
// (one group or pair per iteration) for scale.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "PixelUnpack.h"
#include "VirtualCamera.h"
#include "ZTImage.h"

namespace {

constexpr int kWidth = 2448;
constexpr int kHeight = 2048;
constexpr size_t kPixels = size_t{kWidth} * kHeight;

using UnpackFn = void (*)(PfncFormat_, int, int, unsigned char*, unsigned char*);

// One group or pair at a time with the formulas as written: the usual scalar loop.
void plainUnpack10(PfncFormat_, int width, int height, unsigned char* src, unsigned char* dst) {
    const size_t groups = size_t(width) * size_t(height) / 4;
    auto* out = reinterpret_cast<uint16_t*>(dst);
    for (size_t g = 0; g < groups; ++g, src += 5, out += 4) {
        out[0] = uint16_t(src[0] << 2 | src[1] >> 6);
        out[1] = uint16_t((src[1] & 0x3F) << 4 | src[2] >> 4);
        out[2] = uint16_t((src[2] & 0x0F) << 6 | src[3] >> 2);
        out[3] = uint16_t((src[3] & 0x03) << 8 | src[4]);
    }
}

void plainUnpack12(PfncFormat_, int width, int height, unsigned char* src, unsigned char* dst) {
    const size_t pairs = size_t(width) * size_t(height) / 2;
    auto* out = reinterpret_cast<uint16_t*>(dst);
    for (size_t p = 0; p < pairs; ++p, src += 3, out += 2) {
        out[0] = uint16_t(src[0] | (src[1] & 0x0F) << 8);
        out[1] = uint16_t(src[1] >> 4 | src[2] << 4);
    }
}

// Times `work` and a memcpy of out.size() bytes into `out` in every iteration, in alternating
// order; reports work's time, and returns memcpy's total time over work's (also the
// `vs_memcpy` counter).
template <typename Work>
double timeAgainstMemcpy(benchmark::State& state, std::vector<unsigned char>& out, Work&& work) {
    const std::vector<unsigned char> reference(out.size(), 0x5A);
    using Clock = std::chrono::steady_clock;
    double memcpySeconds = 0, workSeconds = 0;
    auto timed = [](auto&& body) {
        const auto start = Clock::now();
        body();
        benchmark::ClobberMemory();
        return std::chrono::duration<double>(Clock::now() - start).count();
    };
    auto copy = [&] { std::memcpy(out.data(), reference.data(), out.size()); };
    bool copyFirst = true;
    for (auto _ : state) {
        double copyTime = 0, workTime = 0;
        if (copyFirst) {
            copyTime = timed(copy);
            workTime = timed(work);
        } else {
            workTime = timed(work);
            copyTime = timed(copy);
        }
        copyFirst = !copyFirst;
        memcpySeconds += copyTime;
        workSeconds += workTime;
        state.SetIterationTime(workTime);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(out.size()));
    const double ratio = workSeconds > 0 ? memcpySeconds / workSeconds : 0;
    state.counters["vs_memcpy"] = ratio;
    return ratio;
}

void runUnpack(benchmark::State& state, PfncFormat_ format, unsigned bits, UnpackFn unpack) {
    std::vector<unsigned char> packed((kPixels * bits + 7) / 8);
    std::mt19937 rng(7);
    for (auto& b : packed) b = static_cast<unsigned char>(rng());
    std::vector<unsigned char> out(kPixels * 2);
    timeAgainstMemcpy(state, out, [&] { unpack(format, kWidth, kHeight, packed.data(), out.data()); });
}

void BM_Unpack10(benchmark::State& s) { runUnpack(s, 0x010A0046, 10, unpack10BitsPixelBuffer); }
void BM_Unpack12p(benchmark::State& s) { runUnpack(s, 0x010C0047, 12, unpack12BitsPixelBuffer); }
void BM_Unpack12Packed(benchmark::State& s) {
    runUnpack(s, 0x010C0006, 12, unpack12BitsPixelBuffer);
}
void BM_Unpack10_plain_loop(benchmark::State& s) { runUnpack(s, 0x010A0046, 10, plainUnpack10); }
void BM_Unpack12p_plain_loop(benchmark::State& s) { runUnpack(s, 0x010C0047, 12, plainUnpack12); }

std::unique_ptr<ZTI::VirtualCamera> openCamera(PfncFormat_ format) {
    ZTI::VirtualCameraConfig config;
    config.pixelType = format;
    config.width = kWidth;
    config.height = kHeight;
    return ZTI::VirtualCamera::open(config);
}

// Frames per second the virtual camera can deliver (encoding included).
void BM_CameraGrab(benchmark::State& state, PfncFormat_ format) {
    auto camera = openCamera(format);
    for (auto _ : state) {
        ZTI::ZTGrabResultPtr frame = camera->grab();
        benchmark::DoNotOptimize(frame);
    }
    state.counters["frames_per_s"] =
        benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

// Attaching one frame to an image: an unpack into pool memory for packed formats, a view for
// the others.
void BM_Attach(benchmark::State& state, PfncFormat_ format) {
    auto camera = openCamera(format);
    ZTI::ZTGrabResultPtr frame = camera->grab();
    ZTI::ZTImage image;
    for (auto _ : state) {
        image.attachGrabResult(frame);
        benchmark::DoNotOptimize(image.getBuffer());
    }
    state.counters["frames_per_s"] =
        benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

// Published layouts through attachGrabResult (the unpacker is internal), timed against memcpy
// of the unpacked bytes in the same iterations as runUnpack does. The ratio of the last run of
// each format is kept for the goal lines printed after the benchmarks.
std::map<std::string, double> publishedVsMemcpy;

void BM_AttachPublished(benchmark::State& state, PfncFormat_ format) {
    const size_t packedBytes = (kPixels * ZTI::getBitsPerPixel(format) + 7) / 8;
    std::vector<unsigned char> packed(packedBytes);
    std::mt19937 rng(7);
    for (auto& b : packed) b = static_cast<unsigned char>(rng());
    const ZTI::ZTGrabResultPtr frame =
        ZTI::createGrabResult(format, kWidth, kHeight, 0, packed.data(), packed.size());
    std::vector<unsigned char> out(kPixels * 2);
    ZTI::ZTImage image;
    publishedVsMemcpy[ZTI::getPixelFormatName(format)] = timeAgainstMemcpy(
        state, out, [&] { image.attachGrabResult(frame, ZTI::PackedLayout::Published); });
}

}  // namespace

BENCHMARK_CAPTURE(BM_AttachPublished, Mono10p, ZTI::Mono10p)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_AttachPublished, BayerRG10Packed, ZTI::BayerRG10Packed)
    ->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_AttachPublished, BayerRG12p, ZTI::BayerRG12p)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_CameraGrab, Mono12p, ZTI::Mono12p)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CameraGrab, BayerRG8, ZTI::BayerRG8)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CameraGrab, RGB8, ZTI::RGB8)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Attach, Mono10p, ZTI::Mono10p)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Attach, BayerRG12Packed, ZTI::BayerRG12Packed)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Attach, BayerRG8, ZTI::BayerRG8)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Unpack10)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Unpack12p)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Unpack12Packed)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Unpack10_plain_loop)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Unpack12p_plain_loop)->UseManualTime()->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // Published layouts unpack at least at half of memcpy's speed, as the legacy ones do.
    for (const auto& [name, ratio] : publishedVsMemcpy)
        std::printf("goal|%s published layout attach vs memcpy, 2448 x 2048|%.2f|>=|0.50\n", name.c_str(), ratio);
    return 0;
}

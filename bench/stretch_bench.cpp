// Contrast stretch throughput against memcpy of the same bytes, on full camera frames.
// Counter `vs_memcpy`: memcpy time / stretch time (goal: at least 0.25).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <random>
#include <vector>

#include "ZTImageLib.h"

namespace {

using namespace ZTI;
using Clock = std::chrono::steady_clock;

void stretch(benchmark::State& state, PfncFormat_ format) {
    const unsigned width = 2448, height = 2048;
    ZTImage src = ZTImage::create(format, width, height);
    ZTImage dst = ZTImage::create(format, width, height);
    std::mt19937 rng(1);
    for (size_t i = 0; i < src.getByteCount(); ++i) src.getBuffer()[i] = static_cast<unsigned char>(rng());
    if (format == Mono12)  // keep 12-bit samples in range
        for (size_t i = 1; i < src.getByteCount(); i += 2) src.getBuffer()[i] &= 0x0F;
    std::memcpy(dst.getBuffer(), src.getBuffer(), src.getByteCount());
    std::vector<unsigned char> copy(src.getByteCount());
    const unsigned high = format == Mono8 ? 200 : 3000;

    double stretchTime = 0, copyTime = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        histStretch(src, dst, 20, high);
        const auto t1 = Clock::now();
        std::memcpy(copy.data(), src.getBuffer(), copy.size());
        const auto t2 = Clock::now();
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
        stretchTime += std::chrono::duration<double>(t1 - t0).count();
        copyTime += std::chrono::duration<double>(t2 - t1).count();
    }
    state.counters["stretch_ms"] = 1e3 * stretchTime / state.iterations();
    state.counters["memcpy_ms"] = 1e3 * copyTime / state.iterations();
    state.counters["vs_memcpy"] = copyTime / stretchTime;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * src.getByteCount()));
}

void Stretch_Mono8(benchmark::State& s) { stretch(s, Mono8); }
void Stretch_Mono12(benchmark::State& s) { stretch(s, Mono12); }
void Stretch_Mono12Packed(benchmark::State& s) { stretch(s, Mono12Packed); }
void Stretch_Mono12p(benchmark::State& s) { stretch(s, Mono12p); }

}  // namespace

BENCHMARK(Stretch_Mono8)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(Stretch_Mono12)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(Stretch_Mono12Packed)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(Stretch_Mono12p)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK_MAIN();

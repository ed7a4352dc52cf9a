// Contrast stretch throughput against memcpy of the same bytes, on full camera frames.
// Both are timed in thread CPU time, alternating in every iteration, and the fastest of each
// is kept, which holds up on a busy machine. Counter `vs_memcpy`: memcpy time / stretch time
// (goal: at least 0.25).
#include <benchmark/benchmark.h>

#include <ctime>
#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "ZTImageLib.h"

namespace {

using namespace ZTI;
double cpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

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

    double stretchTime = 1e9, copyTime = 1e9;
    for (auto _ : state) {
        const double t0 = cpuSeconds();
        histStretch(src, dst, 20, high);
        const double t1 = cpuSeconds();
        std::memcpy(copy.data(), src.getBuffer(), copy.size());
        const double t2 = cpuSeconds();
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
        stretchTime = std::min(stretchTime, t1 - t0);
        copyTime = std::min(copyTime, t2 - t1);
    }
    state.counters["stretch_ms"] = 1e3 * stretchTime;
    state.counters["memcpy_ms"] = 1e3 * copyTime;
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

// Fuzz target: both unpackers on random codes, sizes and bytes, against a per-pixel reference.
// Source and destination are exactly as large as the unpacker may read and write.
#include <cstdlib>

#include "FuzzInput.h"

using namespace ZTI;

namespace {

// The accepted codes, and for the 12-bit unpacker whether the pair is least significant bits
// first; plus codes that must be refused.
struct Code {
    PfncFormat_ format;
    bool accepted;
    bool lsbFirst;
};
const Code kCodes[] = {
    {Mono10Packed, true, false}, {Mono12Packed, true, false}, {Mono10p, true, true},
    {BayerBG10p, true, true},    {BayerRG10p, true, true},    {BayerGR10Packed, true, false},
    {BayerBG12Packed, true, false}, {Mono12p, true, true},   {BayerGB12p, true, true},
    {Mono8, false, false},       {Mono12, false, false},      {0, false, false},
};

unsigned reference10(const unsigned char* s, size_t i) {
    const unsigned char* g = s + i / 4 * 5;
    switch (i % 4) {
        case 0: return (g[0] << 2) | (g[1] >> 6);
        case 1: return ((g[1] & 0x3Fu) << 4) | (g[2] >> 4);
        case 2: return ((g[2] & 0x0Fu) << 6) | (g[3] >> 2);
        default: return ((g[3] & 0x03u) << 8) | g[4];
    }
}

unsigned reference12(const unsigned char* s, size_t i, bool lsbFirst) {
    const unsigned char* p = s + i / 2 * 3;
    if (lsbFirst) return i % 2 == 0 ? p[0] | ((p[1] & 0x0Fu) << 8) : (p[1] >> 4) | (p[2] << 4);
    return i % 2 == 0 ? (p[0] << 4) | (p[1] & 0x0Fu) : (p[2] << 4) | (p[1] >> 4);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::FuzzInput in(data, size);
    const Code code = in.pick(kCodes);
    const bool tenBit = in.flag();
    // Sizes down to negative ones; now and then a product that wraps 32 bits.
    int width = static_cast<int>(in.below(600)) - 8;
    int height = static_cast<int>(in.below(40)) - 4;
    if (in.below(32) == 0) {
        static const int kWrapping[][2] = {{65536, 65537}, {65536, 32768}, {-1, -1}, {46341, 46341}};
        const auto& pick = in.pick(kWrapping);
        width = pick[0];
        height = pick[1];
    }
    const int32_t n = static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(height));
    const size_t pixels = n > 0 ? static_cast<size_t>(n) : 0;
    if (pixels > 20000) return 0;
    const size_t srcBytes = tenBit ? pixels / 4 * 5 + (pixels % 4 != 0 ? pixels % 4 + 1 : 0) : pixels / 2 * 3;
    const int nulls = in.below(8);  // 0: null source, 1: null destination

    fuzz::Memory src(srcBytes), dst(2 * pixels);
    std::memset(dst.data(), 0xAB, dst.size);
    in.fill(src.data(), srcBytes);
    unsigned char* from = nulls == 0 ? nullptr : src.data();
    unsigned char* to = nulls == 1 ? nullptr : dst.data();
    if (tenBit)
        unpack10BitsPixelBuffer(code.format, width, height, from, to);
    else
        unpack12BitsPixelBuffer(code.format, width, height, from, to);

    const bool unpacks = code.accepted && nulls > 1;
    for (size_t i = 0; i < pixels; ++i) {
        uint16_t got;
        std::memcpy(&got, dst.data() + 2 * i, 2);
        unsigned expected = 0xABAB;  // untouched
        if (unpacks && tenBit) expected = reference10(src.data(), i);
        if (unpacks && !tenBit && (i + 1 < pixels || pixels % 2 == 0))
            expected = pixels >= 2 ? reference12(src.data(), i, code.lsbFirst) : 0xABAB;
        if (got != expected) std::abort();
    }
    return 0;
}

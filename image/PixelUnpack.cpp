#include "PixelUnpack.h"

#include <cstdint>
#include <cstring>

namespace {

using namespace ZTI;

bool isAcceptedPackedFormat(PfncFormat_ format) {
    switch (format) {
        case Mono10Packed: case Mono12Packed: case Mono10p:
        case BayerBG10p: case BayerGB10p: case BayerGR10p: case BayerRG10p:
        case BayerGR10Packed: case BayerRG10Packed: case BayerGB10Packed: case BayerBG10Packed:
        case BayerGR12Packed: case BayerRG12Packed: case BayerGB12Packed: case BayerBG12Packed:
        case Mono12p: case BayerBG12p: case BayerGB12p: case BayerGR12p: case BayerRG12p:
            return true;
        default:
            return false;
    }
}

// The codes whose 12-bit pairs are stored least significant bits first.
bool isLsbFirstPair(PfncFormat_ format) {
    switch (format) {
        case Mono10p: case BayerBG10p: case BayerGB10p: case BayerGR10p: case BayerRG10p:
        case Mono12p: case BayerBG12p: case BayerGB12p: case BayerGR12p: case BayerRG12p:
            return true;
        default:
            return false;
    }
}

inline void store16(unsigned char* dst, size_t index, uint16_t value) {
    std::memcpy(dst + 2 * index, &value, sizeof value);
}

}  // namespace

void unpack10BitsPixelBuffer(PfncFormat_ format, int width, int height, unsigned char* src,
                             unsigned char* dst) {
    if (!isAcceptedPackedFormat(format) || dst == nullptr) return;
    const int32_t n = static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(height));
    if (n <= 0) return;
    const size_t groups = static_cast<size_t>(n) / 4;
    const unsigned char* s = src;
    for (size_t g = 0; g < groups; ++g, s += 5) {
        const unsigned b0 = s[0], b1 = s[1], b2 = s[2], b3 = s[3], b4 = s[4];
        store16(dst, 4 * g + 0, static_cast<uint16_t>((b0 << 2) | (b1 >> 6)));
        store16(dst, 4 * g + 1, static_cast<uint16_t>(((b1 & 0x3F) << 4) | (b2 >> 4)));
        store16(dst, 4 * g + 2, static_cast<uint16_t>(((b2 & 0x0F) << 6) | (b3 >> 2)));
        store16(dst, 4 * g + 3, static_cast<uint16_t>(((b3 & 0x03) << 8) | b4));
    }
    // Partial last group: pixel k reads bytes k and k + 1 only.
    const size_t rest = static_cast<size_t>(n) % 4;
    const size_t base = 4 * groups;
    if (rest >= 1) store16(dst, base + 0, static_cast<uint16_t>((s[0] << 2) | (s[1] >> 6)));
    if (rest >= 2) store16(dst, base + 1, static_cast<uint16_t>(((s[1] & 0x3F) << 4) | (s[2] >> 4)));
    if (rest >= 3) store16(dst, base + 2, static_cast<uint16_t>(((s[2] & 0x0F) << 6) | (s[3] >> 2)));
}

void unpack12BitsPixelBuffer(PfncFormat_ format, int width, int height, unsigned char* src,
                             unsigned char* dst) {
    if (!isAcceptedPackedFormat(format) || dst == nullptr) return;
    const int32_t n = static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(height));
    if (n < 2) return;
    const size_t pairs = static_cast<size_t>(n) / 2;
    const unsigned char* s = src;
    if (isLsbFirstPair(format)) {
        for (size_t p = 0; p < pairs; ++p, s += 3) {
            store16(dst, 2 * p, static_cast<uint16_t>(s[0] | ((s[1] & 0x0F) << 8)));
            store16(dst, 2 * p + 1, static_cast<uint16_t>((s[1] >> 4) | (s[2] << 4)));
        }
    } else {
        for (size_t p = 0; p < pairs; ++p, s += 3) {
            store16(dst, 2 * p, static_cast<uint16_t>((s[0] << 4) | (s[1] & 0x0F)));
            store16(dst, 2 * p + 1, static_cast<uint16_t>((s[2] << 4) | (s[1] >> 4)));
        }
    }
}

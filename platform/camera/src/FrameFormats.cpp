#include "FrameFormats.h"

namespace ZTI {
namespace camera {
namespace {

using E = Encoding;
using S = Sensor;

// Every 10-bit packed code shares the one five-byte-group layout, the "p" 12-bit codes the
// least-significant-first pair and the "Packed" 12-bit codes the packed pair: these are the
// layouts the image library's unpackers read.
// clang-format off
constexpr FrameFormat kFormats[] = {
    // code       name                sensor      encoding         bits
    {0x01080001, "Mono8",            S::Mono,    E::Sample8,      8},
    {0x01100003, "Mono10",           S::Mono,    E::Sample16,     10},
    {0x01100005, "Mono12",           S::Mono,    E::Sample16,     12},
    {0x01100007, "Mono16",           S::Mono,    E::Sample16,     16},
    {0x010A0046, "Mono10p",          S::Mono,    E::Group10,      10},
    {0x010C0004, "Mono10Packed",     S::Mono,    E::Group10,      10},
    {0x010C0047, "Mono12p",          S::Mono,    E::PairLsb12,    12},
    {0x010C0006, "Mono12Packed",     S::Mono,    E::PairPacked12, 12},
    {0x01080008, "BayerGR8",         S::BayerGR, E::Sample8,      8},
    {0x01080009, "BayerRG8",         S::BayerRG, E::Sample8,      8},
    {0x0108000A, "BayerGB8",         S::BayerGB, E::Sample8,      8},
    {0x0108000B, "BayerBG8",         S::BayerBG, E::Sample8,      8},
    {0x0110000C, "BayerGR10",        S::BayerGR, E::Sample16,     10},
    {0x0110000D, "BayerRG10",        S::BayerRG, E::Sample16,     10},
    {0x0110000E, "BayerGB10",        S::BayerGB, E::Sample16,     10},
    {0x0110000F, "BayerBG10",        S::BayerBG, E::Sample16,     10},
    {0x01100010, "BayerGR12",        S::BayerGR, E::Sample16,     12},
    {0x01100011, "BayerRG12",        S::BayerRG, E::Sample16,     12},
    {0x01100012, "BayerGB12",        S::BayerGB, E::Sample16,     12},
    {0x01100013, "BayerBG12",        S::BayerBG, E::Sample16,     12},
    {0x0110002E, "BayerGR16",        S::BayerGR, E::Sample16,     16},
    {0x0110002F, "BayerRG16",        S::BayerRG, E::Sample16,     16},
    {0x01100030, "BayerGB16",        S::BayerGB, E::Sample16,     16},
    {0x01100031, "BayerBG16",        S::BayerBG, E::Sample16,     16},
    {0x010A0056, "BayerGR10p",       S::BayerGR, E::Group10,      10},
    {0x010A0058, "BayerRG10p",       S::BayerRG, E::Group10,      10},
    {0x010A0054, "BayerGB10p",       S::BayerGB, E::Group10,      10},
    {0x010A0052, "BayerBG10p",       S::BayerBG, E::Group10,      10},
    {0x010C0026, "BayerGR10Packed",  S::BayerGR, E::Group10,      10},
    {0x010C0027, "BayerRG10Packed",  S::BayerRG, E::Group10,      10},
    {0x010C0028, "BayerGB10Packed",  S::BayerGB, E::Group10,      10},
    {0x010C0029, "BayerBG10Packed",  S::BayerBG, E::Group10,      10},
    {0x010C0057, "BayerGR12p",       S::BayerGR, E::PairLsb12,    12},
    {0x010C0059, "BayerRG12p",       S::BayerRG, E::PairLsb12,    12},
    {0x010C0055, "BayerGB12p",       S::BayerGB, E::PairLsb12,    12},
    {0x010C0053, "BayerBG12p",       S::BayerBG, E::PairLsb12,    12},
    {0x010C002A, "BayerGR12Packed",  S::BayerGR, E::PairPacked12, 12},
    {0x010C002B, "BayerRG12Packed",  S::BayerRG, E::PairPacked12, 12},
    {0x010C002C, "BayerGB12Packed",  S::BayerGB, E::PairPacked12, 12},
    {0x010C002D, "BayerBG12Packed",  S::BayerBG, E::PairPacked12, 12},
    {0x02180014, "RGB8",             S::Colour,  E::Rgb,          8},
    {0x02180015, "BGR8",             S::Colour,  E::Bgr,          8},
    {0x02200016, "RGBa8",            S::Colour,  E::Rgba,         8},
    {0x02200017, "BGRa8",            S::Colour,  E::Bgra,         8},
    {0x0210001F, "YUV422_8_UYVY",    S::Colour,  E::Uyvy,         8},
    {0x02100032, "YUV422_8",         S::Colour,  E::Yuyv,         8},
    {0x0210003B, "YCbCr422_8",       S::Colour,  E::Yuyv,         8},
    {0x02180020, "YUV8_UYV",         S::Colour,  E::Uyv,          8},
    {0x0218005B, "YCbCr8",           S::Colour,  E::Ycbcr,        8},
};
// clang-format on

}  // namespace

const FrameFormat* findFrameFormat(uint32_t code) {
    for (const FrameFormat& f : kFormats)
        if (f.code == code) return &f;
    return nullptr;
}

bool isPackedStream(Encoding encoding) {
    return encoding == E::Group10 || encoding == E::PairLsb12 || encoding == E::PairPacked12 ||
           encoding == E::LsbFirst10 || encoding == E::PairPacked10;
}

bool isChromaShared(Encoding encoding) { return encoding == E::Uyvy || encoding == E::Yuyv; }

unsigned channelCount(Encoding encoding) {
    switch (encoding) {
        case E::Rgb: case E::Bgr: case E::Uyvy: case E::Yuyv: case E::Uyv: case E::Ycbcr:
            return 3;
        case E::Rgba: case E::Bgra:
            return 4;
        default:
            return 1;
    }
}

uint64_t rowPixelBytes(Encoding encoding, uint32_t width) {
    const uint64_t w = width;
    switch (encoding) {
        case E::Sample8: return w;
        case E::Sample16: case E::Uyvy: case E::Yuyv: return 2 * w;
        case E::Rgb: case E::Bgr: case E::Uyv: case E::Ycbcr: return 3 * w;
        case E::Rgba: case E::Bgra: return 4 * w;
        default: return 0;  // packed streams have no rows of their own
    }
}

uint64_t frameByteCount(const FrameFormat& format, uint32_t width, uint32_t height,
                        uint32_t paddingX) {
    const uint64_t pixels = uint64_t{width} * height;
    // Pairs of 10-bit pixels take three bytes, as 12-bit ones do.
    const uint64_t streamBits = format.encoding == E::PairPacked10 ? 12 : format.bits;
    if (isPackedStream(format.encoding)) return (pixels * streamBits + 7) / 8;
    return (rowPixelBytes(format.encoding, width) + paddingX) * height;
}

namespace {

// The 10-bit packed codes as cameras send them: the "p" codes least significant bits first, the
// "Packed" codes in GigE Vision's pairs.
constexpr FrameFormat kPublished10[] = {
    // code        name               sensor      encoding          bits
    {0x010A0046, "Mono10p",          S::Mono,    E::LsbFirst10,    10},
    {0x010C0004, "Mono10Packed",     S::Mono,    E::PairPacked10,  10},
    {0x010A0056, "BayerGR10p",       S::BayerGR, E::LsbFirst10,    10},
    {0x010A0058, "BayerRG10p",       S::BayerRG, E::LsbFirst10,    10},
    {0x010A0054, "BayerGB10p",       S::BayerGB, E::LsbFirst10,    10},
    {0x010A0052, "BayerBG10p",       S::BayerBG, E::LsbFirst10,    10},
    {0x010C0026, "BayerGR10Packed",  S::BayerGR, E::PairPacked10,  10},
    {0x010C0027, "BayerRG10Packed",  S::BayerRG, E::PairPacked10,  10},
    {0x010C0028, "BayerGB10Packed",  S::BayerGB, E::PairPacked10,  10},
    {0x010C0029, "BayerBG10Packed",  S::BayerBG, E::PairPacked10,  10},
};

}  // namespace

const FrameFormat* findFrameFormat(uint32_t code, bool published) {
    if (published)
        for (const FrameFormat& format : kPublished10)
            if (format.code == code) return &format;
    return findFrameFormat(code);
}

}  // namespace camera
}  // namespace ZTI

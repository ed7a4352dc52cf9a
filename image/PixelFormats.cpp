#include "PixelFormat.h"

#include <strings.h>

namespace ZTI {
namespace {

#define ZT_PFNC_ROW(name, code, bits) \
    {#name, code##u, (code##u >> 16) & 0xFFu, bits, 0, 0, PixelPacking::Other, nullptr, 0, false},
#define ZT_PFNC_UNNAMED_ROW(code, bits) \
    {nullptr, code##u, (code##u >> 16) & 0xFFu, bits, 0, 0, PixelPacking::Other, nullptr, 0, false},
constexpr PixelFormatInfo kFormats[] = {ZT_PFNC_FORMAT_LIST(ZT_PFNC_ROW, ZT_PFNC_UNNAMED_ROW)};
#undef ZT_PFNC_ROW
#undef ZT_PFNC_UNNAMED_ROW

}  // namespace

unsigned int getBitsPerChannel(PfncFormat_ format) {
    // A switch over the same list: no table to initialise, and a code listed twice would not
    // compile.
    switch (format) {
#define ZT_PFNC_CASE(name, code, bits) case code##u: return bits;
#define ZT_PFNC_UNNAMED_CASE(code, bits) case code##u: return bits;
        ZT_PFNC_FORMAT_LIST(ZT_PFNC_CASE, ZT_PFNC_UNNAMED_CASE)
#undef ZT_PFNC_CASE
#undef ZT_PFNC_UNNAMED_CASE
        default:
            return 0;
    }
}

uint64_t getPackedByteCount(PfncFormat_ format, uint32_t width, uint32_t height) {
    // 32-bit unsigned arithmetic on purpose: the recorded size of oversized images wraps.
    const uint32_t pixels = width * height;
    const uint32_t bits = getBitsPerPixel(format) * pixels;
    return bits >> 3;
}

size_t getRowStride(PfncFormat_ format, uint32_t width, int64_t paddingX) {
    if (format == 0) return 0;
    const uint32_t packed = getBytesPerPixel(format) * width;
    return static_cast<size_t>(static_cast<uint64_t>(packed) + static_cast<uint64_t>(paddingX));
}

PixelFormatRange getPixelFormats() {
    return {kFormats, kFormats + sizeof(kFormats) / sizeof(kFormats[0])};
}

const char* getPixelFormatName(PfncFormat_ format) {
    for (const PixelFormatInfo& f : kFormats)
        if (f.code == format) return f.name;
    return nullptr;
}

PfncFormat_ findPixelFormat(const char* name) {
    if (name == nullptr) return 0;
    for (const PixelFormatInfo& f : kFormats)
        if (f.name != nullptr && strcasecmp(f.name, name) == 0) return f.code;
    return 0;
}

}  // namespace ZTI

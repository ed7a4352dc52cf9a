// Test scenes for the demosaics: Bayer mosaics of colour scenes and of random samples.
#pragma once

#include <array>
#include <cstddef>
#include <random>
#include <vector>

namespace mosaictest {

using Samples = std::vector<unsigned short>;
using Rgb = std::array<int, 3>;
/// The signature both demosaics share.
using Demosaic = void (*)(unsigned short*, unsigned short*, int, int, int, const char*);

inline const char* const kPatterns[] = {"RGGB", "BGGR", "GRBG", "GBRG"};

/// Channel (0 = R, 1 = G, 2 = B) of the filter at (y, x).
inline int channelAt(const char* pattern, int y, int x)
{
    const char c = pattern[(y & 1) * 2 + (x & 1)];
    return c == 'R' ? 0 : c == 'G' ? 1 : 2;
}

/// Mosaic of a scene given as scene(y, x) -> Rgb.
template <class Scene>
Samples mosaic(int rows, int cols, const char* pattern, Scene scene)
{
    Samples raw(static_cast<size_t>(rows) * cols);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
            raw[static_cast<size_t>(y) * cols + x] =
                static_cast<unsigned short>(scene(y, x)[channelAt(pattern, y, x)]);
    return raw;
}

/// Uniformly random samples of `bits` bits.
inline Samples randomFrame(int rows, int cols, int bits, unsigned seed)
{
    std::mt19937 rng(seed);
    Samples raw(static_cast<size_t>(rows) * cols);
    for (auto& v : raw)
        v = static_cast<unsigned short>(rng() % (1u << bits));
    return raw;
}

/// The demosaiced frame; the output starts out as 0xBEEF, so samples left unwritten show.
inline Samples demosaic(Demosaic method, Samples raw, int rows, int cols, int bits, const char* pattern)
{
    Samples out(raw.size() * 3, 0xBEEF);
    method(raw.data(), out.data(), rows, cols, bits, pattern);
    return out;
}

}  // namespace mosaictest

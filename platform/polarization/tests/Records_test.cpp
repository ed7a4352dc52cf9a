// Input records: unusable ones give an empty output; usable ones are read only within their
// rows and never written.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <vector>

#include "Polarization.h"

namespace {

using Function = std::function<void(const pol::ImageInfo&, pol::ImageInfo&)>;

// Every function that reads a mosaic.
const Function kMosaicFunctions[] = {
    pol::CreateStokesS0, pol::CreateStokesS1, pol::CreateStokesS2, pol::CreateDOLP, pol::CreateAOLP,
    pol::CreateGlareReduced, pol::ExtractPolarQuadrantI0, pol::ExtractPolarQuadrantI45,
    pol::ExtractPolarQuadrantI90, pol::ExtractPolarQuadrantI135,
    [](const pol::ImageInfo& in, pol::ImageInfo& out) { pol::ApplyHeatmap(in, out, {true, 0, 100, 0, 5}); }};

/// Runs `f` on `in` with an output that holds an earlier result; true when `f` emptied it.
bool givesEmpty(const std::function<void(pol::ImageInfo&)>& f) {
    unsigned char mosaic[16] = {};
    pol::ImageInfo out;
    pol::CreateStokesS0({4, 4, 4, mosaic, pol::kMono8, {}}, out);
    f(out);
    return out.width == 0 && out.height == 0 && out.stride == 0 && out.data == nullptr && out.matrix.empty();
}

}  // namespace

TEST(Records, UnusableInputsGiveAnEmptyOutput) {
    unsigned char mosaic[32] = {};
    // Null data, no, odd or negative width, height 1 or odd, short or negative stride, not a mosaic.
    const pol::ImageInfo badMosaics[] = {
        {6, 4, 8, nullptr, 0, {}}, {0, 4, 8, mosaic, 0, {}}, {5, 4, 8, mosaic, 0, {}}, {-6, 4, 8, mosaic, 0, {}},
        {6, 1, 8, mosaic, 0, {}},  {6, 3, 8, mosaic, 0, {}}, {6, 4, 5, mosaic, 0, {}}, {6, 4, -8, mosaic, 0, {}},
        {6, 4, 8, mosaic, pol::kDolp, {}}};
    for (const Function& f : kMosaicFunctions)
        for (const pol::ImageInfo& in : badMosaics)
            EXPECT_TRUE(givesEmpty([&](pol::ImageInfo& out) { f(in, out); })) << in.width << " x " << in.height << ", stride " << in.stride;
    // Float planes: unknown kinds, no rows, rows shorter than width floats, a stride that is not
    // whole floats, misaligned floats.
    float plane[16] = {};
    auto* bytes = reinterpret_cast<unsigned char*>(plane);
    const pol::ImageInfo badPlanes[] = {{4, 4, 16, bytes, 99, {}},         {4, 4, 16, bytes, pol::kRgb8, {}},
                                        {4, 0, 16, bytes, pol::kDolp, {}}, {4, 4, 12, bytes, pol::kDolp, {}},
                                        {3, 3, 18, bytes, pol::kDolp, {}}, {3, 3, 16, bytes + 1, pol::kDolp, {}}};
    for (const pol::ImageInfo& in : badPlanes)
        EXPECT_TRUE(givesEmpty([&](pol::ImageInfo& out) { pol::ConvertTo8BPP(in, out); })) << "kind " << in.kind << ", stride " << in.stride;
}

TEST(Records, ReadOnlyTheDescribedRowsAndNeverWriteThem) {
    // Mosaics placed directly after an inaccessible page and directly before one (the last row
    // has no padding), so that any read outside their rows faults; the bytes must be unchanged.
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (auto [w, h, stride] : {std::array{2, 2, 2}, {8, 6, 11}})
        for (bool guardAfter : {false, true}) {
            const size_t size = static_cast<size_t>(stride) * (h - 1) + w;
            auto* base = static_cast<unsigned char*>(mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            ASSERT_NE(base, MAP_FAILED);
            mprotect(base, page, PROT_NONE);
            mprotect(base + 2 * page, page, PROT_NONE);
            unsigned char* data = guardAfter ? base + 2 * page - size : base + page;
            for (size_t i = 0; i < size; ++i) data[i] = static_cast<unsigned char>(i * 37);
            const std::vector<unsigned char> before(data, data + size);
            const pol::ImageInfo in{w, h, stride, data, pol::kMono8, {}};
            pol::ImageInfo out;
            for (const Function& f : kMosaicFunctions) {
                f(in, out);
                EXPECT_GT(out.width, 0);
            }
            pol::ApplyHeatmap(in, out, pol::HeatmapOption{});  // read as an 8-bit DoLP image
            pol::ConvertTo8BPP(in, out);
            EXPECT_EQ(std::memcmp(before.data(), data, size), 0);
            munmap(base, 3 * page);
        }
}

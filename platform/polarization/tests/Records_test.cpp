#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "Mosaic.h"
#include "Polarization.h"

namespace {

struct Function {
    const char* name;
    std::function<void(const pol::ImageInfo&, pol::ImageInfo&)> run;
};

pol::HeatmapOption heatmapOf(bool mosaic) {
    pol::HeatmapOption option;
    option.flag = mosaic;
    return option;
}

// Every function that reads a mosaic.
const std::vector<Function>& mosaicFunctions() {
    static const std::vector<Function> functions{
        {"CreateStokesS0", pol::CreateStokesS0},
        {"CreateStokesS1", pol::CreateStokesS1},
        {"CreateStokesS2", pol::CreateStokesS2},
        {"CreateDOLP", pol::CreateDOLP},
        {"CreateAOLP", pol::CreateAOLP},
        {"CreateGlareReduced", pol::CreateGlareReduced},
        {"ExtractPolarQuadrantI0", pol::ExtractPolarQuadrantI0},
        {"ExtractPolarQuadrantI45", pol::ExtractPolarQuadrantI45},
        {"ExtractPolarQuadrantI90", pol::ExtractPolarQuadrantI90},
        {"ExtractPolarQuadrantI135", pol::ExtractPolarQuadrantI135},
        {"ApplyHeatmap(mosaic)",
         [](const pol::ImageInfo& in, pol::ImageInfo& out) { pol::ApplyHeatmap(in, out, heatmapOf(true)); }},
    };
    return functions;
}

/// A filled output record, to see that a rejected input replaces it by an empty one.
pol::ImageInfo previousResult() {
    poltest::Mosaic m(4, 4);
    pol::ImageInfo out;
    pol::CreateStokesS0(m.info(), out);
    return out;
}

/// Pixel memory placed directly against an inaccessible page, so that a read one byte
/// before the first or after the last byte faults.
class GuardedBytes {
public:
    enum Side { kBefore, kAfter };
    GuardedBytes(size_t size, Side guard) : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        const size_t dataPages = (size + page_ - 1) / page_;
        length_ = (dataPages + 2) * page_;
        void* base = mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(base, MAP_FAILED);
        base_ = static_cast<unsigned char*>(base);
        mprotect(base_, page_, PROT_NONE);
        mprotect(base_ + (dataPages + 1) * page_, page_, PROT_NONE);
        data_ = guard == kBefore ? base_ + page_ : base_ + (dataPages + 1) * page_ - size;
    }
    ~GuardedBytes() { munmap(base_, length_); }
    unsigned char* data() { return data_; }

private:
    size_t page_;
    size_t length_ = 0;
    unsigned char* base_ = nullptr;
    unsigned char* data_ = nullptr;
};

}  // namespace

TEST(Records, UnusableMosaicsGiveAnEmptyOutput) {
    poltest::Mosaic m(6, 4, 2);
    struct Bad {
        const char* what;
        std::function<void(pol::ImageInfo&)> spoil;
    };
    const Bad bad[] = {
        {"null data", [](pol::ImageInfo& in) { in.data = nullptr; }},
        {"width 0", [](pol::ImageInfo& in) { in.width = 0; }},
        {"width 1", [](pol::ImageInfo& in) { in.width = 1; }},
        {"odd width", [](pol::ImageInfo& in) { in.width = 5; }},
        {"negative width", [](pol::ImageInfo& in) { in.width = -6; }},
        {"height 1", [](pol::ImageInfo& in) { in.height = 1; }},
        {"odd height", [](pol::ImageInfo& in) { in.height = 3; }},
        {"stride below width", [](pol::ImageInfo& in) { in.stride = 5; }},
        {"negative stride", [](pol::ImageInfo& in) { in.stride = -8; }},
        {"not a mosaic", [](pol::ImageInfo& in) { in.kind = pol::kDolp; }},
    };
    for (const Function& f : mosaicFunctions())
        for (const Bad& b : bad) {
            SCOPED_TRACE(std::string(f.name) + ", " + b.what);
            pol::ImageInfo in = m.info();
            b.spoil(in);
            pol::ImageInfo out = previousResult();
            f.run(in, out);
            EXPECT_TRUE(poltest::isEmpty(out));
        }
}

TEST(Records, UnusablePlanesGiveAnEmptyOutput) {
    std::vector<float> pixels(16, 0.5f);
    auto floatPlane = [&] {
        pol::ImageInfo in;
        in.width = 4;
        in.height = 4;
        in.stride = 16;
        in.data = reinterpret_cast<unsigned char*>(pixels.data());
        in.kind = pol::kDolp;
        return in;
    };
    struct Bad {
        const char* what;
        std::function<void(pol::ImageInfo&)> spoil;
    };
    const Bad bad[] = {
        {"unknown kind", [](pol::ImageInfo& in) { in.kind = 99; }},
        {"an RGB image", [](pol::ImageInfo& in) { in.kind = pol::kRgb8; }},
        {"null data", [](pol::ImageInfo& in) { in.data = nullptr; }},
        {"height 0", [](pol::ImageInfo& in) { in.height = 0; }},
        {"stride below a row of floats", [](pol::ImageInfo& in) { in.stride = 12; }},
        {"stride not a whole number of floats", [](pol::ImageInfo& in) { in.stride = 18; }},
        {"misaligned floats", [](pol::ImageInfo& in) { in.data += 1; in.width = 3; }},
    };
    for (const Bad& b : bad) {
        SCOPED_TRACE(b.what);
        pol::ImageInfo in = floatPlane();
        b.spoil(in);
        pol::ImageInfo out = previousResult();
        pol::ConvertTo8BPP(in, out);
        EXPECT_TRUE(poltest::isEmpty(out));
    }
    // The heat map of an 8-bit DoLP image needs 8-bit input.
    pol::ImageInfo out = previousResult();
    pol::ApplyHeatmap(floatPlane(), out, heatmapOf(false));
    EXPECT_TRUE(poltest::isEmpty(out));
}

TEST(Records, ReadOnlyTheDescribedRowsAndNeverWriteThem) {
    // The smallest mosaic and one with padded rows, each placed once against a guard page
    // before its first byte and once after its last described byte (the last row has no
    // padding): any read outside faults. The bytes must be unchanged afterwards.
    const int shapes[][3] = {{2, 2, 0}, {8, 6, 3}};
    for (const auto& shape : shapes)
        for (auto side : {GuardedBytes::kBefore, GuardedBytes::kAfter}) {
            const int w = shape[0], h = shape[1], stride = w + shape[2];
            const size_t size = static_cast<size_t>(stride) * (h - 1) + w;
            GuardedBytes memory(size, side);
            for (size_t i = 0; i < size; ++i) memory.data()[i] = static_cast<unsigned char>(i * 37);
            const std::vector<unsigned char> before(memory.data(), memory.data() + size);
            pol::ImageInfo in;
            in.width = w;
            in.height = h;
            in.stride = stride;
            in.data = memory.data();
            for (const Function& f : mosaicFunctions()) {
                pol::ImageInfo out;
                f.run(in, out);
                EXPECT_GT(out.width, 0) << f.name;
            }
            pol::ImageInfo out;
            pol::ApplyHeatmap(in, out, heatmapOf(false));
            pol::ConvertTo8BPP(in, out);
            EXPECT_EQ(std::memcmp(before.data(), memory.data(), size), 0);
        }
}

TEST(Records, OutputMayReplaceItsOwnInput) {
    // The result of a product fed back into the same record: the input is read before the
    // record is replaced.
    poltest::Mosaic m = poltest::randomMosaic(6, 4, 0, 3);
    pol::ImageInfo separate;
    pol::CreateDOLP(m.info(), separate);
    pol::ImageInfo record = m.info();
    pol::CreateDOLP(record, record);
    pol::ConvertTo8BPP(record, record);
    pol::ImageInfo expected;
    pol::ConvertTo8BPP(separate, expected);
    ASSERT_EQ(record.width, 6);
    ASSERT_EQ(record.kind, pol::kMono8);
    EXPECT_EQ(std::memcmp(record.data, expected.data, 24), 0);
}

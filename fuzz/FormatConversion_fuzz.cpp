// Fuzz target: ZTImageFormatConverter over every usable pair of the conversion table (pairs
// that abort by design are left out), with random sizes, paddings, pixel bytes and memory: the
// library's own, a caller's buffer of the exact, a shorter or a random size, or none; the
// destination fresh, pre-shaped, or a caller's buffer. The converter objects are also called
// directly with destinations of any shape.
#include <climits>
#include <cstdlib>

#include "FuzzInput.h"

using namespace ZTI;

namespace {

const std::vector<ConversionInfo>& usablePairs() {
    static const std::vector<ConversionInfo> pairs = [] {
        std::vector<ConversionInfo> usable;
        for (const ConversionInfo& pair : ImageConverterFactory::listConversions())
            if (pair.usable) usable.push_back(pair);
        return usable;
    }();
    return pairs;
}

// The formats setOutputFormat refuses (a programming error that aborts).
bool refusedOutput(PfncFormat_ format) {
    return format == BayerGR8 || format == BayerRG8 || format == BayerGB8 || format == BayerBG8 ||
           format == YUV422_8_UYVY || format == YUV422_8;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::FuzzInput in(data, size);
    const std::vector<ConversionInfo>& pairs = usablePairs();
    const uint32_t choice = in.below(static_cast<uint32_t>(pairs.size() + 8));
    PfncFormat_ output, source;
    if (choice < pairs.size()) {
        output = pairs[choice].dst;
        source = pairs[choice].src;
    } else {  // equal formats (a copy), or a pair the table does not have
        source = fuzz::anyFormat(in);
        output = choice % 2 == 0 ? source : fuzz::anyFormat(in);
        if (refusedOutput(output) || (!ImageConverterFactory::canConvert(output, source) &&
                                          ImageConverterFactory().createConverter(output, source)))
            return 0;  // refused outputs and listed-but-unusable pairs abort by design
    }
    const uint32_t width = fuzz::dimension(in, 33), height = fuzz::dimension(in, 33);
    static const uint64_t kPaddings[] = {0, 0, 0, 1, 2, 3, 5, 8, ULONG_MAX - 40};
    const uint64_t padding = in.pick(kPaddings);

    static const char* const kPolicies[] = {nullptr, "raw", "normalize", "NoRmAlIzE", "raw "};
    const char* policy = in.pick(kPolicies);
    if (policy != nullptr)
        setenv("ZT_HIST_RANGE_POLICY", policy, 1);
    else
        unsetenv("ZT_HIST_RANGE_POLICY");

    std::unique_ptr<fuzz::Memory> srcMemory, dstMemory;
    ZTImage src, dst;
    if (!fuzz::makeImage(in, source, width, height, padding, srcMemory, src)) return 0;
    const int dstMode = in.below(3);
    const uint32_t dstPadding = in.below(4);
    if (dstMode == 1 && getPackedByteCount(output, width, height) <= fuzz::kMaxBytes &&
        !fuzz::copyTooLarge(output, width, height, dstPadding))
        dst = ZTImage::create(output, width, height, static_cast<int>(dstPadding));
    if (dstMode == 2 && !fuzz::makeImage(in, output, width, height, dstPadding, dstMemory, dst)) return 0;

    ZTImageFormatConverter converter;
    converter.setOutputFormat(output);
    for (int round = 0; round < 2; ++round) {  // the second call finds the converter cached
        try {
            // A copy of a caller's buffer holds only what the caller stated; a conversion holds
            // every row.
            if (converter.convert(dst, src) == 0 && output != source) fuzz::touchLastRow(dst);
        } catch (const cv::Exception&) {
        }
    }

    // The converter object itself, with a destination of the input's choosing.
    std::unique_ptr<IImageConverter> direct = ImageConverterFactory().createConverter(output, source);
    if (direct && width <= 64 && height <= 64) {
        // Any size; the format must be the pair's, as a destination of another format is a
        // colour-code lookup the table does not have (a programming error that aborts).
        const uint32_t shapedWidth = in.below(40), shapedHeight = in.below(40);
        ZTImage shaped = ZTImage::create(output, shapedWidth, shapedHeight);
        try {
            direct->convert(shaped, src);
        } catch (const cv::Exception&) {
        }
    }
    return 0;
}

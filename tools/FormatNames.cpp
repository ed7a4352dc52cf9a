#include "FormatNames.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "ImageConverterFactory.h"
#include "ToolError.h"

namespace ztool {
namespace {

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Edit distance without regard to case: small for typos and for a wrong digit or suffix.
size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            const size_t substitution = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, substitution});
            diagonal = above;
        }
    }
    return row[b.size()];
}

std::string suggestions(const std::string& name) {
    const std::string wanted = lowerCase(name);
    std::vector<std::pair<size_t, const char*>> ranked;
    for (const ZTI::PixelFormatInfo& info : ZTI::getPixelFormats()) {
        if (info.name == nullptr) continue;
        ranked.emplace_back(editDistance(wanted, lowerCase(info.name)), info.name);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    // Only near misses are worth naming: a third of the name may be wrong, at least two letters.
    const size_t limit = std::max<size_t>(2, wanted.size() / 3);
    std::string text;
    for (size_t i = 0; i < ranked.size() && i < 3 && ranked[i].first <= limit; ++i) {
        text += (i == 0 ? "" : ", ") + std::string(ranked[i].second);
    }
    return text;
}

bool knownCode(PfncFormat_ code) {
    for (const ZTI::PixelFormatInfo& info : ZTI::getPixelFormats()) {
        if (info.code == code) return true;
    }
    return false;
}

}  // namespace

PfncFormat_ parseFormat(const std::string& name) {
    if (const PfncFormat_ code = ZTI::findPixelFormat(name.c_str())) return code;
    if (name.size() > 2 && (name.compare(0, 2, "0x") == 0 || name.compare(0, 2, "0X") == 0)) {
        char* end = nullptr;
        const unsigned long code = std::strtoul(name.c_str() + 2, &end, 16);
        if (*end == '\0' && code <= 0xFFFFFFFFul && knownCode(static_cast<PfncFormat_>(code))) {
            return static_cast<PfncFormat_>(code);
        }
    }
    const std::string closest = suggestions(name);
    throw usageError("unknown pixel format '" + name + "'" +
                     (closest.empty() ? " (ztimage formats lists them)" : " (did you mean " + closest + "?)"));
}

ZTI::DemosaicMethod parseDemosaicMethod(const std::string& name) {
    if (name == "ha") return ZTI::DemosaicMethod::HamiltonAdams;
    if (name == "quality") return ZTI::DemosaicMethod::Quality;
    throw usageError("unknown demosaic '" + name + "' (ha or quality)");
}

std::string formatLabel(PfncFormat_ code) { return ZTI::getPixelFormatLabel(code); }

std::string formatList(const std::vector<PfncFormat_>& codes) {
    if (codes.empty()) return "none";
    std::string text;
    for (PfncFormat_ code : codes) text += (text.empty() ? "" : ", ") + formatLabel(code);
    return text;
}

PfncFormat_ attachedFormat(PfncFormat_ code) {
    // A code the library does not know is viewed as it is.
    const ZTI::PixelFormatInfo* info = ZTI::getPixelFormatInfo(code);
    return info != nullptr ? info->unpackedFormat : code;
}

std::vector<PfncFormat_> conversionTargets(PfncFormat_ src) {
    std::vector<PfncFormat_> targets;
    for (const ZTI::ConversionInfo& c : ZTI::ImageConverterFactory::listConversions()) {
        if (c.src == src && c.usable) targets.push_back(c.dst);
    }
    return targets;
}

std::vector<PfncFormat_> conversionSources(PfncFormat_ dst) {
    std::vector<PfncFormat_> sources;
    for (const ZTI::ConversionInfo& c : ZTI::ImageConverterFactory::listConversions()) {
        if (c.dst == dst && c.usable) sources.push_back(c.src);
    }
    return sources;
}

}  // namespace ztool

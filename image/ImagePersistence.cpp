#include "ImagePersistence.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

#include "Assert.h"
#include "ImageConverterFactory.h"
#include "MatrixBridge.h"
#include "ZTImageFormatConverter.h"
#include "ZTImageImpl.h"

namespace ZTI {
namespace {

// Colour as the format table says. A code the table does not know counts as colour when its
// top byte (high bit masked) is not the mono family's 0x01.
bool isColour(PfncFormat_ code) {
    if (const PixelFormatInfo* info = getPixelFormatInfo(code)) return info->isColour;
    return code != 0 && (code & 0x7F000000u) != 0x01000000u;
}

// The process's file-creation mask, read without changing it (umask() would, racily).
mode_t currentUmask() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("Umask:", 0) == 0) return static_cast<mode_t>(std::strtoul(line.c_str() + 6, nullptr, 8));
    return 022;
}

struct Prepared {
    ZTImage image;
    cv::Mat matrix;
};

// The image to write and the matrix over it (BGR order for colour), or false with the reason.
// With `abortOnFailure`, a failed conversion is the programming error save() treats it as.
bool prepare(ImageFileFormat format, const ZTImage& image, Prepared& out, std::string& error,
             bool abortOnFailure) {
    const PfncFormat_ source = image.getPixelType();
    const PfncFormat_ target = ImagePersistence::fileFormatOf(format, source);
    if (target == source) {
        // The rows are written packed from the source's first byte: they must all be the
        // source's own. A copy of a caller's buffer stated shorter gets memory for every row,
        // but what lies past the stated size is undefined, so the source is checked, not the copy.
        const int type = get_cv_type(static_cast<int>(getBitsPerChannel(source)), channelCount(source));
        const uint64_t bytes = static_cast<uint64_t>(image.getWidth()) * image.getHeight() *
                               static_cast<uint64_t>(type < 0 ? 0 : CV_ELEM_SIZE(type));
        if (type >= 0 && image.isValid() && readableBytes(image) < bytes) {
            error = "image holds " + std::to_string(readableBytes(image)) + " bytes, its size needs " +
                    std::to_string(bytes);
            return false;
        }
        out.image = image;
    } else {
        ZTImageFormatConverter converter;
        converter.setOutputFormat(target);
        const bool convertible = ImageConverterFactory::canConvert(target, source);
        if (!abortOnFailure && !convertible) {
            error = "cannot save pixel format " + std::to_string(source) + ": no conversion to the file's format";
            return false;
        }
        // Pixels the image does not hold (a short caller's buffer or frame, no memory at all)
        // or half a 4:2:2 pair are a failure of the data, not of the program: refused here,
        // before the conversion would refuse them and the failed conversion abort.
        if (convertible && !viewFits(image)) {
            error = "image holds " + std::to_string(readableBytes(image)) + " bytes, its rows span " +
                    std::to_string(viewBytes(image));
            return false;
        }
        if (convertible && !hasWholePixelPairs(image)) {
            error = "4:2:2 image of odd width " + std::to_string(image.getWidth()) + ": its pixels come in pairs";
            return false;
        }
        const int result = converter.convert(out.image, image);
        if (result != 0) {
            if (abortOnFailure) ZT_ASSERT(false);
            error = "cannot save pixel format " + std::to_string(source) + ": conversion failed";
            return false;
        }
    }
    if (out.image.getWidth() == 0 || out.image.getHeight() == 0) {
        error = "image is empty (" + std::to_string(out.image.getWidth()) + " x " +
                std::to_string(out.image.getHeight()) + ")";
        return false;
    }
    const PfncFormat_ written = out.image.getPixelType();
    const int type = get_cv_type(static_cast<int>(getBitsPerChannel(written)), channelCount(written));
    if (type < 0 || !out.image.isValid()) {
        error = "image has no pixels to save";
        return false;
    }
    const uint64_t bytes = static_cast<uint64_t>(out.image.getWidth()) * out.image.getHeight() *
                           static_cast<uint64_t>(CV_ELEM_SIZE(type));
    if (readableBytes(out.image) < bytes) {
        error = "image holds " + std::to_string(readableBytes(out.image)) + " bytes, its size needs " +
                std::to_string(bytes);
        return false;
    }
    // The writable buffer gives the private copy its own memory, so the channel swap below
    // never touches the caller's pixels. Rows are written packed, deliberately.
    out.matrix = cv::Mat(static_cast<int>(out.image.getHeight()), static_cast<int>(out.image.getWidth()), type,
                         out.image.getBuffer());
    if (isColour(written)) cv::cvtColor(out.matrix, out.matrix, cv::COLOR_RGB2BGR, 0);
    return true;
}

// Writes the matrix under a temporary name beside `path` that keeps its extension (the codec
// is chosen by it), then renames it into place.
bool writeAtomically(const cv::Mat& matrix, const std::string& path, std::string& error) {
    const size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = name.find_last_of('.');
    const std::string extension = dot == std::string::npos ? std::string() : name.substr(dot);
    std::string temp = dir + ".ztimage-XXXXXX" + extension;
    std::vector<char> buffer(temp.begin(), temp.end());
    buffer.push_back('\0');
    const int fd = mkstemps(buffer.data(), static_cast<int>(extension.size()));
    if (fd < 0) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    temp = buffer.data();
    fchmod(fd, 0666 & ~currentUmask());
    close(fd);
    bool written = false;
    try {
        written = cv::imwrite(temp, matrix, std::vector<int>());
    } catch (...) {
        std::remove(temp.c_str());
        throw;
    }
    if (!written) {
        std::remove(temp.c_str());
        error = "cannot write " + path + ": the codec for '" + extension + "' refused the image";
        return false;
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        std::remove(temp.c_str());
        return false;
    }
    return true;
}

}  // namespace

PfncFormat_ ImagePersistence::fileFormatOf(ImageFileFormat format, PfncFormat_ pixelType) {
    const bool colour = isColour(pixelType);
    PfncFormat_ target = 0;
    if (format >= 2) target = getDestType(pixelType);
    if (target == 0) target = colour ? RGB8 : Mono8;
    return target;
}

bool ImagePersistence::canSave(ImageFileFormat format, PfncFormat_ pixelType) {
    return ImageConverterFactory::canConvert(fileFormatOf(format, pixelType), pixelType);
}

void ImagePersistence::save(ImageFileFormat format, const ZTImage& image, const char* path) {
    Prepared prepared;
    std::string error;
    if (!prepare(format, image, prepared, error, true)) return;
    const std::string file(path);  // a null path throws std::logic_error here
    // Codec failures are not reported, by design; OpenCV throws for an extension it has no
    // writer for, which counts as such a failure.
    try {
        writeAtomically(prepared.matrix, file, error);
    } catch (const cv::Exception&) {
    }
}

bool ImagePersistence::trySave(ImageFileFormat format, const ZTImage& image, const char* path,
                               std::string& error) {
    if (path == nullptr) {
        error = "no file name given";
        return false;
    }
    if (!image.isValid()) {
        error = "image has no pixels to save";
        return false;
    }
    Prepared prepared;
    if (!prepare(format, image, prepared, error, false)) return false;
    try {
        return writeAtomically(prepared.matrix, path, error);
    } catch (const cv::Exception& e) {
        error = std::string("cannot write ") + path + ": " + e.what();
        return false;
    }
}

}  // namespace ZTI

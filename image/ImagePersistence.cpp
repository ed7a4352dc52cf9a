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
#include <new>
#include <string>
#include <utility>
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
    /// Set when the converter found for the pair failed: a programming error for save().
    bool conversionFailed = false;
};

// The image to write and the matrix over it (BGR order for colour), or false with the reason.
// With `abortOnFailure` (save()), pairs without a converter are not refused beforehand: the
// conversion fails and save() aborts.
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
            error = "cannot save pixel format " + getPixelFormatLabel(source) + ": no conversion to the file's format";
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
        // A converted image without memory is an allocation that failed, not a conversion the
        // program should never have asked for: it is reported as memory exhaustion is.
        if (result != 0 && !out.image.isValid()) throw std::bad_alloc();
        if (result != 0) {
            out.conversionFailed = true;
            error = "cannot save pixel format " + getPixelFormatLabel(source) + ": conversion failed";
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

// Removes the temporary file unless it was renamed into place.
class TemporaryFile {
public:
    explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
    ~TemporaryFile() {
        if (!path_.empty()) ::unlink(path_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const std::string& path() const { return path_; }
    void kept() { path_.clear(); }

private:
    std::string path_;
};

// Writes all of `bytes` to `fd`; false with errno set when the device refuses any of them
// (full, over the file-size limit, an I/O error).
bool writeAll(int fd, const unsigned char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t n = ::write(fd, bytes, size);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) {
            errno = EIO;
            return false;
        }
        bytes += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Encodes the matrix in memory with the codec the extension of `path` chooses, writes it under
// a temporary name beside `path` (same folder, so the rename cannot cross file systems),
// flushes it to the device and renames it into place. Every step is checked: on any failure
// the temporary file is removed, `path` is untouched and `error` holds the system's reason.
// Codec exceptions (an extension no codec knows) pass to the caller.
bool writeAtomically(const cv::Mat& matrix, const std::string& path, std::string& error) {
    const size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = name.find_last_of('.');
    const std::string extension = dot == std::string::npos ? std::string() : name.substr(dot);
    std::vector<unsigned char> encoded;
    if (!cv::imencode(extension, matrix, encoded, std::vector<int>())) {
        error = "cannot write " + path + ": the codec for '" + extension + "' refused the image";
        return false;
    }
    // mkstemps creates the file for its owner only; a saved image gets the usual permissions.
    // Everything that may throw is done before the file is opened.
    const mode_t mode = 0666 & ~currentUmask();
    std::string pattern = dir + ".ztimage-XXXXXX" + extension;
    const int fd = mkstemps(pattern.data(), static_cast<int>(extension.size()));
    if (fd < 0) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    // Moved, not copied: nothing may throw between creating the file and owning it.
    TemporaryFile temp(std::move(pattern));
    bool ok = ::fchmod(fd, mode) == 0 && writeAll(fd, encoded.data(), encoded.size()) &&
              ::fsync(fd) == 0;
    int reason = errno;
    // Some file systems report a failed write-back only when the file is closed.
    if (::close(fd) != 0 && ok) {
        ok = false;
        reason = errno;
    }
    if (ok) {
        if (std::rename(temp.path().c_str(), path.c_str()) == 0) {
            temp.kept();
            return true;
        }
        reason = errno;
    }
    error = "cannot write " + path + ": " + std::strerror(reason);
    return false;
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
    if (!prepare(format, image, prepared, error, true)) {
        if (prepared.conversionFailed)
            ZT_ASSERT(false, "static void ZTI::ImagePersistence::save(ZTI::ImageFileFormat, "
                             "const ZTI::ZTImage&, const char*)");
        return;
    }
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
    // Every failure is reported, also those OpenCV and the allocator raise (a 16-bit image
    // whose padding is not a whole number of samples, a codec without a writer, no memory).
    try {
        Prepared prepared;
        if (!prepare(format, image, prepared, error, false)) return false;
        return writeAtomically(prepared.matrix, path, error);
    } catch (const cv::Exception& e) {
        error = std::string("cannot write ") + path + ": " + e.err;
    } catch (const std::bad_alloc&) {
        error = std::string("cannot write ") + path + ": out of memory";
    } catch (const std::exception& e) {
        error = std::string("cannot write ") + path + ": " + e.what();
    }
    return false;
}

}  // namespace ZTI

#include "ImageFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "FormatNames.h"
#include "ImagePersistence.h"
#include "ToolError.h"

namespace ztool {
namespace {

std::string extensionOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

// File types the tool writes through the library, by extension. Bmp and Jpeg hold 8-bit
// samples only; the others keep 16-bit samples of deeper images.
struct FileType {
    const char* extension;
    ZTI::ImageFileFormat format;
};
constexpr FileType kFileTypes[] = {
    {".png", ZTI::Png},  {".tif", ZTI::Tiff}, {".tiff", ZTI::Tiff}, {".pgm", ZTI::Pnm},
    {".ppm", ZTI::Pnm},  {".pnm", ZTI::Pnm},  {".bmp", ZTI::Bmp},   {".jpg", ZTI::Jpeg},
    {".jpeg", ZTI::Jpeg},
};

const FileType* fileTypeOf(const std::string& path) {
    const std::string ext = extensionOf(path);
    for (const FileType& type : kFileTypes) {
        if (ext == type.extension) return &type;
    }
    return nullptr;
}

std::string systemError(const std::string& what, const std::string& path) {
    return "cannot " + what + " '" + path + "': " + std::strerror(errno);
}

std::vector<unsigned char> readFile(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) throw ToolError(systemError("read", path));
    std::vector<unsigned char> bytes;
    unsigned char chunk[1 << 16];
    size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes.insert(bytes.end(), chunk, chunk + got);
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) throw ToolError(systemError("read", path));
    return bytes;
}

// Formats whose pixels do not fill whole bytes; their frames carry no row padding.
bool isBitPacked(PfncFormat_ format) { return ZTI::getBitsPerPixel(format) % 8 != 0; }

// The image with its rows packed: the library writes files and raw bytes without skipping
// row padding.
ZTI::ZTImage unpadded(const ZTI::ZTImage& image) {
    ZTI::ZTImage packed(image.getPixelType(), image.getWidth(), image.getHeight());
    const size_t row = ZTI::getRowStride(image.getPixelType(), image.getWidth(), 0);
    const unsigned char* from = image.getBuffer();
    unsigned char* to = packed.getBuffer();
    for (unsigned int y = 0; y < image.getHeight(); ++y) std::memcpy(to + y * row, from + y * image.getStride(), row);
    return packed;
}

void loadRaw(const std::string& path, const InputOptions& options, LoadedImage& loaded) {
    if (options.format == 0 || options.width == 0 || options.height == 0) {
        throw usageError("raw input '" + path + "' needs --from, --width and --height");
    }
    if (options.padding != 0 && isBitPacked(options.format)) {
        throw usageError("--padding does not apply to " + formatLabel(options.format) +
                         ": its frames are read as one continuous bit stream");
    }
    const uint64_t needed = isBitPacked(options.format)
        ? ZTI::getPackedByteCount(options.format, options.width, options.height)
        : uint64_t{ZTI::getRowStride(options.format, options.width, options.padding)} * options.height;
    loaded.bytes = readFile(path);
    if (loaded.bytes.size() != needed) {
        throw ToolError("raw file '" + path + "' holds " + std::to_string(loaded.bytes.size()) +
                        " bytes, " + formatLabel(options.format) + " " + std::to_string(options.width) +
                        " x " + std::to_string(options.height) +
                        (options.padding ? " with padding " + std::to_string(options.padding) : "") +
                        " needs " + std::to_string(needed));
    }
    // Attached exactly as a camera frame: packed formats are unpacked, others viewed in place.
    loaded.fileFormat = options.format;
    loaded.image.attachGrabResult(ZTI::createGrabResult(options.format, options.width, options.height,
                                                        options.padding, loaded.bytes.data(),
                                                        loaded.bytes.size()));
    if (loaded.image.getPixelType() == 0 || !loaded.image.isValid()) {
        throw ToolError("the library cannot read " + formatLabel(options.format) + " frames ('" + path + "')");
    }
    // Contrast enhancement and the polarization functions address rows as packed.
    if (loaded.image.getpaddingX() != 0) loaded.image = unpadded(loaded.image);
}

// The library format of a decoded file. OpenCV gives colour in blue-green-red order, which the
// library converts from at 8 bits only; deeper colour is reordered here and alpha dropped.
PfncFormat_ formatOfMatrix(cv::Mat& m) {
    if (m.depth() == CV_8U && m.channels() == 1) return ZTI::Mono8;
    if (m.depth() == CV_16U && m.channels() == 1) return ZTI::Mono16;
    if (m.depth() == CV_8U && m.channels() == 3) return ZTI::BGR8;
    if (m.depth() == CV_8U && m.channels() == 4) return ZTI::BGRa8;
    if (m.depth() == CV_16U && (m.channels() == 3 || m.channels() == 4)) {
        cv::cvtColor(m, m, m.channels() == 3 ? cv::COLOR_BGR2RGB : cv::COLOR_BGRA2RGB);
        return ZTI::RGB16;
    }
    return 0;
}

void loadImageFile(const std::string& path, const InputOptions& options, LoadedImage& loaded) {
    // Probe first: imread says nothing about why it failed.
    if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
        std::fclose(file);
    } else {
        throw ToolError(systemError("read", path));
    }
    cv::Mat m = cv::imread(path, cv::IMREAD_UNCHANGED);
    if (m.empty()) {
        throw ToolError("cannot decode '" + path + "': not an image file OpenCV reads (raw frames need --width and --height)");
    }
    const int channels = m.channels();
    PfncFormat_ format = formatOfMatrix(m);
    if (format == 0) {
        throw ToolError("'" + path + "' holds samples of a kind the library does not take (only 8- and 16-bit "
                        "unsigned, 1, 3 or 4 channels)");
    }
    if (options.format != 0 && options.format != format) {
        // A one-channel file may hold a format of the same sample size: a Bayer mosaic saved as
        // grey, or 12-bit samples in a 16-bit file.
        const unsigned int bits = static_cast<unsigned int>(m.elemSize1() * 8);
        if (channels != 1 || ZTI::getBitsPerPixel(options.format) != bits || isBitPacked(options.format) ||
            ZTI::getPixelFormatName(options.format) == nullptr) {
            throw usageError("--from " + formatLabel(options.format) + " does not fit '" + path + "', which holds " +
                             formatLabel(format) + " pixels");
        }
        format = options.format;
    }
    if (!m.isContinuous()) m = m.clone();
    loaded.fileFormat = format;
    loaded.image = ZTI::ZTImage(format, static_cast<unsigned int>(m.cols), static_cast<unsigned int>(m.rows), 0,
                                m.data);
    if (!loaded.image.isValid()) throw ToolError("out of memory reading '" + path + "'");
}

void writeRaw(const ZTI::ZTImage& image, const std::string& path) {
    const uint64_t size = ZTI::getPackedByteCount(image.getPixelType(), image.getWidth(), image.getHeight());
    const size_t slash = path.find_last_of('/');
    const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    std::string temp = directory + ".ztimage-XXXXXX";
    const int fd = mkstemp(temp.data());
    if (fd < 0) throw ToolError(systemError("write", path));
    // mkstemp creates the file readable by its owner only; give it the usual permissions.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    const unsigned char* data = image.getBuffer();
    uint64_t written = 0;
    while (written < size) {
        const ssize_t n = ::write(fd, data + written, size - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        written += static_cast<uint64_t>(n);
    }
    const int savedErrno = errno;
    const bool closed = ::close(fd) == 0;
    if (written != size || !closed || std::rename(temp.c_str(), path.c_str()) != 0) {
        if (written != size) errno = savedErrno;
        const std::string message = systemError("write", path);
        std::remove(temp.c_str());
        throw ToolError(message);
    }
}

}  // namespace

InputOptions inputOptionsFrom(const Arguments& args) {
    InputOptions options;
    if (const auto from = args.value("--from")) options.format = parseFormat(*from);
    // Camera sensors stay far below 65536 pixels a side; the bound keeps byte counts in range.
    options.width = args.number("--width", 0, 1, 65535);
    options.height = args.number("--height", 0, 1, 65535);
    options.padding = args.number("--padding", 0, 0, 65535);
    options.geometryGiven = args.has("--width") || args.has("--height") || args.has("--padding");
    return options;
}

bool isRawPath(const std::string& path) {
    const std::string ext = extensionOf(path);
    return ext == ".raw" || ext == ".bin";
}

void loadImage(const std::string& path, const InputOptions& options, LoadedImage& loaded) {
    if (isRawPath(path) || options.geometryGiven) {
        loadRaw(path, options, loaded);
    } else {
        loadImageFile(path, options, loaded);
    }
}

void checkOutputPath(const std::string& path) {
    if (extensionOf(path) == ".raw" || fileTypeOf(path) != nullptr) return;
    std::string known = ".raw";
    for (const FileType& type : kFileTypes) known += std::string(" ") + type.extension;
    throw usageError("cannot tell the file type of '" + path + "' from its extension (known: " + known + ")");
}

void writeImage(const ZTI::ZTImage& image, const std::string& path) {
    checkOutputPath(path);
    ZTI::ZTImage packedCopy;
    const ZTI::ZTImage* packed = &image;
    if (image.getpaddingX() != 0) {
        packedCopy = unpadded(image);
        packed = &packedCopy;
    }
    if (extensionOf(path) == ".raw") {
        writeRaw(*packed, path);
        return;
    }
    const FileType& type = *fileTypeOf(path);
    if (!ZTI::ImagePersistence::canSave(type.format, image.getPixelType())) {
        throw ToolError("cannot save " + formatLabel(image.getPixelType()) + " images as " + type.extension +
                        " files: the library has no conversion for it");
    }
    std::string error;
    if (!ZTI::ImagePersistence::trySave(type.format, *packed, path.c_str(), error)) throw ToolError(error);
}

void makeDirectory(const std::string& directory) {
    std::string prefix;
    size_t start = 0;
    while (start <= directory.size()) {
        size_t slash = directory.find('/', start);
        if (slash == std::string::npos) slash = directory.size();
        prefix = directory.substr(0, slash);
        start = slash + 1;
        if (prefix.empty()) continue;
        if (::mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST) throw ToolError(systemError("create directory", prefix));
    }
    struct stat info {};
    if (::stat(directory.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        throw ToolError("cannot use '" + directory + "' as a directory");
    }
}

}  // namespace ztool

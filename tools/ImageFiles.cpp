#include "ImageFiles.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <new>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "FormatNames.h"
#include "ImagePersistence.h"
#include "PixelUnpack.h"
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

// Reads a raw frame that must hold exactly `needed` bytes. A regular file is judged by its size
// before anything is read; anything else (a pipe, a device such as /dev/zero) is read up to one
// byte more than needed. So no input costs more memory than the frame or reads without end.
// A wrong size is a ToolError from `mismatch`, given what the file was found to hold.
std::vector<unsigned char> readFrameBytes(const std::string& path, uint64_t needed,
                                          const std::function<ToolError(const std::string&)>& mismatch) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw ToolError(systemError("read", path));
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        const ToolError error(systemError("read", path));
        ::close(fd);
        throw error;
    }
    if (S_ISREG(info.st_mode) && static_cast<uint64_t>(info.st_size) != needed) {
        ::close(fd);
        throw mismatch(std::to_string(info.st_size) + " bytes");
    }
    std::vector<unsigned char> bytes;
    try {
        bytes.resize(static_cast<size_t>(needed) + 1);
    } catch (const std::bad_alloc&) {
        ::close(fd);
        throw ToolError("out of memory reading '" + path + "' (" + std::to_string(needed) + " bytes)");
    }
    size_t got = 0;
    while (got < bytes.size()) {
        const ssize_t n = ::read(fd, bytes.data() + got, bytes.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const ToolError error(systemError("read", path));
            ::close(fd);
            throw error;
        }
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    ::close(fd);
    if (got > needed) throw mismatch("more than " + std::to_string(needed) + " bytes");
    if (got < needed) throw mismatch(std::to_string(got) + " bytes");
    bytes.resize(got);
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

// The 12-bit unpacker reads frames in whole pixel pairs, so a frame of odd pixel count has its
// last pixel left undefined. That pixel's 12 bits start the frame's last two bytes; they are
// decoded here by the same unpacker, as the first of a pair whose other half is zero.
void decodeLastOddPixel(PfncFormat_ fileFormat, LoadedImage& loaded) {
    const uint64_t pixels = uint64_t{loaded.image.getWidth()} * loaded.image.getHeight();
    // Only frames unpacked to 12 bits: the 10-bit unpacker decodes partial groups itself.
    if (ZTI::getBitsPerChannel(loaded.image.getPixelType()) != 12 || !isBitPacked(fileFormat) || pixels % 2 == 0 ||
        loaded.bytes.size() < 2) {
        return;
    }
    unsigned char pair[3] = {loaded.bytes[loaded.bytes.size() - 2], loaded.bytes[loaded.bytes.size() - 1], 0};
    unsigned char samples[4] = {};
    unpack12BitsPixelBuffer(fileFormat, 2, 1, pair, samples);
    std::memcpy(loaded.image.getBuffer() + 2 * (pixels - 1), samples, 2);
}

void loadRaw(const std::string& path, const InputOptions& options, LoadedImage& loaded) {
    if (options.format == 0 || options.width == 0 || options.height == 0) {
        throw usageError("raw input '" + path + "' needs --from, --width and --height");
    }
    if (options.padding != 0 && isBitPacked(options.format)) {
        throw usageError("--padding does not apply to " + formatLabel(options.format) +
                         ": its frames are read as one continuous bit stream");
    }
    // A bit-packed frame is one stream of width x height pixels; its last byte may be partly
    // used (a 12-bit frame of odd pixel count ends in half a pixel pair).
    const uint64_t pixels = uint64_t{options.width} * options.height;
    const uint64_t needed = isBitPacked(options.format)
        ? (uint64_t{ZTI::getBitsPerPixel(options.format)} * pixels + 7) / 8
        : uint64_t{ZTI::getRowStride(options.format, options.width, options.padding)} * options.height;
    loaded.bytes = readFrameBytes(path, needed, [&](const std::string& held) {
        return ToolError("raw file '" + path + "' holds " + held + ", " + formatLabel(options.format) + " " +
                         std::to_string(options.width) + " x " + std::to_string(options.height) +
                         (options.padding ? " with padding " + std::to_string(options.padding) : "") + " needs " +
                         std::to_string(needed));
    });
    // Attached exactly as a camera frame: packed formats are unpacked, others viewed in place.
    loaded.fileFormat = options.format;
    loaded.image.attachGrabResult(ZTI::createGrabResult(options.format, options.width, options.height,
                                                        options.padding, loaded.bytes.data(),
                                                        loaded.bytes.size()));
    if (loaded.image.getPixelType() == 0 || !loaded.image.isValid()) {
        throw ToolError("the library cannot read " + formatLabel(options.format) + " frames ('" + path + "')");
    }
    decodeLastOddPixel(options.format, loaded);
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
    int reason = 0;
    while (written < size) {
        const ssize_t n = ::write(fd, data + written, size - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            reason = n < 0 ? errno : EIO;
            break;
        }
        written += static_cast<uint64_t>(n);
    }
    // Flushed to the device before the rename, so a crash cannot leave a named empty file.
    if (reason == 0 && ::fsync(fd) != 0) reason = errno;
    if (::close(fd) != 0 && reason == 0) reason = errno;
    if (reason == 0 && std::rename(temp.c_str(), path.c_str()) != 0) reason = errno;
    if (reason != 0) {
        std::remove(temp.c_str());
        errno = reason;
        throw ToolError(systemError("write", path));
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

namespace {

// Saves under way on any thread, and a SIGINT or SIGTERM that arrived during one. Lock-free
// atomics, so the signal handler may use them.
std::atomic<int> savesUnderWay{0};
std::atomic<int> pendingSignal{0};

[[noreturn]] void endByInterrupt(int signal) {
    static const char kMessage[] = "ztimage: interrupted\n";
    const ssize_t ignored = ::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
    static_cast<void>(ignored);
    ::_exit(128 + signal);
}

extern "C" void onInterrupt(int signal) {
    // During a save (on whichever thread the signal lands) the tool ends when the save does.
    if (savesUnderWay.load() > 0) {
        pendingSignal.store(signal);
        return;
    }
    endByInterrupt(signal);
}

// SIGINT and SIGTERM wait while a file is written: the save ends with the file complete or
// with nothing (its temporary file removed), and then the tool ends. The saving thread blocks
// both signals; one that lands on another thread is recorded by the handler.
class InterruptsHeld {
public:
    InterruptsHeld() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &set, &previous_);
        savesUnderWay.fetch_add(1);
    }
    ~InterruptsHeld() {
        if (savesUnderWay.fetch_sub(1) == 1 && pendingSignal.load() != 0) endByInterrupt(pendingSignal.load());
        // A signal blocked on this thread is delivered here, and the handler ends the tool.
        pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
        // One recorded by another thread just as the last save ended.
        if (pendingSignal.load() != 0 && savesUnderWay.load() == 0) endByInterrupt(pendingSignal.load());
    }
    InterruptsHeld(const InterruptsHeld&) = delete;
    InterruptsHeld& operator=(const InterruptsHeld&) = delete;

private:
    sigset_t previous_;
};

}  // namespace

void installInterruptHandlers() {
    struct sigaction action {};
    action.sa_handler = &onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void checkPixelPairs(const ZTI::ZTImage& image, const std::string& path) {
    const PfncFormat_ format = image.getPixelType();
    const bool pairs = format == ZTI::YUV422_8_UYVY || format == ZTI::YUV422_8 || format == ZTI::YCbCr422_8;
    if (pairs && image.getWidth() % 2 != 0) {
        throw ToolError("'" + path + "' is " + formatLabel(format) + " of odd width " + std::to_string(image.getWidth()) +
                        ": 4:2:2 pixels share their colour in pairs, so the width must be even");
    }
}

void writeImage(const ZTI::ZTImage& image, const std::string& path) {
    checkOutputPath(path);
    const InterruptsHeld held;
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

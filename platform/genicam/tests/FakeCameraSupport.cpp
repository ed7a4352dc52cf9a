#include "FakeCameraSupport.h"

#include <algorithm>
#include <cstring>
#include <fstream>

#include "PixelFormatList.h"

namespace ZTI {
namespace {

struct NamedCode {
    const char* name;
    uint32_t code;
};

#define ZT_NAMED(name, code, bits) {#name, code},
#define ZT_UNNAMED(code, bits)
constexpr NamedCode kFormats[] = {ZT_PFNC_FORMAT_LIST(ZT_NAMED, ZT_UNNAMED)};
#undef ZT_NAMED
#undef ZT_UNNAMED

bool replaceOnce(std::string& text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at == std::string::npos) return false;
    text.replace(at, from.size(), to);
    return true;
}

// The geometry comes from the camera's registers: the buffer is described only after filling.
void fillFromVirtualCamera(ArvBuffer* buffer, void* data, guint32, guint32, ArvPixelFormat code) {
    auto& fill = *static_cast<VirtualFill*>(data);
    std::lock_guard<std::mutex> lock(fill.mutex);
    guint32 width = 0, height = 0;
    arv_fake_camera_read_register(fill.fake, ARV_FAKE_CAMERA_REGISTER_WIDTH, &width);
    arv_fake_camera_read_register(fill.fake, ARV_FAKE_CAMERA_REGISTER_HEIGHT, &height);
    if (!fill.camera || fill.config.pixelType != code || fill.config.width != width ||
        fill.config.height != height) {
        fill.config.pixelType = code;
        fill.config.width = width;
        fill.config.height = height;
        fill.camera = VirtualCamera::open(fill.config);
        if (!fill.camera) return;
    }
    // The buffer states its size only after filling; it holds the camera's payload.
    const size_t size = arv_fake_camera_get_payload(fill.fake);
    auto* pixels = static_cast<unsigned char*>(const_cast<void*>(arv_buffer_get_data(buffer, nullptr)));
    ZTGrabResultPtr frame = fill.camera->grab();
    if (!frame || !pixels) return;
    const size_t bytes = std::min<size_t>(size, frame->GetImageSize());
    std::memcpy(pixels, frame->GetGrabResultDataImpl()->GetBuffer(), bytes);
    ++fill.framesFilled;
}

}  // namespace

std::string writeFakeCameraGenICam(const std::string& directory) {
    GObject* probe = G_OBJECT(arv_fake_camera_new("probe"));
    size_t size = 0;
    const char* xml = arv_fake_camera_get_genicam_xml(ARV_FAKE_CAMERA(probe), &size);
    std::string text(xml, size);
    g_object_unref(probe);

    std::string entries;
    for (const NamedCode& format : kFormats) {
        const std::string value = "<Value>" + std::to_string(format.code) + "</Value>";
        if (!VirtualCamera::supportsFormat(format.code) || text.find(value) != std::string::npos) continue;
        entries += "<EnumEntry Name=\"" + std::string(format.name) + "\" NameSpace=\"Standard\">" +
                   value + "</EnumEntry>\n\t\t";
    }
    const bool patched =
        replaceOnce(text, "<pValue>PixelFormatRegister</pValue>",
                    entries + "<pValue>PixelFormatRegister</pValue>") &&
        replaceOnce(text, "<pValue>SensorWidthRegister</pValue>", "<Value>8192</Value>") &&
        replaceOnce(text, "<pValue>SensorHeightRegister</pValue>", "<Value>8192</Value>");
    if (!patched) return {};
    const std::string path = directory + "/fake-camera-all-formats.xml";
    std::ofstream out(path, std::ios::binary);
    out << text;
    out.close();
    return out ? path : std::string();
}

void installVirtualFill(ArvFakeCamera* fake, VirtualFill& fill) {
    fill.fake = fake;
    arv_fake_camera_set_fill_pattern(fake, fillFromVirtualCamera, &fill);
}

}  // namespace ZTI

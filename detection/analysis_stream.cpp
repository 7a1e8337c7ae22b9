#include "detection/analysis_stream.h"

#include <exception>

#include <vdo-map.h>

#include "base/platform_error.h"
#include "detection/stream_choice.h"
#include "log/Logger.h"

namespace {

struct UnrefMap {
    void operator()(VdoMap* map) const { g_object_unref(map); }
};
using MapHandle = std::unique_ptr<VdoMap, UnrefMap>;

MapHandle streamSettings(int width, int height, int rotation) {
    MapHandle settings(vdo_map_new());
    vdo_map_set_uint32(settings.get(), "channel", AnalysisStream::kChannel);
    vdo_map_set_uint32(settings.get(), "format", VDO_FORMAT_YUV);
    vdo_map_set_uint32(settings.get(), "width", static_cast<guint32>(width));
    vdo_map_set_uint32(settings.get(), "height", static_cast<guint32>(height));
    vdo_map_set_uint32(settings.get(), "rotation", static_cast<guint32>(rotation));
    return settings;
}

bool fail(const std::string& message) {
    applicationLog().error(message);
    return false;
}

}  // namespace

bool AnalysisStream::isOffered(int width, int height, int rotation) {
    const MapHandle settings = streamSettings(width, height, rotation);
    const std::string asked =
        std::to_string(width) + "x" + std::to_string(height) + ", " + std::to_string(rotation) + ". ";
    PlatformError error;
    const std::unique_ptr<VdoStream, Unref> stream(vdo_stream_new(settings.get(), nullptr, error.slot()));
    if (!stream) {
        return fail(
            "test_if_video_stream_exists: Failed vdo_stream_new for i_ChosenLandscapeStreamWidth, "
            "i_ChosenLandscapeStreamHeight, i_Rotation. " +
            asked + error.message());
    }
    applicationLog().info("test_if_video_stream_exists: Succeed vdo_stream_new for" + asked);
    return true;
}

bool AnalysisStream::open(int width, int height, int rotation) {
    StreamChoice chosen{static_cast<unsigned>(width), static_cast<unsigned>(height)};
    if (isOffered(width, height, rotation)) {
        applicationLog().info("init_video_stream: Video stream exists.");
    } else {
        applicationLog().error("init_video_stream: Video stream does not exist. Going to choose resolution.");
        if (!chooseResolution(chosen.width, chosen.height, chosen)) {
            return fail("init_video_stream: Failed choosing stream resolution");
        }
    }

    const MapHandle settings =
        streamSettings(static_cast<int>(chosen.width), static_cast<int>(chosen.height), rotation);
    if (m_stream) {
        applicationLog().error("init_video_stream: m_VDOStream is not NULL. Clearing m_VDOStream.");
        m_stream.reset();
    }
    PlatformError error;
    m_stream.reset(vdo_stream_new(settings.get(), nullptr, error.slot()));
    if (!m_stream) {
        return fail("init_video_stream: Failed vdo_stream_new for m_VDOStream. " + error.message());
    }
    if (vdo_stream_attach(m_stream.get(), nullptr, error.slot()) == FALSE) {
        return fail("init_video_stream: Failed vdo_stream_attach for m_VDOStream." + error.message());
    }
    const MapHandle inForce(vdo_stream_get_settings(m_stream.get(), error.slot()));
    if (!inForce) {
        return fail("init_video_stream: Failed vdo_stream_get_settings for m_VDOStream." + error.message());
    }
    const auto setting = [&](const char* name) { return std::to_string(vdo_map_get_uint32(inForce.get(), name, 0)); };
    applicationLog().info("init_video_stream: Starting stream: VDO_FORMAT_YUV, " + setting("width") + "x" +
                          setting("height") + ", rotation " + setting("rotation") + ", " + setting("framerate") +
                          " fps");
    if (vdo_stream_start(m_stream.get(), error.slot()) == FALSE) {
        return fail("init_video_stream: Failed vdo_stream_start for m_VDOStream." + error.message());
    }
    const bool turned = rotation == 90 || rotation == 270;
    m_width = turned ? chosen.height : chosen.width;
    m_height = turned ? chosen.width : chosen.height;
    return true;
}

VdoBuffer* AnalysisStream::newest(std::string& reason) {
    PlatformError error;
    try {
        // Without a stream after a failed start, the cycle fails like any other until the restart rule decides.
        VdoBuffer* const frame = m_stream ? vdo_stream_get_buffer(m_stream.get(), error.slot()) : nullptr;
        if (frame == nullptr) {
            reason = "Failed vdo_stream_get_buffer(): " + error.message();
        }
        return frame;
    } catch (const std::exception& exception) {
        reason = std::string("vdo_stream_get_buffer exception  ") + exception.what();
        return nullptr;
    }
}

bool AnalysisStream::giveBack(VdoBuffer* frame, std::string& reason) {
    PlatformError error;
    if (vdo_stream_buffer_unref(m_stream.get(), &frame, error.slot()) == FALSE) {
        reason = "Failed to release VDO stream buffer: " + error.message();
        return false;
    }
    return true;
}

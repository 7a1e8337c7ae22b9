#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "desktop/config/desktop_config.h"
#include "desktop/frames/virtual_time.h"
#include "desktop/video/shared_source.h"
#include "vdo-stream.h"

namespace video_test {

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
using MapHandle = std::unique_ptr<VdoMap, Unref>;
using StreamHandle = std::unique_ptr<VdoStream, Unref>;

/** An error slot for one call after another. */
class ErrorSlot {
public:
    ErrorSlot() = default;
    ErrorSlot(const ErrorSlot&) = delete;
    ErrorSlot& operator=(const ErrorSlot&) = delete;
    ~ErrorSlot() { g_clear_error(&m_error); }

    /** The slot, emptied. */
    GError** fresh() {
        g_clear_error(&m_error);
        return &m_error;
    }
    int code() const { return m_error != nullptr && m_error->domain == VDO_ERROR ? m_error->code : -1; }
    std::string message() const { return m_error != nullptr ? m_error->message : ""; }

private:
    GError* m_error = nullptr;
};

/** The configured source of the process for one test. */
class ConfiguredSource {
public:
    explicit ConfiguredSource(const std::string& video, desktop::Pacing pacing = desktop::Pacing::Virtual) {
        desktop::closeSharedSource();
        desktop::DesktopConfig config;
        config.video = video;
        config.pacing = pacing;
        desktop::setDesktopConfig(config);
    }
    ~ConfiguredSource() { desktop::closeSharedSource(); }
    ConfiguredSource(const ConfiguredSource&) = delete;
    ConfiguredSource& operator=(const ConfiguredSource&) = delete;
};

inline MapHandle streamSettings(guint32 width, guint32 height, guint32 rotation = 0) {
    MapHandle map(vdo_map_new());
    vdo_map_set_uint32(map.get(), "channel", 1);
    vdo_map_set_uint32(map.get(), "format", VDO_FORMAT_YUV);
    vdo_map_set_uint32(map.get(), "width", width);
    vdo_map_set_uint32(map.get(), "height", height);
    vdo_map_set_uint32(map.get(), "rotation", rotation);
    return map;
}

/** Makes, attaches and starts a stream; a failure is the test's. */
inline StreamHandle startStream(guint32 width, guint32 height, guint32 rotation = 0) {
    ErrorSlot error;
    StreamHandle stream(vdo_stream_new(streamSettings(width, height, rotation).get(), nullptr, error.fresh()));
    if (!stream) {
        ADD_FAILURE() << "no stream: " << error.message();
        return stream;
    }
    EXPECT_TRUE(vdo_stream_attach(stream.get(), nullptr, error.fresh())) << error.message();
    EXPECT_TRUE(vdo_stream_start(stream.get(), error.fresh())) << error.message();
    return stream;
}

/** Fetches a frame, copies it and gives it back; empty, with the reason in error, when there is none. */
inline std::string fetchFrame(VdoStream* stream, std::size_t bytes, ErrorSlot& error) {
    VdoBuffer* buffer = vdo_stream_get_buffer(stream, error.fresh());
    if (buffer == nullptr) {
        return {};
    }
    std::string frame(static_cast<const char*>(vdo_buffer_get_data(buffer)), bytes);
    EXPECT_TRUE(vdo_stream_buffer_unref(stream, &buffer, error.fresh())) << error.message();
    EXPECT_EQ(buffer, nullptr) << "a buffer that went back left its pointer";
    return frame;
}

}  // namespace video_test

#include <memory>
#include <utility>

#include "desktop/frames/video_error.h"
#include "desktop/video/heartbeat.h"
#include "desktop/video/shared_source.h"
#include "desktop/video/stream.h"
#include "vdo-stream.h"

namespace {

desktop::Stream& streamOf(VdoStream* stream) {
    return *platform_support::valueOf<std::unique_ptr<desktop::Stream>>(stream);
}

/** Runs a step of a call; false, with the error reported, when it throws. */
template <typename Step>
gboolean succeeds(GError** error, Step step) {
    try {
        step();
        return TRUE;
    } catch (...) {
        desktop::reportCurrentException(error);
        return FALSE;
    }
}

}  // namespace

VdoStream* vdo_stream_new(VdoMap* settings, VdoFrameCallback callback, GError** error) {
    if (callback != nullptr) {
        desktop::reportError(error, VDO_ERROR_INVALID_ARGUMENT,
                             "expected no callback, got one: frames of this platform's streams are read");
        return nullptr;
    }
    VdoStream* handle = nullptr;
    succeeds(error, [&] {
        auto stream = std::make_unique<desktop::Stream>(desktop::sharedSource(), desktop::settingsOf(settings));
        handle = platform_support::makeHandle<VdoStream>(
            "SenvoVdoStream", std::make_unique<std::unique_ptr<desktop::Stream>>(std::move(stream)));
    });
    return handle;
}

gboolean vdo_stream_attach(VdoStream* self, VdoMap* /*intent*/, GError** /*error*/) {
    streamOf(self).attach();
    return TRUE;
}

VdoMap* vdo_stream_get_settings(VdoStream* self, GError** /*error*/) {
    return desktop::makeMapHandle(streamOf(self).settings());
}

gboolean vdo_stream_start(VdoStream* self, GError** error) {
    return succeeds(error, [&] { streamOf(self).start(); });
}

void vdo_stream_stop(VdoStream* self) {
    streamOf(self).stop();
}

VdoBuffer* vdo_stream_get_buffer(VdoStream* self, GError** error) {
    VdoBuffer* buffer = nullptr;
    succeeds(error, [&] { buffer = streamOf(self).fetch(); });
    desktop::beat();
    return buffer;
}

gboolean vdo_stream_buffer_unref(VdoStream* self, VdoBuffer** buffer, GError** error) {
    return succeeds(error, [&] {
        streamOf(self).giveBack(*buffer);
        *buffer = nullptr;
    });
}

VdoBuffer* vdo_stream_buffer_alloc(VdoStream* self, gpointer /*opaque*/, GError** error) {
    VdoBuffer* buffer = nullptr;
    succeeds(error, [&] { buffer = streamOf(self).allocate().release(); });
    return buffer;
}

gboolean vdo_stream_buffer_enqueue(VdoStream* self, VdoBuffer* buffer, GError** error) {
    return succeeds(error, [&] { streamOf(self).enqueue(buffer); });
}

gpointer vdo_buffer_get_data(VdoBuffer* self) {
    return desktop::bytesOf(self);
}

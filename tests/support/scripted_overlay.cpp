#include <algorithm>
#include <functional>
#include <map>

#include <axoverlay.h>

#include "script.h"
#include "scripted_platform.h"

namespace {

constexpr gint kMaxWidth = 1920;
constexpr gint kMaxHeight = 1080;

struct Overlay {
    axoverlay_overlay_data data = {};
    gpointer user = nullptr;
};

struct Watched {
    axoverlay_stream_data stream = {};
    std::function<gpointer(int, int)> contextFor;
};

struct OverlayScript {
    axoverlay_settings settings = {};
    std::vector<int> overlays;
    std::map<int, Overlay> made;
    std::vector<Watched> watched;
    int nextId = 1;
};

OverlayScript& script() {
    static OverlayScript instance;
    return instance;
}

using scripted::failsNow;

}  // namespace

namespace scripted {

void resetOverlay() {
    script() = {};
}

const std::vector<int>& overlays() {
    return script().overlays;
}

const axoverlay_overlay_data& overlayData(int id) {
    return script().made.at(id).data;
}

void watch(const axoverlay_stream_data& stream, std::function<gpointer(int, int)> contextFor) {
    script().watched.clear();
    if (contextFor) {
        script().watched.push_back({stream, std::move(contextFor)});
    }
}

void drawOverlay(int id, axoverlay_stream_data stream, gpointer context) {
    const Overlay& any = script().made.begin()->second;
    script().settings.render_callback(context, id, &stream, any.data.postype, any.data.x, any.data.y, stream.width,
                                      stream.height, any.user);
}

}  // namespace scripted

GQuark axoverlay_error_quark() {
    return g_quark_from_static_string("axoverlay-error-quark");
}

gboolean axoverlay_is_backend_supported(axoverlay_backend_type) {
    return failsNow("axoverlay_is_backend_supported") ? FALSE : TRUE;
}

void axoverlay_init_axoverlay_settings(struct axoverlay_settings* settings) {
    *settings = {};
}

void axoverlay_init(struct axoverlay_settings* settings, GError** error) {
    if (!failsNow("axoverlay_init", AXOVERLAY_ERROR, error)) {
        script().settings = *settings;
    }
}

gint axoverlay_get_max_resolution_width(gint, GError** error) {
    return failsNow("axoverlay_get_max_resolution_width", AXOVERLAY_ERROR, error) ? 0 : kMaxWidth;
}

gint axoverlay_get_max_resolution_height(gint, GError** error) {
    return failsNow("axoverlay_get_max_resolution_height", AXOVERLAY_ERROR, error) ? 0 : kMaxHeight;
}

void axoverlay_init_overlay_data(struct axoverlay_overlay_data* data) {
    *data = {};
}

gint axoverlay_create_overlay(struct axoverlay_overlay_data* data, gpointer user, GError** error) {
    if (failsNow("axoverlay_create_overlay", AXOVERLAY_ERROR, error)) {
        return 0;
    }
    script().overlays.push_back(script().nextId);
    script().made[script().nextId] = {*data, user};
    return script().nextId++;
}

void axoverlay_destroy_overlay(gint id, GError** error) {
    if (!failsNow("axoverlay_destroy_overlay", AXOVERLAY_ERROR, error)) {
        std::erase(script().overlays, id);
    }
}

void axoverlay_redraw(GError** error) {
    if (failsNow("axoverlay_redraw", AXOVERLAY_ERROR, error)) {
        return;
    }
    const axoverlay_settings& settings = script().settings;
    for (const int id : script().overlays) {
        for (Watched& watched : script().watched) {
            axoverlay_stream_data& stream = watched.stream;
            const Overlay& overlay = script().made.at(id);
            axoverlay_position_type place = overlay.data.postype;
            gfloat x = overlay.data.x;
            gfloat y = overlay.data.y;
            gint width = overlay.data.width;
            gint height = overlay.data.height;
            if (settings.select_callback(stream.camera, stream.width, stream.height, stream.rotation, stream.mirrored,
                                         stream.type) == FALSE) {
                continue;
            }
            settings.adjustment_callback(id, &stream, &place, &x, &y, &width, &height, overlay.user);
            settings.render_callback(watched.contextFor(width, height), id, &stream, place, x, y, width, height,
                                     overlay.user);
        }
    }
}

void axoverlay_cleanup() {
    failsNow("axoverlay_cleanup");
    script().overlays.clear();
}

#include <algorithm>

#include <axoverlay.h>

#include "script.h"
#include "scripted_platform.h"

namespace {

constexpr gint kMaxWidth = 1920;
constexpr gint kMaxHeight = 1080;

struct OverlayScript {
    std::vector<int> overlays;
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

void axoverlay_init(struct axoverlay_settings*, GError** error) {
    failsNow("axoverlay_init", AXOVERLAY_ERROR, error);
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

gint axoverlay_create_overlay(struct axoverlay_overlay_data*, gpointer, GError** error) {
    if (failsNow("axoverlay_create_overlay", AXOVERLAY_ERROR, error)) {
        return 0;
    }
    script().overlays.push_back(script().nextId);
    return script().nextId++;
}

void axoverlay_destroy_overlay(gint id, GError** error) {
    if (!failsNow("axoverlay_destroy_overlay", AXOVERLAY_ERROR, error)) {
        std::erase(script().overlays, id);
    }
}

void axoverlay_redraw(GError** error) {
    failsNow("axoverlay_redraw", AXOVERLAY_ERROR, error);
}

void axoverlay_cleanup() {
    failsNow("axoverlay_cleanup");
}

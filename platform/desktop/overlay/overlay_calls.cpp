#include <exception>
#include <memory>

#include <axoverlay.h>
#include <axsdk/axparameter.h>

#include "desktop/config/desktop_config.h"
#include "desktop/frames/video_error.h"
#include "desktop/overlay/overlay_service.h"
#include "desktop/parameters/declarations.h"
#include "desktop/parameters/parameter_watch.h"
#include "desktop/video/shared_source.h"

/*
 * The overlay service's C interface over one OverlayService. Pictures are turned as the analysis has its frames turned,
 * so that what is drawn fits whatever the camera's own setting says.
 */

namespace {

using desktop::OverlayError;
using desktop::OverlayService;

struct FreeStore {
    void operator()(AXParameter* store) const { ax_parameter_free(store); }
};

std::unique_ptr<OverlayService>& running() {
    static std::unique_ptr<OverlayService> service;
    return service;
}

OverlayService& started() {
    if (!running()) {
        throw OverlayError(AXOVERLAY_ERROR_SERVICE_UNAVAILABLE, "the overlay service is not started");
    }
    return *running();
}

/** Runs a call; what it throws becomes the caller's error, and its result then is 0. */
template <typename Call>
auto reported(GError** error, Call call) -> decltype(call()) {
    try {
        return call();
    } catch (const OverlayError& failure) {
        g_set_error_literal(error, AXOVERLAY_ERROR, failure.code(), failure.what());
    } catch (const std::exception& failure) {
        g_set_error_literal(error, AXOVERLAY_ERROR, AXOVERLAY_ERROR_INTERNAL, failure.what());
    }
    return decltype(call())();
}

/** A parameter's value, nothing when it cannot be read. */
std::optional<std::string> valueOf(AXParameter* store, const std::string& name) {
    gchar* value = nullptr;
    if (ax_parameter_get(store, name.c_str(), &value, nullptr) == FALSE) {
        return std::nullopt;
    }
    const std::unique_ptr<gchar, decltype(&g_free)> owner(value, g_free);
    return value;
}

desktop::OverlayParts configuredParts() {
    const desktop::DesktopConfig& config = desktop::desktopConfig();
    desktop::OverlayParts parts;
    try {
        parts.source = desktop::sharedSource();
    } catch (const desktop::VideoError& error) {
        throw OverlayError(AXOVERLAY_ERROR_SERVICE_UNAVAILABLE, error.what());
    }
    parts.liveSocket = config.liveSocket;
    if (config.liveSocket.empty()) {
        return parts;
    }
    if (!config.manifest.empty()) {
        parts.anonymised = desktop::readAnonymisedStream(config.manifest).value_or(desktop::AnonymisedStreamNames());
    }
    GError* failure = nullptr;
    const std::unique_ptr<AXParameter, FreeStore> store(ax_parameter_new("overlay", &failure));
    if (!store) {
        const std::string reason = failure->message;
        g_error_free(failure);
        throw OverlayError(AXOVERLAY_ERROR_SERVICE_UNAVAILABLE, reason);
    }
    for (const std::string& name : {parts.anonymised.on, parts.anonymised.resolution, parts.anonymised.rivalOn,
                                    parts.anonymised.rivalResolution}) {
        if (!name.empty()) {
            parts.choices[name] = valueOf(store.get(), name);
        }
    }
    const std::optional<std::string> rotation = valueOf(store.get(), "root.Image.I0.Appearance.Rotation");
    parts.rotation = rotation == "90" || rotation == "270" ? 90 : 0;
    parts.mirrored = valueOf(store.get(), "root.Image.I0.Appearance.Mirrored") == "1";
    return parts;
}

gint largest(GError** error, gint camera, int desktop::StreamSize::*side) {
    return reported(error, [&]() -> gint {
        if (camera != 1) {
            throw OverlayError(AXOVERLAY_ERROR_INVALID_ARGUMENT,
                               "expected camera 1, got camera " + std::to_string(camera));
        }
        return started().largest().*side;
    });
}

}  // namespace

GQuark axoverlay_error_quark() {
    return g_quark_from_static_string("axoverlay-error-quark");
}

gboolean axoverlay_is_backend_supported(axoverlay_backend_type type) {
    return type == AXOVERLAY_CAIRO_IMAGE_BACKEND ? TRUE : FALSE;
}

void axoverlay_init_axoverlay_settings(struct axoverlay_settings* settings) {
    *settings = {};
}

void axoverlay_init(struct axoverlay_settings* settings, GError** error) {
    reported(error, [&] {
        if (running()) {
            throw OverlayError(AXOVERLAY_ERROR_UNEXPECTED, "the overlay service is started already");
        }
        if (axoverlay_is_backend_supported(settings->backend) == FALSE) {
            throw OverlayError(AXOVERLAY_ERROR_BACKEND, "expected backend " +
                                                            std::to_string(AXOVERLAY_CAIRO_IMAGE_BACKEND) +
                                                            " (cairo image), got " + std::to_string(settings->backend));
        }
        running() = std::make_unique<OverlayService>(*settings, configuredParts());
        if (running()->live() == nullptr) {
            return;
        }
        desktop::watchParameters(
            [service = running().get()](const std::string& name, const std::optional<std::string>& value) {
                if (value) {
                    service->parameterSet(name, *value);
                } else {
                    service->parametersLost();
                }
                return service->knowsParameters();
            });
    });
}

gint axoverlay_get_max_resolution_width(gint camera, GError** error) {
    return largest(error, camera, &desktop::StreamSize::width);
}

gint axoverlay_get_max_resolution_height(gint camera, GError** error) {
    return largest(error, camera, &desktop::StreamSize::height);
}

void axoverlay_init_overlay_data(struct axoverlay_overlay_data* data) {
    *data = {};
    data->postype = AXOVERLAY_TOP_LEFT;
}

gint axoverlay_create_overlay(struct axoverlay_overlay_data* data, gpointer user_data, GError** error) {
    return reported(error, [&]() -> gint { return started().create(*data, user_data); });
}

void axoverlay_destroy_overlay(gint id, GError** error) {
    reported(error, [&] { started().destroy(id); });
}

void axoverlay_redraw(GError** error) {
    reported(error, [] { started().redraw(desktop::lastFetched()); });
}

void axoverlay_cleanup() {
    desktop::watchParameters({});
    running().reset();
}

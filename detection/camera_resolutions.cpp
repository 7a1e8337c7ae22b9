#include "detection/camera_resolutions.h"

#include <glib-object.h>
#include <memory>

#include <vdo-channel.h>

#include "base/platform_error.h"
#include "log/Logger.h"

std::set<Resolution> getCameraResolutions() {
    static const std::string function = "getCameraResolutions: ";
    std::set<Resolution> sizes;
    PlatformError error;
    GList* const channels = vdo_channel_get_all(error.slot());
    if (channels == nullptr) {
        applicationLog().error(function + "Failed vdo_channel_get_all(): " + error.message());
        return sizes;
    }
    for (const GList* entry = channels; entry != nullptr; entry = entry->next) {
        const std::unique_ptr<VdoResolutionSet, decltype(&g_free)> offered(
            vdo_channel_get_resolutions(static_cast<VdoChannel*>(entry->data), nullptr, error.slot()), g_free);
        if (!offered) {
            applicationLog().error(function + "Failed vdo_channel_get_resolutions(): " + error.message());
            continue;
        }
        for (gsize i = 0; i < offered->count; ++i) {
            sizes.insert({offered->resolutions[i].width, offered->resolutions[i].height});
        }
    }
    g_list_free_full(channels, g_object_unref);
    return sizes;
}

std::string getCamerasResolutionsAsCsv() {
    std::string csv;
    for (const Resolution& size : getCameraResolutions()) {
        csv += std::to_string(size.width) + "x" + std::to_string(size.height) + ",";
    }
    return csv;
}

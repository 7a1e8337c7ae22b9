#include <cassert>
#include <functional>
#include <glib-object.h>
#include <limits>

#include <vdo-channel.h>

#include "base/platform_error.h"
#include "detection/location_controller_larod.h"
#include "log/Logger.h"

namespace {

constexpr guint kAnalysisChannel = 1;

/** Walks the sizes that the analysis channel offers, in the service's order; false, logged, when it cannot be asked. */
bool forEachResolution(const std::string& function, const std::function<void(const VdoResolution&)>& visit) {
    PlatformError error;
    const std::unique_ptr<VdoChannel, decltype(&g_object_unref)> channel(
        vdo_channel_get(kAnalysisChannel, error.slot()), g_object_unref);
    if (!channel) {
        applicationLog().error(function + ": Failed vdo_channel_get(): " + error.message());
        return false;
    }
    const std::unique_ptr<VdoResolutionSet, decltype(&g_free)> offered(
        vdo_channel_get_resolutions(channel.get(), nullptr, error.slot()), g_free);
    if (!offered) {
        applicationLog().error(function + ": Failed vdo_channel_get_resolutions(): " + error.message());
        return false;
    }
    for (gsize i = 0; i < offered->count; ++i) {
        visit(offered->resolutions[i]);
    }
    return true;
}

bool report(const VdoResolution& best, unsigned int& width, unsigned int& height) {
    if (best.width == 0) {
        return false;
    }
    width = best.width;
    height = best.height;
    return true;
}

}  // namespace

AspectRatioType location_controller_larod::get_aspect_ratio_type(int width, int height) const {
    const double ratio = static_cast<double>(width) / height;
    if (ratio > 1.7 && ratio < 1.8) {
        return WIDESCREEN;
    }
    if (ratio > 1.2 && ratio < 1.4) {
        return FULLSCREEN;
    }
    if (ratio > 0.9 && ratio < 1.1) {
        return SQUARE;
    }
    return ASPECT_RATIO_INVALID;
}

bool location_controller_larod::does_stream_contain_model(int streamWidth, int streamHeight, int modelWidth,
                                                          int modelHeight) const {
    return streamWidth >= modelWidth && streamHeight >= modelHeight;
}

bool location_controller_larod::find_smallest_containing_stream(int modelWidth, int modelHeight, AspectRatioType ratio,
                                                                unsigned int& width, unsigned int& height) const {
    const std::string function = "find_smallest_containing_stream";
    applicationLog().info(function + ": modelWidth=" + std::to_string(modelWidth) +
                          ", modelHeight=" + std::to_string(modelHeight) + ", aspectRatio=" + std::to_string(ratio));
    VdoResolution best = {0, 0};
    guint32 bestArea = std::numeric_limits<guint32>::max();
    const bool asked = forEachResolution(function, [&](const VdoResolution& offered) {
        const int streamWidth = static_cast<int>(offered.width);
        const int streamHeight = static_cast<int>(offered.height);
        const guint32 area = offered.width * offered.height;
        if (get_aspect_ratio_type(streamWidth, streamHeight) == ratio && area < bestArea &&
            does_stream_contain_model(streamWidth, streamHeight, modelWidth, modelHeight)) {
            best = offered;
            bestArea = area;
        }
    });
    return asked && report(best, width, height);
}

bool location_controller_larod::find_largest_not_containing_stream(int modelWidth, int modelHeight,
                                                                   AspectRatioType ratio, unsigned int& width,
                                                                   unsigned int& height) const {
    VdoResolution best = {0, 0};
    guint32 bestArea = 0;
    const bool asked = forEachResolution("find_largest_not_containing_stream", [&](const VdoResolution& offered) {
        const int streamWidth = static_cast<int>(offered.width);
        const int streamHeight = static_cast<int>(offered.height);
        const guint32 area = offered.width * offered.height;
        if (get_aspect_ratio_type(streamWidth, streamHeight) == ratio && area > bestArea &&
            !does_stream_contain_model(streamWidth, streamHeight, modelWidth, modelHeight)) {
            best = offered;
            bestArea = area;
        }
    });
    return asked && report(best, width, height);
}

bool location_controller_larod::choose_resolution(unsigned int modelWidth, unsigned int modelHeight,
                                                  unsigned int* chosenWidth, unsigned int* chosenHeight) const {
    assert(chosenWidth != nullptr && "chosenWidth");
    assert(chosenHeight != nullptr && "chosenHeight");

    // The aspect ratio matters more than the size: a small 16:9 stream is preferred to a large 4:3 one.
    using Search = bool (location_controller_larod::*)(int, int, AspectRatioType, unsigned int&, unsigned int&) const;
    struct Step {
        Search search;
        AspectRatioType ratio;
        const char* message;
    };
    static constexpr Step kSteps[] = {
        {&location_controller_larod::find_smallest_containing_stream, WIDESCREEN,
         "Found a 16:9 stream that contains the model WxH="},
        {&location_controller_larod::find_largest_not_containing_stream, WIDESCREEN,
         "Found a 16:9 stream that does not contain the model WxH="},
        {&location_controller_larod::find_smallest_containing_stream, FULLSCREEN,
         "Found a 4:3 stream that contains the model WxH="},
        {&location_controller_larod::find_largest_not_containing_stream, FULLSCREEN,
         "Found a 4:3 stream that does not contain the model WxH="},
    };
    for (const Step& step : kSteps) {
        if ((this->*step.search)(static_cast<int>(modelWidth), static_cast<int>(modelHeight), step.ratio, *chosenWidth,
                                 *chosenHeight)) {
            applicationLog().info(std::string("choose_resolution: ") + step.message + std::to_string(*chosenWidth) +
                                  "x" + std::to_string(*chosenHeight));
            return true;
        }
    }
    applicationLog().error("choose_resolution: Failed to find a suitable stream for model WxH=" +
                           std::to_string(modelWidth) + "x" + std::to_string(modelHeight));
    return false;
}

#include "detection/stream_choice.h"

#include <functional>
#include <glib-object.h>
#include <limits>
#include <memory>
#include <string>

#include <vdo-channel.h>

#include "base/platform_error.h"
#include "detection/analysis_stream.h"
#include "log/Logger.h"

namespace {

/** Walks the sizes that the analysis channel offers, in the service's order; false, logged, when it cannot be asked. */
bool forEachResolution(const std::string& function, const std::function<void(const VdoResolution&)>& visit) {
    PlatformError error;
    const std::unique_ptr<VdoChannel, decltype(&g_object_unref)> channel(
        vdo_channel_get(AnalysisStream::kChannel, error.slot()), g_object_unref);
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

/** The first of the offered sizes of a ratio of which none is better; isBetter compares areas in pixels. */
template <typename Fits, typename IsBetter>
bool findBest(const std::string& function, AspectRatioType ratio, Fits fits, guint32 worstArea, IsBetter isBetter,
              StreamChoice& best) {
    VdoResolution found = {0, 0};
    guint32 bestArea = worstArea;
    const bool asked = forEachResolution(function, [&](const VdoResolution& offered) {
        const int width = static_cast<int>(offered.width);
        const int height = static_cast<int>(offered.height);
        const guint32 area = offered.width * offered.height;
        if (aspectRatioOf(width, height) == ratio && isBetter(area, bestArea) && fits(width, height)) {
            found = offered;
            bestArea = area;
        }
    });
    if (!asked || found.width == 0) {
        return false;
    }
    best = {found.width, found.height};
    return true;
}

}  // namespace

AspectRatioType aspectRatioOf(int width, int height) {
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

bool containsModel(int streamWidth, int streamHeight, int modelWidth, int modelHeight) {
    return streamWidth >= modelWidth && streamHeight >= modelHeight;
}

bool findSmallestContaining(int modelWidth, int modelHeight, AspectRatioType ratio, StreamChoice& best) {
    const std::string function = "find_smallest_containing_stream";
    applicationLog().info(function + ": modelWidth=" + std::to_string(modelWidth) +
                          ", modelHeight=" + std::to_string(modelHeight) + ", aspectRatio=" + std::to_string(ratio));
    return findBest(
        function, ratio, [&](int width, int height) { return containsModel(width, height, modelWidth, modelHeight); },
        std::numeric_limits<guint32>::max(), std::less<guint32>(), best);
}

bool findLargestNotContaining(int modelWidth, int modelHeight, AspectRatioType ratio, StreamChoice& best) {
    return findBest(
        "find_largest_not_containing_stream", ratio,
        [&](int width, int height) { return !containsModel(width, height, modelWidth, modelHeight); }, 0,
        std::greater<guint32>(), best);
}

bool chooseResolution(unsigned modelWidth, unsigned modelHeight, StreamChoice& best) {
    struct Step {
        bool (*search)(int, int, AspectRatioType, StreamChoice&);
        AspectRatioType ratio;
        const char* message;
    };
    static constexpr Step kSteps[] = {
        {&findSmallestContaining, WIDESCREEN, "Found a 16:9 stream that contains the model WxH="},
        {&findLargestNotContaining, WIDESCREEN, "Found a 16:9 stream that does not contain the model WxH="},
        {&findSmallestContaining, FULLSCREEN, "Found a 4:3 stream that contains the model WxH="},
        {&findLargestNotContaining, FULLSCREEN, "Found a 4:3 stream that does not contain the model WxH="},
    };
    for (const Step& step : kSteps) {
        if (step.search(static_cast<int>(modelWidth), static_cast<int>(modelHeight), step.ratio, best)) {
            applicationLog().info(std::string("choose_resolution: ") + step.message + std::to_string(best.width) + "x" +
                                  std::to_string(best.height));
            return true;
        }
    }
    applicationLog().error("choose_resolution: Failed to find a suitable stream for model WxH=" +
                           std::to_string(modelWidth) + "x" + std::to_string(modelHeight));
    return false;
}

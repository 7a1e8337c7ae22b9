#include <memory>

#include "desktop/frames/resolutions.h"
#include "desktop/frames/video_error.h"
#include "desktop/video/shared_source.h"
#include "gobject_holder.h"
#include "vdo-channel.h"

namespace {

/** The one channel, holding the source so that it is opened once and not for each question. */
struct Channel {
    std::shared_ptr<desktop::VideoSource> source;
};

VdoChannel* openChannel() {
    return platform_support::makeHandle<VdoChannel>("SenvoVdoChannel",
                                                    std::make_unique<Channel>(Channel{desktop::sharedSource()}));
}

}  // namespace

VdoChannel* vdo_channel_get(guint number, GError** error) {
    if (number != 1) {
        desktop::reportError(error, VDO_ERROR_NOT_FOUND, "expected channel 1, got channel " + std::to_string(number));
        return nullptr;
    }
    try {
        return openChannel();
    } catch (...) {
        desktop::reportCurrentException(error);
        return nullptr;
    }
}

GList* vdo_channel_get_all(GError** error) {
    try {
        return g_list_append(nullptr, openChannel());
    } catch (...) {
        desktop::reportCurrentException(error);
        return nullptr;
    }
}

VdoResolutionSet* vdo_channel_get_resolutions(VdoChannel* self, VdoMap* /*filter*/, GError** /*error*/) {
    const desktop::SourceInfo& info = platform_support::valueOf<Channel>(self).source->info();
    const auto& sizes = desktop::offeredResolutions(info.width, info.height);
    auto* set =
        static_cast<VdoResolutionSet*>(g_malloc(sizeof(VdoResolutionSet) + sizes.size() * sizeof(VdoResolution)));
    set->count = sizes.size();
    for (std::size_t index = 0; index < sizes.size(); ++index) {
        set->resolutions[index] = sizes[index];
    }
    return set;
}

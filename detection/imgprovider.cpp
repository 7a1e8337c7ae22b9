#include "detection/imgprovider.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <vdo-channel.h>
#include <vdo-stream.h>

#include "base/mutex.h"
#include "base/platform_error.h"
#include "log/Logger.h"

namespace {

struct UnrefObject {
    void operator()(gpointer object) const { g_object_unref(object); }
};

/** Beside the frames that are kept: two that the consumer holds and one that is being filled. */
constexpr unsigned kMoreBuffers = 3;

/** How long the thread lets a failing stream be, so that the log is not flooded. */
constexpr std::chrono::seconds kPauseAfterFailure(1);

void logError(const char* function, const std::string& what) {
    applicationLog().error(std::string(function) + ": " + what);
}

}  // namespace

struct ImgProvider {
    VdoFormat format = VDO_FORMAT_YUV;
    size_t maxDelivered = 0;
    std::unique_ptr<VdoStream, UnrefObject> stream;
    std::vector<VdoBuffer*> buffers; /**< all of them, whoever has them */

    Mutex mutex; /**< guards the two queues */
    ConditionVariable changed;
    std::deque<VdoBuffer*> deliveredFrames GUARDED_BY(mutex); /**< newest last */
    std::deque<VdoBuffer*> processedFrames GUARDED_BY(mutex);

    std::atomic<bool> shutDown = false;
    std::thread fetcher;
};

namespace {

bool allocateVdoBuffers(ImgProvider& provider) {
    static constexpr const char* kFunction = "allocateVdoBuffers";
    for (size_t i = 0; i < provider.maxDelivered + kMoreBuffers; ++i) {
        PlatformError error;
        VdoBuffer* const buffer = vdo_stream_buffer_alloc(provider.stream.get(), nullptr, error.slot());
        if (buffer == nullptr) {
            logError(kFunction, "Failed creating VDO buffer: " + error.message());
            return false;
        }
        provider.buffers.push_back(buffer);
        // Mapped here once, so that a frame costs no mapping later.
        if (vdo_buffer_get_data(buffer) == nullptr) {
            logError(kFunction, "Failed initializing buffer memmap: " + error.message());
            return false;
        }
        if (vdo_stream_buffer_enqueue(provider.stream.get(), buffer, error.slot()) == FALSE) {
            logError(kFunction, "Failed enqueue VDO buffer: " + error.message());
            return false;
        }
    }
    return true;
}

/** What goes back to the stream after a frame was delivered; null when the stream has enough. */
VdoBuffer* takeFrameToGiveBack(ImgProvider& provider) REQUIRES(provider.mutex) {
    std::deque<VdoBuffer*>& queue =
        provider.processedFrames.empty() ? provider.deliveredFrames : provider.processedFrames;
    if (&queue == &provider.deliveredFrames && queue.size() <= provider.maxDelivered) {
        return nullptr;
    }
    VdoBuffer* const frame = queue.front();
    queue.pop_front();
    return frame;
}

void fetchFrames(ImgProvider& provider) {
    while (!provider.shutDown) {
        PlatformError error;
        VdoBuffer* const frame = vdo_stream_get_buffer(provider.stream.get(), error.slot());
        if (frame == nullptr) {
            logError("threadEntry", "Failed fetching frame from vdo: " + error.message());
        }
        bool isLost = false;
        {
            const MutexLock lock(provider.mutex);
            if (frame == nullptr) {
                const auto end = std::chrono::steady_clock::now() + kPauseAfterFailure;
                while (!provider.shutDown && provider.changed.waitUntil(provider.mutex, end)) {
                }
                continue;
            }
            provider.deliveredFrames.push_back(frame);
            VdoBuffer* const toGiveBack = takeFrameToGiveBack(provider);
            isLost = toGiveBack != nullptr &&
                     vdo_stream_buffer_enqueue(provider.stream.get(), toGiveBack, error.slot()) == FALSE;
            provider.changed.notifyAll();
        }
        if (isLost) {
            logError("threadEntry", "Failed enqueueing buffer to vdo: " + error.message());
        }
    }
}

}  // namespace

ImgProvider* createImgProvider(unsigned width, unsigned height, unsigned numFrames, VdoFormat format) {
    try {
        auto provider = std::make_unique<ImgProvider>();
        provider->format = format;
        provider->maxDelivered = std::max(numFrames, 1U);
        if (createStream(provider.get(), width, height)) {
            return provider.release();
        }
        logError("createImgProvider", "Could not create VDO stream!");
        destroyImgProvider(provider.release());
    } catch (const std::bad_alloc& error) {
        logError("createImgProvider", std::string("Unable to allocate ImgProvider: ") + error.what());
    }
    return nullptr;
}

void destroyImgProvider(ImgProvider* provider) {
    const std::unique_ptr<ImgProvider> owner(provider);
    if (!owner) {
        return;
    }
    if (owner->fetcher.joinable()) {
        stopFrameFetch(provider);
    }
    // What the stream has lent goes back first; each buffer's last reference is the provider's own.
    const MutexLock lock(owner->mutex);
    for (const auto& queue : {owner->deliveredFrames, owner->processedFrames}) {
        for (VdoBuffer* const frame : queue) {
            vdo_stream_buffer_enqueue(owner->stream.get(), frame, nullptr);
        }
    }
    for (VdoBuffer* buffer : owner->buffers) {
        vdo_stream_buffer_unref(owner->stream.get(), &buffer, nullptr);
    }
}

bool chooseStreamResolution(unsigned width, unsigned height, unsigned* chosenWidth, unsigned* chosenHeight) {
    static constexpr const char* kFunction = "chooseStreamResolution";
    PlatformError error;
    const std::unique_ptr<VdoChannel, UnrefObject> channel(vdo_channel_get(1, error.slot()));
    if (!channel) {
        logError(kFunction, "Failed vdo_channel_get(): " + error.message());
        return false;
    }
    const std::unique_ptr<VdoResolutionSet, decltype(&g_free)> offered(
        vdo_channel_get_resolutions(channel.get(), nullptr, error.slot()), g_free);
    if (!offered) {
        logError(kFunction, "Failed vdo_channel_get_resolutions(): " + error.message());
        return false;
    }
    const VdoResolution* best = nullptr;
    uint64_t bestArea = std::numeric_limits<uint64_t>::max();
    for (gsize i = 0; i < offered->count; ++i) {
        const VdoResolution& size = offered->resolutions[i];
        const uint64_t area = uint64_t{size.width} * size.height;
        if (size.width >= width && size.height >= height && area < bestArea) {
            best = &size;
            bestArea = area;
        }
    }
    *chosenWidth = best == nullptr ? width : best->width;
    *chosenHeight = best == nullptr ? height : best->height;
    applicationLog().info(
        std::string(kFunction) + ": " +
        (best == nullptr
             ? "VDO channel info contains no reslution info. Fallback to client-requested stream resolution."
             : "We select stream w/h=" + std::to_string(best->width) + " x " + std::to_string(best->height) +
                   " based on VDO channel info."));
    return true;
}

bool createStream(ImgProvider* provider, unsigned width, unsigned height) {
    static constexpr const char* kFunction = "createStream";
    const std::unique_ptr<VdoMap, UnrefObject> settings(vdo_map_new());
    if (!settings) {
        logError(kFunction, "Failed to create vdo_map");
        return false;
    }
    const std::vector<std::pair<const char*, unsigned>> values = {{"channel", 1},
                                                                  {"format", provider->format},
                                                                  {"width", width},
                                                                  {"height", height},
                                                                  {"buffer.strategy", VDO_BUFFER_STRATEGY_EXPLICIT}};
    std::string dump = std::string(kFunction) + ": Dump of vdo stream settings map =====";
    for (const auto& [name, value] : values) {
        vdo_map_set_uint32(settings.get(), name, value);
        dump += std::string(" ") + name + "=" + std::to_string(value);
    }
    applicationLog().info(dump);
    PlatformError error;
    provider->stream.reset(vdo_stream_new(settings.get(), nullptr, error.slot()));
    if (!provider->stream) {
        logError(kFunction, "Failed creating vdo stream: " + error.message());
        return false;
    }
    if (!allocateVdoBuffers(*provider)) {
        logError(kFunction, "Failed setting up VDO buffers!");
        return false;
    }
    if (vdo_stream_start(provider->stream.get(), error.slot()) == FALSE) {
        logError(kFunction, "Failed starting VDO stream: " + error.message());
        return false;
    }
    return true;
}

bool startFrameFetch(ImgProvider* provider) {
    if (provider->fetcher.joinable()) {
        logError("startFrameFetch", "Failed to start thread fetching frames from vdo: it runs already");
        return false;
    }
    provider->shutDown = false;
    try {
        provider->fetcher = std::thread([provider] { fetchFrames(*provider); });
    } catch (const std::system_error& error) {
        logError("startFrameFetch", std::string("Failed to start thread fetching frames from vdo: ") + error.what());
        return false;
    }
    return true;
}

bool stopFrameFetch(ImgProvider* provider) {
    {
        const MutexLock lock(provider->mutex);
        provider->shutDown = true;
    }
    provider->changed.notifyAll();
    if (!provider->fetcher.joinable()) {
        logError("stopFrameFetch", "Failed to join thread fetching frames from vdo: it does not run");
        return false;
    }
    provider->fetcher.join();
    return true;
}

VdoBuffer* getLastFrameBlocking(ImgProvider* provider) {
    {
        const MutexLock lock(provider->mutex);
        while (provider->deliveredFrames.empty() && !provider->shutDown) {
            provider->changed.wait(provider->mutex);
        }
        if (!provider->deliveredFrames.empty()) {
            VdoBuffer* const frame = provider->deliveredFrames.back();
            provider->deliveredFrames.pop_back();
            return frame;
        }
    }
    logError("getLastFrameBlocking", "Failed to wait on condition: the fetching has stopped");
    return nullptr;
}

void returnFrame(ImgProvider* provider, VdoBuffer* frame) {
    const MutexLock lock(provider->mutex);
    provider->processedFrames.push_back(frame);
}

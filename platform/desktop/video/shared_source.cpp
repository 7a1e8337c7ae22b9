#include "desktop/video/shared_source.h"

#include "base/mutex.h"
#include "desktop/config/desktop_config.h"
#include "desktop/frames/source_name.h"
#include "desktop/frames/video_error.h"
#include "desktop/frames/virtual_time.h"
#include "desktop/video/media_reader.h"
#include "desktop/video/scene/scene_reader.h"
#include "desktop/video/virtual_source.h"

namespace desktop {
namespace {

const std::atomic<bool> kNeverStopped = false;

struct Shared {
    Mutex mutex;                                              // guards what follows
    std::shared_ptr<VideoSource> source GUARDED_BY(mutex);    // null until opened
    std::shared_ptr<VirtualSource> driven GUARDED_BY(mutex);  // the same source when it is driven by hand
    std::string openError GUARDED_BY(mutex);                  // why the last opening failed
};

Shared& shared() {
    static Shared instance;
    return instance;
}

void open(Shared& state, const DesktopConfig& config) REQUIRES(state.mutex) {
    const std::string name = displayName(config.video);
    if (config.pacing == Pacing::Virtual) {
        auto reader = openReader(config.video, kNeverStopped);
        if (!reader->info().live) {
            state.driven = std::make_shared<VirtualSource>(std::move(reader), name);
            state.source = state.driven;
            return;
        }
    }
    state.source = std::make_shared<RealTimeSource>(
        [source = config.video](const std::atomic<bool>& stop) { return openReader(source, stop); }, name,
        RealTimeSettings{});
}

std::shared_ptr<VideoSource> openOnce(Shared& state) REQUIRES(state.mutex) {
    if (!state.source) {
        state.openError.clear();
        try {
            open(state, desktopConfig());
        } catch (const VideoError& error) {
            state.openError = error.what();
            throw;
        }
    }
    return state.source;
}

/** The source that is driven by hand, null when there is none. */
std::shared_ptr<VirtualSource> drivenSource() {
    Shared& state = shared();
    const MutexLock lock(state.mutex);
    try {
        openOnce(state);
    } catch (const VideoError&) {
        return nullptr;  // sourceError tells
    }
    return state.driven;
}

}  // namespace

std::unique_ptr<FrameReader> openReader(const std::string& source, const std::atomic<bool>& stop) {
    const SourceKind kind = kindOf(source);
    return kind == SourceKind::Scene ? openScene(source) : openMedia(source, kind, stop);
}

std::shared_ptr<VideoSource> sharedSource() {
    Shared& state = shared();
    const MutexLock lock(state.mutex);
    return openOnce(state);
}

void closeSharedSource() {
    Shared& state = shared();
    const MutexLock lock(state.mutex);
    state.source.reset();
    state.driven.reset();
    state.openError.clear();
}

void setVirtualTime(int64_t micros) {
    if (const auto source = drivenSource()) {
        source->setTime(micros);
    }
}

int64_t nextFrameTime() {
    const auto source = drivenSource();
    return source ? source->nextFrameTime() : -1;
}

void holdLastFrame() {
    if (const auto source = drivenSource()) {
        source->holdLastFrame();
    }
}

int64_t sourceDuration() {
    const auto source = drivenSource();
    return source ? source->info().duration : 0;
}

std::string sourceError() {
    if (const auto source = drivenSource()) {
        return source->error();
    }
    Shared& state = shared();
    const MutexLock lock(state.mutex);
    return state.source ? displayName(desktopConfig().video) + ": is live and cannot be driven by hand"
                        : state.openError;
}

}  // namespace desktop

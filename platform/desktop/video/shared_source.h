#pragma once

#include <memory>

#include "desktop/frames/video_source.h"
#include "desktop/video/real_time_source.h"

namespace desktop {

/**
 * The process's source, opened on first use as desktopConfig() says. Thread-safe. Throws VideoError naming the source
 * and what was wrong; the next call tries again.
 */
std::shared_ptr<VideoSource> sharedSource();

/** Lets go of the source, so that the next use opens the one that is configured then; streams keep theirs. */
void closeSharedSource();

/** Opens one pass over a source; see openMedia for stop. Throws VideoError. */
std::unique_ptr<FrameReader> openReader(const std::string& source, const std::atomic<bool>& stop);

}  // namespace desktop

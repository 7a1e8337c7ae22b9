#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "desktop/frames/frame_reader.h"
#include "desktop/frames/source_name.h"

namespace desktop {

/**
 * Opens a file, network address or webcam. Throws VideoError, naming the source without its password, when there is no
 * such source, when it is no video or when it does not answer. Setting stop, from any thread, ends every wait of this
 * call and of the reader, which then throw; stop outlives the reader.
 */
std::unique_ptr<FrameReader> openMedia(const std::string& source, SourceKind kind, const std::atomic<bool>& stop);

}  // namespace desktop

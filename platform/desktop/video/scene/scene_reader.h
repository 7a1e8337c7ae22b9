#pragma once

#include <memory>
#include <string>

#include "desktop/frames/frame_reader.h"

namespace desktop {

/** Opens one pass over a drawn scene, "scene:NAME". Throws VideoError naming the known scenes. */
std::unique_ptr<FrameReader> openScene(const std::string& source);

}  // namespace desktop

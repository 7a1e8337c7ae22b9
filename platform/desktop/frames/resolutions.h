#pragma once

#include <string>
#include <vector>

#include "vdo-types.h"

namespace desktop {

/**
 * The sizes that the channel offers for a source of the given size, largest first: those of 16:9 or those of 4:3,
 * whichever ratio is nearer to the source's. All are even.
 */
const std::vector<VdoResolution>& offeredResolutions(int sourceWidth, int sourceHeight);

/** "1280x720". */
std::string sizeText(guint32 width, guint32 height);

/** "1920x1080, 1280x720, ...". */
std::string sizesText(const std::vector<VdoResolution>& sizes);

}  // namespace desktop

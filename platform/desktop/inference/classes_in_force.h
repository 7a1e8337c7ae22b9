#pragma once

#include <vector>

#include "detections.h"

namespace desktop {

/**
 * The classes that the application's settings count at present, the likeliest to appear first. The package manifest
 * names their parameters. Empty without a manifest, when it names none, or when none is on.
 */
std::vector<ObjectClass> classesInForce();

/**
 * What an engine is to tell apart, which must not be empty: the counted classes that the card lists; all counted ones
 * when it lists none; what the card lists when none of it is counted; people, bicycles, cars and buses when neither
 * says anything.
 */
std::vector<ObjectClass> classesToExpect(const std::vector<ObjectClass>& onCard,
                                         const std::vector<ObjectClass>& counted);

}  // namespace desktop

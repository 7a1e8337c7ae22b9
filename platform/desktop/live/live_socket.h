#pragma once

#include <string>

#include "base/unique_fd.h"

namespace desktop {

/**
 * Listens on a UNIX socket of any path, for its owner only, in the place of one that was left there. Throws
 * std::runtime_error naming the path and the reason.
 */
UniqueFd listenOn(const std::string& path);

}  // namespace desktop

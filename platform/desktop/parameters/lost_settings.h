#pragma once

#include <string>

/**
 * Whether nobody knows what the settings in a store's file are to be, since they could not be saved, or read. A file
 * beside it, PATH.lost, remembers it for the next start.
 */
namespace desktop {

/** Does what it can: where no file can be made, nothing is remembered. */
void rememberLoss(const std::string& path);

bool isLossRemembered(const std::string& path);

void forgetLoss(const std::string& path);

}  // namespace desktop

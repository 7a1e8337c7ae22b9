#pragma once

#include <string>

/**
 * Returns where a fixed camera path, such as "/mnt/flash/usr/local/packages/ostrel_senvo/model", lies on this machine:
 * the path itself, or the path under the folder that the environment variable OSTREL_SENVO_ROOT names. With a root of
 * their own, several cameras run side by side on one machine as an ordinary user.
 */
std::string cameraPath(const std::string& path);

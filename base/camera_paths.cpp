#include "base/camera_paths.h"

#include <cstdlib>

std::string cameraPath(const std::string& path) {
    const char* root = std::getenv("OSTREL_SENVO_ROOT");
    return root == nullptr ? path : root + path;
}

#include "desktop/parameters/lost_settings.h"

#include <fstream>
#include <unistd.h>

namespace desktop {
namespace {

std::string marker(const std::string& path) {
    return path + ".lost";
}

}  // namespace

void rememberLoss(const std::string& path) {
    const std::ofstream made(marker(path));
}

bool isLossRemembered(const std::string& path) {
    return access(marker(path).c_str(), F_OK) == 0;
}

void forgetLoss(const std::string& path) {
    unlink(marker(path).c_str());
}

}  // namespace desktop

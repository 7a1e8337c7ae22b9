#include "desktop/frames/resolutions.h"

#include <cmath>

namespace desktop {
namespace {

double distanceToRatio(double ratio, double reference) {
    return std::abs(std::log(ratio / reference));
}

}  // namespace

const std::vector<VdoResolution>& offeredResolutions(int sourceWidth, int sourceHeight) {
    static const std::vector<VdoResolution> wide = {{1920, 1080}, {1280, 720}, {640, 360}, {480, 270}, {320, 180}};
    static const std::vector<VdoResolution> standard = {{1280, 960}, {1024, 768}, {800, 600}, {640, 480}, {320, 240}};
    const double ratio = static_cast<double>(sourceWidth) / sourceHeight;
    return distanceToRatio(ratio, 16.0 / 9.0) <= distanceToRatio(ratio, 4.0 / 3.0) ? wide : standard;
}

std::string sizeText(guint32 width, guint32 height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

std::string sizesText(const std::vector<VdoResolution>& sizes) {
    std::string text;
    for (const VdoResolution& size : sizes) {
        text += (text.empty() ? "" : ", ") + sizeText(size.width, size.height);
    }
    return text;
}

}  // namespace desktop

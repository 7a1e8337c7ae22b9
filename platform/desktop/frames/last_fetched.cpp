#include "desktop/frames/last_fetched.h"

#include <algorithm>
#include <utility>

namespace desktop {
namespace {

constexpr float kUnseen = 0.005F;  // of a frame: narrower than anybody, and wider than what rounding leaves

Fetched& ofThisThread() {
    thread_local Fetched fetched;
    return fetched;
}

}  // namespace

const Fetched& lastFetched() {
    return ofThisThread();
}

void noteFetched(Fetched fetched) {
    ofThisThread() = std::move(fetched);
}

void noteFound(std::vector<FoundBox> boxes, int width, int height) {
    Fetched& frame = ofThisThread();
    const bool turned = frame.rotation == 90 || frame.rotation == 270;
    const auto frameRatio = static_cast<float>(turned ? frame.height : frame.width) /
                            static_cast<float>(std::max(1, turned ? frame.width : frame.height));
    const float ratio = static_cast<float>(width) / static_cast<float>(height);
    // The part that was looked at, in fractions of the frame.
    const float across = std::min(1.0F, ratio / std::max(frameRatio, 0.001F));
    const float down = std::min(1.0F, frameRatio / ratio);
    const float left = (1 - across) / 2;
    const float top = (1 - down) / 2;
    for (FoundBox& box : boxes) {
        box = {left + box.left * across, top + box.top * down, left + box.right * across, top + box.bottom * down};
    }
    if (left > kUnseen) {
        boxes.push_back({0, 0, left, 1});
        boxes.push_back({1 - left, 0, 1, 1});
    }
    if (top > kUnseen) {
        boxes.push_back({0, 0, 1, top});
        boxes.push_back({0, 1 - top, 1, 1});
    }
    frame.found = std::make_shared<const std::vector<FoundBox>>(std::move(boxes));
}

}  // namespace desktop

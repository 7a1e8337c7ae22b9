#include "desktop/inference/detections/detections.h"

#include <algorithm>

namespace desktop {
namespace {

constexpr std::array<const char*, kObjectClassCount> kClassNames = {
    "Person", "Bicycle", "Car", "Motorcycle", "Airplane", "Bus", "Train", "Truck", "Boat"};

bool better(const Detection& a, const Detection& b) {
    return a.score > b.score;
}

}  // namespace

std::optional<ObjectClass> objectClassFromName(const std::string& name) {
    const auto* found = std::find(kClassNames.begin(), kClassNames.end(), name);
    if (found == kClassNames.end()) {
        return std::nullopt;
    }
    return static_cast<ObjectClass>(found - kClassNames.begin());
}

std::string objectClassNames() {
    std::string names;
    for (const char* name : kClassNames) {
        names += names.empty() ? "" : ", ";
        names += name;
    }
    return names;
}

float intersectionOverUnion(const Detection& a, const Detection& b) {
    const float width = std::min(a.right, b.right) - std::max(a.left, b.left);
    const float height = std::min(a.bottom, b.bottom) - std::max(a.top, b.top);
    if (width <= 0 || height <= 0) {
        return 0;
    }
    const float common = width * height;
    const float all = (a.right - a.left) * (a.bottom - a.top) + (b.right - b.left) * (b.bottom - b.top) - common;
    return common / all;
}

void keepBestPerObject(std::vector<Detection>& detections, float overlap) {
    std::stable_sort(detections.begin(), detections.end(), better);
    size_t kept = 0;
    for (size_t i = 0; i < detections.size(); ++i) {
        const Detection& candidate = detections[i];
        const auto keptEnd = detections.begin() + static_cast<std::ptrdiff_t>(kept);
        const bool repeats = std::any_of(detections.begin(), keptEnd, [&](const Detection& earlier) {
            return earlier.objectClass == candidate.objectClass && intersectionOverUnion(earlier, candidate) > overlap;
        });
        if (!repeats) {
            detections[kept++] = candidate;
        }
    }
    detections.resize(kept);
}

ResultTensors packResultTensors(std::vector<Detection> detections) {
    std::stable_sort(detections.begin(), detections.end(), better);
    return packInOrder(detections);
}

ResultTensors packInOrder(const std::vector<Detection>& detections) {
    ResultTensors tensors;
    const size_t count = std::min(detections.size(), kResultSlots);
    for (size_t slot = 0; slot < count; ++slot) {
        const Detection& detection = detections[slot];
        tensors.locations[slot * 4] = std::clamp(detection.top, 0.0F, 1.0F);
        tensors.locations[slot * 4 + 1] = std::clamp(detection.left, 0.0F, 1.0F);
        tensors.locations[slot * 4 + 2] = std::clamp(detection.bottom, 0.0F, 1.0F);
        tensors.locations[slot * 4 + 3] = std::clamp(detection.right, 0.0F, 1.0F);
        tensors.classes[slot] = static_cast<float>(detection.objectClass);
        tensors.scores[slot] = detection.score;
    }
    tensors.count[0] = static_cast<float>(count);
    return tensors;
}

}  // namespace desktop

#include "detection/detection_filter.h"

#include <algorithm>

#include "log/Logger.h"

namespace {

constexpr float kRejectedScore = 0.01F;
constexpr size_t kCoordinatesPerBox = 4;
constexpr float kMostOverlap = 0.4F;      // above this share of the smaller box, two boxes are one object
constexpr float kSmallestShare = 0.005F;  // smaller boxes, as a share of the frame, are noise
constexpr float kLargestShare = 0.5F;     // larger ones too

struct PixelBox {
    float top;
    float left;
    float bottom;
    float right;
    float area() const { return (right - left) * (bottom - top); }
};

PixelBox toPixels(const float* box, const FilterLimits& limits) {
    const auto width = static_cast<float>(limits.width);
    const auto height = static_cast<float>(limits.height);
    return {box[0] * height, box[1] * width, box[2] * height, box[3] * width};
}

const float* boxAt(const Candidates& candidates, int index) {
    return candidates.locations + kCoordinatesPerBox * static_cast<size_t>(index);
}

/** A candidate's class index; -1 for a value that is none. */
int classAt(const Candidates& candidates, int index) {
    const float value = candidates.classes[index];
    return value > -1000.0F && value < 1000.0F ? static_cast<int>(value) : -1;
}

unsigned pixelAt(float fraction, unsigned size) {
    constexpr float kLargestPixel = 2147483520.0F;  // the largest float below 2^31
    const float pixel = fraction * static_cast<float>(size);
    return pixel > 0.0F ? static_cast<unsigned>(std::min(pixel, kLargestPixel)) : 0U;
}

}  // namespace

bool shouldCompareClasses(int a, int b) {
    const auto isCarOrTruck = [](int classId) {
        return classId == static_cast<int>(objects::car) || classId == static_cast<int>(objects::truck);
    };
    return a == b || (isCarOrTruck(a) && isCarOrTruck(b));
}

bool doOverlap(const float* box1, const float* box2, const FilterLimits& limits) {
    const PixelBox a = toPixels(box1, limits);
    const PixelBox b = toPixels(box2, limits);
    const float xOverlap = std::max(std::min(a.right, b.right) - std::max(a.left, b.left), 0.0F);
    const float yOverlap = std::max(std::min(a.bottom, b.bottom) - std::max(a.top, b.top), 0.0F);
    const float intersection = xOverlap * yOverlap;
    if (!(intersection > 0.0F)) {
        return false;
    }
    const float smallerArea = std::min(a.area(), b.area());
    if (!(smallerArea > 0.0F)) {
        applicationLog().info("DoTheseOverlap: SmallerArea is 0");
        return false;
    }
    return intersection / smallerArea > kMostOverlap;
}

void rejectAnomalies(const Candidates& candidates, const FilterLimits& limits) {
    const auto frameArea = static_cast<float>(limits.height * limits.width);
    for (int i = 0; i < kMostCandidates; ++i) {
        if (candidates.scores[i] > limits.threshold) {
            const float share = toPixels(boxAt(candidates, i), limits).area() / frameArea;
            if (share < kSmallestShare || share > kLargestShare) {
                candidates.scores[i] = kRejectedScore;
            }
        }
    }
}

void rejectSameObjectsAs(int index, const Candidates& candidates, const FilterLimits& limits) {
    for (int j = index + 1; j < kMostCandidates; ++j) {
        if (shouldCompareClasses(classAt(candidates, index), classAt(candidates, j)) &&
            candidates.scores[j] > limits.threshold &&
            doOverlap(boxAt(candidates, index), boxAt(candidates, j), limits)) {
            candidates.scores[j] = kRejectedScore;
        }
    }
}

void suppressNonMaxima(const Candidates& candidates, const FilterLimits& limits) {
    for (int i = 0; i < kMostCandidates; ++i) {
        if (candidates.scores[i] > limits.threshold) {
            rejectSameObjectsAs(i, candidates, limits);
        }
    }
}

std::vector<detection> detectionsOf(const Candidates& candidates, const FilterLimits& limits,
                                    const ConfigParams& config) {
    std::vector<detection> detections;
    for (int i = 0; i < kMostCandidates; ++i) {
        const int classId = classAt(candidates, i);
        if (!isObjectClassMonitored(config, classId) || !(candidates.scores[i] > limits.threshold)) {
            continue;
        }
        const float* const box = boxAt(candidates, i);
        const unsigned top = pixelAt(box[0], limits.height);
        const unsigned left = pixelAt(box[1], limits.width);
        const unsigned bottom = std::min(pixelAt(box[2], limits.height), limits.height - 1);
        const unsigned right = std::min(pixelAt(box[3], limits.width), limits.width - 1);
        detection found;
        found.X = static_cast<int32_t>(left);
        found.Y = static_cast<int32_t>(top);
        found.W = static_cast<int32_t>(right) - found.X;
        found.H = static_cast<int32_t>(bottom) - found.Y;
        found.ClassId = classId;
        found.Confidence = candidates.scores[i];
        detections.push_back(found);
    }
    return detections;
}

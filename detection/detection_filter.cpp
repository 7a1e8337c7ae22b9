#include <algorithm>

#include "detection/location_controller_larod.h"
#include "log/Logger.h"

namespace {

constexpr float kRejectedScore = 0.01F;
constexpr size_t kCoordinatesPerBox = 4;

size_t slot(int index) {
    return static_cast<size_t>(index);
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

void location_controller_larod::set_sensitivity(float threshold) {
    m_Threshold = threshold;
}

location_controller_larod::PixelBox location_controller_larod::toPixels(const float* box) const {
    const auto width = static_cast<float>(m_StreamWidth);
    const auto height = static_cast<float>(m_StreamHeight);
    return {box[0] * height, box[1] * width, box[2] * height, box[3] * width};
}

int location_controller_larod::classAt(int index) const {
    const float value = m_OutputClasses[index];
    return value > -1000.0F && value < 1000.0F ? static_cast<int>(value) : -1;
}

int location_controller_larod::remove_anomalies() {
    const auto frameArea = static_cast<float>(m_StreamHeight * m_StreamWidth);
    for (int i = 0; i < m_MaxResults; ++i) {
        if (m_OutputScores[i] > m_Threshold) {
            const float ratio = toPixels(m_OutputLocations + kCoordinatesPerBox * slot(i)).area() / frameArea;
            if (ratio < m_TinyAnomalyMaxAreaPercent || ratio > m_HugeAnomalyMaxAreaPercent) {
                m_OutputScores[i] = kRejectedScore;
            }
        }
    }
    return 0;
}

int location_controller_larod::apply_non_maximum_suppression() {
    for (int i = 0; i < m_MaxResults; ++i) {
        if (m_OutputScores[i] > m_Threshold) {
            lower_the_threshold_of_any_same_object_overlapping_this_one(i);
        }
    }
    return 0;
}

int location_controller_larod::lower_the_threshold_of_any_same_object_overlapping_this_one(int index) {
    for (int j = index + 1; j < m_MaxResults; ++j) {
        if (!shouldCompareClasses(classAt(index), classAt(j)) || !(m_OutputScores[j] > m_Threshold)) {
            continue;
        }
        if (DoTheseOverlap(m_OutputLocations + kCoordinatesPerBox * slot(index),
                           m_OutputLocations + kCoordinatesPerBox * slot(j), j)) {
            m_OutputScores[j] = kRejectedScore;
        }
    }
    return 0;
}

bool location_controller_larod::DoTheseOverlap(const float* box1, const float* box2, int) const {
    const PixelBox a = toPixels(box1);
    const PixelBox b = toPixels(box2);
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
    return intersection / smallerArea > m_Overlap;
}

std::vector<detection> location_controller_larod::get_detections() const {
    std::vector<detection> detections;
    for (int i = 0; i < m_MaxResults; ++i) {
        const int classId = classAt(i);
        if (!IsValidClass(classId) || !(m_OutputScores[i] > m_Threshold)) {
            continue;
        }
        const float* const box = m_OutputLocations + kCoordinatesPerBox * slot(i);
        const unsigned top = pixelAt(box[0], m_StreamHeight);
        const unsigned left = pixelAt(box[1], m_StreamWidth);
        const unsigned bottom = std::min(pixelAt(box[2], m_StreamHeight), m_StreamHeight - 1);
        const unsigned right = std::min(pixelAt(box[3], m_StreamWidth), m_StreamWidth - 1);
        detection found;
        found.X = static_cast<int32_t>(left);
        found.Y = static_cast<int32_t>(top);
        found.W = static_cast<int32_t>(right) - found.X;
        found.H = static_cast<int32_t>(bottom) - found.Y;
        found.ClassId = classId;
        found.Confidence = m_OutputScores[i];
        detections.push_back(found);
    }
    return detections;
}

bool location_controller_larod::is_object_a_trigger(int classId) const {
    return isObjectClassMonitored(m_config, classId);
}

std::string location_controller_larod::ClassIDToLabel(int classId) {
    return class_index_to_label(classId);
}

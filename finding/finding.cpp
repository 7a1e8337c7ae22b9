#include "finding/finding.h"

#include <cstddef>

namespace {

bool isObjectIndex(int32_t classId) {
    return classId >= 0 && classId < static_cast<int32_t>(kClassLabels.size());
}

}  // namespace

objects class_index_to_object(int32_t classId) {
    return isObjectIndex(classId) ? static_cast<objects>(classId) : objects::unknown;
}

const char* class_index_to_label(int32_t classId) {
    return isObjectIndex(classId) ? kClassLabels[static_cast<size_t>(classId)] : "Unknown";
}

std::optional<int32_t> label_to_class_index(const std::string& label) {
    for (int32_t classId = 0; classId <= static_cast<int32_t>(objects::boat); ++classId) {
        if (label == class_index_to_label(classId)) {
            return classId;
        }
    }
    return std::nullopt;
}

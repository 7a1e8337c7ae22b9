#include "tracking/counting_rules.h"

namespace {

constexpr int kAreas = 3;

template <size_t size>
t_Polygon polygonOf(const std::array<int32_t, size>& points) {
    t_Polygon polygon;
    for (size_t i = 0; i < size; i += 2) {
        polygon.emplace_back(points[i], points[i + 1]);
    }
    return polygon;
}

}  // namespace

bool isInZone(entrances state) {
    return state >= entrances::in_entrance1;
}

void storeDetectionAreas(const ConfigParams& config, area_of_interest& areas) {
    areas.set_detection(1, polygonOf(config.i_Detection1));
    areas.set_detection(2, polygonOf(config.i_Detection2));
    areas.set_detection(3, polygonOf(config.i_Detection3));
    areas.set_detection_active(1, config.b_Detection1Active);
    areas.set_detection_active(2, config.b_Detection2Active);
    areas.set_detection_active(3, config.b_Detection3Active);
}

void storeExclusions(const ConfigParams& config, area_of_interest& areas) {
    areas.set_exclusion(1, polygonOf(config.i_Exclusion1));
    areas.set_exclusion(2, polygonOf(config.i_Exclusion2));
    areas.set_exclusion(3, polygonOf(config.i_Exclusion3));
    areas.set_exclusion_active(1, config.b_Exclusion1Active);
    areas.set_exclusion_active(2, config.b_Exclusion2Active);
    areas.set_exclusion_active(3, config.b_Exclusion3Active);
}

void storeEntrances(const ConfigParams& config, area_of_interest& areas) {
    areas.set_entrance(1, polygonOf(config.i_Occupancy1));
    areas.set_entrance(2, polygonOf(config.i_Occupancy2));
    areas.set_entrance(3, polygonOf(config.i_Occupancy3));
    areas.set_entrance_active(1, config.b_Occupancy1Active);
    areas.set_entrance_active(2, config.b_Occupancy2Active);
    areas.set_entrance_active(3, config.b_Occupancy3Active);
}

entrances entranceAt(const area_of_interest& areas, t_one_locator at) {
    for (int zone = 1; zone <= kAreas; ++zone) {
        if (areas.is_in_entrance(zone, at)) {
            return static_cast<entrances>(static_cast<int>(entrances::not_in_entrance) + zone);
        }
    }
    return entrances::not_in_entrance;
}

int detectionAreaAt(const area_of_interest& areas, t_one_locator at) {
    for (int area = 1; area <= kAreas; ++area) {
        if (areas.is_detected(area, at)) {
            return area;
        }
    }
    return 0;
}

entranceActivity entranceActivityOf(entrances previous, entrances current, bool cameraInside) {
    const auto activity = [](entrances zone, bool entering) {
        const int index = static_cast<int>(zone) - static_cast<int>(entrances::in_entrance1);
        return static_cast<entranceActivity>(2 * index + (entering ? 0 : 1));
    };
    if (previous == entrances::not_in_entrance && isInZone(current)) {
        return activity(current, !cameraInside);
    }
    if (isInZone(previous) && current == entrances::not_in_entrance) {
        return activity(previous, cameraInside);
    }
    return entranceActivity::unknown;
}

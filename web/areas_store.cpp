#include "parameter_io.h"

namespace {

template <size_t size>
t_Polygon polygonOf(const std::array<int32_t, size>& points) {
    t_Polygon polygon;
    for (size_t i = 0; i < size; i += 2) {
        polygon.emplace_back(points[i], points[i + 1]);
    }
    return polygon;
}

}  // namespace

void parameter_io::store_points_into_AOI(const ConfigParams& config, area_of_interest& areas) {
    areas.set_detection(1, polygonOf(config.i_Detection1));
    areas.set_detection(2, polygonOf(config.i_Detection2));
    areas.set_detection(3, polygonOf(config.i_Detection3));
    areas.set_detection_active(1, config.b_Detection1Active);
    areas.set_detection_active(2, config.b_Detection2Active);
    areas.set_detection_active(3, config.b_Detection3Active);
}

void parameter_io::store_points_into_exclusions(const ConfigParams& config, area_of_interest& areas) {
    areas.set_exclusion(1, polygonOf(config.i_Exclusion1));
    areas.set_exclusion(2, polygonOf(config.i_Exclusion2));
    areas.set_exclusion(3, polygonOf(config.i_Exclusion3));
    areas.set_exclusion_active(1, config.b_Exclusion1Active);
    areas.set_exclusion_active(2, config.b_Exclusion2Active);
    areas.set_exclusion_active(3, config.b_Exclusion3Active);
}

void parameter_io::store_points_into_occupancies(const ConfigParams& config, area_of_interest& areas) {
    areas.set_entrance(1, polygonOf(config.i_Occupancy1));
    areas.set_entrance(2, polygonOf(config.i_Occupancy2));
    areas.set_entrance(3, polygonOf(config.i_Occupancy3));
    areas.set_entrance_active(1, config.b_Occupancy1Active);
    areas.set_entrance_active(2, config.b_Occupancy2Active);
    areas.set_entrance_active(3, config.b_Occupancy3Active);
}

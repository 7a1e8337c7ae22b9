#include "tracking/area_of_interest.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr int kExclusionCorners = 4;

/**
 * Positive when p lies to the left of the edge from a to b, in 32-bit arithmetic that wraps around: a stored corner far
 * outside any picture must not be an error.
 */
int32_t wrappingCross(t_one_locator a, t_one_locator b, t_one_locator p) {
    const auto minus = [](int32_t left, int32_t right) {
        return static_cast<uint32_t>(left) - static_cast<uint32_t>(right);
    };
    return static_cast<int32_t>(minus(a.first, p.first) * minus(b.second, p.second) -
                                minus(a.second, p.second) * minus(b.first, p.first));
}

}  // namespace

area_of_interest::area_of_interest(const ConfigParams& config) : m_config(config) {
    m_Detections[0].active = true;
    m_Entrances[0].active = true;
}

const area_of_interest::Area* area_of_interest::find(const Areas& areas, int n) {
    return n >= 1 && n <= static_cast<int>(areas.size()) ? &areas[static_cast<size_t>(n - 1)] : nullptr;
}

area_of_interest::Area* area_of_interest::find(Areas& areas, int n) {
    return n >= 1 && n <= static_cast<int>(areas.size()) ? &areas[static_cast<size_t>(n - 1)] : nullptr;
}

bool area_of_interest::setPolygon(Areas& areas, int n, const t_Polygon& polygon) {
    Area* const area = find(areas, n);
    if (area == nullptr) {
        return false;
    }
    area->polygon = polygon;
    return true;
}

bool area_of_interest::setActive(Areas& areas, int n, bool active) {
    Area* const area = find(areas, n);
    if (area == nullptr) {
        return false;
    }
    area->active = active;
    return true;
}

bool area_of_interest::isInside(const Areas& areas, int n, t_one_locator point, int vertexCount) {
    const Area* const area = find(areas, n);
    return area != nullptr && area->active && is_winding_number_nonzero(point, area->polygon, vertexCount);
}

bool area_of_interest::set_exclusion(int n, const t_Polygon& polygon) {
    return setPolygon(m_Exclusions, n, polygon);
}

bool area_of_interest::set_detection(int n, const t_Polygon& polygon) {
    return setPolygon(m_Detections, n, polygon);
}

bool area_of_interest::set_entrance(int n, const t_Polygon& polygon) {
    return setPolygon(m_Entrances, n, polygon);
}

bool area_of_interest::set_exclusion_active(int n, bool active) {
    return setActive(m_Exclusions, n, active);
}

bool area_of_interest::set_detection_active(int n, bool active) {
    return setActive(m_Detections, n, active);
}

bool area_of_interest::set_entrance_active(int n, bool active) {
    return setActive(m_Entrances, n, active);
}

t_Polygon area_of_interest::get_exclusion(int n) const {
    const Area* const area = find(m_Exclusions, n);
    return area == nullptr ? t_Polygon{} : area->polygon;
}

t_Polygon area_of_interest::get_detection(int n) const {
    const Area* const area = find(m_Detections, n);
    return area == nullptr ? t_Polygon{} : area->polygon;
}

bool area_of_interest::get_exclusion_active(int n) const {
    const Area* const area = find(m_Exclusions, n);
    return area != nullptr && area->active;
}

bool area_of_interest::get_detection_active(int n) const {
    const Area* const area = find(m_Detections, n);
    return area != nullptr && area->active;
}

bool area_of_interest::is_excluded(t_one_locator point) const {
    return isInside(m_Exclusions, 1, point, kExclusionCorners) || isInside(m_Exclusions, 2, point, kExclusionCorners) ||
           isInside(m_Exclusions, 3, point, kExclusionCorners);
}

bool area_of_interest::is_detected(int n, t_one_locator point) const {
    return isInside(m_Detections, n, point, m_config.i_DetectionControlPoints);
}

bool area_of_interest::is_in_entrance(int n, t_one_locator point) const {
    return isInside(m_Entrances, n, point, m_config.i_EntrancesControlPoints);
}

bool area_of_interest::is_winding_number_nonzero(t_one_locator point, const t_Polygon& polygon, int vertexCount) {
    const int32_t py = point.second;
    const size_t count = std::min(static_cast<size_t>(std::max(vertexCount, 0)), polygon.size());
    if (count == 0) {
        return false;
    }
    int windings = 0;
    t_one_locator a = polygon[count - 1];
    for (size_t i = 0; i < count; ++i) {
        const t_one_locator b = polygon[i];
        const int32_t cross = wrappingCross(a, b, point);
        if (a.second <= py) {
            if (b.second > py && cross > 0) {
                ++windings;
            }
        } else if (b.second <= py && cross < 0) {
            --windings;
        }
        a = b;
    }
    return windings == 1 || windings == -1;
}

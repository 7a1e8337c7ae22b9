#pragma once

#include <array>
#include <vector>

#include "config/config_params.h"
#include "finding/finding.h"

/** Corner points in analysis-stream pixels; the last is joined back to the first. */
using t_Polygon = std::vector<t_one_locator>;

/**
 * The nine polygons that the user draws: three detection areas, three exclusions, three entrances. Their numbers are 1,
 * 2 and 3; any other makes a setter and a test return false and a getter return an empty polygon.
 *
 * Only the first so many corners of a polygon take part in a test: 4 of an exclusion, and of the others as many as the
 * settings say. A polygon that holds fewer is tested with those it has.
 */
class area_of_interest {
public:
    /** config: the live record, for the numbers of corners. Detection area 1 and entrance 1 start active. */
    explicit area_of_interest(const ConfigParams& config);

    /** Nothing to do at start-up: the areas keep what the settings put there. */
    void init() {}

    bool set_exclusion(int n, const t_Polygon& polygon);
    bool set_detection(int n, const t_Polygon& polygon);
    bool set_entrance(int n, const t_Polygon& polygon);
    bool set_exclusion_active(int n, bool active);
    bool set_detection_active(int n, bool active);
    bool set_entrance_active(int n, bool active);

    t_Polygon get_exclusion(int n) const;
    t_Polygon get_detection(int n) const;
    bool get_exclusion_active(int n) const;
    bool get_detection_active(int n) const;

    /** Whether any active exclusion holds the point. */
    bool is_excluded(t_one_locator point) const;

    /** Whether detection area n is active and holds the point. */
    bool is_detected(int n, t_one_locator point) const;

    /** Whether entrance n is active and holds the point. */
    bool is_in_entrance(int n, t_one_locator point) const;

    /**
     * Whether the first vertexCount corners wind around the point exactly once, either way round. Despite the name, a
     * point that a self-crossing polygon winds around twice is outside.
     */
    static bool is_winding_number_nonzero(t_one_locator point, const t_Polygon& polygon, int vertexCount);

private:
    struct Area {
        t_Polygon polygon;
        bool active = false;
    };
    using Areas = std::array<Area, 3>;

    static const Area* find(const Areas& areas, int n);
    static Area* find(Areas& areas, int n);
    static bool setPolygon(Areas& areas, int n, const t_Polygon& polygon);
    static bool setActive(Areas& areas, int n, bool active);
    static bool isInside(const Areas& areas, int n, t_one_locator point, int vertexCount);

    Areas m_Exclusions;
    Areas m_Detections;
    Areas m_Entrances;
    const ConfigParams& m_config;
};

#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "config/config_params.h"
#include "detection/location_controller_larod.h"
#include "events/event_manager.h"
#include "finding/finding.h"
#include "followers/follower_calls.h"
#include "statistics/occupancy_manager.h"
#include "tracking/area_of_interest.h"
#include "tracking/occupancy_controller.h"
#include "tracking/tracker.h"

/** The components that the processing of findings works with; all outlive it. */
struct DetectionProcessingParts {
    const ConfigParams& config;
    const location_controller_larod& detector;
    tracker& objectTracker;
    const area_of_interest& areas;
    occupancy_controller& occupancy;
    EventManager& events;
    OccupancyManager& statistics;
    MetricsParams& metrics;
    LeaderMetricsParams& leaderMetrics;
    FollowerCalls& followers;
};

/**
 * Turns each frame's detections into findings and acts on them: tracks them, finds their areas and entrances, counts
 * entries and exits, times their stays, starts and stops the alerts, publishes the counts.
 *
 * Each successful frame calls, in this order: get_detections, monitor_AOI_and_entrances, examine_and_update_findings,
 * manage_events, update_aoi_and_occupancy_metrics. Main-loop thread only, except where noted.
 */
class DetectionProcessing {
public:
    explicit DetectionProcessing(const DetectionProcessingParts& parts);

    /** Takes this frame's filtered detections from the detector. */
    void get_detections();

    /** Tracks the detections and rebuilds the findings; moves the occupancy. */
    void monitor_AOI_and_entrances();

    /** Times how long objects stay in detection areas. */
    void examine_and_update_findings();

    /** Starts and stops the alerts. Whether the one of the occupancy has set it to nobody. */
    bool manage_events();

    /** Publishes crowd counts and occupancy. */
    void update_aoi_and_occupancy_metrics();

    /**
     * Sets the occupancy back to nobody, here and on every active follower that can be called; returns 0. A follower
     * that does not answer is logged and skipped. Any thread, with its own copy of the camera table.
     */
    int reset_total_occupancy(const CameraInfo& cameras);

    /**
     * Whether a follower, 0..9, was last known to run: its status is neither stopped (300) nor without answer (700).
     * Any thread.
     */
    bool is_camera_callable(int follower) const;

    /** The entry or exit that a step from one entrance state to another is. */
    static entranceActivity getEntranceActivity(entrances previous, entrances current, bool cameraInside);

    /** This frame's tracked objects, in ascending id order. */
    const std::vector<one_find>& findings() const { return m_Findings; }

    /** How many objects have a running dwell time. */
    size_t timedObjects() const { return m_FirstSeen.size(); }

private:
    footings footingOf(const detection& box, t_one_locator locator) const;
    bool isWhollyExcluded(const detection& box) const;
    void moveOccupancy(entrances previous, entrances current);
    void manageAlert(const char* name, int lengthy, int all);

    DetectionProcessingParts m_parts;
    std::vector<detection> m_Detections;
    std::vector<one_find> m_Findings;
    std::map<int, int64_t> m_FirstSeen; /**< object id to the second at which its stay in detection areas began */
    int m_AoiCount = 0;                 /**< objects in detection areas in the frame before */
};

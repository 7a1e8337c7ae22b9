#include "tracking/detection_processing.h"

#include <array>

#include "base/clock.h"
#include "followers/follower_round.h"
#include "log/Logger.h"
#include "tracking/counting_rules.h"

namespace {

constexpr int kAreas = 3;

footings briefly(int area) {
    return static_cast<footings>(2 * area - 1);
}

footings lengthily(int area) {
    return static_cast<footings>(2 * area);
}

/** The detection area of a footing, 1..3; 0 for none. */
int areaOf(footings footing) {
    return (static_cast<int>(footing) + 1) / 2;
}

/** Findings per detection area, index 1..3; index 0 holds those in none. */
struct AreaCounts {
    std::array<int, kAreas + 1> all = {};
    std::array<int, kAreas + 1> lengthy = {};
};

AreaCounts countByArea(const std::vector<one_find>& findings) {
    AreaCounts counts;
    for (const one_find& finding : findings) {
        const auto area = static_cast<size_t>(areaOf(finding.footing));
        ++counts.all[area];
        if (area > 0 && finding.footing == lengthily(static_cast<int>(area))) {
            ++counts.lengthy[area];
        }
    }
    return counts;
}

}  // namespace

DetectionProcessing::DetectionProcessing(const DetectionProcessingParts& parts) : m_parts(parts) {}

void DetectionProcessing::get_detections() {
    m_Detections = m_parts.detector.get_detections();
}

footings DetectionProcessing::footingOf(const detection& box, t_one_locator locator) const {
    const int area = detectionAreaAt(m_parts.areas, locator);
    const bool counts = area != 0 && !isWhollyExcluded(box) && m_parts.detector.is_object_a_trigger(box.ClassId);
    return counts ? briefly(area) : footings::not_in_AOI;
}

bool DetectionProcessing::isWhollyExcluded(const detection& box) const {
    const area_of_interest& areas = m_parts.areas;
    return areas.is_excluded({box.X, box.Y}) && areas.is_excluded({box.X + box.W, box.Y}) &&
           areas.is_excluded({box.X, box.Y + box.H}) && areas.is_excluded({box.X + box.W, box.Y + box.H});
}

void DetectionProcessing::monitor_AOI_and_entrances() {
    m_Findings.clear();
    bool anyInEntrance = false;
    bool anyInArea = false;
    for (const auto& [id, box] : m_parts.objectTracker.track_rectangles(m_Detections)) {
        one_find finding;
        finding.locator = box.get_locator(m_parts.config.b_LocatorAtBottom);
        finding.detect = box;
        finding.id = id;
        finding.footing = footingOf(box, finding.locator);
        finding.entrance = entranceAt(m_parts.areas, finding.locator);
        finding.entranceAct = entranceActivity::unknown;
        if (m_parts.objectTracker.is_id_in_occupancy_map(id)) {
            const entrances previous = m_parts.objectTracker.get_occupancy_state(id);
            finding.entranceAct = getEntranceActivity(previous, finding.entrance, m_parts.config.b_IsCameraInside);
            moveOccupancy(previous, finding.entrance);
            if (finding.entranceAct != entranceActivity::unknown) {
                ++m_parts.metrics.passages.at(static_cast<size_t>(finding.entranceAct));
            }
        }
        m_parts.objectTracker.update_occupancy_map(id, finding.entrance);
        anyInEntrance = anyInEntrance || isInZone(finding.entrance);
        anyInArea = anyInArea || finding.footing != footings::not_in_AOI;
        m_Findings.push_back(finding);
    }
    // Objects are held through missed frames only while something stands in a detection area and nothing in an
    // entrance; near an entrance a held box could be taken for somebody else's step over the line.
    int limit = 0;
    if (anyInArea && !anyInEntrance) {
        limit = m_parts.config.i_MaxDisappeared;
    } else if (anyInEntrance && !anyInArea) {
        limit = 1;
    }
    m_parts.objectTracker.set_max_disappeared(limit);
}

void DetectionProcessing::moveOccupancy(entrances previous, entrances current) {
    const bool inside = m_parts.config.b_IsCameraInside;
    if (isInZone(previous) && current == entrances::not_in_entrance) {
        inside ? m_parts.occupancy.increase_count() : m_parts.occupancy.decrease_count();
    } else if (previous == entrances::not_in_entrance && isInZone(current)) {
        inside ? m_parts.occupancy.decrease_count() : m_parts.occupancy.increase_count();
    }
}

entranceActivity DetectionProcessing::getEntranceActivity(entrances previous, entrances current, bool cameraInside) {
    return entranceActivityOf(previous, current, cameraInside);
}

void DetectionProcessing::examine_and_update_findings() {
    const std::array<int32_t, kAreas> thresholds = {m_parts.config.i_Detection1ThreshSeconds,
                                                    m_parts.config.i_Detection2ThreshSeconds,
                                                    m_parts.config.i_Detection3ThreshSeconds};
    const int64_t now = clockNow();
    std::map<int, int64_t> stillTimed;
    for (one_find& finding : m_Findings) {
        const int area = areaOf(finding.footing);
        if (area == 0 || !m_parts.detector.is_object_a_trigger(finding.detect.ClassId)) {
            continue;
        }
        const auto known = m_FirstSeen.find(finding.id);
        const int64_t since = known == m_FirstSeen.end() ? now : known->second;
        if (known != m_FirstSeen.end()) {
            finding.seconds = static_cast<int32_t>(now - since);
            if (finding.seconds > thresholds[static_cast<size_t>(area - 1)]) {
                finding.footing = lengthily(area);
            }
        }
        stillTimed.emplace(finding.id, since);
    }
    // Whoever stands in no area now, or is gone altogether, starts afresh next time.
    m_FirstSeen = std::move(stillTimed);
}

bool DetectionProcessing::manage_events() {
    const AreaCounts counts = countByArea(m_Findings);
    const int all = counts.all[1] + counts.all[2] + counts.all[3];
    const int lengthy = counts.lengthy[1] + counts.lengthy[2] + counts.lengthy[3];
    const bool someoneCameOrWent = all != m_AoiCount;
    m_AoiCount = all;
    if (m_parts.config.e_AoiLogicComparison == logicComparison::exactly && someoneCameOrWent) {
        m_FirstSeen.clear();
        return false;
    }
    manageAlert(alerts::kBreached, lengthy, all);
    manageAlert(alerts::kArea1, counts.lengthy[1], counts.all[1]);
    manageAlert(alerts::kArea2, counts.lengthy[2], counts.all[2]);
    manageAlert(alerts::kArea3, counts.lengthy[3], counts.all[3]);

    if (m_parts.config.i_MinOccupantsForTrigger > m_parts.leaderMetrics.totalOccupancy) {
        m_parts.events.sendEventStopped(alerts::kOccupancy);
        return false;
    }
    m_parts.events.sendEventStarted(alerts::kOccupancy);
    if (m_parts.config.b_ResetByOccupanyCount) {
        reset_total_occupancy(m_parts.config.cameraInfo);
    }
    return m_parts.config.b_ResetByOccupanyCount;
}

void DetectionProcessing::manageAlert(const char* name, int lengthy, int all) {
    const int minimum = m_parts.config.i_MinNumberOfPeopleForTrigger;
    const logicComparison comparison = m_parts.config.e_AoiLogicComparison;
    const bool atLeast = comparison == logicComparison::atLeast;
    const bool exactly = comparison == logicComparison::exactly;
    if ((atLeast && lengthy >= minimum) || (exactly && lengthy == minimum)) {
        m_parts.events.sendEventStarted(name);
    } else if ((atLeast && all < minimum) || (exactly && all != minimum)) {
        m_parts.events.sendEventStopped(name);
    }
}

void DetectionProcessing::update_aoi_and_occupancy_metrics() {
    const AreaCounts counts = countByArea(m_Findings);
    m_parts.metrics.crowdCount1 = counts.all[1];
    m_parts.metrics.crowdCount2 = counts.all[2];
    m_parts.metrics.crowdCount3 = counts.all[3];
    m_parts.metrics.occupancyCount = m_parts.occupancy.get_count();
}

int DetectionProcessing::reset_total_occupancy(const CameraInfo& cameras) {
    m_parts.metrics.occupancyCount = 0;
    m_parts.occupancy.reset_count();
    m_parts.statistics.resetOccupancy();
    const auto answered =
        askFollowers([&](size_t i) { return cameras.followerActive[i] && is_camera_callable(static_cast<int>(i)); },
                     [&](size_t i) {
                         return m_parts.followers.reset_occupancy_of_followerip(
                             cameras.followerIPAddress[i], cameras.followerLogin[i], cameras.followerPassword[i]);
                     });
    for (size_t i = 0; i < answered.size(); ++i) {
        if (answered[i] == false) {
            applicationLog().error("reset_total_occupancy: Could not reset occupancy for camera " +
                                   cameras.followerCameraName[i]);
        }
    }
    return 0;
}

bool DetectionProcessing::is_camera_callable(int follower) const {
    return isCameraCallable(m_parts.leaderMetrics, follower);
}

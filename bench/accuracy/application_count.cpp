#include <stdexcept>

#include "base/clock.h"
#include "counting.h"
#include "detection/location_controller_larod.h"
#include "events/event_manager.h"
#include "scripted_followers.h"
#include "scripted_platform.h"
#include "statistics/occupancy_manager.h"
#include "tracking/area_of_interest.h"
#include "tracking/detection_processing.h"
#include "tracking/occupancy_controller.h"
#include "tracking/tracker.h"

namespace accuracy {
namespace {

ConfigParams settingsOf(const Scene& scene) {
    ConfigParams config;
    config.b_DetectPersons = config.b_DetectCars = config.b_DetectTrucks = true;
    config.b_LocatorAtBottom = scene.locatorAtBottom;
    config.i_DetectionControlPoints = 4;
    config.i_EntrancesControlPoints = 4;
    config.i_MaxDisappeared = 10;
    config.i_MinNumberOfPeopleForTrigger = 1;
    config.i_MinOccupantsForTrigger = 1000;
    config.f_Sensitivity = kSensitivity;
    return config;
}

}  // namespace

struct ApplicationCount::Parts {
    explicit Parts(const Scene& scene) : config(settingsOf(scene)) {}

    ConfigParams config;
    int64_t micros = 0;
    location_controller_larod detector{config};
    tracker objectTracker{config};
    area_of_interest areas{config};
    occupancy_controller occupancy;
    EventManager events;
    OccupancyManager statistics{config};
    MetricsParams metrics;
    LeaderMetricsParams leaderMetrics;
    ScriptedFollowers followers;
    DetectionProcessing processing{
        {config, detector, objectTracker, areas, occupancy, events, statistics, metrics, leaderMetrics, followers}};
};

ApplicationCount::ApplicationCount(const Scene& scene) : m_lineUpright(scene.lineUpright) {
    scripted::reset();
    scripted::offerResolutions(1, {{kPictureWidth, kPictureHeight}});
    m_parts = std::make_unique<Parts>(scene);
    setClock([parts = m_parts.get()] { return 1704067200000000 + parts->micros; });
    // The model's input is tiny, since nobody looks at the pictures.
    if (!m_parts->detector.init_larod("ostrel_senvo", "detect_960_540_tpu.tflite", 64, 36, 100, false)) {
        throw std::runtime_error("the application's detector does not start on the scripted platform");
    }
    m_parts->detector.set_sensitivity(kSensitivity);
    m_parts->objectTracker.init(m_parts->config.i_MaxDisappeared);
    for (const char* name : {alerts::kBreached, alerts::kArea1, alerts::kArea2, alerts::kArea3, alerts::kOccupancy}) {
        m_parts->events.addEvent(name);
    }
    const int left = scene.lineUpright ? static_cast<int>(kLine * kPictureWidth) : 0;
    const int top = scene.lineUpright ? 0 : static_cast<int>(kLine * kPictureHeight);
    const auto box = [](int x, int y) {
        return t_Polygon{{x, y}, {kPictureWidth, y}, {kPictureWidth, kPictureHeight}, {x, kPictureHeight}};
    };
    m_parts->areas.set_entrance(1, box(left, top));
    m_parts->areas.set_entrance_active(1, true);
    m_parts->areas.set_detection(1, box(0, 0));
    m_parts->areas.set_detection_active(1, scene.detectionArea);
}

ApplicationCount::~ApplicationCount() {
    setClock(nullptr);
}

void ApplicationCount::cycle(const std::vector<desktop::Detection>& boxes, double seconds) {
    std::vector<scripted::Candidate> candidates;
    for (const desktop::Detection& box : boxes) {
        candidates.push_back({.classId = static_cast<int>(box.objectClass),
                              .score = box.score,
                              .ymin = box.top,
                              .xmin = box.left,
                              .ymax = box.bottom,
                              .xmax = box.right});
    }
    scripted::find(candidates);
    m_parts->micros = static_cast<int64_t>(seconds * 1e6);
    if (m_parts->detector.larod_prepare_data_and_do_ai() != 0) {
        throw std::runtime_error("the application's cycle failed on the scripted platform");
    }
    m_parts->processing.get_detections();
    m_parts->processing.monitor_AOI_and_entrances();
    m_parts->processing.examine_and_update_findings();
    m_parts->processing.manage_events();
    m_parts->processing.update_aoi_and_occupancy_metrics();
    for (const one_find& found : m_parts->processing.findings()) {
        if (found.entranceAct != entranceActivity::unknown) {
            const float along = m_lineUpright ? static_cast<float>(found.detect.Y + found.detect.H / 2) / kPictureHeight
                                              : static_cast<float>(found.locator.first) / kPictureWidth;
            m_counts.push_back({seconds, found.entranceAct == entranceActivity::enterEntrance1, along});
        }
    }
}

}  // namespace accuracy

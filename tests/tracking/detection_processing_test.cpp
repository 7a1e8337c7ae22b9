#include "tracking/detection_processing.h"

#include <fstream>
#include <gtest/gtest.h>

#include "builders.h"
#include "log_capture.h"
#include "scripted_followers.h"
#include "scripted_platform.h"
#include "test_clock.h"

namespace {

constexpr float kWidth = 640;
constexpr float kHeight = 360;

t_Polygon box(int left, int top, int right, int bottom) {
    return {{left, top}, {right, top}, {right, bottom}, {left, bottom}};
}

/** The whole chain from the detector's output to findings, counts and alerts, on the scripted platform. */
class Findings : public testing::Test {
protected:
    Findings() {
        scripted::reset();
        scripted::offerResolutions(1, {{static_cast<uint32_t>(kWidth), static_cast<uint32_t>(kHeight)}});
        std::ofstream(m_log.folder() / "mnt/flash/usr/local/packages/ostrel_senvo/model") << "model";
        EXPECT_TRUE(m_detector.init_larod("ostrel_senvo", "model", 640, 360, 100, false));
        for (const char* name :
             {alerts::kBreached, alerts::kArea1, alerts::kArea2, alerts::kArea3, alerts::kOccupancy}) {
            m_events.addEvent(name);
        }
        m_config.i_MaxDisappeared = 5;
        m_config.i_Detection1ThreshSeconds = 10;
        m_config.i_Detection2ThreshSeconds = 20;
        m_config.i_Detection3ThreshSeconds = 30;
        m_areas.set_entrance_active(1, false);
        m_areas.set_detection_active(1, false);
    }

    void detectionArea(int n, const t_Polygon& polygon) {
        m_areas.set_detection(n, polygon);
        m_areas.set_detection_active(n, true);
    }
    void entranceZone(int n, const t_Polygon& polygon) {
        m_areas.set_entrance(n, polygon);
        m_areas.set_entrance_active(n, true);
    }
    void exclusion(int n, const t_Polygon& polygon) {
        m_areas.set_exclusion(n, polygon);
        m_areas.set_exclusion_active(n, true);
    }

    /** One frame that shows these boxes; returns the findings. */
    const std::vector<one_find>& see(const std::vector<detection>& boxes) {
        std::vector<scripted::Candidate> candidates;
        for (const detection& shown : boxes) {
            candidates.push_back(candidateFor(shown, kWidth, kHeight));
        }
        scripted::find(candidates);
        EXPECT_EQ(m_detector.larod_prepare_data_and_do_ai(), 0);
        m_processing.get_detections();
        m_processing.monitor_AOI_and_entrances();
        m_processing.examine_and_update_findings();
        m_wasReset = m_processing.manage_events();
        m_processing.update_aoi_and_occupancy_metrics();
        return m_processing.findings();
    }

    /** A person of 60 by 60 pixels around a point, large enough not to be taken for noise. */
    static detection person(int x, int y) { return boxAt(x - 30, y - 30, 60, 60); }

    /** "topic2 active" of everything sent since the last call. */
    static std::vector<std::string> sent() {
        std::vector<std::string> events;
        for (const scripted::SentEvent& event : scripted::sentEvents()) {
            events.push_back(event.topic + " " + event.values.at("active"));
        }
        scripted::sentEvents().clear();
        return events;
    }

    LogCapture m_log;
    TestClock m_clock;
    ConfigParams m_config = everyClass();
    location_controller_larod m_detector{m_config};
    tracker m_tracker{m_config};
    area_of_interest m_areas{m_config};
    occupancy_controller m_occupancy;
    EventManager m_events;
    OccupancyManager m_statistics{m_config};
    MetricsParams m_metrics;
    LeaderMetricsParams m_leaderMetrics;
    ScriptedFollowers m_followers;
    bool m_wasReset = false;
    DetectionProcessing m_processing{{m_config, m_detector, m_tracker, m_areas, m_occupancy, m_events, m_statistics,
                                      m_metrics, m_leaderMetrics, m_followers}};
};

using Texts = std::vector<std::string>;

// --- Entrances -------------------------------------------------------------------------------------------------------

TEST_F(Findings, SteppingIntoAnEntranceBeforeACameraOutsideIsAnEntry) {
    entranceZone(1, box(300, 0, 640, 360));
    EXPECT_EQ(see({person(250, 100)})[0].entranceAct, entranceActivity::unknown);
    const one_find in = see({person(330, 100)})[0];
    EXPECT_EQ(in.entranceAct, entranceActivity::enterEntrance1);
    EXPECT_EQ(in.entrance, entrances::in_entrance1);
    EXPECT_EQ(m_occupancy.get_count(), 1);
    EXPECT_EQ(m_metrics.occupancyCount, 1);
    EXPECT_EQ(see({person(260, 100)})[0].entranceAct, entranceActivity::exitEntrance1);
    EXPECT_EQ(m_occupancy.get_count(), 0);
}

TEST_F(Findings, SteppingOutOfAnEntranceBeforeACameraInsideIsAnEntry) {
    m_config.b_IsCameraInside = true;
    entranceZone(2, box(300, 0, 640, 360));
    see({person(330, 100)});
    EXPECT_EQ(m_occupancy.get_count(), 0) << "first seen inside: no step yet";
    EXPECT_EQ(see({person(260, 100)})[0].entranceAct, entranceActivity::enterEntrance2);
    EXPECT_EQ(m_occupancy.get_count(), 1);
    EXPECT_EQ(see({person(330, 100)})[0].entranceAct, entranceActivity::exitEntrance2);
    EXPECT_EQ(m_occupancy.get_count(), 0);
}

TEST_F(Findings, StepsAreCountedForEachEntrance) {
    entranceZone(1, box(0, 0, 200, 360));
    entranceZone(3, box(400, 0, 640, 360));
    const auto passages = [this] { return std::vector<int>(m_metrics.passages.begin(), m_metrics.passages.end()); };
    see({person(250, 100)});
    EXPECT_EQ(passages(), (std::vector<int>{0, 0, 0, 0, 0, 0}));
    see({person(170, 100)});
    see({person(230, 100)});
    see({person(310, 100)});
    EXPECT_EQ(passages(), (std::vector<int>{1, 1, 0, 0, 0, 0}));
    see({person(380, 100)});
    see({person(430, 100)});
    EXPECT_EQ(passages(), (std::vector<int>{1, 1, 0, 0, 1, 0}));
    m_occupancy.reset_count();
    see({person(450, 100)});
    EXPECT_EQ(passages(), (std::vector<int>{1, 1, 0, 0, 1, 0})) << "a reset is nobody's step";
}

TEST_F(Findings, MovingFromEntranceToEntranceIsNoStep) {
    entranceZone(1, box(0, 0, 300, 360));
    entranceZone(2, box(300, 0, 640, 360));
    m_occupancy.init(3);
    see({person(250, 100)});
    const one_find moved = see({person(330, 100)})[0];
    EXPECT_EQ(moved.entrance, entrances::in_entrance2);
    EXPECT_EQ(moved.entranceAct, entranceActivity::unknown);
    EXPECT_EQ(m_occupancy.get_count(), 3);
}

TEST_F(Findings, TheOccupancyNeverGoesBelowZero) {
    entranceZone(1, box(300, 0, 640, 360));
    see({person(330, 100)});
    EXPECT_EQ(see({person(260, 100)})[0].entranceAct, entranceActivity::exitEntrance1);
    EXPECT_EQ(m_occupancy.get_count(), 0);
}

TEST_F(Findings, ALowerNumberedEntranceComesFirst) {
    entranceZone(1, box(0, 0, 400, 360));
    entranceZone(3, box(200, 0, 640, 360));
    EXPECT_EQ(see({person(300, 100)})[0].entrance, entrances::in_entrance1);
    EXPECT_EQ(see({person(360, 100)})[0].entrance, entrances::in_entrance1);
    EXPECT_EQ(see({person(450, 100)})[0].entrance, entrances::in_entrance3);
}

struct ActivityCase {
    const char* label;
    entrances previous;
    entrances current;
    entranceActivity outside;
    entranceActivity inside;
};

class EntranceActivity : public testing::TestWithParam<ActivityCase> {};

TEST_P(EntranceActivity, DependsOnTheStepAndTheCamera) {
    const ActivityCase& step = GetParam();
    EXPECT_EQ(DetectionProcessing::getEntranceActivity(step.previous, step.current, false), step.outside) << step.label;
    EXPECT_EQ(DetectionProcessing::getEntranceActivity(step.previous, step.current, true), step.inside) << step.label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, EntranceActivity,
    testing::Values(ActivityCase{"into 1", entrances::not_in_entrance, entrances::in_entrance1,
                                 entranceActivity::enterEntrance1, entranceActivity::exitEntrance1},
                    ActivityCase{"into 2", entrances::not_in_entrance, entrances::in_entrance2,
                                 entranceActivity::enterEntrance2, entranceActivity::exitEntrance2},
                    ActivityCase{"into 3", entrances::not_in_entrance, entrances::in_entrance3,
                                 entranceActivity::enterEntrance3, entranceActivity::exitEntrance3},
                    ActivityCase{"out of 1", entrances::in_entrance1, entrances::not_in_entrance,
                                 entranceActivity::exitEntrance1, entranceActivity::enterEntrance1},
                    ActivityCase{"out of 3", entrances::in_entrance3, entrances::not_in_entrance,
                                 entranceActivity::exitEntrance3, entranceActivity::enterEntrance3},
                    ActivityCase{"1 to 2", entrances::in_entrance1, entrances::in_entrance2, entranceActivity::unknown,
                                 entranceActivity::unknown},
                    ActivityCase{"stays out", entrances::not_in_entrance, entrances::not_in_entrance,
                                 entranceActivity::unknown, entranceActivity::unknown},
                    ActivityCase{"first seen in 1", entrances::unknown, entrances::in_entrance1,
                                 entranceActivity::unknown, entranceActivity::unknown}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

// --- Detection areas and exclusions ----------------------------------------------------------------------------------

TEST_F(Findings, AnObjectBelongsToTheLowestNumberedOfOverlappingAreas) {
    detectionArea(2, box(0, 0, 400, 360));
    detectionArea(3, box(200, 0, 640, 360));
    EXPECT_EQ(see({person(300, 100)})[0].footing, footings::in_AOI2_briefly);
    detectionArea(1, box(250, 0, 350, 360));
    EXPECT_EQ(see({person(300, 100)})[0].footing, footings::in_AOI1_briefly);
    EXPECT_EQ(see({person(380, 100)})[0].footing, footings::in_AOI2_briefly);
    EXPECT_EQ(see({person(450, 100)})[0].footing, footings::in_AOI3_briefly);
    EXPECT_EQ(m_metrics.crowdCount3, 1);
    EXPECT_EQ(m_metrics.crowdCount2, 0);
}

TEST_F(Findings, TheLocatorDecidesWhichPartOfABoxCounts) {
    detectionArea(1, box(0, 200, 640, 360));
    const detection straddling = boxAt(100, 100, 80, 160);  // centre at 180, bottom at 260
    EXPECT_EQ(see({straddling})[0].footing, footings::not_in_AOI);
    m_config.b_LocatorAtBottom = true;
    const one_find found = see({straddling})[0];
    EXPECT_EQ(found.footing, footings::in_AOI1_briefly);
    EXPECT_EQ(found.locator, (t_one_locator{140, 260}));
}

TEST_F(Findings, AnObjectPartlyInsideAnExclusionStillCounts) {
    detectionArea(1, box(0, 0, 640, 360));
    exclusion(1, box(0, 0, 300, 360));
    EXPECT_EQ(see({person(100, 100)})[0].footing, footings::not_in_AOI) << "all four corners excluded";
    EXPECT_EQ(see({person(280, 100)})[0].footing, footings::in_AOI1_briefly) << "two corners look out";
}

TEST_F(Findings, TheCornersMayLieInDifferentExclusions) {
    detectionArea(1, box(0, 0, 640, 360));
    exclusion(1, box(0, 0, 300, 360));
    exclusion(2, box(300, 0, 640, 360));
    EXPECT_EQ(see({person(300, 100)})[0].footing, footings::not_in_AOI);
}

TEST_F(Findings, AnExcludedPersonStillCrossesEntrances) {
    detectionArea(1, box(0, 0, 640, 360));
    entranceZone(1, box(300, 0, 640, 360));
    exclusion(1, box(-100, -100, 800, 500));
    see({person(250, 100)});
    const one_find in = see({person(330, 100)})[0];
    EXPECT_EQ(in.footing, footings::not_in_AOI);
    EXPECT_EQ(in.entranceAct, entranceActivity::enterEntrance1);
    EXPECT_EQ(m_occupancy.get_count(), 1);
    EXPECT_EQ(m_metrics.crowdCount1, 0);
}

TEST_F(Findings, AClassThatIsDeselectedLeavesTheAreasWhileItsObjectIsStillHeld) {
    detectionArea(1, box(0, 0, 640, 360));
    EXPECT_EQ(see({person(300, 100)})[0].footing, footings::in_AOI1_briefly);
    m_config.b_DetectPersons = false;
    const std::vector<one_find>& held = see({person(300, 100)});
    ASSERT_EQ(held.size(), 1U) << "the tracker holds it through the frames without a match";
    EXPECT_EQ(held[0].footing, footings::not_in_AOI);
    EXPECT_EQ(m_processing.timedObjects(), 0U);
}

// --- How long objects are held through missed frames -----------------------------------------------------------------

struct HoldCase {
    const char* label;
    bool inArea;
    bool inEntrance;
    int missedFramesSurvived;
};

class Holding : public Findings, public testing::WithParamInterface<HoldCase> {};

TEST_P(Holding, DependsOnWhatStandsWhere) {
    if (GetParam().inArea) {
        detectionArea(1, box(0, 0, 640, 360));
    }
    if (GetParam().inEntrance) {
        entranceZone(1, box(0, 0, 640, 360));
    }
    see({person(300, 100)});
    int survived = 0;
    while (!see({}).empty()) {
        ++survived;
        ASSERT_LE(survived, 20) << GetParam().label;
    }
    EXPECT_EQ(survived, GetParam().missedFramesSurvived) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(Table, Holding,
                         testing::Values(HoldCase{"nowhere", false, false, 0}, HoldCase{"in an area", true, false, 5},
                                         HoldCase{"in an entrance", false, true, 1},
                                         HoldCase{"in both", true, true, 0}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

// --- Dwell times -----------------------------------------------------------------------------------------------------

TEST_F(Findings, AnObjectIsThereLengthilyOnceTheThresholdIsExceeded) {
    detectionArea(1, box(0, 0, 640, 360));
    see({person(300, 100)});
    m_clock.advance(10);
    EXPECT_EQ(see({person(300, 100)})[0].footing, footings::in_AOI1_briefly) << "10 s are not more than 10 s";
    m_clock.advance(1);
    const one_find lingering = see({person(300, 100)})[0];
    EXPECT_EQ(lingering.footing, footings::in_AOI1_lengthily);
    EXPECT_EQ(lingering.seconds, 11);
}

TEST_F(Findings, EachAreaHasItsOwnThreshold) {
    detectionArea(2, box(0, 0, 320, 360));
    detectionArea(3, box(320, 0, 640, 360));
    see({person(100, 100), person(500, 100)});
    m_clock.advance(21);
    EXPECT_EQ(see({person(100, 100), person(500, 100)})[0].footing, footings::in_AOI2_lengthily);
    EXPECT_EQ(m_processing.findings()[1].footing, footings::in_AOI3_briefly);
    m_clock.advance(10);
    EXPECT_EQ(see({person(100, 100), person(500, 100)})[1].footing, footings::in_AOI3_lengthily);
}

TEST_F(Findings, TheDwellTimeGoesOnFromAreaToArea) {
    detectionArea(1, box(0, 0, 320, 360));
    detectionArea(2, box(320, 0, 640, 360));
    see({person(280, 100)});
    m_clock.advance(15);
    EXPECT_EQ(see({person(350, 100)})[0].seconds, 15);
}

TEST_F(Findings, TheDwellTimeStartsAfreshOutsideAllAreas) {
    detectionArea(1, box(0, 0, 320, 360));
    see({person(280, 100)});
    m_clock.advance(15);
    see({person(350, 100)});
    m_clock.advance(15);
    see({person(280, 100)});
    m_clock.advance(3);
    EXPECT_EQ(see({person(280, 100)})[0].seconds, 3);
}

TEST_F(Findings, NothingIsKeptForAnObjectThatVanishedInsideAnArea) {
    m_config.i_MaxDisappeared = 0;
    detectionArea(1, box(0, 0, 640, 360));
    for (int i = 0; i < 50; ++i) {
        see({person(300, 100)});
        EXPECT_EQ(m_processing.timedObjects(), 1U);
        see({});
        EXPECT_EQ(m_processing.timedObjects(), 0U);
    }
}

// --- Alerts ----------------------------------------------------------------------------------------------------------

TEST_F(Findings, AnAreaAlertStartsOnLengthyStaysAndStopsWhenTheAreaEmpties) {
    m_config.i_MaxDisappeared = 0;
    detectionArea(1, box(0, 0, 640, 360));
    see({person(300, 100)});
    m_clock.advance(11);
    EXPECT_EQ(sent(), Texts{});
    see({person(300, 100)});
    EXPECT_EQ(sent(), (Texts{"OstrelSenvoBreached true", "OstrelSenvoArea1Alert true"}));
    see({person(300, 100)});
    EXPECT_EQ(sent(), Texts{}) << "a started alert is not started again";
    see({});
    EXPECT_EQ(sent(), (Texts{"OstrelSenvoBreached false", "OstrelSenvoArea1Alert false"}));
}

TEST_F(Findings, ABriefVisitorKeepsAnAlertAsItIs) {
    m_config.i_MaxDisappeared = 0;
    detectionArea(2, box(0, 0, 640, 360));
    see({person(100, 100)});
    m_clock.advance(21);
    see({person(100, 100)});
    EXPECT_EQ(sent(), (Texts{"OstrelSenvoBreached true", "OstrelSenvoArea2Alert true"}));
    see({person(100, 100), person(500, 300)});
    see({person(500, 300)});
    EXPECT_EQ(sent(), Texts{}) << "one object is still there, briefly: neither start nor stop";
}

TEST_F(Findings, TheBreachedAlertAddsTheAreasUp) {
    m_config.i_MinNumberOfPeopleForTrigger = 2;
    m_config.i_Detection2ThreshSeconds = 10;
    detectionArea(1, box(0, 0, 320, 360));
    detectionArea(2, box(320, 0, 640, 360));
    see({person(100, 100), person(500, 100)});
    m_clock.advance(11);
    see({person(100, 100), person(500, 100)});
    EXPECT_EQ(sent(), (Texts{"OstrelSenvoBreached true"}));
}

TEST_F(Findings, WithExactlyAThirdPersonClearsEveryDwellTimeAndSendsNothing) {
    m_config.e_AoiLogicComparison = logicComparison::exactly;
    m_config.i_MaxDisappeared = 0;
    m_config.i_MinNumberOfPeopleForTrigger = 2;
    detectionArea(1, box(0, 0, 640, 360));
    const std::vector<detection> two = {person(100, 100), person(300, 100)};
    const std::vector<detection> three = {person(100, 100), person(300, 100), person(500, 100)};
    see(two);
    see(two);
    m_clock.advance(11);
    see(two);
    EXPECT_EQ(sent(), (Texts{"OstrelSenvoBreached true", "OstrelSenvoArea1Alert true"}));
    see(three);
    EXPECT_EQ(sent(), Texts{});
    EXPECT_EQ(m_processing.timedObjects(), 0U);
    see(three);
    EXPECT_EQ(sent(), (Texts{"OstrelSenvoBreached false", "OstrelSenvoArea1Alert false"}))
        << "the frame after, three are not exactly two";
    see(two);
    see(two);
    m_clock.advance(10);
    see(two);
    EXPECT_EQ(sent(), Texts{}) << "the dwell time has to pass again";
    m_clock.advance(1);
    see(two);
    EXPECT_EQ(sent(), (Texts{"OstrelSenvoBreached true", "OstrelSenvoArea1Alert true"}));
}

TEST_F(Findings, WithLessThanOrUnknownNoAreaAlertIsSent) {
    for (const logicComparison comparison : {logicComparison::lessThan, logicComparison::unknown}) {
        m_config.e_AoiLogicComparison = comparison;
        detectionArea(1, box(0, 0, 640, 360));
        see({person(300, 100)});
        m_clock.advance(11);
        see({person(300, 100)});
        see({});
        EXPECT_EQ(sent(), Texts{}) << static_cast<int>(comparison);
    }
}

TEST_F(Findings, TheOccupancyAlertFollowsTheBuildingTotal) {
    m_config.i_MinOccupantsForTrigger = 5;
    m_leaderMetrics.totalOccupancy = 4;
    see({});
    EXPECT_EQ(sent(), Texts{});
    m_leaderMetrics.totalOccupancy = 5;
    see({});
    EXPECT_EQ(sent(), (Texts{"OstrelSenvoOccupancyAlert true"}));
    m_leaderMetrics.totalOccupancy = 4;
    see({});
    EXPECT_EQ(sent(), (Texts{"OstrelSenvoOccupancyAlert false"}));
}

TEST_F(Findings, TheOccupancyAlertResetsTheOccupancyWhenAskedTo) {
    m_config.i_MinOccupantsForTrigger = 5;
    m_leaderMetrics.totalOccupancy = 9;
    m_occupancy.init(9);
    see({});
    EXPECT_EQ(m_occupancy.get_count(), 9);
    EXPECT_FALSE(m_wasReset);
    m_config.b_ResetByOccupanyCount = true;
    see({});
    EXPECT_EQ(m_occupancy.get_count(), 0);
    EXPECT_TRUE(m_wasReset);
    see({});
    EXPECT_TRUE(m_wasReset) << "with nobody here, for the building is over its limit still";
}

TEST_F(Findings, AResetOfTheTotalReachesEveryActiveFollowerThatCanBeCalled) {
    CameraInfo& cameras = m_config.cameraInfo;
    for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
        cameras.followerActive[i] = i != 3;
        cameras.followerIPAddress[i] = "10.0.0." + std::to_string(i);
        cameras.followerLogin[i] = "login" + std::to_string(i);
        cameras.followerPassword[i] = "pwd" + std::to_string(i);
        cameras.followerCameraName[i] = "Gate " + std::to_string(i);
        m_followers.answers[cameras.followerIPAddress[i]] = "0";
    }
    m_leaderMetrics.followerStatus[0] = 300;
    m_leaderMetrics.followerStatus[9] = 700;
    m_followers.answers.erase("10.0.0.5");
    m_occupancy.init(4);
    m_metrics.occupancyCount = 4;
    EXPECT_EQ(m_processing.reset_total_occupancy(cameras), 0);
    EXPECT_EQ(m_occupancy.get_count(), 0);
    EXPECT_EQ(m_metrics.occupancyCount, 0);
    EXPECT_EQ(m_followers.asked(),
              (std::multiset<std::string>{"reset 10.0.0.1 login1 pwd1", "reset 10.0.0.2 login2 pwd2",
                                          "reset 10.0.0.4 login4 pwd4", "reset 10.0.0.5 login5 pwd5",
                                          "reset 10.0.0.6 login6 pwd6", "reset 10.0.0.7 login7 pwd7",
                                          "reset 10.0.0.8 login8 pwd8"}));
    EXPECT_EQ(LogCapture::ofLevel("error"),
              Texts{"reset_total_occupancy: Could not reset occupancy for camera Gate 5"});
}

TEST_F(Findings, AStoppedOrSilentFollowerIsNotCallable) {
    const std::array<int32_t, 10> statuses = {200, 300, 700, 0, 401, 600, 500, 501, 50, 100};
    std::copy(statuses.begin(), statuses.end(), m_leaderMetrics.followerStatus.begin());
    for (int follower = 0; follower < 10; ++follower) {
        EXPECT_EQ(m_processing.is_camera_callable(follower), follower != 1 && follower != 2) << follower;
    }
}

TEST(OccupancyController, CountsFromZeroUpwards) {
    occupancy_controller occupancy;
    occupancy.init(0);
    occupancy.decrease_count();
    EXPECT_EQ(occupancy.get_count(), 0);
    occupancy.increase_count();
    occupancy.increase_count();
    occupancy.decrease_count();
    EXPECT_EQ(occupancy.get_count(), 1);
    occupancy.reset_count();
    EXPECT_EQ(occupancy.get_count(), 0);
}

}  // namespace

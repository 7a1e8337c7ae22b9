#include "statistics/occupancy_manager.h"

#include <fstream>
#include <gtest/gtest.h>

#include "builders.h"
#include "camera_statistics.h"
#include "scripted_followers.h"
#include "scripted_process.h"
#include "slow_build.h"
#include "test_clock.h"

namespace {

constexpr time_t kDay = 86400;
constexpr time_t kStart = 1704067200;  // 2024-01-01 00:00:00
constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

one_find found(footings footing, entranceActivity activity = entranceActivity::unknown,
               objects object = objects::person) {
    one_find finding;
    finding.detect = around(0, 0, object);
    finding.footing = footing;
    finding.entranceAct = activity;
    return finding;
}

const one_find kPersonInArea1 = found(footings::in_AOI1_briefly);
const one_find kPersonEnters1 = found(footings::not_in_AOI, entranceActivity::enterEntrance1);

TEST(Tallies, CountEveryFooting) {
    const ConfigParams config = everyClass();
    const aoi areas[] = {aoi::aoi1, aoi::aoi1, aoi::aoi2, aoi::aoi2, aoi::aoi3, aoi::aoi3};
    for (int footing = 1; footing <= 6; ++footing) {
        TransientState state(config);
        EXPECT_TRUE(state.add(found(static_cast<footings>(footing), entranceActivity::unknown, objects::truck)));
        for (const aoi area : {aoi::aoi1, aoi::aoi2, aoi::aoi3}) {
            EXPECT_EQ(state.getCrowdCount(area, objects::truck), area == areas[footing - 1] ? 1 : 0) << footing;
        }
    }
}

TEST(Tallies, CountEveryEntryAndExit) {
    const ConfigParams config = everyClass();
    for (int zone = 0; zone < 3; ++zone) {
        TransientState state(config);
        state.add(found(footings::not_in_AOI, static_cast<entranceActivity>(2 * zone)));
        EXPECT_EQ(state.getOccupancy(objects::person), 1) << zone;
        state.add(found(footings::not_in_AOI, static_cast<entranceActivity>(2 * zone + 1)));
        EXPECT_EQ(state.getOccupancy(objects::person), 0) << zone;
        state.add(found(footings::not_in_AOI, static_cast<entranceActivity>(2 * zone + 1)));
        EXPECT_EQ(state.getOccupancy(objects::person), 0) << zone << ": nobody was inside";
        for (int other = 0; other < 3; ++other) {
            const auto at = static_cast<entrance>(other);
            EXPECT_EQ(state.getEntrances(at, objects::person), other == zone ? 1 : 0) << zone << ' ' << other;
            EXPECT_EQ(state.getExits(at, objects::person), other == zone ? 2 : 0) << zone << ' ' << other;
        }
        EXPECT_EQ(state.getCrowdCount(aoi::aoi1, objects::person), 0) << zone;
    }
}

TEST(Tallies, AverageOverTheFrames) {
    const ConfigParams config = everyClass();
    TransientState state(config);
    EXPECT_EQ(state.getAverageCrowdCount(aoi::aoi1, objects::person), 0) << "no frame";
    state.add(std::vector<one_find>{kPersonInArea1, kPersonInArea1});
    state.add(std::vector<one_find>{kPersonInArea1});
    EXPECT_EQ(state.getCrowdCount(aoi::aoi1, objects::person), 1) << "of the last frame";
    EXPECT_EQ(state.getNumberOfFrames(), 2);
    EXPECT_EQ(state.getAverageCrowdCount(aoi::aoi1, objects::person), 2) << "1.5 rounds away from zero";
    state.add(std::vector<one_find>{});
    state.add(std::vector<one_find>{});
    EXPECT_EQ(state.getAverageCrowdCount(aoi::aoi1, objects::person), 1) << "0.75";
    state.add(std::vector<one_find>{});
    state.add(std::vector<one_find>{});
    state.add(std::vector<one_find>{});
    EXPECT_EQ(state.getAverageCrowdCount(aoi::aoi1, objects::person), 0) << "3 of 7";
}

TEST(Tallies, StayAtTheLargestNumber) {
    int32_t tally = 2147483646;
    countUp(tally);
    EXPECT_EQ(tally, 2147483647);
    countUp(tally);
    EXPECT_EQ(tally, 2147483647);
}

TEST(Tallies, ForgetWhatTheyAreToldTo) {
    const ConfigParams config = everyClass();
    const struct {
        const char* label;
        void (TransientState::*forget)();
        int crowd, average, frames, entries, occupancy;
    } cases[] = {
        {"all", &TransientState::reset, 0, 0, 0, 0, 1},
        {"crowd", &TransientState::resetCrowdCounts, 0, 1, 1, 1, 1},
        {"cumulative", &TransientState::resetCumulativeCrowdCounts, 1, 0, 0, 1, 1},
        {"entrances", &TransientState::resetEntranceActivity, 1, 1, 1, 0, 1},
        {"occupancy", &TransientState::resetOccupancy, 1, 1, 1, 0, 0},
    };
    for (const auto& [label, forget, crowd, average, frames, entries, occupancy] : cases) {
        TransientState state(config);
        state.add(std::vector<one_find>{kPersonInArea1, kPersonEnters1});
        (state.*forget)();
        EXPECT_EQ(state.getCrowdCount(aoi::aoi1, objects::person), crowd) << label;
        EXPECT_EQ(state.getAverageCrowdCount(aoi::aoi1, objects::person), average) << label;
        EXPECT_EQ(state.getNumberOfFrames(), frames) << label;
        EXPECT_EQ(state.getEntrances(entrance::entrance1, objects::person), entries) << label;
        EXPECT_EQ(state.getOccupancy(objects::person), occupancy) << label;
    }
}

TEST(Exchange, OfNothingMonitoredIsFourZeros) {
    const ConfigParams config;
    EXPECT_EQ(TransientState(config).getSerializedRecords(), "0\n0\n0\n0\n");
}

TEST(Exchange, GoesThereAndBack) {
    ConfigParams config;
    config.b_Detection1Active = config.b_Occupancy2Active = config.b_DetectCars = true;
    TransientState state(config);
    state.add(
        std::vector<one_find>(3, found(footings::in_AOI1_lengthily, entranceActivity::enterEntrance2, objects::car)));
    const std::string text = state.getSerializedRecords();
    EXPECT_EQ(text, "1\n,,0,2,3\n1\n,,1,2,3,0\n1\n,,2,3\n1\n,,0,2,3\n");
    std::vector<CrowdCountRecord> crowd;
    std::vector<CrowdCountRecord> average;
    std::vector<EntranceActivityRecord> activity;
    std::vector<OccupancyObjectRecord> occupants;
    TransientState::deserializeRecords(text, "date", "Back", crowd, activity, occupants, average);
    ASSERT_EQ(crowd.size() * activity.size() * occupants.size() * average.size(), 1U);
    EXPECT_EQ(crowd[0].serialize(), "date,Back,0,2,3");
    EXPECT_EQ(activity[0].serialize(), "date,Back,1,2,3,0");
    EXPECT_EQ(occupants[0].serialize(), "date,Back,2,3");
    EXPECT_EQ(average[0].serialize(), "date,Back,0,2,3");
}

/** The four vectors that an exchange text is read into. */
struct Received {
    std::vector<CrowdCountRecord> crowd;
    std::vector<EntranceActivityRecord> activity;
    std::vector<OccupancyObjectRecord> occupants;
    std::vector<CrowdCountRecord> average;

    void read(const std::string& text) {
        OccupancyManager::deserializeRecords(text, "date", "Back", crowd, activity, occupants, average);
    }
};

TEST(Exchange, GivesADefaultRecordForEveryLineThatIsNone) {
    const struct {
        const char* label;
        std::string text;
        std::vector<size_t> sizes;
        const char* lastAverage;
    } cases[] = {
        {"another shape", "1\nno record\n0\n0\n1\n,,2,2,3,4\n", {1, 0, 0, 1}, "date,Back,100,100,0"},
        {"blank lines", "2\n\n\n0\n0\n1\n\n", {2, 0, 0, 1}, "date,Back,100,100,0"},
        {"cut off before a line", "0\n0\n0\n2\n,,1,2,3\n", {0, 0, 0, 2}, "date,Back,100,100,0"},
        {"cut off within a line", "0\n0\n0\n2\n,,1,2,3\n,,1,", {0, 0, 0, 2}, "date,Back,100,100,0"},
        {"cut off after the last count", "0\n0\n0\n1000", {0, 0, 0, 1000}, "date,Back,100,100,0"},
        {"only the last end lacks", "0\n0\n0\n1\n,,1,2,3", {0, 0, 0, 1}, "date,Back,1,2,3"},
        {"text after the end", "0\n0\n0\n1\n,,1,2,3\nmore\n", {0, 0, 0, 1}, "date,Back,1,2,3"},
        {"a name and a date of its own", "0\n0\n0\n1\nd,c,1,2,3\n", {0, 0, 0, 1}, "date,Back,1,2,3"},
        {"negative count", "-1\n0\n0\n1\n,,1,2,3\n", {0, 0, 0, 1}, "date,Back,1,2,3"},
    };
    for (const auto& [label, text, sizes, lastAverage] : cases) {
        Received received;
        received.read(text);
        EXPECT_EQ((std::vector<size_t>{received.crowd.size(), received.activity.size(), received.occupants.size(),
                                       received.average.size()}),
                  sizes)
            << label;
        EXPECT_EQ(received.average.back().serialize(), lastAverage) << label;
    }
}

TEST(Exchange, ThatIsNoneThrows) {
    Received received;
    for (const char* text : {"", "many\n", "1\n,,x,0,0\n", "0\n0\n0\n", "0\n0\n0\n\n", "3\n,,0,0,0\n"}) {
        EXPECT_THROW(received.read(text), std::invalid_argument) << text;
    }
    for (const char* text : {"0\n0\n0\n99999999999\n", "0\n0\n0\n1\n,,0,0,99999999999\n"}) {
        EXPECT_THROW(received.read(text), std::out_of_range) << text;
    }
    for (const char* text : {"0\n0\n0\n2000000001\n,,0,0,0\n", "2000000001\n,,0,0,0\n"}) {
        try {
            received.read(text);
            ADD_FAILURE() << text;
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "deserializeRecords: expected 2000000001 records, the text ends after 1");
        }
    }
    EXPECT_THROW(received.read("0\n0\n0\n1001\n"), std::out_of_range) << "one more than may lack";
}

TEST(DataMap, HoldsEveryTallyAndTheSparseOneTheMonitored) {
    ConfigParams config;
    config.b_Detection2Active = config.b_Occupancy3Active = config.b_DetectCars = true;
    TransientState state(config);
    state.add(std::vector<one_find>{found(footings::in_AOI2_briefly, entranceActivity::enterEntrance3, objects::car)});
    const std::map<std::string, std::string> sparse = {{"AOI2_Car", "1"},
                                                       {"AverageAOI2_Car", "1"},
                                                       {"Entrance3_Entrances_Car", "1"},
                                                       {"Entrance3_Exits_Car", "0"},
                                                       {"Occupancy_Car", "1"}};
    EXPECT_EQ(state.getSparseDataMap(), sparse);
    const std::map<std::string, std::string> all = state.getDataMap();
    EXPECT_EQ(all.size(), 117U);
    for (const auto& [name, value] : all) {
        EXPECT_EQ(value, sparse.contains(name) ? sparse.at(name) : "") << name;
    }
    EXPECT_TRUE(all.contains("Entrance3_Exits_Boat"));
    EXPECT_TRUE(all.contains("AverageAOI1_Person"));
}

TEST(Countdown, FollowsTheWallClock) {
    TestClock clock(kStart);
    CountdownTimer timer(60);
    EXPECT_EQ(timer.getExpiryTime(), (kStart + 60) * 1000000);
    clock.advanceMillis(59'999);
    EXPECT_FALSE(timer.isExpired());
    clock.advanceMillis(1);
    EXPECT_TRUE(timer.isExpired());
    timer.restart();
    EXPECT_EQ(timer.getExpiryTime(), (kStart + 120) * 1000000);
    timer.reset(-1);
    EXPECT_TRUE(timer.isExpired());
}

class Statistics : public CameraStatistics {
protected:
    void see(const std::vector<one_find>& findings) {
        EXPECT_TRUE(m_manager->add(findings, {m_camera, m_events, m_followers, m_leaderMetrics}));
    }
    int64_t rows(const std::string& name) const {
        std::ifstream in(path(name));
        return std::count(std::istreambuf_iterator<char>(in), {}, '\n');
    }

    ScriptedFollowers m_followers;
};

TEST_F(Statistics, OfAMinuteAndThenOfEveryPeriodAreKept) {
    m_manager->repairArchives();
    see({kPersonInArea1, kPersonEnters1});
    m_clock.advance(59);
    see({kPersonInArea1, kPersonInArea1});
    EXPECT_EQ(content("CrowdCountTidy.csv"), "");
    EXPECT_TRUE(m_manager->hasFrames());
    m_clock.advance(1);
    see({kPersonInArea1, kPersonInArea1});
    EXPECT_EQ(content("CrowdCountTidy.csv"), "2024-01-01 00:01:00,Cam,0,0,2\n");
    EXPECT_EQ(content("AverageCrowdCountTidy.csv"), "2024-01-01 00:01:00,Cam,0,0,2\n");
    EXPECT_EQ(content("EntranceActivityTidy.csv"), "2024-01-01 00:01:00,Cam,0,0,1,0\n");
    EXPECT_EQ(content("OccupancyTidy.csv"), "2024-01-01 00:01:00,Cam,0,1\n");
    EXPECT_FALSE(m_manager->hasFrames());
    m_clock.advance(299);
    see({});
    EXPECT_EQ(rows("CrowdCountTidy.csv"), 1);
    m_clock.advance(1);
    see({});
    EXPECT_EQ(content("EntranceActivityTidy.csv"),
              "2024-01-01 00:01:00,Cam,0,0,1,0\n2024-01-01 00:06:00,Cam,0,0,0,0\n");
    EXPECT_EQ(content("OccupancyTidy.csv"), "2024-01-01 00:01:00,Cam,0,1\n2024-01-01 00:06:00,Cam,0,1\n")
        << "those inside stay inside";
}

TEST_F(Statistics, ArePublishedBeforeTheyAreCleared) {
    m_events.addJSONDataEvent(m_manager->getDataMap());
    m_events.addXMLDataEvent(m_manager->getSparseDataMap());
    m_clock.advance(60);
    see({kPersonInArea1, kPersonEnters1});
    ASSERT_EQ(scripted::sentEvents().size(), 2U);
    EXPECT_EQ(scripted::sentEvents()[0].values.at("AOI1_Person"), "1");
    EXPECT_EQ(scripted::sentEvents()[0].values.size(), 117U);
    EXPECT_TRUE(scripted::sentEvents()[1].values.contains("payload"));
}

TEST_F(Statistics, OfOneAreaAndTwoClassesAreTwoRecordsEach) {
    m_config = {};
    m_config.b_Detection2Active = m_config.b_DetectPersons = m_config.b_DetectCars = true;
    EXPECT_TRUE(m_manager->flushLocal("d", "c"));
    EXPECT_EQ(content("CrowdCountTidy.csv"), "d,c,1,0,0\nd,c,1,2,0\n");
    EXPECT_EQ(content("AverageCrowdCountTidy.csv"), "d,c,1,0,0\nd,c,1,2,0\n");
    EXPECT_EQ(content("EntranceActivityTidy.csv"), "");
    EXPECT_EQ(content("OccupancyTidy.csv"), "d,c,0,0\nd,c,2,0\n");
}

TEST_F(Statistics, WaitForALeaderApartFromTheOwnPeriod) {
    see({kPersonInArea1, kPersonEnters1});
    m_manager->flushLocal("d", "c");
    EXPECT_EQ(m_manager->followerFlush(m_config), "1\n,,0,0,1\n1\n,,0,0,1,0\n1\n,,0,1\n1\n,,0,0,1\n");
    EXPECT_EQ(m_manager->followerFlush(m_config), "1\n,,0,0,0\n1\n,,0,0,0,0\n1\n,,0,1\n1\n,,0,0,0\n");
    m_manager->resetOccupancy();
    EXPECT_EQ(m_manager->followerFlush(m_config), "1\n,,0,0,0\n1\n,,0,0,0,0\n1\n,,0,0\n1\n,,0,0,0\n");
}

TEST_F(Statistics, OfFollowersAreKeptUnderTheLeadersDateAndTheirOwnNames) {
    const char* const kText = "1\n,,0,0,3\n1\n,,0,0,2,1\n1\n,,0,7\n1\n,,0,0,4\n";
    for (const size_t i : {1U, 3U, 4U, 6U}) {
        m_camera.followerActive[i] = i != 6;
        m_camera.followerIPAddress[i] = "10.0.0." + std::to_string(i);
        m_camera.followerCameraName[i] = "Gate " + std::to_string(i);
        m_camera.followerLogin[i] = "root";
        m_camera.followerPassword[i] = "pass";
        m_followers.answers[m_camera.followerIPAddress[i]] = kText;
    }
    m_leaderMetrics.followerStatus[3] = 700;
    m_clock.advance(60);
    see({});
    EXPECT_EQ(m_followers.asked(),
              (std::multiset<std::string>{"flush 10.0.0.1 root pass", "flush 10.0.0.4 root pass"}));
    EXPECT_EQ(content("CrowdCountTidy.csv"),
              "2024-01-01 00:01:00,Cam,0,0,0\n2024-01-01 00:01:00,Gate 1,0,0,3\n2024-01-01 00:01:00,Gate 4,0,0,3\n");
    EXPECT_EQ(content("EntranceActivityTidy.csv"),
              "2024-01-01 00:01:00,Cam,0,0,0,0\n2024-01-01 00:01:00,Gate 1,0,0,2,1\n"
              "2024-01-01 00:01:00,Gate 4,0,0,2,1\n");
    EXPECT_EQ(content("OccupancyTidy.csv"),
              "2024-01-01 00:01:00,Cam,0,0\n2024-01-01 00:01:00,Gate 1,0,7\n2024-01-01 00:01:00,Gate 4,0,7\n");
    EXPECT_EQ(content("AverageCrowdCountTidy.csv"),
              "2024-01-01 00:01:00,Cam,0,0,0\n2024-01-01 00:01:00,Gate 1,0,0,4\n2024-01-01 00:01:00,Gate 4,0,0,4\n");
}

TEST_F(Statistics, OfAFollowerThatAnswersNonsenseThrow) {
    m_camera.followerActive[0] = true;
    m_camera.followerIPAddress[0] = "10.0.0.1";
    for (const char* nonsense : {"", "<html>no</html>", "1\n,,0,0,many\n0\n0\n0\n"}) {
        m_manager.emplace(m_config);
        m_followers.answers["10.0.0.1"] = nonsense;
        m_clock.advance(60);
        EXPECT_THROW(m_manager->add({}, {m_camera, m_events, m_followers, m_leaderMetrics}), std::invalid_argument)
            << nonsense;
    }
}

TEST_F(Statistics, AreClearedOnBothSides) {
    const struct {
        const char* label;
        void (OccupancyManager::*clear)();
        const char* remote;
    } cases[] = {
        {"all", &OccupancyManager::reset, "1\n,,0,0,0\n1\n,,0,0,0,0\n1\n,,0,1\n1\n,,0,0,0\n"},
        {"crowd", &OccupancyManager::resetCrowdCounts, "1\n,,0,0,0\n1\n,,0,0,1,0\n1\n,,0,1\n1\n,,0,0,1\n"},
        {"cumulative", &OccupancyManager::resetCumulativeCrowdCounts,
         "1\n,,0,0,1\n1\n,,0,0,1,0\n1\n,,0,1\n1\n,,0,0,0\n"},
        {"entrances", &OccupancyManager::resetEntranceActivity, "1\n,,0,0,1\n1\n,,0,0,0,0\n1\n,,0,1\n1\n,,0,0,1\n"},
    };
    for (const auto& [label, clear, remote] : cases) {
        m_manager.emplace(m_config);
        see({kPersonInArea1, kPersonEnters1});
        ((*m_manager).*clear)();
        EXPECT_EQ(m_manager->followerFlush(m_config), remote) << label;
    }
}

TEST_F(Statistics, HaveAnIntervalThatCanBeSet) {
    EXPECT_EQ(m_manager->getFlushInterval(), 60);
    m_manager->setFlushInterval(10);
    EXPECT_EQ(m_manager->getFlushInterval(), 10);
    m_clock.advance(10);
    see({});
    EXPECT_EQ(rows("CrowdCountTidy.csv"), 1);
}

TEST_F(Statistics, FollowAClockThatIsSet) {
    const struct {
        const char* label;
        time_t jump;
        time_t untilFlush;  // by the clock, after the jump
    } cases[] = {{"an hour on", 3600, 0},
                 {"a day on", kDay, 0},
                 {"an hour back", -3600, 3600 + 60},
                 {"a day back", -kDay, kDay + 60}};
    for (const auto& [label, jump, untilFlush] : cases) {
        std::filesystem::remove(path("EntranceActivityTidy.csv"));
        m_clock.set(kStart);
        m_manager.emplace(m_config);
        see({kPersonEnters1});
        m_clock.advance(jump);
        if (untilFlush > 0) {
            m_clock.advance(untilFlush - 1);
            see({kPersonEnters1});
            EXPECT_EQ(rows("EntranceActivityTidy.csv"), 0) << label;
            m_clock.advance(1);
        }
        see({kPersonEnters1});
        see({kPersonEnters1});
        EXPECT_EQ(content("EntranceActivityTidy.csv"),
                  OccupancyRecordBase::getCurrentDateTime() + ",Cam,0,0," + (untilFlush > 0 ? "3" : "2") + ",0\n")
            << label << ": one row with everybody until then";
    }
}

TEST_F(Statistics, OfTheNightOfADaylightSavingChangeComeEveryPeriod) {
    const struct {
        const char* label;
        const char* zone;
        time_t from;
        std::vector<std::string> dates;
    } cases[] = {
        {"an hour is skipped", kCentralEurope, 1711846800 - 360, {"01:55:00", "03:00:00", "03:05:00"}},
        {"an hour comes twice", kCentralEurope, 1729990800 - 360, {"02:55:00", "02:00:00", "02:05:00"}},
        {"no daylight saving", "IST-5:30", 1711846800 - 360, {"06:25:00", "06:30:00", "06:35:00"}},
        {"quarter of an hour", "NPT-5:45", 1711846800 - 360, {"06:40:00", "06:45:00", "06:50:00"}},
        {"west", "EST5EDT,M3.2.0,M11.1.0", 1710054000 - 360, {"01:55:00", "03:00:00", "03:05:00"}},
        {"south", "NZST-12NZDT,M9.5.0,M4.1.0/3", 1712412000 - 360, {"02:55:00", "02:00:00", "02:05:00"}},
        {"beyond 2038", "UTC0", 2147483648 - 360, {"03:09:08", "03:14:08", "03:19:08"}},
    };
    for (const auto& [label, zone, from, dates] : cases) {
        const TimeZone inZone(zone);
        std::filesystem::remove(path("EntranceActivityTidy.csv"));
        m_clock.set(from);
        m_manager.emplace(m_config);
        for (int minute = 0; minute < 11; ++minute) {
            m_clock.advance(60);
            see({kPersonEnters1});
        }
        const std::vector<EntranceActivityRecord> records = m_manager->getArchivedEntranceActivityRecords();
        ASSERT_EQ(records.size(), dates.size()) << label;
        int entered = 0;
        for (size_t i = 0; i < dates.size(); ++i) {
            EXPECT_EQ(records[i].dateTime.substr(11), dates[i]) << label;
            entered += records[i].entranceCount;
        }
        EXPECT_EQ(entered, 11) << label << ": everybody is in one row";
    }
}

TEST_F(Statistics, OfFourHundredDaysArePurgedThirteenTimes) {
    if (kSanitized) {
        GTEST_SKIP() << "takes many minutes under a sanitizer";
    }
    if (!std::filesystem::exists("/dev/shm")) {
        GTEST_SKIP() << "This machine has no folder in memory to write so many periods to.";
    }
    // Rarer than usual, which would take minutes; rarer yet in an emulator.
    m_camera.i_PeriodTime = isEmulated() ? 120 : 20;
    const int periods = 400 * 1440 / m_camera.i_PeriodTime;
    std::string name = "/dev/shm/senvo-test-XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    const std::filesystem::path root = name;
    std::filesystem::create_directories(root / "usr/local/packages/ostrel_senvo/localdata");
    setenv("OSTREL_SENVO_ROOT", root.c_str(), 1);
    m_events.addJSONDataEvent({});
    m_events.addXMLDataEvent({});
    m_manager.emplace(m_config);
    const std::string crowd = (root / "usr/local/packages/ostrel_senvo/localdata/CrowdCountTidy.csv").string();
    std::ofstream before(crowd);
    for (int day = 500; day >= 1; --day) {
        before << OccupancyRecordBase::timeToString(kStart - day * kDay) << ",Cam,0,0,7\n";
    }
    before.close();
    for (int period = 0; period < periods; ++period) {
        m_clock.advance(m_camera.i_PeriodTime * 60);
        see({kPersonInArea1});
        scripted::sentEvents().clear();
    }
    // The last purge, on day 390, keeps 750 days: 360 of those before the start.
    EXPECT_EQ(m_manager->getArchivedCrowdCountRecords().size(), 360U + static_cast<size_t>(periods));
    EXPECT_EQ(m_manager->getArchivedCrowdCountRecords().front().dateTime,
              OccupancyRecordBase::timeToString(kStart - 360 * kDay));
    EXPECT_EQ(m_manager->getArchivedEntranceActivityRecords().size(), static_cast<size_t>(periods));
    EXPECT_EQ(m_manager->getArchivedOccupancyObjectRecords().size(), static_cast<size_t>(periods));
    EXPECT_EQ(m_manager->getArchivedAverageCrowdCountRecords().size(), static_cast<size_t>(periods));
    std::filesystem::remove_all(root);
}

}  // namespace

#include "ledger/recorder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

#include "ledger_schema.h"

namespace ledger {
namespace {

constexpr PictureSize kPicture = {1000, 500};
constexpr int kLine = 250;

/** One line across the picture. */
int sideOfLine(t_one_locator at) {
    return at.second < kLine ? 0 : 1;
}

struct Walk {
    const char* name;
    double stepX;
    double stepY;
    double jitter; /**< standard deviation in pixels */
    int cycles;
};

std::vector<t_one_locator> pointsOf(const Walk& walk) {
    std::mt19937 random(3);
    std::normal_distribution<double> jitter(0, std::max(walk.jitter, 1e-9));
    std::vector<t_one_locator> points;
    for (int i = 0; i < walk.cycles; ++i) {
        points.emplace_back(static_cast<int32_t>(100 + i * walk.stepX + jitter(random)),
                            static_cast<int32_t>(240 + i * walk.stepY + jitter(random)));
    }
    return points;
}

TEST(ObjectPath, PutsEveryPointWithinOnePercentAndOnItsSide) {
    const Walk walks[] = {{"standing", 0, 0, 0, 500},
                          {"straight over the line", 2, 1, 0, 100},
                          {"jitter on the line", 0, 0.02, 4, 1000},
                          {"loitering along it", 0.5, 0, 2, 1000},
                          {"jitter beyond one percent", 1, 0.1, 20, 300}};
    const ObjectPath::SideOf sideOf = sideOfLine;
    for (const Walk& walk : walks) {
        const std::vector<t_one_locator> points = pointsOf(walk);
        ObjectPath path(kPicture, sideOf);
        int64_t now = 5'000;
        for (const t_one_locator& point : points) {
            path.add(point, now);
            now += 100;
        }
        const std::vector<PathPoint> kept = path.take();
        ASSERT_FALSE(kept.empty()) << walk.name;
        EXPECT_EQ(kept.front().at, points.front()) << walk.name;
        size_t cycle = 0;
        for (size_t i = 1; i < kept.size(); ++i) {
            for (int32_t between = 1; between <= kept[i].between; ++between) {
                const t_one_locator put = pointBetween(kept[i - 1].at, kept[i].at, between, kept[i].between);
                const t_one_locator real = points.at(++cycle);
                EXPECT_LE(std::abs(put.first - real.first), kPicture.width / 100) << walk.name << ", cycle " << cycle;
                EXPECT_LE(std::abs(put.second - real.second), kPicture.height / 100)
                    << walk.name << ", cycle " << cycle;
                EXPECT_EQ(sideOfLine(put), sideOfLine(real)) << walk.name << ", cycle " << cycle;
            }
            EXPECT_EQ(kept[i].at, points.at(++cycle)) << walk.name;
            EXPECT_EQ(kept[i].millis, static_cast<int64_t>(cycle) * 100) << walk.name;
        }
        EXPECT_EQ(cycle + 1, points.size()) << walk.name;
    }
}

TEST(ObjectPath, KeepsFewPointsOfAStraightWalk) {
    const ObjectPath::SideOf sideOf = sideOfLine;
    ObjectPath path(kPicture, sideOf);
    for (int i = 0; i < 60; ++i) {
        path.add({100 + 5 * i, 100}, i * 100);
    }
    const std::vector<PathPoint> kept = path.take();
    EXPECT_EQ(kept, (std::vector<PathPoint>{{0, {100, 100}, 0}, {5900, {395, 100}, 58}}));
}

TEST(ObjectPath, GoesOnBehindAPointThatSways) {
    const ObjectPath::SideOf sideOf = sideOfLine;
    ObjectPath path(kPicture, sideOf);
    for (int i = 0; i <= 20; ++i) {
        // The straight way to the tenth, from 96 to 95, is 7 off the fifth; the one to the twentieth, from 96 to 100,
        // is at 97 and 98 there: 5 and 3 off, and five are one percent.
        path.add({100 + 5 * i, i == 0 ? 96 : i == 5 ? 102 : i == 10 ? 95 : 100}, i * 100);
    }
    EXPECT_EQ(path.mostPoints(), 2U);
    EXPECT_EQ(path.take(), (std::vector<PathPoint>{{0, {100, 96}, 0}, {2000, {200, 100}, 19}}));
}

TEST(ObjectPath, TellsOfALongSilence) {
    const ObjectPath::SideOf sideOf = sideOfLine;
    ObjectPath path(kPicture, sideOf);
    for (const int64_t millis : {0, 100, 200, 5'000, 5'100}) {
        path.add({100, 100}, millis);
    }
    const std::vector<PathPoint> kept = path.take();
    EXPECT_EQ(kept[1].millis, 200) << "the last before the silence is a point of its own";
}

/** Records cycles of 100 ms and keeps the lines. */
class Recording {
public:
    explicit Recording(bool isDated = true)
        : m_now{600'000, 1'795'305'600'000 - 600'000, isDated},
          m_recorder(
              [this](const std::string& kind, const nlohmann::ordered_json& body) { lines.emplace_back(kind, body); },
              sideOfLine) {}

    void see(const std::vector<one_find>& findings, int64_t millis = 100) {
        m_recorder.add({findings, kPicture, m_now, occupancy, false});
        m_now.monoMillis += millis;
    }

    Recorder& recorder() { return m_recorder; }
    Instant& now() { return m_now; }

    std::vector<nlohmann::ordered_json> of(const std::string& kind) const {
        std::vector<nlohmann::ordered_json> found;
        for (const auto& [lineKind, body] : lines) {
            if (kind == lineKind) {
                found.push_back(body);
            }
        }
        return found;
    }

    std::vector<std::pair<std::string, nlohmann::ordered_json>> lines;
    int32_t occupancy = 0;

private:
    Instant m_now;
    Recorder m_recorder;
};

one_find found(int32_t id, t_one_locator at, entranceActivity activity = entranceActivity::unknown,
               footings footing = footings::not_in_AOI) {
    one_find finding;
    finding.id = id;
    finding.locator = at;
    finding.detect.ClassId = 0;
    finding.entranceAct = activity;
    finding.footing = footing;
    return finding;
}

TEST(LedgerRecorder, TellsOfACrossingInItsCycle) {
    Recording recording;
    recording.see({found(7, {100, 240})});
    recording.see({found(7, {100, 249})});
    recording.occupancy = 3;
    recording.see({found(7, {101, 256}, entranceActivity::exitEntrance2)});
    ASSERT_EQ(recording.lines.size(), 1U);
    EXPECT_EQ(recording.lines[0].first, "crossing");
    EXPECT_EQ(recording.lines[0].second.dump(),
              R"({"entrance":2,"direction":"out","class":"Person","object":7,"before":[100,249],"after":[101,256],)"
              R"("size":[1000,500],"followed":0.2,"occupancy":3})");
}

TEST(LedgerRecorder, TellsOfAnObjectWhenItHasEnded) {
    Recording recording;
    for (int i = 0; i < 30; ++i) {
        const bool inArea = i >= 10 && i < 20;
        recording.see({found(7, {100 + 5 * i, 100}, entranceActivity::unknown,
                             inArea ? footings::in_AOI2_briefly : footings::not_in_AOI)});
    }
    EXPECT_TRUE(recording.lines.empty());
    recording.see({});
    ASSERT_EQ(recording.of("object").size(), 1U);
    EXPECT_EQ(recording.of("object")[0].dump(),
              R"({"object":7,"class":"Person","first":"2026-11-22T00:00:00.000Z","last":"2026-11-22T00:00:02.900Z",)"
              R"("size":[1000,500],)"
              R"("path":[[0,100,100],[2900,245,100,28]],)"
              R"("areas":[{"area":2,"enter":"2026-11-22T00:00:01.000Z","leave":"2026-11-22T00:00:02.000Z"}]})");
}

TEST(LedgerRecorder, SaysNothingOfAFlicker) {
    Recording recording;
    recording.see({found(1, {100, 100})});
    recording.see({});
    EXPECT_TRUE(recording.lines.empty());
}

TEST(LedgerRecorder, WritesALongStayInPartsThatContinueEachOther) {
    Recording recording;
    std::mt19937 random(5);
    for (int i = 0; i < 3000; ++i) {
        recording.see({found(1, {100 + static_cast<int>(random() % 100), 100 + static_cast<int>(random() % 100)})});
    }
    recording.see({});
    const auto parts = recording.of("object");
    ASSERT_GT(parts.size(), 3U);
    for (size_t i = 0; i < parts.size(); ++i) {
        EXPECT_LE(parts[i]["path"].size(), 60U);
        EXPECT_EQ(parts[i].value("part", 1), i + 1);
        EXPECT_EQ(parts[i].value("ended", true), i + 1 == parts.size());
        if (i > 0) {
            EXPECT_EQ(parts[i]["path"].front()[1], parts[i - 1]["path"].back()[1]);
            EXPECT_EQ(parts[i]["path"].front()[2], parts[i - 1]["path"].back()[2]);
        }
    }
}

TEST(LedgerRecorder, WritesThePathOfWhatStandsStillEveryTenMinutes) {
    Recording recording;
    for (int second = 0; second < 1'500; ++second) {
        recording.see({found(1, {100, 100})}, 1'000);
    }
    recording.see({});
    const auto parts = recording.of("object");
    ASSERT_EQ(parts.size(), 3U);
    EXPECT_EQ(parts[0]["path"].back()[0], 600'000);
    EXPECT_EQ(parts[1]["path"].back()[0], 600'000);
    EXPECT_EQ(parts[2]["path"].back()[0], 299'000) << "the last second seen is number 1499";
}

TEST(LedgerRecorder, VotesOnTheClass) {
    Recording recording;
    for (const objects object : {objects::person, objects::car, objects::person}) {
        one_find finding = found(1, {100, 100});
        finding.detect.ClassId = static_cast<int32_t>(object);
        recording.see({finding});
    }
    recording.see({});
    EXPECT_EQ(recording.of("object").at(0)["class"], "Person");
}

TEST(LedgerRecorder, TellsEachMinuteHowMuchWasWatched) {
    Recording recording;
    for (int i = 0; i < 300; ++i) {
        recording.see({});  // 30 s
    }
    recording.recorder().addFailure(recording.now(), 0);
    recording.now().monoMillis += 20'000;
    for (int i = 0; i < 110; ++i) {
        recording.see({});
    }
    const auto watched = recording.of("watched");
    ASSERT_EQ(watched.size(), 1U);
    EXPECT_EQ(watched[0].dump(),
              R"({"minute":"2026-11-22T00:00:00.000Z","seconds":39.8,"cycles":400,"slow":0,"failed":1,"occupancy":0})");
}

TEST(LedgerRecorder, TakesRareCyclesForWatchedWhereTheyAreMeantToBe) {
    Recording recording;
    const auto seeAt = [&, begin = recording.now().monoMillis](int64_t second) {
        recording.now().monoMillis = begin + 1000 * second;
        recording.recorder().add({{}, kPicture, recording.now(), 0, false, 4'000});
    };
    for (int64_t second = 0; second <= 60; second += 4) {
        seeAt(second);
    }
    // Two of them are left out, then three; the one at 125 belongs to the next minute.
    for (const int64_t second : {72, 85, 125}) {
        seeAt(second);
    }
    const auto watched = recording.of("watched");
    ASSERT_EQ(watched.size(), 2U);
    EXPECT_EQ(watched[0]["seconds"], 56);
    EXPECT_EQ(watched[1]["seconds"], 16);
}

TEST(LedgerRecorder, TellsTimesOfTheMachineBeforeTheClockIsKnown) {
    Recording recording(false);
    recording.see({found(1, {100, 100})});
    recording.see({found(1, {100, 100})});
    recording.see({});
    EXPECT_EQ(recording.of("object").at(0)["first"], 600'000);
}

TEST(LedgerRecorder, DatesTheMinuteInWhichTheTimeBecameKnown) {
    Recording recording(false);
    recording.now().monoMillis = 130'000;  // ten seconds into a minute since the machine's start
    recording.see({});
    recording.now().isDated = true;
    recording.now().utcOffset = 1'795'305'600'000 - 120'000;
    recording.see({});
    recording.now().monoMillis += 60'000;
    recording.see({});
    const auto watched = recording.of("watched");
    ASSERT_EQ(watched.size(), 2U);
    EXPECT_EQ(watched[0]["minute"], "2026-11-22T00:00:00.000Z");
    EXPECT_EQ(watched[1]["minute"], "2026-11-22T00:00:00.000Z");
}

TEST(LedgerRecorder, EndsWhatItFollowsAtAnOrderlyStop) {
    Recording recording;
    recording.see({found(1, {100, 100})});
    recording.see({found(1, {100, 100})});
    recording.recorder().finish(recording.now(), 0);
    EXPECT_EQ(recording.of("object").size(), 1U);
    EXPECT_EQ(recording.of("watched").size(), 1U);
}

TEST(LedgerRecorder, WritesLinesAsTheSchemaSays) {
    for (const bool isDated : {true, false}) {
        Recording recording(isDated);
        for (int cycle = 0; cycle < 1'300; ++cycle) {
            const bool crosses = cycle == 700;
            recording.see(
                {found(7, {100, 240 + cycle % 8}, crosses ? entranceActivity::exitEntrance2 : entranceActivity::unknown,
                       cycle % 100 < 50 ? footings::in_AOI1_briefly : footings::not_in_AOI),
                 found(8, {cycle % 900, cycle % 400})});
        }
        recording.recorder().addFailure(recording.now(), 1);
        recording.recorder().finish(recording.now(), 1);
        std::string text;
        int64_t seq = 0;
        for (const auto& [kind, body] : recording.lines) {
            const Moment moment = isDated ? Moment{1'795'305'600'000, "", 0} : Moment{0, "b1", 5};
            text += lineText({++seq, "e", moment, kind}, bodyText(body));
        }
        for (const char* const kind : {"crossing", "object", "watched"}) {
            EXPECT_FALSE(recording.of(kind).empty()) << kind;
        }
        EXPECT_EQ(schemaFaults(text), "");
    }
}

TEST(LedgerSchema, MissesWhateverALineLacksAndKnowsNothingElse) {
    const nlohmann::json whole = nlohmann::json::parse(
        R"({"seq":1,"epoch":"e","t":"2026-11-22T05:35:01.420Z","kind":"crossing","entrance":1,"direction":"in",)"
        R"("class":"Person","object":7,"before":[1,2],"after":[1,3],"size":[1000,500],"followed":0.2,"occupancy":3})");
    EXPECT_EQ(schemaFaults(whole.dump() + "\n"), "");
    std::vector<std::string> spoiled;
    for (const auto& [name, value] : whole.items()) {
        nlohmann::json line = whole;
        line.erase(name);
        spoiled.push_back(line.dump());
    }
    nlohmann::json more = whole;
    more["more"] = 1;
    spoiled.push_back(more.dump());
    std::string text;
    for (const std::string& line : spoiled) {
        text += line + "\n";
    }
    const std::string faults = schemaFaults(text);
    for (const std::string& line : spoiled) {
        EXPECT_NE(faults.find(" in " + line), std::string::npos) << line;
    }
}

TEST(Recorder, AddsUpWhatARunHasSeen) {
    Recording recording;  // at a whole minute of UTC
    const int64_t begin = recording.now().monoMillis + recording.now().utcOffset;
    EXPECT_EQ(recording.recorder().totals().lastCycle, std::nullopt);
    one_find person;
    person.detect.ClassId = 0;
    person.entranceAct = entranceActivity::exitEntrance2;
    person.footing = footings::in_AOI3_lengthily;
    one_find bus = person;
    bus.id = 1;
    bus.detect.ClassId = 5;
    bus.footing = footings::in_AOI1_briefly;
    one_find unknown = person;
    unknown.id = 2;
    unknown.detect.ClassId = 9;
    recording.see({person, bus, unknown});
    person.entranceAct = entranceActivity::enterEntrance1;
    bus.entranceAct = entranceActivity::unknown;
    recording.see({person, bus});
    const RunTotals& totals = recording.recorder().totals();
    RunTotals::ByClass<int64_t> onePerson = {1};
    RunTotals::ByClass<int64_t> both = {1, 0, 0, 0, 0, 1};
    EXPECT_EQ(totals.crossings, (std::array<RunTotals::ByClass<int64_t>, 6>{onePerson, {}, {}, both}));
    EXPECT_EQ(totals.inAreas, (std::array<RunTotals::ByClass<int32_t>, 3>{{{0, 0, 0, 0, 0, 1}, {}, {1}}}));
    EXPECT_EQ(totals.lastCycle, begin + 100);
    EXPECT_EQ(totals.watchedMillis, 100);
    EXPECT_EQ(totals.watchedRatio, std::nullopt) << "before a minute is over";
    recording.see({}, 30'000);
    recording.see({});
    EXPECT_EQ(totals.inAreas, (std::array<RunTotals::ByClass<int32_t>, 3>{})) << "they are gone";
    for (int i = 0; i < 300; ++i) {
        recording.see({});
    }
    ASSERT_NE(totals.watchedRatio, std::nullopt);
    EXPECT_NEAR(*totals.watchedRatio, 0.5, 0.01) << "half of the minute was silence";
}

}  // namespace
}  // namespace ledger

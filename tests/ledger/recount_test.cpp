#include "recount.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <stdexcept>

#include "check.h"
#include "counting_rules.h"
#include "failing_power.h"
#include "program.h"
#include "recorder.h"
#include "stays.h"
#include "test_folder.h"
#include "why.h"

namespace inquiry {
namespace {

constexpr ledger::PictureSize kPicture = {640, 360};
constexpr int64_t kBegin = 1'795'300'000'000;  // 2026-11-22, UTC
constexpr int64_t kCycle = 100;

/** Two entrances at the picture's left and right edge, the second with a slanted line, and an area in the middle. */
ConfigParams oldSettings() {
    ConfigParams config;
    config.b_DetectPersons = config.b_DetectCars = config.b_DetectBicycles = true;
    config.i_EntrancesControlPoints = 4;
    config.i_Occupancy1 = {0, 0, 120, 0, 120, 360, 0, 360};
    config.i_Occupancy2 = {520, 0, 639, 0, 639, 359, 440, 359};
    config.b_Occupancy1Active = config.b_Occupancy2Active = true;
    config.i_DetectionControlPoints = 4;
    config.i_Detection1 = {200, 100, 400, 100, 400, 300, 200, 300};
    config.b_Detection1Active = true;
    return config;
}

/** A camera whose objects wander about, and everything that it keeps of them. */
class Wandering {
public:
    explicit Wandering(unsigned seed, ConfigParams settings = oldSettings())
        : m_settings(std::move(settings)), m_random(seed) {
        storeEntrances(m_settings, m_areas);
        storeDetectionAreas(m_settings, m_areas);
        m_book.open();
        begin();
    }

    void begin() {
        m_objects.clear();
        m_period.clear();
        m_book.append("start", {{"version", "1"}});
        m_recorder = std::make_unique<ledger::Recorder>(
            [this](const std::string& kind, const nlohmann::ordered_json& body) { m_book.append(kind, body); },
            [this](t_one_locator at) {
                int side = detectionAreaAt(m_areas, at);
                for (int zone = 1; zone <= 3; ++zone) {
                    side = 2 * side + (m_areas.is_in_entrance(zone, at) ? 1 : 0);
                }
                return side;
            });
    }

    void run(int cycles) {
        for (int cycle = 0; cycle < cycles; ++cycle) {
            m_now += kCycle;
            if (dice(100) < 8 && m_objects.size() < 12) {
                m_objects.push_back({m_nextId++, 20.0 + dice(600), 20.0 + dice(320), 0, 0, dice(3), {}});
            }
            std::vector<one_find> findings;
            for (Wanderer& object : m_objects) {
                findings.push_back(move(object));
            }
            m_recorder->add({findings, kPicture, now(), 0, false});
            if (!m_objects.empty() && dice(100) < 4) {
                m_objects.erase(m_objects.begin() + dice(static_cast<int>(m_objects.size())));
            }
        }
    }

    void flush(const std::string& archived) {
        nlohmann::ordered_json tallies = nlohmann::ordered_json::object();
        for (const char* const zone : {"Entrance1", "Entrance2"}) {
            for (const char* const name : {"Person", "Bicycle", "Car"}) {
                for (const char* const way : {"_Entrances_", "_Exits_"}) {
                    const std::string key = std::string(zone) + way + name;
                    tallies[key] = m_period[key];
                }
            }
        }
        m_book.append("period", {{"archived", archived}, {"camera", "Door"}, {"tallies", tallies}});
        lastPeriod = std::exchange(m_period, {});
    }

    void stop() { m_recorder->finish(now(), 0); }

    /** From here on the clock goes on from another time. */
    void setClock(int64_t utcMillis) { m_now = utcMillis; }

    Recounted recount(const ConfigParams& settings, const Span& span = {}) {
        return recountOf(chunksOf(disk, span), settingsInForce(settings, kPicture), span);
    }

    ledger::Ledger& book() { return m_book; }
    [[nodiscard]] int64_t time() const { return m_now; }

    FailingPower disk{1};
    Counts counted;                            /**< what the camera counted */
    std::map<std::string, int64_t> lastPeriod; /**< by the tallies' names */

private:
    struct Wanderer {
        int32_t id;
        double x;
        double y;
        double dx;
        double dy;
        int classId;
        entrances state;
    };

    int dice(int sides) { return std::uniform_int_distribution<int>(0, sides - 1)(m_random); }

    [[nodiscard]] ledger::Instant now() const { return {m_now, 0, true}; }

    one_find move(Wanderer& object) {
        // Long straight ways, sharp turns, and rests.
        if (dice(100) < 5) {
            object.dx = dice(3) == 0 ? 0 : dice(31) - 15;
            object.dy = object.dx == 0 ? 0 : dice(21) - 10;
        }
        object.x = std::clamp(object.x + object.dx, 0.0, 639.0);
        object.y = std::clamp(object.y + object.dy, 0.0, 359.0);
        one_find finding;
        finding.id = object.id;
        // Now and then it looks like something else.
        finding.detect.ClassId = dice(10) == 0 ? (object.classId + 1) % 3 : object.classId;
        finding.locator = {static_cast<int32_t>(object.x), static_cast<int32_t>(object.y)};
        finding.entrance = entranceAt(m_areas, finding.locator);
        const int area = detectionAreaAt(m_areas, finding.locator);
        finding.footing = area == 0 ? footings::not_in_AOI : static_cast<footings>(2 * area - 1);
        finding.entranceAct = entranceActivityOf(object.state, finding.entrance, m_settings.b_IsCameraInside);
        if (finding.entranceAct != entranceActivity::unknown) {
            const int activity = static_cast<int>(finding.entranceAct);
            ++counted[{activity / 2 + 1, activity % 2 == 0, finding.detect.ClassId}];
            ++m_period["Entrance" + std::to_string(activity / 2 + 1) + (activity % 2 == 0 ? "_Entrances_" : "_Exits_") +
                       class_index_to_label(finding.detect.ClassId)];
        }
        object.state = finding.entrance;
        return finding;
    }

    const ConfigParams m_settings;
    area_of_interest m_areas{m_settings};
    std::mt19937 m_random;
    int64_t m_now = kBegin;
    ledger::Ledger m_book{disk,
                          {int64_t{1} << 30,
                           [this] {
                               return ledger::Moment{m_now, "", 0};
                           },
                           [] { return std::string("epoch"); }}};
    std::unique_ptr<ledger::Recorder> m_recorder;
    std::vector<Wanderer> m_objects;
    int32_t m_nextId = 0;
    std::map<std::string, int64_t> m_period;
};

int64_t sumOf(const Counts& counts) {
    int64_t sum = 0;
    for (const auto& [key, count] : counts) {
        sum += count;
    }
    return sum;
}

TEST(Recount, WithTheOldAreasGivesTheRecordedCrossings) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        Wandering camera(seed);
        camera.run(3000);
        camera.stop();
        const Recounted result = camera.recount(oldSettings());
        EXPECT_EQ(result.counts, camera.counted) << "seed " << seed;
        EXPECT_EQ(result.recorded, camera.counted) << "seed " << seed;
        EXPECT_EQ(result.withoutPath, 0);
        EXPECT_GT(sumOf(camera.counted), 50) << "a test of something";
    }
}

TEST(Recount, TellsWhatOtherAreasWouldHaveCounted) {
    // A line through the middle, and the camera inside.
    ConfigParams other = oldSettings();
    other.i_Occupancy1 = {0, 0, 320, 0, 320, 360, 0, 360};
    other.b_Occupancy2Active = false;
    other.b_IsCameraInside = true;
    int64_t off = 0;
    int64_t truth = 0;
    for (unsigned seed = 1; seed <= 5; ++seed) {
        Wandering camera(seed);
        Wandering drawnSo(seed, other);
        for (Wandering* const each : {&camera, &drawnSo}) {
            each->run(3000);
            each->stop();
        }
        const Recounted result = camera.recount(other);
        for (const bool isIn : {true, false}) {
            int64_t counted = 0;
            int64_t recounted = 0;
            for (int32_t classId = 0; classId < 3; ++classId) {
                counted += drawnSo.counted[{1, isIn, classId}];
                const auto found = result.counts.find({1, isIn, classId});
                recounted += found == result.counts.end() ? 0 : found->second;
            }
            truth += counted;
            off += std::abs(counted - recounted);
        }
        EXPECT_EQ(result.recorded, camera.counted);
    }
    // Who walks along the new line is where it was to 1 % of the picture.
    EXPECT_GT(truth, 300);
    EXPECT_LT(off, truth / 20);
}

TEST(Recount, LeavesOutClassesThatAreNotAskedFor) {
    Wandering camera(3);
    camera.run(3000);
    camera.stop();
    ConfigParams people = oldSettings();
    people.b_DetectCars = people.b_DetectBicycles = false;
    const Recounted result = camera.recount(people);
    Counts expected;
    for (const auto& [key, count] : camera.counted) {
        if (key.classId == 0) {
            expected[key] = count;
        }
    }
    EXPECT_EQ(result.counts, expected);
    EXPECT_EQ(result.recorded, expected);
}

TEST(Recount, IsOfATime) {
    Wandering camera(4);
    camera.run(1500);
    const Counts before = camera.counted;
    const int64_t middle = camera.time() + 1;
    camera.run(1500);
    camera.stop();
    const Recounted early = camera.recount(oldSettings(), {kBegin, middle});
    EXPECT_EQ(early.counts, before);
    EXPECT_EQ(early.recorded, before);
    const Recounted late = camera.recount(oldSettings(), {middle, camera.time() + 1});
    EXPECT_EQ(sumOf(late.counts), sumOf(camera.counted) - sumOf(before));
}

TEST(Recount, GoesOnBehindWhatAWrongClockDated) {
    for (const int64_t wrong : {*ledger::utcOf("2036-01-01T00:00:00.000Z"), kBegin + int64_t{3} * 60 * 60 * 1000}) {
        Wandering camera(7);
        camera.run(1000);
        camera.stop();
        const Counts before = camera.counted;
        const int64_t right = camera.time();
        camera.setClock(wrong);
        camera.begin();
        camera.run(1000);
        camera.stop();
        EXPECT_GT(sumOf(camera.counted), sumOf(before)) << "a test of something";
        camera.counted = before;
        camera.setClock(right);
        camera.begin();
        camera.run(1000);
        camera.stop();
        EXPECT_GT(sumOf(camera.counted), sumOf(before)) << "a test of something";
        const Span span = {kBegin, camera.time() + 1};
        const Recounted result = camera.recount(oldSettings(), span);
        EXPECT_EQ(result.counts, camera.counted);
        EXPECT_EQ(result.recorded, camera.counted);
        const SettingsFor settings = settingsInForce(oldSettings(), kPicture);
        EXPECT_EQ(static_cast<int64_t>(whyOf(chunksOf(camera.disk, span), settings, span, 0)["crossings"].size()),
                  sumOf(camera.counted));
    }
}

/** A disk that knows which files were read. */
class ReadDisk : public FailingPower {
public:
    using FailingPower::FailingPower;

    std::optional<std::string> read(const std::string& name, int64_t from, int64_t most) override {
        days.insert(ledger::fileOf(name)->day);
        return FailingPower::read(name, from, most);
    }

    std::set<std::string> days;
};

class LinesOfATime : public testing::Test {
protected:
    LinesOfATime() { m_book.open(); }

    void add(const char* utc, const char* kind = "crossing") {
        m_now = {*ledger::utcOf(utc), "", 0};
        m_book.append(kind, {});
    }
    void addUndated() {
        m_now = {0, "boot", 1};
        m_book.append("crossing", {});
    }

    static std::vector<int64_t> numbersOf(const Chunks& chunks, const Span& span) {
        std::vector<int64_t> numbers;
        visitLinesFor(chunks, span,
                      [&](const ledger::LineHead& head, std::string_view) { numbers.push_back(head.seq); });
        return numbers;
    }

    ReadDisk m_disk{1};
    ledger::Moment m_now;
    ledger::Ledger m_book{m_disk, {int64_t{1} << 30, [this] { return m_now; }, [] { return std::string("epoch"); }}};
};

TEST_F(LinesOfATime, AreFoundWhereverTheClockWasSet) {
    add("2026-11-20T12:00:00.000Z");
    add("2026-11-21T12:00:00.000Z");
    add("2036-01-01T00:00:00.000Z");
    add("2026-11-22T10:00:00.000Z");
    add("2036-01-01T00:00:00.000Z", "start");
    add("2036-01-01T00:00:01.000Z");
    add("2026-11-22T11:00:00.000Z");
    add("2026-11-22T18:00:00.000Z");
    add("2026-11-22T11:30:00.000Z");
    add("2026-11-23T12:00:00.000Z");
    add("2026-11-24T12:00:00.000Z");
    const Span span = {*ledger::utcOf("2026-11-22T09:00:00.000Z"), *ledger::utcOf("2026-11-22T12:00:00.000Z")};
    // That a run began there says that its objects are others.
    const std::vector<int64_t> expected = {4, 5, 7, 9};
    m_disk.days.clear();
    EXPECT_EQ(numbersOf(chunksOf(m_disk, span), span), expected);
    EXPECT_EQ(m_disk.days, (std::set<std::string>{"2026-11-22", "2036-01-01"}));
    m_disk.days.clear();
    EXPECT_EQ(numbersOf(chunksOf(m_book, span), span), expected);
    EXPECT_FALSE(m_disk.days.contains("2026-11-20") || m_disk.days.contains("2026-11-21") ||
                 m_disk.days.contains("2026-11-24"));
    const Span never = {*ledger::utcOf("2026-12-22T09:00:00.000Z"), *ledger::utcOf("2026-12-22T12:00:00.000Z")};
    EXPECT_EQ(numbersOf(chunksOf(m_book, never), never), std::vector<int64_t>());
}

TEST_F(LinesOfATime, AreThoseOfTheNextDayThatTellOfThisOne) {
    add("2026-11-22T23:59:00.000Z");
    add("2026-11-23T00:14:59.999Z");
    add("2026-11-23T00:15:00.000Z");
    const Span span = {*ledger::utcOf("2026-11-22T00:00:00.000Z"), *ledger::utcOf("2026-11-23T00:00:00.000Z")};
    EXPECT_EQ(numbersOf(chunksOf(m_disk, span), span), (std::vector<int64_t>{1, 2}));
    EXPECT_EQ(numbersOf(chunksOf(m_book, span), span), (std::vector<int64_t>{1, 2}));
}

TEST_F(LinesOfATime, OfAnUnknownOneAreWhereTheLinesBeforeThemAre) {
    addUndated();
    add("2026-11-22T10:00:00.000Z");
    addUndated();
    add("2026-11-22T18:00:00.000Z");
    addUndated();
    const Span span = {std::numeric_limits<int64_t>::min(), *ledger::utcOf("2026-11-22T12:00:00.000Z")};
    EXPECT_EQ(numbersOf(chunksOf(m_disk, span), span), (std::vector<int64_t>{1, 2, 3}));
    EXPECT_EQ(numbersOf(chunksOf(m_book, span), span), (std::vector<int64_t>{1, 2, 3}));
    EXPECT_EQ(numbersOf(chunksOf(m_book, {}), {}), (std::vector<int64_t>{1, 2, 3, 4, 5}));
}

TEST(Recount, TellsOfCrossingsWhosePathAKillTook) {
    Wandering camera(5);
    camera.run(1000);
    camera.begin();  // killed: what was under way is lost
    camera.run(1000);
    camera.stop();
    const Recounted result = camera.recount(oldSettings());
    EXPECT_EQ(result.recorded, camera.counted);
    EXPECT_GT(result.withoutPath, 0);
    EXPECT_EQ(sumOf(result.counts) + result.withoutPath, sumOf(camera.counted));
}

TEST(Recount, OfAPictureOfAnotherSizeHasTheAreasInProportion) {
    ConfigParams half = oldSettings();
    for (PointArray<8>* const points : {&half.i_Occupancy1, &half.i_Occupancy2, &half.i_Detection1}) {
        for (int32_t& number : *points) {
            number *= 2;
        }
    }
    Wandering camera(6);
    camera.run(2000);
    camera.stop();
    EXPECT_EQ(recountOf(chunksOf(camera.disk, {}), settingsInForce(half, {1280, 720}), {}).counts, camera.counted);
}

TEST(Recount, ReadsTracksAsEvaluateWritesThem) {
    const auto cycle = [](double seconds, int x, int activity) {
        return nlohmann::json{
            {"seconds", seconds},
            {"picture", {640, 360}},
            {"objects", {{{"id", 7}, {"class", "Person"}, {"locator", {x, 180}}, {"activity", activity}}}}};
    };
    Recount recount(settingsInForce(oldSettings(), kPicture), {});
    recount.addCycle(cycle(0, 150, 100));
    recount.addCycle(cycle(0.1, 110, 0));
    recount.addCycle(cycle(0.2, 130, 1));
    recount.addCycle({{"seconds", 0.3}, {"picture", {640, 360}}, {"objects", nlohmann::json::array()}});
    // The number is somebody else's after that: no step across the picture.
    recount.addCycle(cycle(0.4, 50, 100));
    const Recounted result = recount.finish();
    const Counts expected = {{{1, true, 0}, 1}, {{1, false, 0}, 1}};
    EXPECT_EQ(result.counts, expected);
    EXPECT_EQ(result.recorded, expected);
    EXPECT_EQ(result.objects, 2);
    EXPECT_THROW(recount.addCycle(nlohmann::json::array()), std::runtime_error);
}

TEST(Stays, AreTheRecordedOnesAndTheRecountedOnes) {
    Wandering camera(8);
    camera.run(3000);
    camera.stop();
    StaysByArea recorded = staysOf(chunksOf(camera.disk, {}), {});
    StaysByArea again = camera.recount(oldSettings()).stays;
    ASSERT_FALSE(recorded.empty());
    for (StaysByArea* const stays : {&recorded, &again}) {
        for (auto& [key, lengths] : *stays) {
            std::sort(lengths.begin(), lengths.end());
        }
    }
    EXPECT_EQ(again, recorded);
    EXPECT_EQ(jsonOf(StaysByArea{{{2, 0}, {1000, 9000, 2000, 4000}}}).dump(),
              R"([{"area":2,"class":"Person","visits":4,"average":4.0,"median":3.0,"longest":9.0}])");
}

TEST(HeatOfPaths, HasTheTimeThatObjectsWereThere) {
    Wandering camera(9);
    camera.run(600);
    camera.stop();
    const Heat heat = heatOf(chunksOf(camera.disk, {}), {}, "UTC");
    EXPECT_EQ(heat.rows, 18);
    int64_t sum = 0;
    for (const auto& [key, cells] : heat.cells) {
        ASSERT_EQ(cells.size(), 18U * 32U);
        for (const int64_t millis : cells) {
            sum += millis;
        }
    }
    int64_t expected = 0;
    visitLines(chunksOf(camera.disk, {}), [&](const ledger::LineHead& head, std::string_view line) {
        if (const auto path = head.kind == "object" ? pathOf(ledger::parseLine(line)) : std::nullopt) {
            expected += path->points.back().utcMillis - path->points.front().utcMillis;
        }
        return true;
    });
    EXPECT_EQ(sum, expected);
    EXPECT_GT(sum, 10'000);
}

TEST(Why, TellsTheRuleThePathAndWhoElseWasThere) {
    Wandering camera(10);
    camera.run(2000);
    camera.stop();
    const Span span = {kBegin, camera.time() + 1};
    const auto all = whyOf(chunksOf(camera.disk, span), settingsInForce(oldSettings(), kPicture), span, 0);
    ASSERT_EQ(static_cast<int64_t>(all["crossings"].size()), sumOf(camera.counted));
    EXPECT_EQ(all["more"], false);
    size_t ofTheSecond = 0;
    size_t neighbours = 0;
    for (const auto& crossing : all["crossings"]) {
        const bool isIn = crossing["direction"] == "in";
        const std::string zone = "in entrance " + crossing["entrance"].dump();
        EXPECT_EQ(crossing["rule"], isIn ? "was outside every entrance, then " + zone + ": in"
                                         : "was " + zone + ", then outside every entrance: out");
        ofTheSecond += crossing["entrance"] == 2 ? 1 : 0;
        neighbours += crossing["neighbours"].size();
        const auto& path = crossing["path"];
        ASSERT_TRUE(path.is_array());
        const auto there = std::find_if(path.begin(), path.end(), [](const auto& point) { return point[0] == 0; });
        ASSERT_NE(there, path.end());
        EXPECT_EQ((*there)[1], crossing["after"][0]);
    }
    EXPECT_GT(neighbours, 0U);
    EXPECT_EQ(whyOf(chunksOf(camera.disk, span), settingsInForce(oldSettings(), kPicture), span, 2)["crossings"].size(),
              ofTheSecond);
    for (const auto& near : all["near"]) {
        EXPECT_LE(near["distance"], 0.03);
    }
    EXPECT_FALSE(all["near"].empty());
    ConfigParams other = oldSettings();
    other.b_Occupancy1Active = other.b_Occupancy2Active = false;
    const auto changed = whyOf(chunksOf(camera.disk, span), settingsInForce(other, kPicture), span, 0);
    EXPECT_EQ(changed["crossings"][0]["rule"], "by other settings than those in force now");
}

class LedgerCheck : public testing::Test {
protected:
    LedgerCheck() {
        m_camera.run(500);
        m_camera.flush("2026-11-22 08:00:00");
        m_camera.run(500);
        m_camera.flush("2026-11-22 08:15:00");
        m_camera.stop();
    }

    std::string name() { return m_camera.disk.list().at(0); }
    std::string content() { return *m_camera.disk.read(name(), 0, int64_t{1} << 30); }
    /** What a ledger with that content has wrong. */
    std::vector<std::string> faultsOf(const std::string& content) {
        m_camera.disk.replace(name(), content);
        return check(m_camera.disk, "").faults;
    }

    Wandering m_camera{11};
};

TEST_F(LedgerCheck, IsSilentAboutAWholeOne) {
    const Checked checked = check(m_camera.disk, "");
    EXPECT_EQ(checked.faults, std::vector<std::string>());
    EXPECT_EQ(checked.crossings, sumOf(m_camera.counted));
    EXPECT_EQ(checked.periods, 2);
    EXPECT_GT(checked.lines, checked.crossings);
}

TEST_F(LedgerCheck, FindsWhatIsMissingDoubleOrNoLine) {
    const std::string whole = content();
    const size_t first = whole.find("\"kind\":\"crossing\"");
    const size_t begin = whole.rfind('\n', first) + 1;
    const size_t end = whole.find('\n', first) + 1;
    const std::string number =
        std::to_string(ledger::headOf(std::string_view(whole).substr(begin, end - 1 - begin))->seq);
    const auto missing = faultsOf(whole.substr(0, begin) + whole.substr(end));
    ASSERT_EQ(missing.size(), 1U) << "the period's sum is explained by the gap";
    EXPECT_EQ(missing[0],
              name() + ": lines " + number + " to " + number + " are missing, and no line says that they were cut");
    const auto twice = faultsOf(whole.substr(0, end) + whole.substr(begin));
    ASSERT_FALSE(twice.empty());
    EXPECT_EQ(twice[0], name() + ": line " + number + " comes behind line " + number);
    const auto torn = faultsOf(whole.substr(0, begin) + "{\"seq\":" + whole.substr(begin));
    ASSERT_FALSE(torn.empty());
    EXPECT_NE(torn[0].find("something that is no line"), std::string::npos);
}

TEST_F(LedgerCheck, FindsASumThatIsNone) {
    std::string changed = content();
    const size_t first = changed.find("\"direction\":\"in\"");
    changed.replace(first, 16, "\"direction\":\"ou\"");
    const auto faults = faultsOf(changed);
    ASSERT_EQ(faults.size(), 1U);
    EXPECT_NE(faults[0].find("are not the sum of its crossings"), std::string::npos);
}

TEST_F(LedgerCheck, AcceptsAGapThatACutTells) {
    std::string lines;
    int64_t removed = 0;
    visitLines(chunksOf(m_camera.disk, {}), [&](const ledger::LineHead& head, std::string_view line) {
        if (head.kind == "object") {
            ++removed;
        } else {
            lines += std::string(line) + '\n';
        }
        return true;
    });
    ASSERT_GT(removed, 10);
    const int64_t last = m_camera.book().end().seq;
    EXPECT_FALSE(faultsOf(lines).empty());
    lines += ledger::lineText({last + 1, "epoch", {m_camera.time(), "", 0}, "cut"},
                              R"("removed":"object","from":1,"through":)" + std::to_string(last));
    EXPECT_EQ(faultsOf(lines), std::vector<std::string>());
}

TEST_F(LedgerCheck, ComparesWithTheArchive) {
    std::string archive = "2026-11-22 07:45:00,Door,0,0,5,5\n2026-11-22 08:15:00,Follower,0,0,99,99\n";
    const auto& tallies = m_camera.lastPeriod;
    const auto count = [&](const char* name) {
        const auto found = tallies.find(name);
        return found == tallies.end() ? 0 : found->second;
    };
    archive += "2026-11-22 08:15:00,Door,0,0," + std::to_string(count("Entrance1_Entrances_Person")) + "," +
               std::to_string(count("Entrance1_Exits_Person"));
    const TestFolder folder;
    const std::string path = folder.path() / "EntranceActivityTidy.csv";
    writeFile(path, archive + "\n");
    const Checked fine = check(m_camera.disk, path);
    EXPECT_EQ(fine.faults, std::vector<std::string>());
    EXPECT_EQ(fine.archived, 1);
    writeFile(path, archive + "1\n");
    const Checked wrong = check(m_camera.disk, path);
    ASSERT_EQ(wrong.faults.size(), 1U);
    EXPECT_NE(wrong.faults[0].find("2026-11-22 08:15:00 has "), std::string::npos);
    EXPECT_FALSE(check(m_camera.disk, folder.path() / "none").faults.empty());
}

TEST_F(LedgerCheck, ComparesPeriodsThatEndInTheSameSecondOfLocalTime) {
    const auto archived = [&] {
        const auto count = [&](const char* name) { return std::to_string(m_camera.lastPeriod.at(name)); };
        return "2026-10-25 02:15:00,Door,0,0," + count("Entrance1_Entrances_Person") + "," +
               count("Entrance1_Exits_Person") + "\n";
    };
    // In the night in which an hour comes twice.
    m_camera.run(500);
    m_camera.flush("2026-10-25 02:15:00");
    const std::string first = archived();
    m_camera.run(700);
    m_camera.flush("2026-10-25 02:15:00");
    const std::string second = archived();
    ASSERT_NE(first, second);
    const TestFolder folder;
    const std::string path = folder.path() / "EntranceActivityTidy.csv";
    const struct {
        const char* label;
        std::string archive;
        size_t faults;
    } cases[] = {{"both", first + second, 0},
                 {"the first, after a kill", first, 0},
                 {"the second", second, 0},
                 {"more than there were", first + second + second, 2}};
    for (const auto& [label, archive, faults] : cases) {
        writeFile(path, archive);
        EXPECT_EQ(check(m_camera.disk, path).faults.size(), faults) << label;
    }
}

TEST(KeptPaths, AreNothingForNonsense) {
    const char* const line =
        R"({"object":1,"class":"Person","size":[640,360],"ended":true,"begin":"2026-11-22T08:00:00.000Z",)"
        R"("path":[[0,1,2],[100,3,4,1]],"areas":[]})";
    const auto good = pathOf(nlohmann::json::parse(line));
    ASSERT_TRUE(good);
    ASSERT_EQ(good->points.size(), 3U);
    EXPECT_EQ(good->points[1].at, (t_one_locator{2, 3}));
    EXPECT_EQ(good->points[1].utcMillis - good->points[0].utcMillis, 50);
    for (const auto& [key, value] : std::map<std::string, nlohmann::json>{
             {"path", {{0, 1, 2}, {100, 3, 4, 2'000'000'000}}},
             {"size", {640}},
             {"object", "one"},
             {"areas", {{{"area", 9}, {"enter", "2026-11-22T08:00:00.000Z"}, {"leave", "2026-11-22T08:00:00.000Z"}}}},
             {"path", {{-5, 1, 2}}}}) {
        nlohmann::json bad = nlohmann::json::parse(line);
        bad[key] = value;
        EXPECT_FALSE(pathOf(bad)) << bad;
    }
    EXPECT_FALSE(pathOf(nlohmann::json()));
    EXPECT_FALSE(crossingOf(nlohmann::json::array()));
}

}  // namespace
}  // namespace inquiry

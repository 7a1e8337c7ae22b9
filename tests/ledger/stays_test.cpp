#include "inquiry/stays.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>

#include "wandering.h"

namespace inquiry {
namespace {

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

/** A camera that looks at one object, in area 1 or out of it. */
class Looking {
public:
    explicit Looking(const char* begin, int64_t cycleMillis) : m_now(*ledger::utcOf(begin)), m_cycle(cycleMillis) {
        storeEntrances(m_settings, m_areas);
        storeDetectionAreas(m_settings, m_areas);
        m_book.open();
        m_book.append("start", {{"version", "1"}});
    }

    void look(t_one_locator at, int64_t millis) {
        one_find finding;
        finding.id = m_object;
        finding.detect.ClassId = 0;
        finding.locator = at;
        finding.footing = static_cast<footings>(detectionAreaAt(m_areas, at) == 0 ? 0 : 1);
        for (const int64_t end = m_now + millis; m_now < end; m_now += m_cycle) {
            m_recorder.add({{finding}, kPicture, {m_now, 0, true}, 0, false, m_cycle});
        }
    }
    void lookAway() {
        m_recorder.add({{}, kPicture, {m_now, 0, true}, 0, false, m_cycle});
        ++m_object;
    }
    void stall(int64_t millis) { m_now += millis; }

    FailingPower disk{1};

private:
    const ConfigParams m_settings = oldSettings();
    area_of_interest m_areas{m_settings};
    int64_t m_now;
    const int64_t m_cycle;
    int32_t m_object = 0;
    ledger::Ledger m_book{disk,
                          {int64_t{1} << 30,
                           [this] {
                               return ledger::Moment{m_now, "", 0};
                           },
                           [] { return std::string("epoch"); }}};
    ledger::Recorder m_recorder{
        [this](const std::string& kind, const nlohmann::ordered_json& body) { m_book.append(kind, body); },
        [this](t_one_locator at) { return detectionAreaAt(m_areas, at); }};
};

Span between(const char* from, const char* until) {
    return {*ledger::utcOf(from), *ledger::utcOf(until)};
}

constexpr t_one_locator kOutside = {100, 50};
constexpr t_one_locator kInside = {300, 200};

TEST(Stays, AreCountedWholeWhereTheyEnd) {
    constexpr int64_t kMinute = 60'000;
    Looking camera("2026-11-22T23:45:00.000Z", 500);
    camera.look(kOutside, kMinute);
    camera.look(kInside, 25 * kMinute);
    const Span before = between("2026-11-22T00:00:00.000Z", "2026-11-23T00:00:00.000Z");
    const Span after = between("2026-11-23T00:00:00.000Z", "2026-11-24T00:00:00.000Z");
    const auto staysIn = [&](const Span& span) {
        const StaysByArea recorded = staysOf(chunksOf(camera.disk, span), span);
        const Recounted again =
            recountOf(chunksOf(camera.disk, readToRecount(span)), settingsInForce(oldSettings(), kPicture), span);
        EXPECT_EQ(again.stays, recorded);
        return recorded;
    };
    for (const Span& span : {before, after, Span()}) {
        EXPECT_EQ(staysIn(span), StaysByArea()) << "somebody is there still";
    }
    camera.look(kOutside, kMinute);
    camera.lookAway();
    const StaysByArea whole = {{{1, 0}, {25 * kMinute}}};
    EXPECT_EQ(staysIn(before), StaysByArea());
    EXPECT_EQ(staysIn(after), whole);
    EXPECT_EQ(staysIn({}), whole);
    EXPECT_EQ(staysIn(between("2026-11-23T00:09:00.000Z", "2026-11-23T00:30:00.000Z")), whole);
}

TEST(Stays, ThatOldLedgersTellInPartsAreOne) {
    const char* const parts[] = {
        R"("part":1,"ended":false,"begin":"2026-11-22T08:00:00.000Z","path":[[0,300,200],[60000,300,200,100]],)"
        R"("areas":[{"area":1,"enter":"2026-11-22T08:00:00.000Z","leave":"2026-11-22T08:01:00.000Z"}])",
        R"("part":2,"ended":true,"begin":"2026-11-22T08:01:00.000Z","path":[[0,300,200],[60000,300,200,100]],)"
        R"("areas":[{"area":1,"enter":"2026-11-22T08:01:00.000Z","leave":"2026-11-22T08:02:00.000Z"}])"};
    FailingPower disk(1);
    int64_t seq = 0;
    for (const char* const part : parts) {
        const ledger::Moment then = {*ledger::utcOf("2026-11-22T08:02:00.000Z"), "", 0};
        disk.append("000000000001-2026-11-22.ndjson",
                    ledger::lineText({++seq, "epoch", then, "object"},
                                     R"("object":1,"class":"Person","size":[640,360],)" + std::string(part)));
    }
    EXPECT_EQ(staysOf(chunksOf(disk, {}), {}), (StaysByArea{{{1, 0}, {120'000}}}));
}

TEST(HeatOfPaths, KnowsHowRareCyclesAre) {
    Looking camera("2026-11-22T08:00:00.000Z", 5'000);
    camera.look(kInside, 300'000);
    camera.stall(60'000);
    camera.look(kInside, 300'000);
    camera.lookAway();
    const Heat heat = heatOf(chunksOf(camera.disk, {}), {}, "UTC");
    int64_t sum = 0;
    for (const auto& [key, cells] : heat.cells) {
        sum = std::accumulate(cells.begin(), cells.end(), sum);
    }
    EXPECT_EQ(sum, 295'000 + 15'000 + 295'000) << "of a minute that nobody watched, no more than three cycles";
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
        if (const auto path = head.kind == "object" ? pathOf(ledger::parseLine(line), head.moment) : std::nullopt) {
            expected += path->points.back().utcMillis - path->points.front().utcMillis;
        }
        return true;
    });
    EXPECT_EQ(sum, expected);
    EXPECT_GT(sum, 10'000);
}

}  // namespace
}  // namespace inquiry

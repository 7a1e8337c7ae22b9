#include "stays.h"

#include <algorithm>
#include <gtest/gtest.h>

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

#include "inquiry/recount.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "inquiry/stays.h"
#include "inquiry/why.h"
#include "slow_build.h"
#include "wandering.h"

namespace inquiry {
namespace {

constexpr unsigned kSeeds = kSlow ? 2 : 5;

TEST(Recount, WithTheOldAreasGivesTheRecordedCrossings) {
    for (unsigned seed = 1; seed <= kSeeds; ++seed) {
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
    for (unsigned seed = 1; seed <= kSeeds; ++seed) {
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
    EXPECT_GT(truth, int64_t{60} * kSeeds);
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

TEST(Recount, IsByTheClockThatCrossingsAreToldBy) {
    constexpr int64_t kHour = 3'600'000;
    for (const int64_t step : {2 * kHour, -2 * kHour, int64_t{5'000}}) {
        Wandering camera(8);
        Wandering neverSet(8);
        camera.run(1500);
        const Counts before = camera.counted;
        const int64_t setAt = camera.time() + 1;
        camera.counted.clear();
        camera.setClockBy(step);
        const int64_t goesOnFrom = camera.time() + 1;
        camera.run(1500);
        camera.stop();
        EXPECT_GT(sumOf(camera.counted), 20) << "a test of something";
        const Recounted early = camera.recount(oldSettings(), {kBegin, setAt});
        EXPECT_EQ(early.recorded, before) << step;
        EXPECT_EQ(early.counts, before) << step;
        const Recounted late = camera.recount(oldSettings(), {goesOnFrom, camera.time() + 1});
        EXPECT_EQ(late.recorded, camera.counted) << step;
        EXPECT_EQ(late.counts, camera.counted) << step;
        neverSet.run(3000);
        neverSet.stop();
        const auto visits = jsonOf(neverSet.recount(oldSettings()).stays);
        EXPECT_EQ(jsonOf(camera.recount(oldSettings()).stays), visits) << step << ": as long as they were";
        EXPECT_EQ(jsonOf(staysOf(chunksOf(camera.disk, {}), {})), jsonOf(staysOf(chunksOf(neverSet.disk, {}), {})))
            << step;
    }
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

TEST(Recount, WaitsForNoPathThatDoesNotComeAnyMore) {
    // Of a long run, of which retention took the paths, no crossing may stay in memory.
    const auto lineAt = [](int minute, const std::string& body) {
        return R"({"seq":1,"epoch":"e","t":")" + ledger::utcText(kBegin + minute * int64_t{60'000}) + "\"," + body +
               "}";
    };
    for (const int later : {15, 31}) {
        Recount recount(settingsInForce(oldSettings(), kPicture), {});
        for (const std::string& line :
             {lineAt(0, R"("kind":"crossing","entrance":1,"direction":"in","class":"Car","object":7,)"
                        R"("before":[150,180],"after":[110,180],"size":[640,360])"),
              lineAt(later, R"("kind":"object","object":7,"class":"Person","size":[640,360],"first":")" +
                                ledger::utcText(kBegin) + R"(","path":[[0,150,180],[100,110,180]],"areas":[])")}) {
            const auto head = ledger::headOf(line);
            ASSERT_TRUE(head) << line;
            recount.add(*head, line);
        }
        const Recounted result = recount.finish();
        const int32_t classId = later == 15 ? *label_to_class_index("Car") : *label_to_class_index("Person");
        EXPECT_EQ(result.counts, (Counts{{{1, true, classId}, 1}})) << later;
        EXPECT_EQ(result.withoutPath, later == 15 ? 0 : 1);
    }
}

TEST(Recount, TellsOfCrossingsOfWhomIsStillThere) {
    Wandering camera(13);
    camera.run(1000);
    const Recounted early = camera.recount(oldSettings());
    EXPECT_GT(early.inView, 0) << "a test of something";
    EXPECT_EQ(early.withoutPath, 0);
    EXPECT_EQ(sumOf(early.counts) + early.inView, sumOf(camera.counted));
    EXPECT_EQ(jsonOf(early)["in_view"], early.inView);
    // By then their paths would have been written.
    const auto pass = [&](int64_t minutes) {
        camera.setClock(camera.time() + minutes * 60'000);
        camera.book().append("watched", {});
    };
    pass(10);
    EXPECT_EQ(camera.recount(oldSettings()).inView, early.inView);
    pass(5);
    EXPECT_EQ(camera.recount(oldSettings()).inView, 0);
    EXPECT_EQ(camera.recount(oldSettings()).withoutPath, early.inView);
}

TEST(Recount, HasNobodyInViewBehindTheEndOfARun) {
    for (const char* const kind : {"start", "stop"}) {
        Wandering camera(13);
        camera.run(1000);
        camera.book().append(kind, {});
        const Recounted ended = camera.recount(oldSettings());
        EXPECT_EQ(ended.inView, 0) << kind;
        EXPECT_GT(ended.withoutPath, 0) << kind;
    }
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

}  // namespace
}  // namespace inquiry

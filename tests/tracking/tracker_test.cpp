#include "tracking/tracker.h"

#include <gtest/gtest.h>

#include "builders.h"

namespace {

constexpr float kSentinel = 999999995904.0F;

class TrackerTest : public testing::Test {
protected:
    std::vector<int> idsAfter(const std::vector<detection>& detections) {
        m_tracker.track_rectangles(detections);
        return m_tracker.list_object_keys();
    }

    ConfigParams m_config;
    tracker m_tracker{m_config};
};

using Ids = std::vector<int>;

TEST_F(TrackerTest, IdsStartAtZeroInInputOrder) {
    m_tracker.init(2);
    const t_objects_map objects = m_tracker.track_rectangles({around(50, 50), around(300, 300), around(600, 50)});
    ASSERT_EQ(m_tracker.list_object_keys(), (Ids{0, 1, 2}));
    EXPECT_EQ(objects.at(0).X, 40);
    EXPECT_EQ(objects.at(1).X, 290);
    EXPECT_EQ(objects.at(2).X, 590);
}

TEST_F(TrackerTest, AnObjectTakesTheNearerOfTwoDetections) {
    m_tracker.init(2);
    m_tracker.track_rectangles({around(200, 200)});
    const t_objects_map objects = m_tracker.track_rectangles({around(260, 200), around(240, 200)});
    ASSERT_EQ(m_tracker.list_object_keys(), (Ids{0, 1}));
    EXPECT_EQ(objects.at(0).get_centroid().first, 240) << "40 pixels away: the same object";
    EXPECT_EQ(objects.at(1).get_centroid().first, 260) << "60 pixels away: a new one";
}

TEST_F(TrackerTest, ALonelyObjectTakesABoxOfAnotherClass) {
    m_tracker.init(2);
    m_tracker.track_rectangles({around(200, 200, objects::person)});
    const t_objects_map objects = m_tracker.track_rectangles({around(900, 600, objects::car)});
    ASSERT_EQ(m_tracker.list_object_keys(), (Ids{0}));
    EXPECT_EQ(objects.at(0).ClassId, 2);
}

TEST_F(TrackerTest, ARealMatchTakesItsColumnBeforeASentinelRow) {
    m_tracker.init(5);
    m_tracker.track_rectangles({around(200, 200, objects::person), around(500, 200, objects::car)});
    // Only the car is seen. Row 0 holds nothing but sentinels, so row 1 chooses before it.
    const t_objects_map objects = m_tracker.track_rectangles({around(505, 200, objects::car)});
    EXPECT_EQ(objects.at(0).ClassId, 0) << "the person keeps its last box";
    EXPECT_EQ(objects.at(1).get_centroid().first, 505);
}

TEST_F(TrackerTest, AnObjectSurvivesAsManyMissedFramesAsTheLimitSays) {
    m_tracker.init(2);
    m_tracker.track_rectangles({around(200, 200)});
    EXPECT_EQ(idsAfter({}), (Ids{0}));
    EXPECT_EQ(idsAfter({}), (Ids{0}));
    EXPECT_EQ(idsAfter({}), (Ids{})) << "gone after the third";
}

TEST_F(TrackerTest, MissedFramesAreCountedInARowOnly) {
    m_tracker.init(1);
    m_tracker.track_rectangles({around(200, 200)});
    EXPECT_EQ(idsAfter({}), (Ids{0}));
    EXPECT_EQ(idsAfter({around(201, 200)}), (Ids{0}));
    EXPECT_EQ(idsAfter({}), (Ids{0})) << "the match in between starts the count afresh";
    EXPECT_EQ(idsAfter({}), (Ids{}));
}

TEST_F(TrackerTest, UnmatchedObjectsAgeBesideMatchedOnes) {
    m_tracker.init(0);
    m_tracker.track_rectangles({around(200, 200), around(600, 200)});
    EXPECT_EQ(idsAfter({around(602, 200)}), (Ids{1}));
}

TEST_F(TrackerTest, IdsAreNeverReused) {
    m_tracker.init(0);
    m_tracker.track_rectangles({around(200, 200)});
    m_tracker.track_rectangles({});
    EXPECT_EQ(idsAfter({around(200, 200)}), (Ids{1}));
}

TEST_F(TrackerTest, InitRestartsIdsButKeepsObjects) {
    m_tracker.init(3);
    m_tracker.track_rectangles({around(200, 200), around(400, 200)});
    m_tracker.init(3);
    EXPECT_EQ(m_tracker.list_object_keys(), (Ids{0, 1}));
    m_tracker.register_one(around(600, 600));
    EXPECT_EQ(m_tracker.list_object_keys(), (Ids{0, 1})) << "id 0 again, in place of the old one";
    EXPECT_EQ(m_tracker.list_object_values()[0].get_centroid().first, 600);
}

TEST_F(TrackerTest, EqualDistancesGoToTheFirstColumnAndTheFirstRow) {
    m_tracker.init(3);
    m_tracker.track_rectangles({around(200, 200), around(240, 200)});
    // One detection halfway: both rows are 20 away; the lower row takes it.
    const t_objects_map objects = m_tracker.track_rectangles({around(220, 200)});
    EXPECT_EQ(objects.at(0).get_centroid().first, 220);
    EXPECT_EQ(objects.at(1).get_centroid().first, 240);
}

TEST_F(TrackerTest, ARowWhoseFirstColumnIsTakenLooksNoFurther) {
    m_tracker.init(3);
    m_tracker.track_rectangles({around(200, 200), around(210, 200)});
    // Both objects are nearest to the first detection; the second object does not fall back to the other one.
    const t_objects_map objects = m_tracker.track_rectangles({around(202, 200), around(280, 200)});
    ASSERT_EQ(m_tracker.list_object_keys(), (Ids{0, 1, 2}));
    EXPECT_EQ(objects.at(0).get_centroid().first, 202);
    EXPECT_EQ(objects.at(1).get_centroid().first, 210) << "unmatched in this frame";
    EXPECT_EQ(objects.at(2).get_centroid().first, 280);
}

struct DistanceCase {
    const char* label;
    detection a;
    detection b;
    bool atBottom;
    float expected;
};

class TrackerDistance : public testing::TestWithParam<DistanceCase> {};

TEST_P(TrackerDistance, IsEuclideanUpToTheLimit) {
    ConfigParams config;
    config.b_LocatorAtBottom = GetParam().atBottom;
    EXPECT_FLOAT_EQ(tracker(config).compute_distance(GetParam().a, GetParam().b), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, TrackerDistance,
    testing::Values(DistanceCase{"same place", around(50, 50), around(50, 50), false, 0.0F},
                    DistanceCase{"3-4-5", around(50, 50), around(53, 54), false, 5.0F},
                    DistanceCase{"exactly the limit", around(0, 0), around(60, 80), false, 100.0F},
                    DistanceCase{"just beyond", around(0, 0), around(101, 0), false, kSentinel},
                    // 10000 + 101: the root is 100.5.
                    DistanceCase{"half a pixel beyond", around(0, 0), around(100, 10), false, kSentinel},
                    DistanceCase{"other class", around(0, 0), around(0, 0, objects::car), false, kSentinel},
                    DistanceCase{"centres of unequal boxes", boxAt(0, 0, 10, 10), boxAt(0, 0, 10, 50), false, 20.0F},
                    DistanceCase{"bottoms of unequal boxes", boxAt(0, 0, 10, 10), boxAt(0, 0, 10, 50), true, 40.0F}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(TrackerTest, ALargestDistanceCanBeSet) {
    m_tracker.set_max_distance(10);
    EXPECT_FLOAT_EQ(m_tracker.compute_distance(around(0, 0), around(10, 0)), 10.0F);
    EXPECT_FLOAT_EQ(m_tracker.compute_distance(around(0, 0), around(11, 0)), kSentinel);
}

TEST_F(TrackerTest, RowsAreSortedByTheirSmallestEntryThenByIndex) {
    const tracker::t_distances distances = {{7, 3}, {2, 9}, {3, 3}, {5, 1}};
    const std::vector<size_t> rows = tracker::min_argsort(distances);
    EXPECT_EQ(rows, (std::vector<size_t>{3, 1, 0, 2}));
    EXPECT_EQ(tracker::argmin_rows(distances, rows), (std::vector<size_t>{1, 0, 1, 0}));
}

TEST_F(TrackerTest, TheEntranceStateOfAnUnseenIdIsUnknownAndRecorded) {
    EXPECT_FALSE(m_tracker.is_id_in_occupancy_map(7));
    EXPECT_EQ(m_tracker.get_occupancy_state(7), entrances::unknown);
    EXPECT_TRUE(m_tracker.is_id_in_occupancy_map(7));
}

TEST_F(TrackerTest, TheEntranceStateGoesWithItsObject) {
    m_tracker.init(0);
    m_tracker.track_rectangles({around(200, 200)});
    m_tracker.update_occupancy_map(0, entrances::in_entrance2);
    EXPECT_EQ(m_tracker.get_occupancy_state(0), entrances::in_entrance2);
    m_tracker.track_rectangles({});
    EXPECT_FALSE(m_tracker.is_id_in_occupancy_map(0));
}

TEST_F(TrackerTest, BoxesWithoutSizeAreTracked) {
    m_tracker.init(0);
    m_tracker.track_rectangles({boxAt(5, 5, 0, 0)});
    EXPECT_EQ(idsAfter({boxAt(6, 5, 0, 0)}), (Ids{0}));
}

}  // namespace

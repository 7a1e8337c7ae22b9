#include "tracking/area_of_interest.h"

#include <gtest/gtest.h>

#include "builders.h"

namespace {

const t_Polygon kSquare = {{0, 0}, {10, 0}, {10, 10}, {0, 10}};
const t_Polygon kReversedSquare = {{0, 10}, {10, 10}, {10, 0}, {0, 0}};
// Drawn in one stroke, so that its middle is wound around twice.
const t_Polygon kPentagram = {{50, 0}, {80, 95}, {2, 35}, {98, 35}, {20, 95}};
// Two loops over the same square.
const t_Polygon kTwice = {{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0}, {10, 0}, {10, 10}, {0, 10}};

struct PointCase {
    const char* label;
    const t_Polygon& polygon;
    t_one_locator point;
    int corners;
    bool inside;
};

class PointInPolygon : public testing::TestWithParam<PointCase> {};

TEST_P(PointInPolygon, IsInsideWhenWoundAroundOnce) {
    const PointCase& given = GetParam();
    EXPECT_EQ(area_of_interest::is_winding_number_nonzero(given.point, given.polygon, given.corners), given.inside)
        << given.label;
}

INSTANTIATE_TEST_SUITE_P(Table, PointInPolygon,
                         testing::Values(PointCase{"middle", kSquare, {5, 5}, 4, true},
                                         PointCase{"right edge", kSquare, {10, 5}, 4, false},
                                         PointCase{"left edge", kSquare, {0, 5}, 4, true},
                                         PointCase{"top edge", kSquare, {5, 0}, 4, true},
                                         PointCase{"bottom edge", kSquare, {5, 10}, 4, false},
                                         PointCase{"outside, level with it", kSquare, {15, 5}, 4, false},
                                         PointCase{"outside, level with a corner", kSquare, {-5, 0}, 4, false},
                                         PointCase{"middle, other way round", kReversedSquare, {5, 5}, 4, true},
                                         PointCase{"middle of a pentagram", kPentagram, {50, 50}, 5, false},
                                         PointCase{"a point of a pentagram", kPentagram, {50, 20}, 5, true},
                                         PointCase{"wound around twice", kTwice, {5, 5}, 8, false},
                                         PointCase{"the first loop only", kTwice, {5, 5}, 4, true},
                                         PointCase{"no corners", kSquare, {5, 5}, 0, false},
                                         PointCase{"fewer corners than asked for", kSquare, {5, 5}, 8, true},
                                         PointCase{"a negative number of corners", kSquare, {5, 5}, -1, false},
                                         PointCase{"a triangle of the square", kSquare, {2, 8}, 3, false}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST(AreaOfInterest, ArithmeticWrapsAroundInThirtyTwoBits) {
    // The left edge's cross product is 2 * 32769 * 32768, just above what 32 bits hold, and turns negative: it undoes
    // the long edge's crossing (32768 * 65534, which fits).
    const t_Polygon huge = {{-65536, -32768}, {65536, 32768}, {-65536, 32768}};
    EXPECT_FALSE(area_of_interest::is_winding_number_nonzero({-32767, 0}, huge, 3));
}

class Areas : public testing::Test {
protected:
    ConfigParams m_config = everyClass();
    area_of_interest m_areas{m_config};
};

TEST_F(Areas, OnlyTheFirstDetectionAreaAndEntranceStartActive) {
    EXPECT_TRUE(m_areas.get_detection_active(1));
    EXPECT_FALSE(m_areas.get_detection_active(2));
    EXPECT_FALSE(m_areas.get_detection_active(3));
    EXPECT_FALSE(m_areas.get_exclusion_active(1));
    for (int n = 1; n <= 3; ++n) {
        m_areas.set_entrance(n, kSquare);
        EXPECT_EQ(m_areas.is_in_entrance(n, {5, 5}), n == 1) << "entrance " << n;
    }
}

TEST_F(Areas, AnInactiveDetectionAreaHoldsNothing) {
    m_areas.set_detection(2, kSquare);
    EXPECT_FALSE(m_areas.is_detected(2, {5, 5}));
    m_areas.set_detection_active(2, true);
    EXPECT_TRUE(m_areas.is_detected(2, {5, 5}));
}

TEST_F(Areas, OnlyTheConfiguredNumberOfCornersCounts) {
    const t_Polygon eight = {{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 20}, {0, 20}, {0, 20}, {0, 20}};
    m_areas.set_detection(1, eight);
    m_areas.set_entrance(1, eight);
    // With all corners, the stroke out to (0, 20) and back adds nothing; with three, half the square is gone.
    EXPECT_TRUE(m_areas.is_detected(1, {2, 8}));
    m_config.i_DetectionControlPoints = 3;
    EXPECT_FALSE(m_areas.is_detected(1, {2, 8}));
    EXPECT_TRUE(m_areas.is_in_entrance(1, {2, 8}));
    m_config.i_EntrancesControlPoints = 3;
    EXPECT_FALSE(m_areas.is_in_entrance(1, {2, 8}));
}

TEST_F(Areas, NothingIsExcludedByDefault) {
    for (int n = 1; n <= 3; ++n) {
        m_areas.set_exclusion(n, kSquare);
    }
    EXPECT_FALSE(m_areas.is_excluded({5, 5}));
}

TEST_F(Areas, AnyActiveExclusionExcludesWithFourCorners) {
    m_config.i_DetectionControlPoints = 3;
    m_config.i_EntrancesControlPoints = 3;
    for (int n = 1; n <= 3; ++n) {
        area_of_interest areas(m_config);
        areas.set_exclusion(n, kSquare);
        areas.set_exclusion_active(n, true);
        EXPECT_TRUE(areas.is_excluded({2, 8})) << "exclusion " << n;
        EXPECT_FALSE(areas.is_excluded({20, 8})) << "exclusion " << n;
    }
}

TEST_F(Areas, NumbersOutsideOneToThreeAreRefused) {
    for (const int n : {-1, 0, 4}) {
        EXPECT_FALSE(m_areas.set_detection(n, kSquare)) << n;
        EXPECT_FALSE(m_areas.set_exclusion(n, kSquare)) << n;
        EXPECT_FALSE(m_areas.set_entrance(n, kSquare)) << n;
        EXPECT_FALSE(m_areas.set_detection_active(n, true)) << n;
        EXPECT_FALSE(m_areas.set_exclusion_active(n, true)) << n;
        EXPECT_FALSE(m_areas.set_entrance_active(n, true)) << n;
        EXPECT_TRUE(m_areas.get_detection(n).empty()) << n;
        EXPECT_TRUE(m_areas.get_exclusion(n).empty()) << n;
        EXPECT_FALSE(m_areas.get_detection_active(n)) << n;
        EXPECT_FALSE(m_areas.get_exclusion_active(n)) << n;
        EXPECT_FALSE(m_areas.is_detected(n, {5, 5})) << n;
        EXPECT_FALSE(m_areas.is_in_entrance(n, {5, 5})) << n;
    }
}

TEST_F(Areas, PolygonsAreHandedOutAsTheyWereSet) {
    EXPECT_TRUE(m_areas.set_detection(3, kPentagram));
    EXPECT_TRUE(m_areas.set_exclusion(2, kSquare));
    m_areas.init();
    EXPECT_EQ(m_areas.get_detection(3), kPentagram);
    EXPECT_EQ(m_areas.get_exclusion(2), kSquare);
}

}  // namespace

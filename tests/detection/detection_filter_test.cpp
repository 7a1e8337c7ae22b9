#include <algorithm>

#include "detector_fixture.h"

namespace {

using scripted::Candidate;

/** A stream of 1024 by 512, so that fractions of whole pixels are exact. */
class Filter : public Detector {
protected:
    static constexpr float kWidth = 1024;
    static constexpr float kHeight = 512;

    Filter() {
        scripted::offerResolutions(1, {{1024, 512}});
        EXPECT_TRUE(init(1024, 512));
    }

    static Candidate box(float left, float top, float width, float height, objects object = objects::person,
                         float score = 0.9F) {
        return {.classId = static_cast<int>(object),
                .score = score,
                .ymin = top / kHeight,
                .xmin = left / kWidth,
                .ymax = (top + height) / kHeight,
                .xmax = (left + width) / kWidth};
    }

    /** One frame that shows these candidates. */
    std::vector<detection> detect(const std::vector<Candidate>& candidates) {
        scripted::find(candidates);
        EXPECT_EQ(m_detector.larod_prepare_data_and_do_ai(), 0);
        return m_detector.get_detections();
    }

    /** Left edges of what one frame shows. */
    std::vector<int> lefts(const std::vector<Candidate>& candidates) {
        std::vector<int> found;
        for (const detection& box : detect(candidates)) {
            found.push_back(box.X);
        }
        return found;
    }
};

using Lefts = std::vector<int>;

TEST_F(Filter, AScoreHasToExceedTheThreshold) {
    EXPECT_EQ(lefts({box(0, 0, 100, 100, objects::person, 0.35F)}), Lefts{});
    EXPECT_EQ(lefts({box(0, 0, 100, 100, objects::person, 0.3501F)}), (Lefts{0}));
    m_detector.set_sensitivity(0.8F);
    EXPECT_EQ(lefts({box(0, 0, 100, 100, objects::person, 0.8F)}), Lefts{});
    EXPECT_EQ(lefts({box(0, 0, 100, 100, objects::person, 0.81F)}), (Lefts{0}));
}

TEST_F(Filter, OnlyTheFirstTwelveSlotsCount) {
    std::vector<Candidate> row;
    for (int i = 0; i < 13; ++i) {
        row.push_back(box(static_cast<float>(i) * 70, 0, 60, 60));
    }
    const std::vector<detection> found = detect(row);
    ASSERT_EQ(found.size(), 12U);
    EXPECT_EQ(found.back().X, 11 * 70);
    std::swap(row[0], row[12]);
    EXPECT_EQ(detect(row).front().X, 12 * 70) << "slot order, not position, decides";
}

TEST_F(Filter, ABoxIsCutToPixels) {
    const std::vector<detection> found = detect({box(10.75F, 20.75F, 100.5F, 50.5F)});
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].X, 10);
    EXPECT_EQ(found[0].Y, 20);
    EXPECT_EQ(found[0].W, 111 - 10);
    EXPECT_EQ(found[0].H, 71 - 20);
    EXPECT_EQ(found[0].ClassId, 0);
    EXPECT_EQ(found[0].Confidence, 0.9F);
}

TEST_F(Filter, FarEdgesStayInsideTheStream) {
    const std::vector<detection> found = detect({box(900, 400, 124, 112), box(600, 300, 500, 300)});
    ASSERT_EQ(found.size(), 1U) << "the second lies over more than 0.4 of the first";
    EXPECT_EQ(found[0].W, 1023 - 900);
    EXPECT_EQ(found[0].H, 511 - 400);
}

TEST_F(Filter, FarEdgesBeyondTheStreamAreClamped) {
    const std::vector<detection> found = detect({box(900, 400, 200, 200)});
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].W, 1023 - 900);
    EXPECT_EQ(found[0].H, 511 - 400);
}

TEST_F(Filter, NegativeEdgesAreZeroAndNearEdgesNotClamped) {
    const std::vector<detection> before = detect({box(-50, -40, 150, 140)});
    ASSERT_EQ(before.size(), 1U);
    EXPECT_EQ(before[0].X, 0);
    EXPECT_EQ(before[0].Y, 0);
    EXPECT_EQ(before[0].W, 100);
    EXPECT_EQ(before[0].H, 100);
    const std::vector<detection> beyond = detect({box(1100, 600, 150, 140)});
    ASSERT_EQ(beyond.size(), 1U);
    EXPECT_EQ(beyond[0].X, 1100);
    EXPECT_EQ(beyond[0].Y, 600);
    EXPECT_EQ(beyond[0].W, 1023 - 1100) << "a degenerate box is passed on as it is";
    EXPECT_EQ(beyond[0].H, 511 - 600);
}

// --- Sizes that no object has ----------------------------------------------------------------------------------------

struct SizeCase {
    const char* label;
    float width;  // as fractions of the frame
    float height;
    bool kept;
};

class Size : public Filter, public testing::WithParamInterface<SizeCase> {};

TEST_P(Size, DecidesWhetherABoxIsAnAnomaly) {
    Candidate candidate;
    candidate.score = 0.9F;
    candidate.xmax = GetParam().width;
    candidate.ymax = GetParam().height;
    EXPECT_EQ(detect({candidate}).size(), GetParam().kept ? 1U : 0U) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Size,
    testing::Values(SizeCase{"0.4 percent", 0.08F, 0.05F, false}, SizeCase{"0.5 percent", 0.1F, 0.05F, true},
                    SizeCase{"50 percent", 0.5F, 1.0F, true}, SizeCase{"51 percent", 0.51F, 1.0F, false},
                    SizeCase{"no area", 0.0F, 1.0F, false}, SizeCase{"negative area", -0.5F, 0.5F, false},
                    SizeCase{"everything", 1.0F, 1.0F, false}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Filter, RejectedCandidatesHaveAScoreOfOneHundredth) {
    m_detector.set_sensitivity(0.005F);
    const std::vector<detection> found = detect({box(0, 0, 10, 10), box(300, 0, 100, 100), box(310, 0, 100, 100)});
    ASSERT_EQ(found.size(), 3U) << "0.01 is above 0.005";
    EXPECT_EQ(found[0].Confidence, 0.01F) << "an anomaly";
    EXPECT_EQ(found[1].Confidence, 0.9F);
    EXPECT_EQ(found[2].Confidence, 0.01F) << "suppressed";
    m_detector.set_sensitivity(0.01F);
    EXPECT_EQ(detect({box(0, 0, 10, 10)}).size(), 0U) << "0.01 is not above 0.01";
}

TEST_F(Filter, ACandidateBelowTheThresholdKeepsItsScore) {
    scripted::find({box(0, 0, 10, 10, objects::person, 0.2F)});
    EXPECT_EQ(m_detector.larod_prepare_data_and_do_ai(), 0);
    m_detector.set_sensitivity(0.1F);
    ASSERT_EQ(m_detector.get_detections().size(), 1U);
    EXPECT_EQ(m_detector.get_detections()[0].Confidence, 0.2F) << "was not looked at, let alone rejected";
}

// --- Overlaps --------------------------------------------------------------------------------------------------------

struct OverlapCase {
    const char* label;
    objects first;
    objects second;
    float overlap;  // pixels of the second's 100 by 100 that lie in the first
    bool bothKept;
};

class Overlap : public Filter, public testing::WithParamInterface<OverlapCase> {};

TEST_P(Overlap, OfTheSameObjectLeavesTheEarlierSlot) {
    const OverlapCase& given = GetParam();
    const Candidate first = box(100, 100, 200, 200, given.first, 0.5F);
    const Candidate second = box(300 - given.overlap, 100, 100, 100, given.second, 0.9F);
    const int secondLeft = static_cast<int>(300 - given.overlap);
    EXPECT_EQ(lefts({first, second}), (given.bothKept ? Lefts{100, secondLeft} : Lefts{100})) << given.label;
    EXPECT_EQ(lefts({second, first}), (given.bothKept ? Lefts{secondLeft, 100} : Lefts{secondLeft})) << given.label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Overlap,
    testing::Values(OverlapCase{"persons, 40 percent", objects::person, objects::person, 40, true},
                    OverlapCase{"persons, 41 percent", objects::person, objects::person, 41, false},
                    OverlapCase{"persons that touch", objects::person, objects::person, 0, true},
                    OverlapCase{"a person wholly inside", objects::person, objects::person, 150, false},
                    OverlapCase{"car and truck", objects::car, objects::truck, 50, false},
                    OverlapCase{"truck and car", objects::truck, objects::car, 50, false},
                    OverlapCase{"car and truck, 40 percent", objects::car, objects::truck, 40, true},
                    OverlapCase{"person and bicycle", objects::person, objects::bicycle, 90, true},
                    OverlapCase{"car and bus", objects::car, objects::bus, 90, true},
                    OverlapCase{"truck and bus", objects::truck, objects::bus, 90, true}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Filter, ASuppressedCandidateSuppressesNobody) {
    // Each lies over half of its neighbour; the outer two over nothing of each other.
    EXPECT_EQ(lefts({box(100, 100, 100, 100), box(150, 100, 100, 100), box(200, 100, 100, 100)}), (Lefts{100, 200}));
}

TEST_F(Filter, SuppressionComesBeforeTheChoiceOfClasses) {
    m_config.b_DetectTrucks = false;
    EXPECT_EQ(lefts({box(100, 100, 200, 200, objects::truck), box(150, 100, 200, 200, objects::car)}), Lefts{});
    m_config.b_DetectTrucks = true;
    m_config.b_DetectCars = false;
    EXPECT_EQ(lefts({box(100, 100, 200, 200, objects::truck), box(150, 100, 200, 200, objects::car)}), (Lefts{100}));
}

TEST_F(Filter, AWeakCandidateNeitherSuppressesNorIsSuppressed) {
    EXPECT_EQ(lefts({box(100, 100, 200, 200, objects::person, 0.3F), box(100, 100, 200, 200)}), (Lefts{100}));
    scripted::find({box(100, 100, 200, 200), box(100, 100, 200, 200, objects::person, 0.3F)});
    EXPECT_EQ(m_detector.larod_prepare_data_and_do_ai(), 0);
    m_detector.set_sensitivity(0.2F);
    EXPECT_EQ(m_detector.get_detections().size(), 2U);
}

TEST_F(Filter, ABoxWithoutAnAreaOverlapsNothing) {
    const float whole[] = {0.0F, 0.0F, 1.0F, 1.0F};
    const float half[] = {0.0F, 0.0F, 0.5F, 1.0F};
    const float line[] = {0.5F, 0.25F, 0.5F, 0.75F};
    const float insideOut[] = {0.75F, 0.25F, 0.25F, 0.75F};
    EXPECT_TRUE(m_detector.DoTheseOverlap(whole, half, 1));
    EXPECT_FALSE(m_detector.DoTheseOverlap(whole, line, 1));
    EXPECT_FALSE(m_detector.DoTheseOverlap(whole, insideOut, 1));
}

TEST(Classes, OnlyEqualOnesAndCarsWithTrucksAreCompared) {
    for (int a = -1; a <= 9; ++a) {
        for (int b = -1; b <= 9; ++b) {
            const bool expected = a == b || (a == 2 && b == 7) || (a == 7 && b == 2);
            EXPECT_EQ(shouldCompareClasses(a, b), expected) << a << " and " << b;
        }
    }
}

// --- Classes ---------------------------------------------------------------------------------------------------------

struct FlagCase {
    int index;
    bool ConfigParams::*flag;
    const char* label;
};

class ClassFlag : public Filter, public testing::WithParamInterface<FlagCase> {};

TEST_P(ClassFlag, SelectsItsClassAndNoOther) {
    m_config = ConfigParams();
    m_config.*(GetParam().flag) = true;
    for (int index = -1; index <= 9; ++index) {
        EXPECT_EQ(m_detector.is_object_a_trigger(index), index == GetParam().index) << index;
        EXPECT_EQ(m_detector.IsValidClass(index), index == GetParam().index) << index;
        const Candidate candidate = box(0, 0, 100, 100, static_cast<objects>(index));
        EXPECT_EQ(detect({candidate}).size(), index == GetParam().index ? 1U : 0U) << index;
    }
    EXPECT_EQ(location_controller_larod::ClassIDToLabel(GetParam().index), GetParam().label);
}

INSTANTIATE_TEST_SUITE_P(Table, ClassFlag,
                         testing::Values(FlagCase{0, &ConfigParams::b_DetectPersons, "Person"},
                                         FlagCase{1, &ConfigParams::b_DetectBicycles, "Bicycle"},
                                         FlagCase{2, &ConfigParams::b_DetectCars, "Car"},
                                         FlagCase{3, &ConfigParams::b_DetectMotorcycles, "Motorcycle"},
                                         FlagCase{4, &ConfigParams::b_DetectAirplanes, "Airplane"},
                                         FlagCase{5, &ConfigParams::b_DetectBuses, "Bus"},
                                         FlagCase{6, &ConfigParams::b_DetectTrains, "Train"},
                                         FlagCase{7, &ConfigParams::b_DetectTrucks, "Truck"},
                                         FlagCase{8, &ConfigParams::b_DetectBoats, "Boat"}),
                         [](const auto& instance) { return std::string(instance.param.label); });

TEST(Classes, OutsideTheTableAreUnknown) {
    EXPECT_EQ(location_controller_larod::ClassIDToLabel(9), "Unknown");
    EXPECT_EQ(location_controller_larod::ClassIDToLabel(-1), "Unknown");
}

}  // namespace

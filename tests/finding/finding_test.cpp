#include "finding/finding.h"

#include <gtest/gtest.h>

#include "builders.h"

namespace {

TEST(Finding, HalvesTowardsZero) {
    const detection box = boxAt(10, 20, 5, 7);
    EXPECT_EQ(box.get_centroid(), (t_one_locator{12, 23}));
    EXPECT_EQ(box.get_bottom(), (t_one_locator{12, 27}));
    const detection backwards = boxAt(10, 20, -5, -7);
    EXPECT_EQ(backwards.get_centroid(), (t_one_locator{8, 17}));
    EXPECT_EQ(backwards.get_bottom(), (t_one_locator{8, 13}));
    rectangle plain;
    plain.X = 10;
    plain.Y = 20;
    plain.W = 5;
    plain.H = 7;
    EXPECT_EQ(plain.get_centroid(), (t_one_locator{12, 23}));
}

TEST(Finding, TheLocatorIsTheCentreOrTheBottom) {
    const detection box = boxAt(10, 20, 5, 7);
    EXPECT_EQ(box.get_locator(false), (t_one_locator{12, 23}));
    EXPECT_EQ(box.get_locator(true), (t_one_locator{12, 27}));
}

TEST(Finding, StartsEmpty) {
    const detection box;
    EXPECT_EQ(box.X, 0);
    EXPECT_EQ(box.Y, 0);
    EXPECT_EQ(box.W, 0);
    EXPECT_EQ(box.H, 0);
    EXPECT_EQ(box.ClassId, 0);
    EXPECT_EQ(box.Confidence, 0.0F);
    const one_find finding;
    EXPECT_EQ(finding.locator, (t_one_locator{0, 0}));
    EXPECT_EQ(finding.detect.W, 0);
}

struct ClassCase {
    int32_t index;
    objects object;
    const char* label;
};

class ClassIndex : public testing::TestWithParam<ClassCase> {};

TEST_P(ClassIndex, HasItsObjectAndLabel) {
    EXPECT_EQ(class_index_to_object(GetParam().index), GetParam().object);
    EXPECT_STREQ(class_index_to_label(GetParam().index), GetParam().label);
}

INSTANTIATE_TEST_SUITE_P(Table, ClassIndex,
                         testing::Values(ClassCase{0, objects::person, "Person"},
                                         ClassCase{1, objects::bicycle, "Bicycle"}, ClassCase{2, objects::car, "Car"},
                                         ClassCase{3, objects::motorcycle, "Motorcycle"},
                                         ClassCase{4, objects::airplane, "Airplane"}, ClassCase{5, objects::bus, "Bus"},
                                         ClassCase{6, objects::train, "Train"}, ClassCase{7, objects::truck, "Truck"},
                                         ClassCase{8, objects::boat, "Boat"}, ClassCase{9, objects::unknown, "Unknown"},
                                         ClassCase{-1, objects::unknown, "Unknown"},
                                         ClassCase{100, objects::unknown, "Unknown"}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

// Stored, compared and used as indices: the numbers themselves are relied on.
static_assert(static_cast<int>(objects::unknown) == 100);
static_assert(static_cast<int>(aoi::aoi1) == 0 && static_cast<int>(aoi::aoi3) == 2);
static_assert(static_cast<int>(aoi::unknown) == 100);
static_assert(static_cast<int>(entrances::unknown) == 0 && static_cast<int>(entrances::not_in_entrance) == 1);
static_assert(static_cast<int>(entrances::in_entrance1) == 2 && static_cast<int>(entrances::in_entrance3) == 4);
static_assert(static_cast<int>(entrance::entrance1) == 0 && static_cast<int>(entrance::unknown) == 100);
static_assert(static_cast<int>(footings::not_in_AOI) == 0 && static_cast<int>(footings::in_AOI1_briefly) == 1);
static_assert(static_cast<int>(footings::in_AOI1_lengthily) == 2 && static_cast<int>(footings::in_AOI3_lengthily) == 6);
static_assert(static_cast<int>(entranceActivity::enterEntrance1) == 0);
static_assert(static_cast<int>(entranceActivity::exitEntrance1) == 1);
static_assert(static_cast<int>(entranceActivity::exitEntrance3) == 5);
static_assert(static_cast<int>(entranceActivity::unknown) == 100);
static_assert(static_cast<int>(logicComparison::lessThan) == 0 && static_cast<int>(logicComparison::exactly) == 1);
static_assert(static_cast<int>(logicComparison::atLeast) == 2 && static_cast<int>(logicComparison::unknown) == 100);

}  // namespace

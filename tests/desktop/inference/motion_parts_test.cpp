#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "desktop/inference/engine/settings_in_force.h"
#include "desktop/inference/motion/motion_alignment.h"
#include "desktop/inference/motion/motion_blobs.h"
#include "desktop/inference/motion/motion_shares.h"
#include "desktop/inference/motion/motion_sizes.h"
#include "motion_drawings.h"

namespace desktop {
namespace {

Blob solidBlob(const cv::Rect& box) {
    Blob blob;
    blob.box = box;
    blob.mask = cv::Mat(box.size(), CV_8U, cv::Scalar(255));
    blob.area = box.area();
    return blob;
}

struct Fragments {
    const char* name;
    cv::Rect a;
    cv::Rect b;
    bool usualKnown; /**< 20x50, 1000 pixels */
    bool one;
};

class FragmentsOf : public testing::TestWithParam<Fragments> {};

TEST_P(FragmentsOf, BecomeOneWithinWhatAnObjectIs) {
    const UsualSize usual = {20, 50, 1000};
    constexpr double kThing = 170;
    EXPECT_EQ(
        mayBeOne(solidBlob(GetParam().a), solidBlob(GetParam().b), GetParam().usualKnown ? &usual : nullptr, kThing),
        GetParam().one);
}

INSTANTIATE_TEST_SUITE_P(
    Motion, FragmentsOf,
    testing::Values(Fragments{"HeadAndBody", {5, 0, 10, 10}, {0, 12, 20, 40}, false, true},
                    Fragments{"TwoCarsBehindEachOther", {0, 0, 40, 30}, {0, 33, 44, 34}, false, false},
                    Fragments{"ARowOfCarsIsNoTallPerson", {0, 0, 12, 40}, {0, 42, 10, 9}, false, false},
                    Fragments{"BodyAndLegsOfTheUsualSize", {0, 0, 20, 26}, {0, 28, 20, 22}, true, true},
                    Fragments{"TwoOfTheUsualSize", {0, 0, 20, 50}, {0, 52, 20, 8}, true, true},
                    Fragments{"LargerThanUsual", {0, 0, 20, 50}, {22, 0, 12, 50}, true, false}),
    [](const auto& instance) { return instance.param.name; });

TEST(MotionSizes, AreKnownWhereEnoughWereSeen) {
    MotionSizes sizes({320, 180});
    EXPECT_FALSE(sizes.at({160, 90}));
    for (int i = 0; i < 6; ++i) {
        sizes.add({100.0 + 10 * i, 70, 20, 50}, 700);
    }
    const auto here = sizes.at({150, 95});
    ASSERT_TRUE(here);
    EXPECT_NEAR(here->width, 20, 0.01);
    EXPECT_NEAR(here->height, 50, 0.01);
    EXPECT_NEAR(here->area, 700, 0.01);
    EXPECT_FALSE(sizes.at({150, 5})) << "nothing is known of places so far away";
}

TEST(MotionSizes, DoNotCountAPairAsUsual) {
    MotionSizes sizes({320, 180});
    for (int i = 0; i < 5; ++i) {
        sizes.add({100, 70, 20, 50}, 700);
        sizes.add({100, 70, 42, 50}, 1400);
    }
    EXPECT_NEAR(sizes.at({110, 95})->width, 20, 0.01);
}

TEST(MotionSizes, FollowThePerspectiveWhereTooFewWereSeen) {
    MotionSizes sizes({320, 180});
    for (int y = 60; y <= 170; y += 5) {  // lengths grow evenly with y
        sizes.add({150, y - y / 4.0, y / 5.0, y / 2.0}, y * y / 16.0);
    }
    const auto far = sizes.at({160, 12});
    ASSERT_TRUE(far);
    EXPECT_LT(far->area, sizes.at({160, 60})->area);
    EXPECT_LT(sizes.at({160, 60})->area, sizes.at({160, 120})->area);
}

struct Several {
    const char* name;
    std::vector<cv::Rect> people;
};

class PlacedBoxes : public testing::TestWithParam<Several> {};

TEST_P(PlacedBoxes, LieOnTheObjectsThatMakeUpTheMask) {
    cv::Mat mask = cv::Mat::zeros(120, 200, CV_8U);
    for (const cv::Rect& person : GetParam().people) {
        mask(person).setTo(255);
    }
    const cv::Point origin(30, 20);
    const auto boxes = placeBoxes(mask, origin, static_cast<int>(GetParam().people.size()), {20, 50});
    ASSERT_EQ(boxes.size(), GetParam().people.size());
    for (const cv::Rect& person : GetParam().people) {
        const double x = person.x + person.width / 2.0 + origin.x;
        const double y = person.y + person.height / 2.0 + origin.y;
        EXPECT_TRUE(std::any_of(boxes.begin(), boxes.end(),
                                [&](const cv::Rect2d& box) {
                                    return std::abs(box.x + box.width / 2 - x) < 4 &&
                                           std::abs(box.y + box.height / 2 - y) < 6;
                                }))
            << "nothing at " << x << ", " << y;
    }
}

INSTANTIATE_TEST_SUITE_P(Motion, PlacedBoxes,
                         testing::Values(Several{"One", {{50, 30, 20, 50}}},
                                         Several{"ShoulderToShoulder", {{50, 30, 20, 50}, {70, 32, 20, 50}}},
                                         Several{"BehindEachOther", {{50, 10, 20, 50}, {52, 60, 20, 50}}},
                                         Several{"ThreeAbreast",
                                                 {{20, 30, 20, 50}, {40, 30, 20, 50}, {60, 30, 20, 50}}}),
                         [](const auto& instance) { return instance.param.name; });

TEST(MotionShares, GiveEachPixelToTheNearest) {
    const auto shares = shareOut(solidBlob({100, 50, 40, 50}), {{100, 50, 20, 50}, {120, 50, 20, 50}});
    ASSERT_EQ(shares.size(), 2U);
    EXPECT_EQ(shares[0].box, cv::Rect(100, 50, 20, 50));
    EXPECT_EQ(shares[1].box, cv::Rect(120, 50, 20, 50));
}

struct Shift {
    const char* name;
    cv::Point2d by;
    double gain;
};

class ShiftedPictures : public testing::TestWithParam<Shift> {};

TEST_P(ShiftedPictures, AreLaidWhereTheBackgroundLies) {
    cv::Mat picture;
    cv::cvtColor(pavement(), picture, cv::COLOR_RGB2YCrCb);
    cv::resize(picture, picture, {320, 180}, 0, 0, cv::INTER_AREA);
    cv::Mat background;
    picture.convertTo(background, CV_32F);
    cv::Mat shaken;
    cv::warpAffine(picture, shaken, cv::Matx23d(1, 0, GetParam().by.x, 0, 1, GetParam().by.y), picture.size(),
                   cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    shaken.convertTo(shaken, CV_8U, GetParam().gain);
    const auto differs = [&](const cv::Mat& a) {
        cv::Mat expected;
        picture.convertTo(expected, CV_8U, GetParam().gain);
        const cv::Rect inner(12, 12, 296, 156);
        return cv::norm(a(inner), expected(inner), cv::NORM_L1) / inner.area();
    };
    const double before = differs(shaken);
    MotionAlignment alignment;
    alignment.align(shaken, background);
    EXPECT_LT(differs(shaken), before / 2);
    EXPECT_GE(alignment.margin(), 2);
}

INSTANTIATE_TEST_SUITE_P(Motion, ShiftedPictures,
                         testing::Values(Shift{"Sideways", {3, 0}, 1}, Shift{"UpAndAcross", {-2.5, 1.6}, 1},
                                         Shift{"InOtherLight", {2.4, -2}, 0.8}),
                         [](const auto& instance) { return instance.param.name; });

TEST(MotionAlignmentTest, AnotherPictureStaysWhereItIs) {
    cv::Mat background(180, 320, CV_32FC3, cv::Scalar(100, 128, 128));
    cv::circle(background, {80, 90}, 30, cv::Scalar(200, 128, 128), cv::FILLED);
    cv::Mat other(180, 320, CV_8UC3, cv::Scalar(100, 128, 128));
    cv::rectangle(other, {200, 20}, {300, 150}, cv::Scalar(20, 128, 128), cv::FILLED);
    const cv::Mat came = other.clone();
    MotionAlignment alignment;
    alignment.align(other, background);
    EXPECT_EQ(cv::norm(other, came, cv::NORM_INF), 0);
    EXPECT_EQ(alignment.margin(), 0);
}

struct Expected {
    const char* name;
    std::vector<ObjectClass> onCard;
    std::vector<ObjectClass> counted;
    std::vector<ObjectClass> expected;
};

class ExpectedClasses : public testing::TestWithParam<Expected> {};

TEST_P(ExpectedClasses, FollowTheSettingsWithinTheCard) {
    EXPECT_EQ(classesToExpect(GetParam().onCard, GetParam().counted), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Motion, ExpectedClasses,
    testing::Values(
        Expected{
            "NothingSaid", {}, {}, {ObjectClass::Person, ObjectClass::Bicycle, ObjectClass::Car, ObjectClass::Bus}},
        Expected{"OnlyPeopleCounted", {}, {ObjectClass::Person}, {ObjectClass::Person}},
        Expected{"CardNarrows", {ObjectClass::Car}, {ObjectClass::Person, ObjectClass::Car}, {ObjectClass::Car}},
        Expected{"CardAndSettingsDisagree", {ObjectClass::Boat}, {ObjectClass::Person}, {ObjectClass::Boat}}),
    [](const auto& instance) { return instance.param.name; });

}  // namespace
}  // namespace desktop

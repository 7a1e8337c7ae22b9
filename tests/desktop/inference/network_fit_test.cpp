#include <gtest/gtest.h>

#include "desktop/inference/network/blind_watch.h"
#include "desktop/inference/network/network_engine.h"

namespace desktop {
namespace {

struct Score {
    const char* name;
    float score;
    float fitting;
    float expected;
};

class FittedScores : public testing::TestWithParam<Score> {};

TEST_P(FittedScores, PutTheFittingScoreAtTheDefaultSetting) {
    EXPECT_NEAR(fittedScore(GetParam().score, GetParam().fitting), GetParam().expected, 1e-5F);
}

INSTANTIATE_TEST_SUITE_P(Network, FittedScores,
                         testing::Values(Score{"Nothing", 0, 0.25F, 0}, Score{"Fitting", 0.25F, 0.25F, 0.35F},
                                         Score{"Half", 0.125F, 0.25F, 0.175F}, Score{"Sure", 1, 0.25F, 1},
                                         Score{"Between", 0.625F, 0.25F, 0.675F},
                                         Score{"UnchangedByDefault", 0.6F, 0.35F, 0.6F}),
                         [](const auto& instance) { return instance.param.name; });

TEST(Tiles, CoverThePictureAndOverlap) {
    for (int tiles = 1; tiles <= 4; ++tiles) {
        cv::Mat covered = cv::Mat::zeros(540, 960, CV_8U);
        const auto places = tilesOf(covered.size(), tiles);
        ASSERT_EQ(places.size(), static_cast<size_t>(tiles * tiles));
        for (const cv::Rect& place : places) {
            ASSERT_EQ(place & cv::Rect(0, 0, 960, 540), place);
            covered(place) += 1;
        }
        EXPECT_EQ(cv::countNonZero(covered), 960 * 540) << tiles;
        double most = 0;
        cv::minMaxLoc(covered, nullptr, &most);
        EXPECT_EQ(most, tiles == 1 ? 1 : 4) << tiles;
    }
}

struct Minute {
    const char* name;
    bool moves;
    int foundEvery; /**< cycles; 0: never */
    int seconds;
    int warnings;
};

class Watched : public testing::TestWithParam<Minute> {};

TEST_P(Watched, IsBlindWhenNothingIsFoundWhileThePictureMoves) {
    BlindWatch watch;
    int warnings = 0;
    for (int cycle = 0; cycle <= GetParam().seconds * 10; ++cycle) {
        cv::Mat picture(54, 96, CV_8UC3, cv::Scalar::all(100));
        if (GetParam().moves) {
            picture(cv::Rect(cycle * 3 % 80, 20, 12, 16)).setTo(cv::Scalar::all(220));
        }
        const bool found = GetParam().foundEvery != 0 && cycle % GetParam().foundEvery == 0;
        warnings += watch.noticesBlindness(picture, found, cycle * int64_t{100000}) ? 1 : 0;
    }
    EXPECT_EQ(warnings, GetParam().warnings);
}

INSTANTIATE_TEST_SUITE_P(Network, Watched,
                         testing::Values(Minute{"LessThanAMinute", true, 0, 59, 0}, Minute{"AMinute", true, 0, 61, 1},
                                         Minute{"ToldOnce", true, 0, 200, 1}, Minute{"NothingMoves", false, 0, 200, 0},
                                         Minute{"SeesSometimes", true, 400, 200, 0}),
                         [](const auto& instance) { return instance.param.name; });

}  // namespace
}  // namespace desktop

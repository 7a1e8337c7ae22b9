#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <utility>

#include "desktop/video/scene/scene.h"
#include "this_build.h"

namespace desktop {
namespace {

class Trials : public testing::TestWithParam<std::string> {};

TEST_P(Trials, BringTheTruthThatTheDrawingMakes) {
    std::ifstream file(this_build::checkout() / "package/scenes" / (GetParam() + ".truth.json"));
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_EQ(text.str(), truthOf(makeTrial(GetParam(), 1)));
}

TEST_P(Trials, AreTheSameForOneSeedAndOthersForAnother) {
    const auto one = findScene(GetParam() + "-7");
    const auto again = findScene(GetParam() + "-7");
    const auto other = findScene(GetParam() + "-8");
    ASSERT_TRUE(one && again && other);
    EXPECT_EQ(truthOf(*one), truthOf(*again));
    ASSERT_EQ(one->figures.size(), again->figures.size());
    const auto startOf = [](const Scene& scene) {
        const Keyframe& first = scene.figures.back().path.front();
        return std::pair(first.seconds, first.x);
    };
    EXPECT_EQ(startOf(*one), startOf(*again));
    EXPECT_NE(startOf(*one), startOf(*other));
}

TEST_P(Trials, HaveCrossingsEnoughToTellEnginesApart) {
    EXPECT_GE(crossingsOf(makeTrial(GetParam(), 1)).size(), 10U);
}

INSTANTIATE_TEST_SUITE_P(Scenes, Trials, testing::ValuesIn(trialNames()),
                         [](const auto& instance) { return instance.param; });

TEST(Crossings, AreReckonedFromThePath) {
    Scene scene = makeTrial("walkway", 1);
    scene.figures = {
        {FigureKind::Person, 40, 40, 0, 0, {{1, 100, -40}, {11, 100, 400}}},   // down: through y = 180 at 6 s
        {FigureKind::Person, 40, 40, 0, 0, {{2, 300, 300}, {4, 300, 100}}},    // up: at 3.2 s
        {FigureKind::Person, 40, 40, 0, 0, {{0, 500, 300}, {20, 600, 300}}}};  // stays below
    const std::vector<Crossing> crossings = crossingsOf(scene);
    ASSERT_EQ(crossings.size(), 2U);
    EXPECT_NEAR(crossings[0].seconds, 3.2, 0.02);
    EXPECT_FALSE(crossings[0].enters);
    EXPECT_NEAR(crossings[0].x, 300, 1);
    EXPECT_NEAR(crossings[1].seconds, 6.0, 0.02);
    EXPECT_TRUE(crossings[1].enters);
}

TEST(SceneNames, ThatAreNoneFindNothing) {
    for (const char* name : {"", "moon", "crowd-", "crowd-x", "crowd-1x", "plaza-2", "-1"}) {
        EXPECT_FALSE(findScene(name)) << name;
    }
    EXPECT_TRUE(findScene("plaza"));
    EXPECT_TRUE(findScene("crowd"));
}

}  // namespace
}  // namespace desktop

#include <fstream>
#include <gtest/gtest.h>

#include "accuracy.h"
#include "log_capture.h"

namespace {

using namespace accuracy;

constexpr uint64_t kSeed = 77000;

/** A small share of what the bench counts: enough to see that the chain works, not to judge it. */
class Walkers : public testing::TestWithParam<SceneKind> {
protected:
    Walkers() { std::ofstream(m_log.folder() / "mnt/flash/usr/local/packages/ostrel_senvo/detect_960_540_tpu.tflite"); }

    LogCapture m_log;
};

TEST_P(Walkers, AreCountedBetterWithTheStageThanWithout) {
    const Scene scene = makeScene(GetParam(), kSeed, 20, 10);
    const Comparison typical = countScene(scene, noiseLevels()[1], kSeed);
    EXPECT_GE(typical.steadied.crossings, 8);
    const auto wrong = [](const Errors& errors) { return errors.missed + errors.invented; };
    EXPECT_LT(wrong(typical.steadied), wrong(typical.bare));
    EXPECT_LE(typical.steadied.perHundred(), 25);
}

INSTANTIATE_TEST_SUITE_P(Scenes, Walkers,
                         testing::Values(SceneKind::Crowd, SceneKind::Shoulders, SceneKind::Overtaking,
                                         SceneKind::Loitering, SceneKind::Turning, SceneKind::Hiding, SceneKind::Pillar,
                                         SceneKind::Vehicles),
                         [](const auto& scene) { return std::string(nameOf(scene.param)); });

TEST(Stander, CountsAtMostOnceEachWay) {
    const LogCapture log;
    std::ofstream(log.folder() / "mnt/flash/usr/local/packages/ostrel_senvo/detect_960_540_tpu.tflite");
    EXPECT_LE(countStander(kSeed, 60), 1);
}

TEST(Comparison, WhatHasNoPartnerIsMissedOrInvented) {
    const std::vector<Crossing> crossings = {
        {1, 1.2, true, 0.5F, true}, {5, 5.2, true, 0.5F, true}, {9, 9.2, false, 0.5F, false}};
    const std::vector<Count> counts = {{1.5, true, 0.55F},   // the first
                                       {5.1, false, 0.5F},   // the wrong way
                                       {9.0, false, 0.5F},   // allowed
                                       {9.1, false, 0.5F}};  // once
    const Errors errors = compareCounts(crossings, counts);
    EXPECT_EQ(errors.crossings, 2);
    EXPECT_EQ(errors.missed, 1);
    EXPECT_EQ(errors.invented, 2);
    EXPECT_EQ(errors.perHundred(), 150);
}

}  // namespace

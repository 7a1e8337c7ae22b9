#include "desktop/inference/detections/detections.h"

#include <gtest/gtest.h>

namespace desktop {
namespace {

TEST(KeepBestPerObject, DropsTheWorseOfTwoBoxesOfAClassThatOverlapMore) {
    // 0.2x0.4 and the same shifted by a quarter of its width: common 0.15x0.4, all 0.25x0.4, overlap 0.6
    std::vector<Detection> found = {{0.10F, 0, 0.30F, 0.4F, ObjectClass::Car, 0.6F},
                                    {0.15F, 0, 0.35F, 0.4F, ObjectClass::Car, 0.8F}};
    std::vector<Detection> allowed = found;

    keepBestPerObject(found, 0.55F);
    keepBestPerObject(allowed, 0.65F);

    ASSERT_EQ(found.size(), 1U) << "overlap 0.6 against 0.55";
    EXPECT_FLOAT_EQ(found[0].score, 0.8F);
    EXPECT_EQ(allowed.size(), 2U) << "overlap 0.6 against 0.65";
}

TEST(KeepBestPerObject, LeavesBoxesOfOtherClassesAlone) {
    std::vector<Detection> found = {{0, 0, 1, 1, ObjectClass::Car, 0.6F}, {0, 0, 1, 1, ObjectClass::Person, 0.5F}};
    keepBestPerObject(found, 0.5F);
    EXPECT_EQ(found.size(), 2U);
}

TEST(PackResultTensors, PutsTheBestFirstAndClampsToThePicture) {
    const ResultTensors tensors = packResultTensors(
        {{0.1F, 0.2F, 0.3F, 0.4F, ObjectClass::Person, 0.5F}, {-0.1F, 0.5F, 0.6F, 1.2F, ObjectClass::Bus, 0.9F}});
    const std::array<float, 8> expected = {0.5F, 0, 1, 0.6F, 0.2F, 0.1F, 0.4F, 0.3F};
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_FLOAT_EQ(tensors.locations[i], expected[i]) << "location " << i;
    }
    EXPECT_FLOAT_EQ(tensors.classes[0], 5);
    EXPECT_FLOAT_EQ(tensors.classes[1], 0);
    EXPECT_FLOAT_EQ(tensors.scores[0], 0.9F);
    EXPECT_FLOAT_EQ(tensors.scores[1], 0.5F);
    EXPECT_FLOAT_EQ(tensors.scores[2], 0) << "an unused slot";
    EXPECT_FLOAT_EQ(tensors.count[0], 2);
}

TEST(PackResultTensors, LeavesOutWhatFindsNoSlot) {
    std::vector<Detection> many(kResultSlots + 20, {0, 0, 1, 1, ObjectClass::Car, 0.5F});
    many.back().score = 0.7F;
    const ResultTensors tensors = packResultTensors(many);
    EXPECT_FLOAT_EQ(tensors.count[0], 100);
    EXPECT_FLOAT_EQ(tensors.scores[0], 0.7F) << "the best has a slot wherever it stood";
    EXPECT_FLOAT_EQ(tensors.scores[99], 0.5F);
}

}  // namespace
}  // namespace desktop

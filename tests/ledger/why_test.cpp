#include "inquiry/why.h"

#include <algorithm>
#include <gtest/gtest.h>

#include "wandering.h"

namespace inquiry {
namespace {

TEST(Why, TellsTheRuleThePathAndWhoElseWasThere) {
    Wandering camera(10);
    camera.run(2000);
    camera.stop();
    const Span span = {kBegin, camera.time() + 1};
    const auto all = whyOf(chunksOf(camera.disk, span), settingsInForce(oldSettings(), kPicture), span, 0);
    ASSERT_EQ(static_cast<int64_t>(all["crossings"].size()), sumOf(camera.counted));
    EXPECT_EQ(all["more"], false);
    size_t ofTheSecond = 0;
    size_t neighbours = 0;
    for (const auto& crossing : all["crossings"]) {
        const bool isIn = crossing["direction"] == "in";
        const std::string zone = "in entrance " + crossing["entrance"].dump();
        EXPECT_EQ(crossing["rule"], isIn ? "was outside every entrance, then " + zone + ": in"
                                         : "was " + zone + ", then outside every entrance: out");
        ofTheSecond += crossing["entrance"] == 2 ? 1 : 0;
        neighbours += crossing["neighbours"].size();
        const auto& path = crossing["path"];
        ASSERT_TRUE(path.is_array());
        const auto there = std::find_if(path.begin(), path.end(), [](const auto& point) { return point[0] == 0; });
        ASSERT_NE(there, path.end());
        EXPECT_EQ((*there)[1], crossing["after"][0]);
    }
    EXPECT_GT(neighbours, 0U);
    EXPECT_EQ(whyOf(chunksOf(camera.disk, span), settingsInForce(oldSettings(), kPicture), span, 2)["crossings"].size(),
              ofTheSecond);
    for (const auto& near : all["near"]) {
        EXPECT_LE(near["distance"], 0.03);
    }
    EXPECT_FALSE(all["near"].empty());
    // Who crossed just before the time did not merely come near.
    for (size_t i = all["crossings"].size() - 5; i < all["crossings"].size(); ++i) {
        const auto& crossing = all["crossings"].at(i);
        const Span later = {*ledger::utcOf(crossing["t"].get<std::string>()) + 1, span.until};
        const auto rest = whyOf(chunksOf(camera.disk, later), settingsInForce(oldSettings(), kPicture), later, 0);
        for (const auto& near : rest["near"]) {
            EXPECT_FALSE(near["object"] == crossing["object"] && near["entrance"] == crossing["entrance"]) << near;
        }
    }
    ConfigParams other = oldSettings();
    other.b_Occupancy1Active = other.b_Occupancy2Active = false;
    const auto changed = whyOf(chunksOf(camera.disk, span), settingsInForce(other, kPicture), span, 0);
    EXPECT_EQ(changed["crossings"][0]["rule"], "by other settings than those in force now");
}

}  // namespace
}  // namespace inquiry

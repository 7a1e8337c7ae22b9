#include "sightings.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace desktop {
namespace {

using Boxes = std::vector<FoundBox>;

constexpr FoundBox kSomebody = {0.40F, 0.4F, 0.50F, 0.8F};
constexpr FoundBox kAnother = {0.44F, 0.4F, 0.54F, 0.8F};  // overlaps the first by more than a third

class Looks : public testing::Test {
protected:
    static int64_t at(int look) { return int64_t{look} * 100000; }

    /** Looks as many times, 100 ms apart, and finds the same each time. */
    void look(int times, const Boxes& found) {
        for (int i = 0; i < times; ++i) {
            m_sightings.add({.picture = {},
                             .width = 640,
                             .height = 360,
                             .micros = at(m_looks++),
                             .found = std::make_shared<const Boxes>(found)});
        }
    }

    /** Whether a box is covered on the frame of a look, beside what was found on it. */
    bool covers(int look, const FoundBox& box) const {
        const std::vector<Mask> masks = m_sightings.around(at(look));
        return std::any_of(masks.begin(), masks.end(), [&](const Mask& mask) {
            return mask.box.left <= box.left && mask.box.top <= box.top && mask.box.right >= box.right &&
                   mask.box.bottom >= box.bottom;
        });
    }

    Sightings m_sightings;
    int m_looks = 0;
};

TEST_F(Looks, SettleAFrameOnceThreeAreYoungerAndOneByASecond) {
    look(10, {});
    EXPECT_FALSE(m_sightings.isSettled(at(0)));
    look(1, {});
    EXPECT_TRUE(m_sightings.isSettled(at(0)));
    EXPECT_FALSE(m_sightings.isSettled(at(1)));
    m_looks = 30;
    look(2, {});
    EXPECT_FALSE(m_sightings.isSettled(at(10))) << "by two that are much younger";
    look(1, {});
    EXPECT_TRUE(m_sightings.isSettled(at(10)));
}

TEST_F(Looks, AtTheSameFrameCountOnce) {
    look(10, {});
    for (int again = 0; again < 3; ++again) {
        --m_looks;
        look(1, {kSomebody});
    }
    EXPECT_FALSE(m_sightings.isSettled(at(7)));
    EXPECT_FALSE(covers(8, kSomebody)) << "it was looked at before";
}

TEST_F(Looks, CoverWhoComesInDuringAStall) {
    look(10, {});
    m_looks = 40;
    look(4, {kSomebody});
    const std::vector<Mask> masks = m_sightings.around(at(9));
    ASSERT_EQ(masks.size(), 1U);
    EXPECT_GE(masks[0].reach, 3.1 * 1.25) << "as far as one walks in 3.1 seconds";
}

TEST_F(Looks, CoverWhoComesToStandBesideSomebodyKnown) {
    look(10, {kSomebody});
    look(10, {kSomebody, kAnother});
    EXPECT_TRUE(covers(9, kAnother));
    EXPECT_FALSE(covers(9, kSomebody)) << "who was found all the time";
    EXPECT_FALSE(covers(10, kAnother)) << "who is found by now";
}

TEST_F(Looks, CoverWhoIsLostBesideSomebodyKnown) {
    look(10, {kSomebody, kAnother});
    look(10, {kSomebody});
    EXPECT_TRUE(covers(10, kAnother));
    EXPECT_FALSE(covers(10, kSomebody));
    EXPECT_FALSE(covers(9, kAnother));
}

}  // namespace
}  // namespace desktop

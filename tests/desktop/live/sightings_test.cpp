#include "desktop/live/sightings.h"

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
            const double more =
                mask.reach * std::max((mask.box.right - mask.box.left) * 640, (mask.box.bottom - mask.box.top) * 360);
            return mask.box.left - more / 640 <= box.left && mask.box.top - more / 360 <= box.top &&
                   mask.box.right + more / 640 >= box.right && mask.box.bottom + more / 360 >= box.bottom;
        });
    }

    Sightings m_sightings;
    int m_looks = 0;
};

TEST_F(Looks, SettleAFrameOnceThreeAreYoungerAndOneByASecondAndThereIsOneMore) {
    look(10, {});
    look(1, {});
    EXPECT_FALSE(m_sightings.isSettled(at(0)));
    look(1, {});
    EXPECT_TRUE(m_sightings.isSettled(at(0)));
    EXPECT_FALSE(m_sightings.isSettled(at(1)));
    m_looks = 30;
    look(3, {});
    EXPECT_FALSE(m_sightings.isSettled(at(11))) << "by three that are much younger";
    look(1, {});
    EXPECT_TRUE(m_sightings.isSettled(at(11)));
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

TEST_F(Looks, CoverWhoeverGoesFastWhereHeComesFromAndWhereHeGoes) {
    const auto where = [](int look) {  // twice his height a second
        const float left = 0.3F + 0.045F * static_cast<float>(look - 10);
        return FoundBox{left, 0.4F, left + 0.1F, 0.8F};
    };
    look(10, {});
    for (int i = 10; i < 20; ++i) {
        look(1, {where(i)});
    }
    look(10, {});
    for (const int unseen : {4, 9, 20, 24}) {
        EXPECT_TRUE(covers(unseen, where(unseen))) << "look " << unseen;
    }
}

TEST_F(Looks, CoverAsFarAsOneWalksWhoStandsAndFurtherWhoIsSeenOnce) {
    look(10, {});
    look(2, {kSomebody});
    std::vector<Mask> masks = m_sightings.around(at(5));
    ASSERT_EQ(masks.size(), 1U);
    EXPECT_DOUBLE_EQ(masks[0].reach, 0.5 * 1.25);
    look(1, {kSomebody, {0.8F, 0.4F, 0.9F, 0.8F}});
    masks = m_sightings.around(at(8));
    ASSERT_EQ(masks.size(), 2U);
    EXPECT_DOUBLE_EQ(masks[1].reach, 0.4 * 4);
}

}  // namespace
}  // namespace desktop

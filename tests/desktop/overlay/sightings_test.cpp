#include "sightings.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace desktop {
namespace {

using namespace std::chrono_literals;
using Boxes = std::vector<FoundBox>;

constexpr FoundBox kSomebody = {0.40F, 0.4F, 0.50F, 0.8F};
constexpr FoundBox kAnother = {0.44F, 0.4F, 0.54F, 0.8F};  // overlaps the first by more than a third

class Looks : public testing::Test {
protected:
    static Clock::TimePoint at(int look) { return Clock::TimePoint(look * 100ms); }

    /** Looks as many times, 100 ms apart, and finds the same each time. */
    void look(int times, const Boxes& found) {
        for (int i = 0; i < times; ++i) {
            m_sightings.add(at(m_looks++), std::make_shared<const Boxes>(found));
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

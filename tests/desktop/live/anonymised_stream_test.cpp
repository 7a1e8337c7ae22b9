#include "desktop/live/anonymised_stream.h"

#include <gtest/gtest.h>

#include "live_fixture.h"

namespace desktop {
namespace {

using namespace std::chrono_literals;

constexpr StreamSize kSize = {640, 360};

TEST(AnonymisedStream, IsTheOneThatTheParametersSay) {
    const struct {
        const char* label;
        const char* on;
        const char* size;
        bool is;
    } cases[] = {{"switched on", "true", "640x360", true},
                 {"switched off", "false", "640x360", false},
                 {"never set", "", "", false},
                 {"another", "true", "1280x720", false},
                 {"none", "true", "0x0", false},
                 {"no size", "true", "large", false},
                 {"more than a size", "true", "640x360x25", true},
                 {"half a size", "true", "640x", false}};
    for (const auto& [label, on, size, is] : cases) {
        HandClock clock;
        EXPECT_EQ(AnonymisedStream({"On", "Size", "", ""}, {{"On", on}, {"Size", size}}, clock).is(kSize), is) << label;
        AnonymisedStream later({"On", "Size", "", ""}, {}, clock);
        later.parameterSet("Size", size);
        EXPECT_FALSE(later.is(kSize)) << label;
        later.parameterSet("On", on);
        EXPECT_EQ(later.is(kSize), is) << label;
        later.parameterSet("Other", "false");
        EXPECT_EQ(later.is(kSize), is) << label;
    }
}

TEST(AnonymisedStream, IsUnknownWhereAParameterCannotBeReadOrWasLost) {
    const std::optional<std::string> unread;
    const struct {
        const char* label;
        std::optional<std::string> on;
        std::optional<std::string> size;
        bool unknown;
        bool otherUnknown;
    } cases[] = {{"both read", "true", "640x360", false, false},
                 {"switched off", "false", unread, false, false},
                 {"unread whether it is on", unread, "640x360", true, false},
                 {"unread which", "true", unread, true, true},
                 {"nothing read", unread, unread, true, true}};
    for (const auto& [label, on, size, unknown, otherUnknown] : cases) {
        HandClock clock;
        const AnonymisedStream stream({"On", "Size", "", ""}, {{"On", on}, {"Size", size}}, clock);
        EXPECT_EQ(stream.isUnknown(kSize), unknown) << label;
        EXPECT_EQ(stream.isUnknown({320, 180}), otherUnknown) << label;
    }
    HandClock clock;
    AnonymisedStream stream({"On", "Size", "", ""}, {{"On", "false"}, {"Size", "640x360"}}, clock);
    EXPECT_TRUE(stream.isKnown());
    stream.parametersLost();
    EXPECT_TRUE(stream.isUnknown(kSize));
    stream.parameterSet("Size", "640x360");
    EXPECT_TRUE(stream.isUnknown(kSize)) << "whether it is on";
    EXPECT_FALSE(stream.isKnown());
    stream.parameterSet("On", "true");
    EXPECT_FALSE(stream.isUnknown(kSize));
    EXPECT_TRUE(stream.isKnown());
    EXPECT_TRUE(stream.is(kSize));
    EXPECT_FALSE(AnonymisedStream({}, {}, clock).isUnknown(kSize)) << "no such stream";
}

TEST(AnonymisedStream, TrustsMasksOfCyclesThatBeganLongAfterAChange) {
    HandClock clock;
    AnonymisedStream stream({"On", "Size", "", ""}, {{"On", "true"}, {"Size", "640x360"}}, clock);
    Drawing drawing;
    EXPECT_FALSE(stream.mayLackMasks(drawing)) << "it was so from the start";
    stream.parameterSet("Size", "640x360");
    EXPECT_FALSE(stream.mayLackMasks(drawing)) << "nothing has changed";
    stream.parameterSet("Size", "1280x720");
    EXPECT_TRUE(stream.mayLackMasks(drawing)) << "the first redraw of all";
    const auto changed = clock.now();
    clock.advance(10s);
    for (const auto& [before, may] :
         {std::pair(changed - 1s, true), std::pair(changed + 1999ms, true), std::pair(changed + 2s, false)}) {
        drawing.before = before;
        EXPECT_EQ(stream.mayLackMasks(drawing), may) << (before - changed).count();
    }
}

}  // namespace
}  // namespace desktop

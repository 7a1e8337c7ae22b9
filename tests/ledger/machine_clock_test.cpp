#include "machine_clock.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace ledger {
namespace {

/** A machine whose times the test decides. */
struct Times {
    int64_t wall = 1'795'305'600'000; /**< milliseconds */
    int64_t mono = 30'000;
    bool synchronised = false;

    ClockSources sources() {
        ClockSources made;
        made.wallMicros = [this] { return wall * 1000; };
        made.monoMillis = [this] { return mono; };
        made.isSynchronised = [this] { return synchronised; };
        made.boot = "boot-1";
        return made;
    }

    void pass(int64_t millis) {
        wall += millis;
        mono += millis;
    }
};

TEST(MachineClock, TellsTimeSinceTheStartUntilSynchronised) {
    Times times;
    MachineClock clock(times.sources());
    times.pass(1'000);
    EXPECT_EQ(clock.look(), std::nullopt);
    EXPECT_EQ(clock.moment().boot, "boot-1");
    EXPECT_EQ(clock.moment().monoMillis, 31'000);
    times.synchronised = true;
    times.wall += 3'600'000;
    const auto line = clock.look();
    ASSERT_TRUE(line);
    EXPECT_EQ(line->dump(), R"({"boot":"boot-1","mono":31000,"synchronised":true})");
    EXPECT_TRUE(clock.moment().isDated());
    EXPECT_EQ(clock.moment().utcMillis, times.wall);
    EXPECT_EQ(clock.look(), std::nullopt) << "said once";
}

TEST(MachineClock, TakesTheClockAsItIsAfterTenMinutes) {
    Times times;
    MachineClock clock(times.sources());
    times.mono = 599'999;
    EXPECT_EQ(clock.look(), std::nullopt);
    times.mono = 600'000;
    const auto line = clock.look();
    ASSERT_TRUE(line);
    EXPECT_EQ((*line)["synchronised"], false);
}

TEST(MachineClock, TrustsAMachineThatHasRunForTenMinutes) {
    Times times;
    times.mono = 600'000;
    EXPECT_TRUE(MachineClock(times.sources()).moment().isDated());
}

TEST(MachineClock, NoticesThatTheClockWasSet) {
    Times times;
    times.synchronised = true;
    MachineClock clock(times.sources());
    times.pass(10'000);
    EXPECT_EQ(clock.look(), std::nullopt);
    times.wall += 900;
    EXPECT_EQ(clock.look(), std::nullopt) << "corrected bit by bit";
    times.wall -= 60'000;
    const auto line = clock.look();
    ASSERT_TRUE(line);
    EXPECT_EQ(line->dump(), R"({"before":"2026-11-22T00:00:10.900Z","after":"2026-11-21T23:59:10.900Z"})");
    EXPECT_EQ(clock.look(), std::nullopt);
}

}  // namespace
}  // namespace ledger

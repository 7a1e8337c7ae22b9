#include "ledger/machine_clock.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "test_clock.h"

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

TEST(MachineClock, HasItsTimesFromTheOneClock) {
    TestClock time(1'800'000'000);
    MachineClock clock;
    time.advance(7);
    EXPECT_EQ(clock.now().monoMillis, 1'800'000'007'000) << "the steady time";
    time.set(1'700'000'000);
    EXPECT_EQ(clock.moment().utcMillis, 1'800'000'007'000) << "as it was when last looked at";
    EXPECT_TRUE(clock.look()) << "it was set";
    EXPECT_EQ(clock.moment().utcMillis, 1'700'000'000'000) << "the wall's";
}

TEST(MachineClock, NoticesThatTheClockWasSet) {
    Times times;
    times.synchronised = true;
    MachineClock clock(times.sources());
    times.pass(10'000);
    EXPECT_EQ(clock.look(), std::nullopt);
    times.wall += 900;
    EXPECT_EQ(clock.look(), std::nullopt) << "corrected bit by bit";
    EXPECT_EQ(utcText(clock.moment().utcMillis), "2026-11-22T00:00:10.000Z") << "no time is off from those before";
    times.wall += 200;
    EXPECT_EQ(clock.look()->dump(), R"({"before":"2026-11-22T00:00:10.000Z","after":"2026-11-22T00:00:11.100Z"})");
    times.wall -= 60'000;
    std::string before;
    const auto line = clock.look([&] { before = utcText(clock.moment().utcMillis); });
    ASSERT_TRUE(line);
    EXPECT_EQ(line->dump(), R"({"before":"2026-11-22T00:00:11.100Z","after":"2026-11-21T23:59:11.100Z"})");
    EXPECT_EQ(before, "2026-11-22T00:00:11.100Z") << "what is told then is told by the time before";
    EXPECT_EQ(clock.look(), std::nullopt);
}

}  // namespace
}  // namespace ledger

#include "clock.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>

#include "Logger.h"
#include "occupancy_records.h"
#include "test_clock.h"

namespace {

TEST(LocalTime, FollowsATimeZoneThatIsChangedWhileItRuns) {
    const TimeZone zone("UTC0");
    EXPECT_EQ(localTime(0).tm_hour, 0);
    // As a change of the machine's zone comes: nobody tells the process.
    setenv("TZ", "EET-2", 1);
    EXPECT_EQ(localTime(0).tm_hour, 2);
    setenv("TZ", "EST5", 1);
    EXPECT_EQ(Logger::timeToString(0), "1969-12-31 19:00:00");
    setenv("TZ", "JST-9", 1);
    EXPECT_EQ(OccupancyRecordBase::timeToString(0), "1970-01-01 09:00:00");
}

// Without a TZ the C library forgets and learns the zone at each question.
TEST(LocalTime, IsAskedForByTwoThreadsAtOnce) {
    unsetenv("TZ");
    const auto ask = [] {
        for (time_t moment = 0; moment < 100 * 86400; moment += 86400) {
            EXPECT_EQ(fromLocalTime(localTime(moment)), moment);
        }
    };
    std::thread other(ask);
    ask();
    other.join();
}

}  // namespace

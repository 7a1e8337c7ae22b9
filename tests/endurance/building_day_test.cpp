#include "building_day.h"

#include <gtest/gtest.h>
#include <iostream>

#include "ledger/line.h"
#include "slow_build.h"

/* A building of three cameras that are killed while people walk, the disk fills up, and clocks are set. */

namespace building {
namespace {

TEST(BuildingDay, LosesNobodyInTheHourThatComesTwice) {
    Day day;
    day.seed = 7;
    day.length = kSlow ? 900'000 : 3'600'000;
    day.begin = ledger::utcOf("2026-10-25T01:00:00.000Z").value() - day.length / 2;
    day.zone = "Europe/Berlin";
    day.resetAt = "02:05";
    Watching watching;
    watching.killEvery = day.length / 9;
    const Watched watched = liveThrough(day, watching);
    for (const std::string& line : watched.said) {
        std::cout << line << '\n';
    }
    EXPECT_EQ(watched.faults, std::vector<std::string>());
}

}  // namespace
}  // namespace building

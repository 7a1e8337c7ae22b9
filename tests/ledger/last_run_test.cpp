#include "ledger/last_run.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "failing_power.h"
#include "ledger/ledger.h"

namespace ledger {
namespace {

constexpr int64_t kNow = 1'795'305'600'000;  // 2026-11-22
constexpr int64_t kUptime = 3'600'000;

using Key = std::tuple<int64_t, std::string, std::string>;

/** What the run after the written lines is told; it begins a minute after the last of them. */
class LastRunTest : public testing::Test {
protected:
    LastRunTest() { m_book.open(); }

    void write(const std::string& kind, const nlohmann::ordered_json& body) {
        ASSERT_TRUE(m_book.append(kind, body));
        m_moment.utcMillis += 1000;
    }
    void cross(const char* direction, int occupancy) {
        write("crossing", {{"entrance", 2}, {"direction", direction}, {"class", "Person"}, {"occupancy", occupancy}});
    }
    LastRun next(Instant now = {kUptime, kNow - kUptime, true}) { return lastRunOf(m_disk, m_book.files(), now, "b2"); }

    FailingPower m_disk{1};
    Moment m_moment = {kNow - 120'000, "", 0};
    Ledger m_book{m_disk, {int64_t{1} << 20, [this] { return m_moment; }, [] { return std::string("e"); }}};
};

TEST_F(LastRunTest, IsNoneInANewLedger) {
    const LastRun run = next();
    EXPECT_EQ(run.ending, "none");
    EXPECT_EQ(run.occupancy, std::nullopt);
    EXPECT_EQ(run.gapMillis, std::nullopt);
    EXPECT_TRUE(run.openPeriod.empty());
}

TEST_F(LastRunTest, HadCountedInItsOpenPeriodWhatNoPeriodHas) {
    write("start", {{"occupancy", 0}});
    cross("in", 1);
    write("period", {{"offset", 0}});
    cross("in", 2);
    write("object", {{"to", 99}});
    cross("in", 3);
    cross("out", 2);
    const LastRun run = next();
    EXPECT_EQ(run.openPeriod, (std::map<Key, int64_t>{{{2, "in", "Person"}, 2}, {{2, "out", "Person"}, 1}}));
    EXPECT_EQ(run.occupancy, 2);
    EXPECT_EQ(run.ending, "killed");
    EXPECT_EQ(run.gapMillis, 114'000) << "two minutes but for the six seconds until the last line";
}

TEST_F(LastRunTest, EndedAsItDidWhateverWasCutBehindThat) {
    write("start", {{"occupancy", 0}});
    write("stop", {{"reason", "stopped in order"}, {"occupancy", 3}});
    m_moment.utcMillis = kNow;
    write("cut", {{"removed", "all"}, {"from", 1}, {"through", 1}});
    const LastRun run = next();
    EXPECT_EQ(run.ending, "stopped in order");
    EXPECT_EQ(run.gapMillis, 119'000) << "since its last word";
    EXPECT_EQ(run.occupancy, 3);
}

TEST_F(LastRunTest, LostNothingThatAResetHadCleared) {
    write("start", {{"occupancy", 0}});
    cross("in", 1);
    cross("in", 2);
    write("reset", {{"from", 2}, {"to", 0}});
    cross("in", 1);
    EXPECT_EQ(next().openPeriod, (std::map<Key, int64_t>{{{2, "in", "Person"}, 1}}));
}

TEST_F(LastRunTest, LeavesNothingOpenOfTheRunBeforeIt) {
    write("start", {{"occupancy", 0}});
    cross("in", 1);
    write("start", {{"occupancy", 0}});
    write("period", {{"offset", 0}});
    cross("in", 1);
    const LastRun run = next();
    EXPECT_EQ(run.openPeriod, (std::map<Key, int64_t>{{{2, "in", "Person"}, 1}}));
    EXPECT_EQ(run.occupancy, 1) << "a whole period long nobody has missed them";
}

TEST_F(LastRunTest, HasWhatWasBeforeARunTooShortForAPeriod) {
    write("start", {{"occupancy", 0}});
    cross("in", 16);
    write("start", {{"occupancy", 0}});
    cross("in", 1);
    EXPECT_EQ(next().occupancy, 17);
    write("start", {{"occupancy", 0}});
    const LastRun run = next();
    EXPECT_EQ(run.occupancy, 17);
    EXPECT_EQ(run.openPeriod, (std::map<Key, int64_t>{{{2, "in", "Person"}, 2}}));
    write("start", {{"occupancy", 17}});
    EXPECT_EQ(next().occupancy, 17) << "it went on with them";
    write("start", {{"occupancy", 0}});
    write("corrected", {{"from", 0}, {"to", 3}});
    EXPECT_EQ(next().occupancy, 3);
}

TEST_F(LastRunTest, IsReadAcrossDays) {
    write("start", {{"occupancy", 0}});
    cross("in", 5);
    m_moment.utcMillis += 86'400'000;
    cross("in", 6);
    const LastRun run = next({kUptime, kNow + 86'400'000 - kUptime, true});
    EXPECT_EQ(run.openPeriod, (std::map<Key, int64_t>{{{2, "in", "Person"}, 2}}));
    EXPECT_EQ(run.occupancy, 6);
}

TEST_F(LastRunTest, KnowsTheOccupancyByWhateverSetIt) {
    write("start", {{"occupancy", 0}});
    cross("in", 1);
    write("watched", {{"occupancy", 7}});
    EXPECT_EQ(next().occupancy, 7);
    write("corrected", {{"from", 7}, {"to", 20}});
    EXPECT_EQ(next().occupancy, 20);
    write("reset", {{"from", 20}, {"to", 0}});
    EXPECT_EQ(next().occupancy, 0);
    write("alert", {{"alert", "Area 1"}});
    EXPECT_EQ(next().occupancy, 0);
}

TEST_F(LastRunTest, EndedForTheReasonThatItGave) {
    write("start", {{"version", "1"}});
    write("stop", {{"reason", "stopped in order"}, {"occupancy", 3}});
    EXPECT_EQ(next().ending, "stopped in order");
    EXPECT_EQ(next().occupancy, 3);
}

TEST_F(LastRunTest, LostItsPowerWhenTheMachineStartedSince) {
    write("start", {{"version", "1"}});
    const LastRun run = next({30'000, kNow - 30'000, true});
    EXPECT_EQ(run.ending, "power lost or machine restarted");
    EXPECT_EQ(run.gapMillis, 120'000);
}

TEST_F(LastRunTest, IsOfTheSameStartOfTheMachineBeforeTheClockIsKnown) {
    m_moment = {0, "b2", 40'000};
    write("start", {{"version", "1"}});
    const LastRun same = next({kUptime, 0, false});
    EXPECT_EQ(same.ending, "killed");
    EXPECT_EQ(same.gapMillis, kUptime - 40'000);
    m_moment = {0, "b1", 50'000};
    write("watched", {{"seconds", 60}});
    const LastRun other = next({kUptime, 0, false});
    EXPECT_EQ(other.ending, "power lost or machine restarted");
    EXPECT_EQ(other.gapMillis, std::nullopt) << "nobody knows";
}

}  // namespace
}  // namespace ledger

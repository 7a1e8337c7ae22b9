#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>

#include "kept_lines.h"
#include "running_application.h"

/* What an application that is told when a cycle is has in its ledger. */

namespace {

/** The application with its ledger, in this process. */
class LedgerOfAnApplication : public RunningApplication {
protected:
    LedgerOfAnApplication() { scripted::parameters()["ThisDeviceCameraName"] = "Front door"; }

    void begin() {
        start();
        m_application.init_ledger();
    }
    void tick(int64_t millis) {
        m_clock.advanceMillis(millis);
        EXPECT_TRUE(m_application.thread_function());
    }
    /** The lines of a kind, without heads. */
    std::vector<nlohmann::json> linesOf(const std::string& kind) const {
        std::vector<nlohmann::json> lines = linesIn(m_log.folder() / kLedger);
        EXPECT_EQ(faultsOf(lines), "");
        std::erase_if(lines, [&](const nlohmann::json& line) { return line["kind"] != kind; });
        for (nlohmann::json& line : lines) {
            for (const char* const member : {"seq", "epoch", "t", "kind"}) {
                line.erase(member);
            }
        }
        return lines;
    }
    /** Has the picture's right half as entrance 1. */
    static void guardTheRightHalf() {
        const std::map<std::string, std::string> corners = {{"0x", "32"}, {"1x", "64"}, {"2x", "64"},      {"2y", "36"},
                                                            {"3x", "32"}, {"3y", "36"}, {"Active", "true"}};
        for (const auto& [name, value] : corners) {
            scripted::parameters()["Occupancy1" + name] = value;
        }
        scripted::parameters()["EntrancesControlPoints"] = "4";
    }
    /** From now on somebody walks, from a place in the picture's width on, so far in each of 15 cycles. */
    static void walk(float from, float pace) {
        scripted::onJob([from, pace, step = 0](const std::vector<uint8_t>&) mutable {
            const float x = from + pace * static_cast<float>(step++);
            const scripted::Candidate walker = {
                .classId = 0, .score = 0.9F, .ymin = 0.2F, .xmin = x, .ymax = 0.6F, .xmax = x + 0.15F};
            return step < 15 ? std::vector<scripted::Candidate>{walker} : std::vector<scripted::Candidate>();
        });
    }
    static std::vector<nlohmann::json> reset(const char* by, int from) {
        const nlohmann::json line = {{"by", by}, {"user", ""}, {"from", from}, {"to", 0}, {"remark", ""}};
        return std::vector<nlohmann::json>(1, line);
    }

    TimeZone m_zone{"CET-1"};
};

TEST_F(LedgerOfAnApplication, TellsOfAResetBySchedule) {
    scripted::parameters()["OccupancyAutoResetActive"] = "true";
    scripted::parameters()["OccupancyAutoResetTime"] = "23:15";
    begin();  // at 23:13:20
    m_application.occupancy().init(9);
    tick(99'000);
    EXPECT_EQ(linesOf("reset"), std::vector<nlohmann::json>());
    tick(31'000);
    EXPECT_EQ(linesOf("reset"), reset("schedule", 9));
    EXPECT_EQ(m_application.occupancy().get_count(), 0);
}

TEST_F(LedgerOfAnApplication, TellsOfAResetByAlert) {
    scripted::parameters()["ResetByOccupanyCount"] = "true";
    scripted::parameters()["MinOccupantsForTrigger"] = "0";
    begin();
    m_application.occupancy().init(9);
    for (int cycle = 0; cycle < 3; ++cycle) {
        tick(1'000);
        EXPECT_EQ(linesOf("reset"), reset("alert", 9)) << "in cycle " << cycle;
    }
    m_application.occupancy().init(4);
    tick(1'000);
    EXPECT_EQ(linesOf("reset").size(), 2U);
    EXPECT_EQ(linesOf("reset").back(), reset("alert", 4)[0]);
}

TEST_F(LedgerOfAnApplication, TellsOfAResetByAlertThatClearedTalliesWhileNobodyWasInside) {
    scripted::parameters()["ResetByOccupanyCount"] = "true";
    scripted::parameters()["MinOccupantsForTrigger"] = "0";
    guardTheRightHalf();
    begin();
    tick(1'000);
    EXPECT_EQ(linesOf("reset"), reset("alert", 0)) << "with the alert's begin, which stays";
    // Whoever goes out of an empty building is a tally, which the next cycle clears.
    walk(0.75F, -0.05F);
    for (int cycle = 0; cycle < 20; ++cycle) {
        tick(1'000);
    }
    EXPECT_EQ(linesOf("crossing").size(), 1U);
    const std::vector<nlohmann::json> resets = linesOf("reset");
    ASSERT_EQ(resets.size(), 2U);
    EXPECT_EQ(resets[1], reset("alert", 0)[0]);
    std::vector<std::string> kinds = kindsOf(linesIn(m_log.folder() / kLedger));
    std::erase_if(kinds, [](const std::string& kind) { return kind != "crossing" && kind != "reset"; });
    EXPECT_EQ(kinds, (std::vector<std::string>{"reset", "crossing", "reset"}));
}

TEST_F(LedgerOfAnApplication, TellsOfItsPeriods) {
    guardTheRightHalf();
    begin();
    // Somebody walks in; then the camera stalls for half of the minute.
    walk(0.1F, 0.05F);
    for (int cycle = 0; cycle < 30; ++cycle) {
        tick(1'000);
    }
    tick(30'000);
    const std::vector<nlohmann::json> periods = linesOf("period");
    ASSERT_EQ(periods.size(), 1U);
    nlohmann::json period = periods[0];
    EXPECT_EQ(period["tallies"]["Entrance1_Entrances_Person"], 1) << period;
    EXPECT_EQ(period["tallies"]["Entrance1_Exits_Person"], 0) << period;
    period.erase("tallies");
    // The first cycle is a second behind the start.
    const nlohmann::json expected = {{"begin", "2023-11-14T22:13:20.000Z"},
                                     {"end", "2023-11-14T22:14:20.000Z"},
                                     {"offset", 3600},
                                     {"archived", "2023-11-14 23:14:20"},
                                     {"camera", "Front door"},
                                     {"coverage", 29.0 / 60}};
    EXPECT_EQ(period, expected);
    for (int cycle = 0; cycle < 15 * 60; ++cycle) {
        tick(1'000);
    }
    const nlohmann::json next = linesOf("period").back();
    EXPECT_EQ(next["begin"], "2023-11-14T22:14:20.000Z");
    EXPECT_EQ(next["end"], "2023-11-14T22:29:20.000Z");
    EXPECT_EQ(next["coverage"], 1.0);
    EXPECT_EQ(next["tallies"]["Entrance1_Entrances_Person"], 0);
}

}  // namespace

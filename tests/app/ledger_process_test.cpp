#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

#include "kept_lines.h"
#include "scripted_process.h"

/* The ledger of a process that stops or is killed. */

namespace {

TEST(LedgerOfAProcess, TellsOfItsStartItsEndAndWhatItSaw) {
    const ScriptedProcess process;
    for (const char* const before : {"none", "stopped in order"}) {
        Child child(process.start("50"));
        ASSERT_EQ(child.wait(-1), 0) << readFile(process.folder() / "err");
        const std::vector<nlohmann::json> lines = linesIn(process.folder() / kLedger);
        const std::vector<std::string> kinds = kindsOf(lines);
        const int runs = std::string(before) == "none" ? 1 : 2;
        for (const char* const kind : {"start", "object", "stop"}) {
            EXPECT_EQ(std::count(kinds.begin(), kinds.end(), kind), runs) << kind;
        }
        EXPECT_GE(std::count(kinds.begin(), kinds.end(), "watched"), runs) << "more where a minute ends meanwhile";
        const auto start = std::find(kinds.rbegin(), kinds.rend(), "start");
        EXPECT_EQ(lines[static_cast<size_t>(kinds.rend() - start - 1)]["last_run"], before);
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i]["seq"], i + 1);
        }
        EXPECT_EQ(faultsOf(lines), "");
    }
}

TEST(LedgerOfAProcess, HasNoGapAfterKills) {
    const ScriptedProcess process;
    constexpr int kKills = 10;
    std::mt19937 random(1);
    for (int kill = 0; kill < kKills; ++kill) {
        Child child(process.start());
        // Whenever the next few lines are there.
        const size_t enough = linesIn(process.folder() / kLedger).size() + 1 + random() % 2;
        while (linesIn(process.folder() / kLedger).size() < enough) {
            ASSERT_EQ(child.wait(1), -1) << "ended by itself: " << readFile(process.folder() / "err");
        }
        ::kill(child.pid(), SIGKILL);
        child.wait(-1);
    }
    const std::vector<nlohmann::json> lines = linesIn(process.folder() / kLedger);
    std::vector<std::string> ends;
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i]["seq"], i + 1);
        EXPECT_EQ(lines[i]["epoch"], lines[0]["epoch"]);
        if (lines[i]["kind"] == "start") {
            ends.push_back(lines[i]["last_run"]);
        }
    }
    ASSERT_EQ(ends.size(), static_cast<size_t>(kKills));
    EXPECT_EQ(ends[0], "none");
    EXPECT_EQ(std::count(ends.begin(), ends.end(), "killed"), kKills - 1);
}

}  // namespace

#include "ledger_keeping.h"

#include <csignal>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

#include "log_capture.h"
#include "scripted_process.h"
#include "test_clock.h"

/* The ledger of a running application, and of one that was killed. */

namespace {

std::vector<nlohmann::json> linesOf(const std::string& text) {
    std::vector<nlohmann::json> lines;
    std::istringstream all(text);
    for (std::string line; std::getline(all, line);) {
        lines.push_back(ledger::parseLine(line));
    }
    return lines;
}

/** All lines in a folder, in the order of its files. */
std::vector<nlohmann::json> linesIn(const std::filesystem::path& folder) {
    std::string text;
    for (const std::string& name : ledger::openFolder(folder.string())->list()) {
        text += ledger::fileOf(name) ? readFile(folder / name) : "";
    }
    return linesOf(text);
}

std::vector<std::string> kindsOf(const std::vector<nlohmann::json>& lines) {
    std::vector<std::string> kinds;
    for (const nlohmann::json& line : lines) {
        kinds.push_back(line["kind"]);
    }
    return kinds;
}

constexpr const char* kLedger = "usr/local/packages/ostrel_senvo/localdata/ledger";

TEST(LedgerOfAProcess, TellsOfItsStartItsEndAndWhatItSaw) {
    const ScriptedProcess process;
    for (const char* const before : {"none", "stopped in order"}) {
        Child child(process.start("50"));
        ASSERT_EQ(child.wait(-1), 0) << readFile(process.folder() / "err");
        const std::vector<nlohmann::json> lines = linesIn(process.folder() / kLedger);
        const std::vector<std::string> kinds = kindsOf(lines);
        for (const char* const kind : {"start", "object", "watched", "stop"}) {
            EXPECT_EQ(std::count(kinds.begin(), kinds.end(), kind), std::string(before) == "none" ? 1 : 2) << kind;
        }
        const auto start = std::find(kinds.rbegin(), kinds.rend(), "start");
        EXPECT_EQ(lines[static_cast<size_t>(kinds.rend() - start - 1)]["last_run"], before);
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i]["seq"], i + 1);
        }
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

/** A keeping of the test's own. */
class LedgerKeepingTest : public testing::Test {
protected:
    LedgerSettings settings(int32_t syncSeconds = 3'600) const {
        return {(m_log.folder() / "ledger").string(), int64_t{1} << 20, syncSeconds};
    }
    static int nowhere(t_one_locator) { return 0; }

    LogCapture m_log;
};

TEST_F(LedgerKeepingTest, HandsOutOnlyWhatAPowerCutWouldLeave) {
    LedgerKeeping keeping(settings(), "1", nowhere);
    keeping.write("reset", {{"by", "web"}});
    const std::vector<nlohmann::json> lines = linesOf(keeping.safeLines(1, 1 << 20));
    EXPECT_LE(lines.size(), 2U);
    EXPECT_GE(keeping.book().safeSeq(), static_cast<int64_t>(lines.size()));
}

TEST_F(LedgerKeepingTest, AnswersWhileItIsWrittenAndKept) {
    LedgerKeeping keeping(settings(1), "1", nowhere);
    std::atomic<bool> isWriting = true;
    std::thread writer([&] {
        for (int i = 0; i < 2'000; ++i) {
            keeping.write("crossing", {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}});
        }
        isWriting = false;
    });
    int64_t next = 1;
    while (isWriting || next <= keeping.book().end().seq) {
        for (const nlohmann::json& line : linesOf(keeping.safeLines(next, 10'000))) {
            EXPECT_EQ(line["seq"], next);
            ++next;
        }
        EXPECT_TRUE(keeping.index().quarters(0, 1).empty());
    }
    writer.join();
    EXPECT_EQ(next, 2'002);
}

TEST_F(LedgerKeepingTest, LogsARefusedLineOnceAMinute) {
    TestClock clock;
    // A file stands where the folder should be.
    writeFile(m_log.folder() / "ledger", "");
    LedgerKeeping keeping(settings(), "1", nowhere);
    keeping.write("reset", {});
    keeping.write("reset", {});
    const auto logged = [&] {
        return LogCapture::count("error: LedgerKeeping: cannot write to " + (m_log.folder() / "ledger").string() +
                                 ": Not a directory; 0 lines are lost so far");
    };
    EXPECT_EQ(logged(), 1);
    clock.advance(60);
    keeping.write("reset", {});
    EXPECT_EQ(logged(), 2);
}

TEST_F(LedgerKeepingTest, TakesItsSizeFromTheEnvironment) {
    setenv("OSTREL_SENVO_LEDGER_MIB", "2048", 1);
    setenv("OSTREL_SENVO_LEDGER_SYNC", "soon", 1);
    const LedgerSettings settings = LedgerSettings::fromEnvironment();
    unsetenv("OSTREL_SENVO_LEDGER_MIB");
    unsetenv("OSTREL_SENVO_LEDGER_SYNC");
    EXPECT_EQ(settings.mostBytes, int64_t{2048} << 20);
    EXPECT_EQ(settings.syncSeconds, 300);
    EXPECT_EQ(
        LogCapture::count("error: fromEnvironment: expected OSTREL_SENVO_LEDGER_SYNC from 1 to 3600, got \"soon\""), 1);
}

}  // namespace

#include "app/ledger_keeping.h"

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>

#include "inquiry/recount.h"
#include "kept_lines.h"
#include "ledger/counts.h"
#include "log_capture.h"
#include "slow_build.h"
#include "test_clock.h"

/* How the ledger is kept: by several threads, after a power cut, and on a disk that refuses lines. */

namespace {

/** A keeping of the test's own. */
class LedgerKeepingTest : public testing::Test {
protected:
    LedgerSettings settings(int32_t syncSeconds = 3'600) const {
        return {(m_log.folder() / "ledger").string(), int64_t{1} << 20, syncSeconds};
    }
    static int nowhere(t_one_locator) { return 0; }

    LogCapture m_log;
};

/** The lines from a number on that a power cut would leave. */
std::string safeLines(LedgerKeeping& keeping, int64_t fromSeq) {
    keeping.makeSafe();
    return keeping.book().lines(fromSeq, keeping.book().safeSeq(), 10'000);
}

TEST_F(LedgerKeepingTest, HandsOutOnlyWhatAPowerCutWouldLeave) {
    LedgerKeeping keeping(settings(), "1", 0, nowhere);
    keeping.write("reset", {{"by", "web"}});
    const std::vector<nlohmann::json> lines = linesOf(safeLines(keeping, 1));
    EXPECT_LE(lines.size(), 3U);
    EXPECT_GE(keeping.book().safeSeq(), static_cast<int64_t>(lines.size()));
}

TEST_F(LedgerKeepingTest, AnswersWhileItIsWrittenAndKept) {
    LedgerKeeping keeping(settings(1), "1", 0, nowhere);
    std::atomic<bool> isWriting = true;
    std::thread writer([&] {
        for (int i = 0; i < 2'000; ++i) {
            keeping.write("crossing", {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}});
        }
        isWriting = false;
    });
    int64_t next = 1;
    while (isWriting || next <= keeping.book().end().seq) {
        for (const nlohmann::json& line : linesOf(safeLines(keeping, next))) {
            EXPECT_EQ(line["seq"], next);
            ++next;
        }
        keeping.index().update(10'000);
        EXPECT_TRUE(keeping.index().quarters(0, 1).empty());
    }
    writer.join();
    EXPECT_EQ(next, 2'003) << "the start and its clock first";
}

/** Somebody on the way from left to right, over a threshold at 200; 16 cycles long. */
one_find walkerIn(int cycle) {
    constexpr int kCycles = 16;
    one_find walker;
    walker.id = cycle / kCycles;
    walker.detect.ClassId = 0;
    walker.locator = {110 + 12 * (cycle % kCycles), 100};
    walker.entrance = walker.locator.first > 200 ? entrances::in_entrance1 : entrances::not_in_entrance;
    walker.entranceAct = cycle % kCycles == kCycles / 2 ? static_cast<entranceActivity>(0) : entranceActivity::unknown;
    return walker;
}

TEST_F(LedgerKeepingTest, TellsAWayByTheClockThatItsCrossingWasToldBy) {
    TestClock clock;
    const int64_t begin = int64_t{clock.now()} * 1000;
    {
        LedgerKeeping keeping(settings(), "1", 0, [](t_one_locator at) { return at.first > 200 ? 1 : 0; });
        // Somebody sets the clock behind the crossing, while they walk on.
        for (int cycle = 0; cycle < 16; ++cycle) {
            clock.advanceMillis(100);
            if (cycle == 12) {
                clock.set(clock.now() + 3'600);
            }
            keeping.add({walkerIn(cycle)}, {640, 360}, 0, false);
        }
    }
    ConfigParams areas;
    areas.i_EntrancesControlPoints = 4;
    areas.i_Occupancy1 = {200, 0, 640, 0, 640, 360, 200, 360};
    areas.b_Occupancy1Active = areas.b_DetectPersons = true;
    const std::unique_ptr<ledger::Disk> disk = ledger::openFolder(settings().folder);
    const auto counted = [&](int64_t from) {
        const inquiry::Span span = {from, from + 60'000};
        const inquiry::Recounted again = inquiry::recountOf(
            inquiry::chunksOf(*disk, inquiry::readToRecount(span)), [&](ledger::PictureSize) { return areas; }, span);
        EXPECT_EQ(again.counts, again.recorded);
        return again.recorded.size();
    };
    EXPECT_EQ(counted(begin), 1U);
    EXPECT_EQ(counted(begin + 3'600'000), 0U);
}

TEST_F(LedgerKeepingTest, AnswersQuestionsAndCountsAgainWhileItIsWritten) {
    constexpr int kWalkers = kSlow ? 100 : 300;
    TestClock clock;
    LedgerKeeping keeping(settings(1), "1", 0, [](t_one_locator at) { return at.first > 200 ? 1 : 0; });
    ConfigParams areas;
    areas.i_EntrancesControlPoints = 4;
    areas.i_Occupancy1 = {200, 0, 640, 0, 640, 360, 200, 360};
    areas.b_Occupancy1Active = areas.b_DetectPersons = true;
    const inquiry::SettingsFor settingsFor = [&](ledger::PictureSize) { return areas; };
    std::atomic<bool> isWriting = true;
    // The analysis, which writes; beside it the ledger's own thread syncs and indexes.
    std::thread analysis([&] {
        for (int cycle = 0; cycle < 16 * kWalkers; ++cycle) {
            clock.advanceMillis(100);
            keeping.add({walkerIn(cycle)}, {640, 360}, 0, false);
        }
        isWriting = false;
    });
    // A long answer, which has a thread of its own.
    std::thread recount([&] {
        int64_t before = 0;
        do {
            const inquiry::Recounted again = inquiry::recountOf(inquiry::chunksOf(keeping.book(), {}), settingsFor, {});
            const int64_t recorded = again.recorded.empty() ? 0 : again.recorded.begin()->second;
            const int64_t counted = again.counts.empty() ? 0 : again.counts.begin()->second;
            // Whoever is on the way has no path yet.
            EXPECT_LE(std::abs(recorded - counted), 1);
            EXPECT_GE(recorded, before) << "of lines that were there before";
            before = recorded;
        } while (isWriting);
    });
    // Requests.
    int64_t next = 1;
    int64_t crossings = 0;
    const auto askAll = [&] {
        for (const nlohmann::json& line : linesOf(safeLines(keeping, next))) {
            EXPECT_EQ(line["seq"], next);
            ++next;
        }
        keeping.index().update(1 << 20);
        int64_t counted = 0;
        const int64_t now = int64_t{clock.now()} * 1000;
        for (const ledger::CountsRow& row :
             ledger::countsOf(keeping.index(), {now - 86'400'000, now + 900'000, ledger::Step::Hour, {}, ""})) {
            for (const auto& [key, count] : row.counts) {
                counted += count;
            }
        }
        EXPECT_GE(counted, crossings);
        crossings = counted;
    };
    while (isWriting) {
        askAll();
    }
    analysis.join();
    recount.join();
    while (next <= keeping.book().end().seq) {
        askAll();
    }
    EXPECT_EQ(crossings, kWalkers);
}

TEST_F(LedgerKeepingTest, AnswersWhileItsOldestLinesGo) {
    constexpr int kWalkers = 100;
    TestClock clock;
    LedgerSettings small = settings(1);
    small.mostBytes = 16'000;  // their crossings alone take more
    LedgerKeeping keeping(small, "1", 0, [](t_one_locator at) { return at.first > 200 ? 1 : 0; });
    std::atomic<bool> isWriting = true;
    std::thread analysis([&] {
        for (int cycle = 0; cycle < 16 * kWalkers; ++cycle) {
            clock.advanceMillis(100);
            keeping.add({walkerIn(cycle)}, {640, 360}, 0, false);
        }
        isWriting = false;
    });
    std::thread recount([&] {
        do {
            const inquiry::Recounted again = inquiry::recountOf(inquiry::chunksOf(keeping.book(), {}),
                                                                [](ledger::PictureSize) { return ConfigParams(); }, {});
            EXPECT_TRUE(again.counts.empty()) << "without an area";
        } while (isWriting);
    });
    int64_t last = 0;
    while (isWriting || last < keeping.book().end().seq || keeping.book().files().front().firstSeq == 1) {
        for (const nlohmann::json& line : linesOf(safeLines(keeping, last + 1))) {
            EXPECT_GT(line["seq"], last);
            last = line["seq"];
        }
        keeping.index().update(1 << 20);
        for (const auto& [number, quarter] : keeping.index().quarters(0, std::numeric_limits<int64_t>::max())) {
            for (const auto& [key, count] : quarter.crossings) {
                EXPECT_LE(count, kWalkers);
            }
        }
    }
    analysis.join();
    recount.join();
}

/** A machine whose clock was lost with its power: it learns the time from others. */
class LedgerAfterAPowerCut : public LedgerKeepingTest {
protected:
    static constexpr int64_t kNoon = 1'800'000'000'000;

    ledger::ClockSources sources(const char* boot) {
        ledger::ClockSources sources;
        sources.boot = boot;
        sources.monoMillis = [this] { return m_mono; };
        sources.wallMicros = [this] { return (m_zero + m_mono) * 1000; };
        sources.isSynchronised = [this] { return m_isSynchronised; };
        return sources;
    }
    std::unique_ptr<LedgerKeeping> start(const char* boot, int32_t keepSeconds) {
        LedgerSettings kept = settings();
        kept.keepOccupancySeconds = keepSeconds;
        return std::make_unique<LedgerKeeping>(kept, "1", 0, nowhere, sources(boot));
    }
    /** A run that ends at noon with 16 inside, and another one `gapSeconds` later, which knows no time. */
    std::unique_ptr<LedgerKeeping> startLater(int64_t gapSeconds) {
        m_zero = kNoon - 5'000'000;
        m_mono = 5'000'000;
        m_isSynchronised = true;
        auto before = start("first", 0);
        before->add({}, {640, 360}, 16, false);
        before.reset();
        m_mono = 20'000;
        m_noon = kNoon + 1000 * gapSeconds - m_mono;  // what the machine's start was in truth
        m_zero = 0;
        m_isSynchronised = false;
        return start("second", 600);
    }
    /** From now on the time is known. */
    void synchronise() {
        m_zero = m_noon;
        m_isSynchronised = true;
    }

    int64_t m_mono = 0;
    int64_t m_zero = 0;
    int64_t m_noon = 0;
    bool m_isSynchronised = true;
};

TEST_F(LedgerAfterAPowerCut, GoesOnWithTheOccupancyOnceTheClockTellsHowLongAgoThatWas) {
    struct Case {
        int64_t gapSeconds;
        int32_t expected;
        const char* setBy;
    };
    for (const auto& [gapSeconds, expected, setBy] :
         {Case{599, 16, ""}, Case{600, 0, ""}, Case{-1, 0, ""}, Case{120, 0, "reset"}, Case{120, 0, "corrected"}}) {
        SCOPED_TRACE(std::to_string(gapSeconds) + setBy);
        std::filesystem::remove_all(settings().folder);
        const std::unique_ptr<LedgerKeeping> keeping = startLater(gapSeconds);
        EXPECT_EQ(keeping->firstOccupancy(), 0);
        EXPECT_EQ(keeping->lastRun().gapMillis, std::nullopt);
        EXPECT_EQ(keeping->add({}, {640, 360}, 2, false), 0) << "it does not know yet";
        if (*setBy != '\0') {
            keeping->write(setBy, {{"to", 3}});
        }
        m_mono += 90'000;
        synchronise();
        EXPECT_EQ(keeping->add({}, {640, 360}, 2, false), expected);
        EXPECT_EQ(keeping->lastRun().gapMillis, 1000 * gapSeconds) << "until the start, not until it was known";
        EXPECT_EQ(keeping->add({}, {640, 360}, 2, false), 0) << "once";
    }
}

TEST_F(LedgerAfterAPowerCut, BelievesNoClockThatNobodySet) {
    const std::unique_ptr<LedgerKeeping> keeping = startLater(120);
    m_zero = m_noon;      // as it was saved when the power went
    m_mono += 3'600'000;  // after ten minutes without word of synchronisation it is taken as it is
    EXPECT_EQ(keeping->add({}, {640, 360}, 2, false), 0);
    EXPECT_EQ(linesIn(settings().folder).back()["synchronised"], false);
    EXPECT_EQ(keeping->lastRun().gapMillis, std::nullopt);
}

TEST_F(LedgerAfterAPowerCut, LearnsTheTimeAlsoWhileTheModelFails) {
    const std::unique_ptr<LedgerKeeping> keeping = startLater(120);
    synchronise();
    keeping->addFailure();
    EXPECT_EQ(keeping->lastRun().gapMillis, 120'000);
    EXPECT_EQ(linesIn(settings().folder).back()["kind"], "clock");
    EXPECT_EQ(keeping->add({}, {640, 360}, 2, false), 16);
}

TEST_F(LedgerKeepingTest, TellsAtItsEndWhatSomebodySetSinceTheLastCycle) {
    const auto occupancyAfter = [&](const char* kind) {
        std::filesystem::remove_all(settings().folder);
        {
            LedgerKeeping keeping(settings(), "1", 0, nowhere);
            keeping.add({}, {640, 360}, 7, false);
            keeping.write(kind, {{"to", 5}});
        }
        return linesIn(settings().folder).back()["occupancy"];
    };
    EXPECT_EQ(occupancyAfter("corrected"), 5);
    EXPECT_EQ(occupancyAfter("reset"), 5);
    EXPECT_EQ(occupancyAfter("settings"), 7);
}

TEST_F(LedgerKeepingTest, LogsARefusedLineOnceAMinute) {
    TestClock clock;
    // A file stands where the folder should be.
    writeFile(m_log.folder() / "ledger", "");
    LedgerKeeping keeping(settings(), "1", 0, nowhere);
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

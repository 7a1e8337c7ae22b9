#include <gtest/gtest.h>

#include "desktop/parameters/parameter_store.h"
#include "file_steps.h"
#include "log_capture.h"
#include "program.h"
#include "shared.h"
#include "statistics/record_archive.h"
#include "test_clock.h"

/*
 * A killed process loses nothing that was flushed before and tears at most one line. A power cut, which also takes what
 * was written and not yet synced, cannot be played here: for it the tests look at the order of the steps.
 */

namespace {

using Names = std::vector<std::string>;
using file_steps::Step;
using file_steps::Stop;

constexpr time_t kStart = 1704067200;  // 2024-01-01 00:00:00
constexpr time_t kDay = 86400;

/** Whether a piece of a line of an archive passes for a line: all its fields, the last one with a digit. */
bool parses(const std::string& piece) {
    return std::count(piece.begin(), piece.end(), ',') == 4 && piece.back() != ',';
}

/** What a start finds of a text of which so many bytes were written: whole lines, the torn one if it parses. */
std::string mended(const std::string& text) {
    const std::string whole = text.substr(0, text.rfind('\n') + 1);
    const std::string torn = text.substr(whole.size());
    return whole + (parses(torn) ? torn + "\n" : "");
}

class KilledAtAStep : public testing::Test {
protected:
    /**
     * Does the work once to its end, then again and again, killed before every step and, in a write, at many of its
     * bytes; looks each time at what a new start finds. Returns the names of the steps.
     */
    Names atEveryStep(const std::function<void()>& prepare, const std::function<void()>& work,
                      const std::function<void(size_t step, size_t bytes)>& look) {
        prepare();
        const file_steps::Run whole = file_steps::run(std::nullopt, work);
        EXPECT_FALSE(whole.killed);
        for (size_t step = 0; step < whole.steps.size(); ++step) {
            for (const size_t bytes : file_steps::tears(whole.steps[step])) {
                SCOPED_TRACE("killed at step " + std::to_string(step) + ", " + whole.steps[step].name + ", after " +
                             std::to_string(bytes) + " bytes");
                prepare();
                EXPECT_TRUE(file_steps::run(Stop{step, bytes}, work).killed);
                look(step, bytes);
            }
        }
        return file_steps::names(whole);
    }

    std::string text() const { return readFile(m_archive.path()); }

    /** Whether the unfinished new file of a purge is still there. */
    static bool isLeft(const std::string& path) { return std::filesystem::exists(path + ".new"); }

    static CrowdCountRecord record(time_t moment, int count) {
        return {OccupancyRecordBase::timeToString(moment), "Cam", aoi::aoi1, objects::person, count};
    }

    const TimeZone m_utc{"UTC0"};
    const LogCapture m_log;
    TestClock m_clock{kStart};
    RecordArchive<CrowdCountRecord> m_archive{"Archive.csv"};
};

TEST_F(KilledAtAStep, AnAppendTearsOneLineAtMost) {
    const std::string before = record(kStart, 1).serialize() + "\n";
    const std::vector<CrowdCountRecord> flush = {record(kStart + 60, 234), record(kStart + 60, 5),
                                                 record(kStart + 60, 678)};
    std::string after;
    for (const CrowdCountRecord& each : flush) {
        after += each.serialize() + "\n";
    }
    const Names steps = atEveryStep(
        [&] {
            writeFile(m_archive.path(), before);
            applicationLog().clear();
        },
        [&] { m_archive.addRecords(flush, true); },
        [&](size_t step, size_t bytes) {
            const std::string written = after.substr(0, step == 0 ? 0 : step == 1 ? bytes : after.size());
            const std::string torn = written.substr(written.rfind('\n') + 1);
            m_archive.repair();
            EXPECT_EQ(text(), before + mended(written));
            EXPECT_EQ(LogCapture::countContaining("Dropped the torn last line"), torn.empty() || parses(torn) ? 0 : 1);
            m_archive.addRecords({record(kStart + 120, 9)}, true);
            EXPECT_EQ(text(), before + mended(written) + record(kStart + 120, 9).serialize() + "\n");
        });
    EXPECT_EQ(steps, (Names{"open Archive.csv", "write Archive.csv", "sync Archive.csv"}));
}

TEST_F(KilledAtAStep, APurgeLeavesTheOldFileOrTheNewOne) {
    std::string before;
    std::string after;
    for (int day = 760; day >= 741; --day) {
        const std::string line = record(kStart - day * kDay, day).serialize() + "\n";
        before += line;
        after += day <= 750 ? line : "";
    }
    constexpr size_t kRename = 3;
    const Names steps = atEveryStep(
        [&] {
            writeFile(m_archive.path(), before);
            applicationLog().clear();
        },
        [&] { m_archive.purgeRecords(); },
        [&](size_t step, size_t) {
            EXPECT_EQ(text(), step <= kRename ? before : after);
            m_archive.repair();
            EXPECT_EQ(text(), step <= kRename ? before : after);
            EXPECT_FALSE(isLeft(m_archive.path()));
            EXPECT_EQ(LogCapture::lines(), Names{});
            m_archive.purgeRecords();
            EXPECT_EQ(text(), after) << "the next purge";
        });
    // The new file is on the disk before it takes the old one's name; then the name itself is brought there.
    EXPECT_EQ(steps, (Names{"open Archive.csv.new", "write Archive.csv.new", "sync Archive.csv.new",
                            "rename Archive.csv.new", "sync localdata"}));
}

TEST_F(KilledAtAStep, ClearingLeavesTheOldFileOrAnEmptyOne) {
    const std::string before = record(kStart, 1).serialize() + "\n";
    const Names steps = atEveryStep([&] { writeFile(m_archive.path(), before); }, [&] { m_archive.clearArchive(); },
                                    [&](size_t step, size_t) {
                                        m_archive.repair();
                                        EXPECT_EQ(text(), step <= 2 ? before : "");
                                        EXPECT_FALSE(isLeft(m_archive.path()));
                                    });
    EXPECT_EQ(steps,
              (Names{"open Archive.csv.new", "sync Archive.csv.new", "rename Archive.csv.new", "sync localdata"}));
}

TEST_F(KilledAtAStep, AStartThatMendsCanBeKilledToo) {
    const std::string first = record(kStart, 1).serialize();
    const struct Torn {
        const char* label;
        std::string before;
        std::string after;
    } cases[] = {
        {"completed", first + "\n" + first, first + "\n" + first + "\n"},
        {"dropped", first + "\n2024-01-01 00:0", first + "\n"},
    };
    for (const Torn& each : cases) {
        SCOPED_TRACE(each.label);
        const Names steps = atEveryStep(
            [&] {
                writeFile(m_archive.path(), each.before);
                writeFile(m_archive.path() + ".new", "of a killed purge");
            },
            [&] { m_archive.repair(); },
            [&](size_t, size_t) {
                m_archive.repair();
                EXPECT_EQ(text(), each.after);
                EXPECT_FALSE(isLeft(m_archive.path()));
            });
        ASSERT_GE(steps.size(), 2U);
        EXPECT_EQ(steps[0], "remove Archive.csv.new");
        EXPECT_EQ(steps[1], each.before.ends_with(first) ? "write Archive.csv" : "cut Archive.csv");
    }
}

// --- The log ---------------------------------------------------------------------------------------------------------

class LogKilledAtAStep : public KilledAtAStep {
protected:
    /** Lines of the log without their dates. */
    Names lines() const {
        Names found;
        std::istringstream file(readFile(m_path));
        for (std::string line; std::getline(file, line);) {
            found.push_back(line.substr(std::min(line.size(), line.find('|'))));
        }
        return found;
    }

    const std::string m_path = m_log.folder() / "log.txt";
};

TEST_F(LogKilledAtAStep, AFlushTearsOneLineAtMost) {
    const std::string before = "2024-01-01 00:00:00|app|info|before\n";
    const std::string flush = "2024-01-01 00:00:00|app|info|one\n2024-01-01 00:00:00|app|error|two|three\n";
    const Names steps = atEveryStep(
        [&] { writeFile(m_path, before); },
        [&] {
            Logger log("app", m_path);
            log.info("one");
            log.error("two|three");
            _exit(0);
        },
        [&](size_t step, size_t bytes) {
            if (step < 4) {
                return;  // at the first line of this run; see below
            }
            const std::string started = before + "2024-01-01 00:00:00|app|warning|STARTING app\n";
            const std::string written = flush.substr(0, bytes);
            const std::string whole = written.substr(0, written.rfind('\n') + 1);
            const std::string torn = written.substr(whole.size());
            const bool completes = std::count(torn.begin(), torn.end(), '|') >= 3;
            std::string expected =
                started + whole + (completes ? torn + "\n" : "") + "2024-01-01 00:00:00|app|warning|STARTING app\n";
            if (!torn.empty() && !completes) {
                expected +=
                    "2024-01-01 00:00:00|app|warning|Logger: Dropped the torn last line of the log: \"" + torn + "\"\n";
            }
            const Logger again("app", m_path);
            EXPECT_EQ(readFile(m_path), expected);
        });
    EXPECT_EQ(steps, (Names{"remove log.txt.new", "open log.txt", "write log.txt", "open log.txt", "write log.txt"}));
}

TEST_F(LogKilledAtAStep, ARotationLeavesTheOldFileOrTheNewOne) {
    constexpr size_t kLines = 2200;
    Names old;
    for (size_t i = 0; i < kLines; ++i) {
        std::string line = "|app|info|" + std::to_string(i) + "|";
        line.resize(1000, 'x');
        old.push_back(line);
    }
    std::string before;
    for (const std::string& line : old) {
        before += "2024-01-01 00:00:00" + line + "\n";
    }
    // Lines of 1,019 letters and their ends: 1,029 of them and the last line make more than 1 MiB.
    const Names last = {"|app|warning|STARTING app", "|app|warning|" + std::string(300, 'z')};
    const size_t flushed = last[1].size() + 20;
    constexpr size_t kKept = 1029;
    constexpr size_t kRename = 8;
    const Names steps = atEveryStep(
        [&] { writeFile(m_path, before); },
        [&] {
            Logger log("app", m_path);
            m_clock.advance(kDay + 1);
            log.warning(std::string(300, 'z'));
            log.flush();
            _exit(0);
        },
        [&](size_t step, size_t bytes) {
            { const Logger again("app", m_path); }
            const Names found = lines();
            const size_t first = step <= kRename ? 0 : kLines - kKept;
            ASSERT_GE(found.size(), kLines - first);
            EXPECT_TRUE(std::equal(old.begin() + static_cast<std::ptrdiff_t>(first), old.end(), found.begin()));
            const auto tail = found.begin() + static_cast<std::ptrdiff_t>(kLines - first);
            EXPECT_GE(std::count(tail, found.end(), last[0]), step < 3 ? 1 : 2) << "of the killed run, of this one";
            EXPECT_EQ(std::count(tail, found.end(), last[1]), step < 4 ? 0 : step == 4 && bytes + 1 < flushed ? 0 : 1);
            for (auto line = tail; line != found.end(); ++line) {
                EXPECT_TRUE(line->starts_with("|app|warning|") || line->starts_with("|app|info|")) << *line;
            }
            EXPECT_FALSE(isLeft(m_path));
        });
    EXPECT_EQ(steps, (Names{"remove log.txt.new", "open log.txt", "write log.txt", "open log.txt", "write log.txt",
                            "open log.txt.new", "write log.txt.new", "sync log.txt.new", "rename log.txt.new",
                            "sync " + m_log.folder().filename().string(), "open log.txt", "write log.txt"}));
}

// --- The settings ----------------------------------------------------------------------------------------------------

TEST_F(KilledAtAStep, ASettingHasItsOldValueOrItsNewOne) {
    const std::string path = m_log.folder() / "parameters.db";
    struct Done {
        std::atomic<bool> a = false;
        std::atomic<bool> b = false;
    };
    const Shared<Done> done;
    const auto prepare = [&] {
        for (const char* tail : {"", "-wal", "-shm"}) {
            std::filesystem::remove(path + tail);
        }
        const desktop::ParameterStore store(path, {{"A", "1"}, {"B", "1"}});
        done->a = done->b = false;
    };
    const auto work = [&] {
        desktop::ParameterStore store(path, {{"A", "0"}, {"B", "0"}});
        store.set("A", "2");
        done->a = true;
        store.set("B", "2");
        done->b = true;
    };
    size_t kills = 0;
    // The thread that syncs takes steps of its own: their number differs from run to run.
    for (bool killed = true; killed;) {
        size_t bytes = 0;
        for (const size_t most : {size_t{0}, size_t{1}, size_t{2048}, size_t{1000000}}) {
            bytes = most;
            prepare();
            const file_steps::Run run = file_steps::run(Stop{kills, bytes}, work);
            killed = run.killed;
            if (!killed) {
                break;
            }
            SCOPED_TRACE("killed at step " + std::to_string(kills) + ", " + run.steps[kills].name + ", after " +
                         std::to_string(bytes) + " bytes");
            desktop::ParameterStore store(path, {{"A", "0"}, {"B", "0"}});
            const std::string a = store.get("A").value_or("none");
            const std::string b = store.get("B").value_or("none");
            EXPECT_TRUE(a == "2" || (a == "1" && !done->a)) << a;
            EXPECT_TRUE(b == "2" || (b == "1" && !done->b)) << b;
            EXPECT_TRUE(b == "1" || a == "2") << "a later set stands, an earlier one not";
            store.set("A", "3");
            EXPECT_EQ(store.get("A"), "3") << "the store goes on";
        }
        kills += killed ? 1 : 0;
    }
    EXPECT_GT(kills, 10U) << "opening, two sets and closing take more steps than that";
}

}  // namespace

#include "log/Logger.h"

#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

#include "base/unique_fd.h"
#include "program.h"
#include "slow_build.h"
#include "test_clock.h"
#include "test_folder.h"

namespace {

constexpr time_t kDay = 86400;
constexpr size_t kPurgeSize = 2097152;
constexpr size_t kKeptSize = 1048576;
constexpr time_t kStart = 1700000000;  // 2023-11-14 22:13:20 universal time

using Lines = std::vector<std::string>;

class Log : public testing::Test {
protected:
    /** The stored lines without the time. */
    Lines stored() const {
        Lines lines;
        std::ifstream file(m_path);
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line.substr(line.find('|') + 1));
        }
        return lines;
    }

    /** The messages in the file. */
    Lines messages() const {
        Lines found;
        for (const std::string& line : stored()) {
            found.push_back(LogEntry::deserialize(line)._message);
        }
        return found;
    }

    /** Makes the file so many bytes long, of lines of 64 bytes with their line ends and a shorter last one. */
    void fill(size_t bytes) const {
        std::ofstream file(m_path, std::ios::trunc);
        for (size_t written = 0; written < bytes; written += 64) {
            file << std::string(std::min<size_t>(64, bytes - written) - 1, 'x') << '\n';
        }
    }

    /** The lines of the file after the first purge, those that tell of it included. */
    Lines purged() {
        m_clock.advance(kDay + 1);
        m_log->flush();
        m_log->flush();
        return m_log->getLogLines();
    }

    TestFolder m_folder;
    std::string m_path = m_folder.path() / "log.txt";
    TimeZone m_zone{"UTC0"};
    TestClock m_clock{kStart};
    std::unique_ptr<Logger> m_log = std::make_unique<Logger>("app", m_path);
};

// --- Entries and their forms -----------------------------------------------------------------------------------------

TEST_F(Log, StartsAndStopsWithWarnings) {
    EXPECT_EQ(stored(), (Lines{"app|warning|STARTING app"}));
    EXPECT_EQ(readFile(m_path), "2023-11-14 22:13:20|app|warning|STARTING app\n");
    m_log->info("waits");
    m_log.reset();
    EXPECT_EQ(stored(),
              (Lines{"app|warning|STARTING app", "app|info|waits", "app|warning|STOPPING app", "app|warning|"}));
}

TEST_F(Log, ClosedKeepsNothingThatComesLater) {
    m_log->close();
    m_log->error("too late");
    m_log->info("too late");
    m_log->flush();
    m_log.reset();
    EXPECT_EQ(stored(), (Lines{"app|warning|STARTING app", "app|warning|STOPPING app", "app|warning|"}));
}

TEST_F(Log, TheThreeFormsOfAnEntry) {
    m_log->clear();
    m_log->error("a, \"b\"");
    EXPECT_EQ(m_log->getSerializedLogContents(), "2023-11-14 22:13:20|app|error|a, \"b\"\n");
    EXPECT_EQ(m_log->getPlainLogContents(), "2023-11-14 22:13:20 app error a, \"b\"\n");
    EXPECT_EQ(m_log->getCSVLogContents(), "2023-11-14 22:13:20,app,error,\"a, \"b\"\"\n");
}

TEST_F(Log, AnEntryIsOneLineWhateverItsMessageHolds) {
    m_log->clear();
    m_log->error(std::string("a\r\n2023-11-14 22:13:20|app|error|made up\tb") + '\0' + "c\x1B[2Jd\x7F\xC3\xA9");
    const Lines lines = m_log->getLogLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0], "2023-11-14 22:13:20|app|error|a  2023-11-14 22:13:20|app|error|made up b c [2Jd \xC3\xA9");
}

TEST_F(Log, TheFormsWriteWaitingEntriesFirst) {
    m_log->clear();
    m_log->info("waiting");
    EXPECT_EQ(m_log->getPlainLogContents(), "2023-11-14 22:13:20 app info waiting\n");
}

TEST_F(Log, WritesLocalTime) {
    const TimeZone ahead("AHEAD-2");
    EXPECT_EQ(Logger::timeToString(kStart), "2023-11-15 00:13:20");
    EXPECT_EQ(Logger::getCurrentDateTime(), "2023-11-15 00:13:20");
}

struct LineCase {
    const char* label;
    const char* line;
    LogEntry entry;
};

class StoredLine : public testing::TestWithParam<LineCase> {};

TEST_P(StoredLine, IsReadBack) {
    const LogEntry entry = LogEntry::deserialize(GetParam().line);
    EXPECT_EQ(entry._dateTime, GetParam().entry._dateTime) << GetParam().label;
    EXPECT_EQ(entry._appName, GetParam().entry._appName) << GetParam().label;
    EXPECT_EQ(entry._logLevel, GetParam().entry._logLevel) << GetParam().label;
    EXPECT_EQ(entry._message, GetParam().entry._message) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, StoredLine,
    testing::Values(LineCase{"whole", "d|a|l|m", {"d", "a", "l", "m"}},
                    LineCase{"bar in the message", "d|a|l|first|second", {"d", "a", "l", "second"}},
                    LineCase{"bar at the end", "d|a|l|m|", {"d", "a", "l", ""}},
                    LineCase{"no bar", "just text", {"", "", "", "just text"}},
                    LineCase{"two fields", "d|a", {"d", "", "", "a"}},
                    LineCase{"empty message", "d|a|l|", {"d", "a", "l", ""}}, LineCase{"empty", "", {"", "", "", ""}}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Log, AMessageWithABarIsReadBackAsItsEnd) {
    m_log->clear();
    m_log->warning("first|second");
    EXPECT_EQ(stored(), (Lines{"app|warning|first|second"}));
    EXPECT_EQ(m_log->getPlainLogContents(), "2023-11-14 22:13:20 app warning second\n");
}

TEST_F(Log, CompletesALastLineThatIsWholeAndDropsOneThatIsNot) {
    const std::string first = "d|app|info|first\n";
    const std::string start = "2023-11-14 22:13:20|app|warning|STARTING app\n";
    const std::string dropped = "2023-11-14 22:13:20|app|warning|Logger: Dropped the torn last line of the log: \"";
    const struct {
        const char* label;
        std::string before;
        std::string after;
    } cases[] = {
        {"whole", first, first + start},
        {"only the end lacks", first + "d|app|info|sec", first + "d|app|info|sec\n" + start},
        {"empty message", first + "d|app|info|", first + "d|app|info|\n" + start},
        {"torn before the message", first + "d|app|inf", first + start + dropped + "d|app|inf\"\n"},
        {"torn and alone", "2", start + dropped + "2\"\n"},
        {"long and torn", std::string(10'000, 'x'), start + dropped + std::string(200, 'x') + "\"\n"},
        {"empty", "", start},
    };
    for (const auto& [label, before, after] : cases) {
        writeFile(m_path, before);
        writeFile(m_path + ".new", "of a purge that was killed");
        {
            const Logger log("app", m_path);
            EXPECT_EQ(readFile(m_path), after) << label;
        }
        EXPECT_FALSE(std::filesystem::exists(m_path + ".new")) << label;
    }
}

// --- Waiting entries -------------------------------------------------------------------------------------------------

TEST_F(Log, TheHundredAndFirstWaitingEntryWritesThemAll) {
    m_log->clear();
    Lines expected;
    for (int i = 1; i <= 100; ++i) {
        m_log->info(std::to_string(i));
        expected.push_back(std::to_string(i));
    }
    EXPECT_EQ(messages(), Lines{});
    m_log->info("101");
    expected.emplace_back("101");
    EXPECT_EQ(messages(), expected);
    m_log->info("102");
    EXPECT_EQ(messages(), expected);
}

TEST_F(Log, AWarningOrErrorWritesWhatWaits) {
    m_log->clear();
    m_log->info("a");
    m_log->warning("b");
    EXPECT_EQ(messages(), (Lines{"a", "b"}));
    m_log->info("c");
    m_log->error("d");
    EXPECT_EQ(messages(), (Lines{"a", "b", "c", "d"}));
}

TEST_F(Log, ClearForgetsFileAndWaitingEntries) {
    m_log->info("waits");
    m_log->clear();
    EXPECT_EQ(m_log->getPlainLogContents(), "");
    EXPECT_EQ(m_log->getLogFileSize(), 0);
}

TEST_F(Log, AFolderThatIsMissingLosesLinesAndNothingElse) {
    Logger lost("app", m_folder.path() / "missing/log.txt");
    lost.error("lost");
    EXPECT_EQ(lost.getLogFileSize(), -1);
    EXPECT_EQ(lost.getLogLines(), Lines{});
    EXPECT_EQ(lost.getPlainLogContents(), "");
    m_clock.advance(2 * kDay);
    lost.warning("lost, too, at a purge check");
    lost.clear();
    EXPECT_FALSE(std::filesystem::exists(m_folder.path() / "missing"));
}

TEST_F(Log, AFullDiskLosesLinesAndNothingElse) {
    std::filesystem::create_symlink("/dev/full", m_folder.path() / "full.txt");
    Logger lost("app", m_folder.path() / "full.txt");
    lost.error("lost");
    m_clock.advance(2 * kDay);
    lost.error("lost, too");
    EXPECT_EQ(std::filesystem::read_symlink(m_folder.path() / "full.txt"), "/dev/full");
    // Room again: what was lost stays lost, what comes next is kept.
    std::filesystem::remove(m_folder.path() / "full.txt");
    lost.error("kept");
    ASSERT_EQ(lost.getLogEntriesFromFile().size(), 1U);
    EXPECT_EQ(lost.getLogEntriesFromFile()[0]._message, "kept");
}

// --- Purging ---------------------------------------------------------------------------------------------------------

struct PurgeCase {
    const char* label;
    size_t size;
    time_t later;
    bool purged;
};

class Purge : public Log, public testing::WithParamInterface<PurgeCase> {};

TEST_P(Purge, LooksAtSizeAndTime) {
    fill(GetParam().size);
    m_clock.advance(GetParam().later);
    m_log->flush();
    const bool purged = m_log->getLogFileSize() < static_cast<int64_t>(GetParam().size);
    EXPECT_EQ(purged, GetParam().purged) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(Table, Purge,
                         testing::Values(PurgeCase{"one byte short", kPurgeSize - 1, kDay + 1, false},
                                         PurgeCase{"exactly as long", kPurgeSize, kDay + 1, true},
                                         PurgeCase{"a day to the second", kPurgeSize, kDay, false},
                                         PurgeCase{"the same day", kPurgeSize, 0, false}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Log, APurgeKeepsTheNewestLinesFromTheOneThatCrossesTheMark) {
    // Lines of 1000 letters: 1048 of them make 1,048,000, so the 1049th from the end is the first beyond 1,048,576.
    constexpr size_t kLines = 3000;
    {
        std::ofstream file(m_path, std::ios::trunc);
        for (size_t i = 0; i < kLines; ++i) {
            std::string line = std::to_string(i) + "|";
            line.resize(1000, 'x');
            file << line << '\n';
        }
    }
    const Lines kept = purged();
    ASSERT_EQ(kept.size(), 1051U);
    EXPECT_EQ(kept.front().rfind(std::to_string(kLines - 1049) + "|", 0), 0U) << kept.front();
    EXPECT_EQ(kept[1048].rfind(std::to_string(kLines - 1) + "|", 0), 0U) << kept[1048];
    EXPECT_EQ(LogEntry::deserialize(kept[1049])._message, "Purging log file. Initial log file size=3003000 bytes.");
    EXPECT_EQ(LogEntry::deserialize(kept[1050])._message, "Purging log file. Final log file size=1050049 bytes.");
}

TEST_F(Log, ExactlyTheMarkIsNotBeyondIt) {
    // From the end: the mark is reached with the line "b" and exceeded only with the one before it.
    std::ofstream(m_path, std::ios::trunc) << std::string(kPurgeSize, 'a') << "\nz\nb\n"
                                           << std::string(kKeptSize - 1, 'c') << '\n';
    const Lines kept = purged();
    ASSERT_EQ(kept.size(), 3U + 2);
    EXPECT_EQ(kept[0], "z");
    EXPECT_EQ(kept[1], "b");
    EXPECT_EQ(kept[2].size(), kKeptSize - 1);
}

TEST_F(Log, WithOneLineNothingIsDropped) {
    std::ofstream(m_path, std::ios::trunc) << std::string(kPurgeSize, 'a');
    const Lines kept = purged();
    ASSERT_EQ(kept.size(), 1U + 2);
    EXPECT_EQ(kept[0].size(), kPurgeSize);
}

TEST_F(Log, EveryFlushAfterALongTimeMakesUpOneDayOfChecks) {
    m_clock.advance(3 * kDay);  // due: the checks of day one and two; day three is not past yet
    m_log->flush();
    fill(kPurgeSize);
    m_log->flush();
    EXPECT_LT(m_log->getLogFileSize(), static_cast<int64_t>(kPurgeSize)) << "the check of day two";
    fill(kPurgeSize);
    m_log->flush();
    EXPECT_GE(m_log->getLogFileSize(), static_cast<int64_t>(kPurgeSize)) << "day three is not over";
}

TEST_F(Log, ChecksWhenAClockThatWasSetGetsThere) {
    const struct {
        const char* label;
        time_t start;
        time_t jump;
        bool atOnce;
    } cases[] = {
        {"an hour on", kStart, 3600, false},
        {"a day on", kStart, kDay + 1, true},
        {"an hour back", kStart, -3600, false},
        {"a day back", kStart, -kDay, false},
        {"over the end of 32 bits", 2147483647, kDay + 1, true},
        {"beyond 2038", 4102444800, kDay, false},
    };
    for (const auto& [label, start, jump, atOnce] : cases) {
        m_clock.set(start);
        Logger log("app", m_path);
        m_clock.advance(jump);
        fill(kPurgeSize);
        log.flush();
        EXPECT_EQ(log.getLogFileSize() < static_cast<int64_t>(kPurgeSize), atOnce) << label;
        m_clock.set(start + kDay + 1);
        log.flush();
        EXPECT_LT(log.getLogFileSize(), static_cast<int64_t>(kPurgeSize)) << label << ": a day after the start";
    }
}

TEST_F(Log, WritesDatesBeyond2038) {
    EXPECT_EQ(Logger::timeToString(2147483648), "2038-01-19 03:14:08");
    EXPECT_EQ(Logger::timeToString(4102444800), "2100-01-01 00:00:00");
}

TEST_F(Log, APurgeThatCannotWriteLeavesTheLogWhole) {
    fill(kPurgeSize);
    std::filesystem::create_directory(m_path + ".new");
    const std::string before = readFile(m_path);
    purged();
    EXPECT_TRUE(readFile(m_path).starts_with(before));
    m_log->warning("goes on");
    EXPECT_EQ(messages().back(), "goes on");
}

/** Holds a purge up at its new file: a pipe that nobody reads yet stands in that file's place. */
TEST_F(Log, ClearedDuringAPurgeIsEmptyAfterIt) {
    fill(kPurgeSize);
    ASSERT_EQ(mkfifo((m_path + ".new").c_str(), 0600), 0);
    m_clock.advance(kDay + 1);
    std::thread purging([this] { m_log->flush(); });
    {
        // Opens once the purge has opened its end: from here on it is under way.
        const UniqueFd pipe(open((m_path + ".new").c_str(), O_RDONLY | O_CLOEXEC));
        m_log->warning("cleared away");
        m_log->clear();
        m_log->warning("comes after");
        std::vector<char> block(65536);
        while (read(pipe.get(), block.data(), block.size()) > 0) {
        }
    }
    purging.join();
    m_log->flush();
    Lines kept = messages();
    ASSERT_EQ(kept.size(), 2U);
    EXPECT_EQ(kept[0], "comes after");
    EXPECT_EQ(kept[1].rfind("Purging log file. Final log file size=", 0), 0U) << kept[1];
}

// --- Threads ---------------------------------------------------------------------------------------------------------

TEST_F(Log, TwoThreadsThatLogLoseNothingWhileAThirdReads) {
    constexpr int kLines = kSlow ? 400 : 1500;
    std::atomic<int> running = 2;
    const auto writer = [&](const std::string& name) {
        for (int i = 0; i < kLines; ++i) {
            i % 50 == 0 ? m_log->warning(name + std::to_string(i)) : m_log->info(name + std::to_string(i));
        }
        --running;
    };
    std::thread first(writer, "a");
    std::thread second(writer, "b");
    while (running > 0) {
        EXPECT_FALSE(m_log->getPlainLogContents().empty());
    }
    first.join();
    second.join();
    m_log->flush();
    int nextA = 0;
    int nextB = 0;
    for (const std::string& message : messages()) {
        if (message == "a" + std::to_string(nextA)) {
            ++nextA;
        } else if (message == "b" + std::to_string(nextB)) {
            ++nextB;
        } else {
            EXPECT_EQ(message, "STARTING app");
        }
    }
    EXPECT_EQ(nextA, kLines);
    EXPECT_EQ(nextB, kLines);
}

TEST_F(Log, ClearingWhileOthersLogTearsNoLine) {
    std::atomic<int> running = 2;
    const auto writer = [&] {
        for (int i = 0; i < (kSlow ? 400 : 1500); ++i) {
            m_log->info("a line that is whole");
        }
        --running;
    };
    std::thread first(writer);
    std::thread second(writer);
    while (running > 0) {
        m_log->clear();
        m_log->flush();
    }
    first.join();
    second.join();
    m_log->warning("last");
    const Lines left = stored();
    ASSERT_FALSE(left.empty());
    for (size_t i = 0; i + 1 < left.size(); ++i) {
        EXPECT_EQ(left[i], "app|info|a line that is whole");
    }
    EXPECT_EQ(left.back(), "app|warning|last");
}

TEST(ApplicationLog, IsThereBeforeMain) {
    EXPECT_EQ(&applicationLog(), &applicationLog());
    const TestFolder folder;
    const WorkingFolder inFolder(folder.path());
    std::filesystem::create_directory(folder.path() / "localdata");
    applicationLog().warning("hello");
    const std::string text = readFile(folder.path() / "localdata/SenvoLog.txt");
    ASSERT_GT(text.size(), 19U);
    EXPECT_EQ(text.substr(19), "|ostrel_senvo|warning|hello\n");
}

}  // namespace

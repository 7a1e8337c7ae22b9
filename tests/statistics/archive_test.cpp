#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "file_size_limit.h"
#include "log_capture.h"
#include "slow_build.h"
#include "statistics/record_archive.h"
#include "test_clock.h"

namespace {

constexpr time_t kDay = 86400;
constexpr time_t kStart = 1704067200;  // 2024-01-01 00:00:00

class Archive : public testing::Test {
protected:
    std::string content() const {
        std::ifstream file(m_archive.path());
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void write(const std::string& text) const { std::ofstream(m_archive.path()) << text; }

    static CrowdCountRecord record(time_t moment, int count) {
        return {OccupancyRecordBase::timeToString(moment), "Cam", aoi::aoi1, objects::person, count};
    }

    const TimeZone m_utc{"UTC0"};
    const LogCapture m_log;
    TestClock m_clock{kStart};
    RecordArchive<CrowdCountRecord> m_archive{"Archive.csv"};
};

TEST_F(Archive, LiesInTheFolderOfThePackage) {
    EXPECT_EQ(m_archive.path(), (m_log.folder() / "usr/local/packages/ostrel_senvo/localdata/Archive.csv").string());
}

TEST_F(Archive, ThatIsMissingIsEmptyAndMadeByTheFirstRecords) {
    EXPECT_TRUE(m_archive.getRecords().empty());
    EXPECT_TRUE(m_archive.addRecords({}, false));
    EXPECT_TRUE(std::filesystem::exists(m_archive.path()));
    EXPECT_TRUE(m_archive.addRecords({record(kStart, 1), record(kStart, 2)}, false));
    EXPECT_EQ(content(), "2024-01-01 00:00:00,Cam,0,0,1\n2024-01-01 00:00:00,Cam,0,0,2\n");
}

TEST_F(Archive, KeepsWhatIsAddedTwice) {
    m_archive.addRecords({record(kStart, 1)}, false);
    m_archive.addRecords({record(kStart, 1)}, false);
    EXPECT_EQ(content(), "2024-01-01 00:00:00,Cam,0,0,1\n2024-01-01 00:00:00,Cam,0,0,1\n");
    EXPECT_EQ(m_archive.getRecords().size(), 2U);
}

TEST_F(Archive, IsEmptiedOrMadeEmpty) {
    m_archive.clearArchive();
    EXPECT_TRUE(std::filesystem::exists(m_archive.path()));
    write("anything");
    m_archive.clearArchive();
    EXPECT_EQ(content(), "");
}

TEST_F(Archive, ReadsLinesOfAnotherShapeAsDefaultRecords) {
    const std::string blank = "2024-01-01 00:00:00,,100,100,0";
    const struct {
        const char* label;
        std::string text;
        std::vector<std::string> lines;
    } cases[] = {
        {"blank line", "\n", {blank}},
        {"two blank lines around a record", "\nd,c,1,2,3\n\n", {blank, "d,c,1,2,3", blank}},
        {"four fields", "d,c,1,2\n", {blank}},
        {"six fields", "d,c,1,2,3,4\n", {blank}},
        {"camera name with a comma", "d,c,x,1,2,3\n", {blank}},
        {"carriage returns", "d,c,1,2,3\r\n\r\n", {"d,c,1,2,3", blank}},
        {"bytes of value zero", std::string("d\0,c,1,2,3\n\0\n", 13), {std::string("d\0,c,1,2,3", 10), blank}},
        {"no end of the last line", "d,c,1,2,3\ne,c,1,2,3", {"d,c,1,2,3", "e,c,1,2,3"}},
        {"header", "Date,Camera Name,AOI,Object\n", {blank}},
        {"ten megabytes without a comma", std::string(10'000'000, 'x') + "\nd,c,1,2,3\n", {blank, "d,c,1,2,3"}},
        {"empty file", "", {}},
    };
    for (const auto& [label, text, lines] : cases) {
        write(text);
        std::vector<std::string> read;
        for (const CrowdCountRecord& each : m_archive.getRecords()) {
            read.push_back(each.serialize());
        }
        EXPECT_EQ(read, lines) << label;
    }
}

TEST_F(Archive, WithWordsForNumbersThrowsAndIsLeftByAPurge) {
    const std::string text = "2000-01-01 00:00:00,c,1,2,3\nd,c,one,2,3\n";
    write(text);
    EXPECT_THROW(m_archive.getRecords(), std::invalid_argument);
    EXPECT_THROW(m_archive.purgeRecords(), std::invalid_argument);
    EXPECT_EQ(content(), text);
    EXPECT_FALSE(std::filesystem::exists(m_archive.path() + ".new"));
    write("d,c,1,2,99999999999\n");
    EXPECT_THROW(m_archive.getRecords(), std::out_of_range);
}

TEST_F(Archive, PurgesByTheDayAndTheSecond) {
    m_archive.addRecords({record(kStart - 751 * kDay, 1), record(kStart - 750 * kDay - 1, 2),
                          record(kStart - 750 * kDay, 3), record(kStart - 749 * kDay, 4)},
                         false);
    EXPECT_TRUE(m_archive.purgeRecords());
    EXPECT_EQ(content(),
              record(kStart - 750 * kDay, 3).serialize() + "\n" + record(kStart - 749 * kDay, 4).serialize() + "\n");
    EXPECT_TRUE(m_archive.purgeByDaysAgo(749));
    EXPECT_EQ(content(), record(kStart - 749 * kDay, 4).serialize() + "\n");
}

TEST_F(Archive, PurgeDropsUnreadableDatesAndRewritesLinesOfAnotherShape) {
    write("never,c,0,0,1\nhalf a line\n\n2023-12-31 00:00:00,c,7,12,1");
    m_archive.purgeRecords();
    EXPECT_EQ(content(),
              "2024-01-01 00:00:00,,100,100,0\n2024-01-01 00:00:00,,100,100,0\n2023-12-31 00:00:00,c,100,100,1\n");
}

TEST_F(Archive, PurgeLeavesAFileOfWhichAllStays) {
    m_archive.addRecords({record(kStart - 749 * kDay, 1), record(kStart, 2)}, false);
    const auto inode = [&] {
        struct stat status = {};
        EXPECT_EQ(stat(m_archive.path().c_str(), &status), 0);
        return status.st_ino;
    };
    const ino_t before = inode();
    EXPECT_TRUE(m_archive.purgeRecords());
    EXPECT_EQ(inode(), before) << "written anew";
    EXPECT_TRUE(m_archive.purgeByDaysAgo(748));
    EXPECT_NE(inode(), before);
    EXPECT_EQ(content(), record(kStart, 2).serialize() + "\n");
    write("2023-12-31 00:00:00,c,0,0,1");
    EXPECT_TRUE(m_archive.purgeRecords());
    EXPECT_EQ(content(), "2023-12-31 00:00:00,c,0,0,1\n");
}

TEST_F(Archive, PurgeOfAMissingFileMakesAnEmptyOne) {
    EXPECT_TRUE(m_archive.purgeBefore(0));
    EXPECT_EQ(content(), "");
}

TEST_F(Archive, PurgesEveryThirtyDaysFromTheStart) {
    EXPECT_EQ(m_archive.getPurgeInterval(), 30);
    EXPECT_EQ(m_archive.getPurgeHorizon(), 750);
    EXPECT_EQ(m_archive.getNextPurgeDate(), kStart + 30 * kDay);
    const std::string old = "2000-01-01 00:00:00,c,0,0,1\n";
    write(old);
    m_clock.advance(30 * kDay - 1);
    m_archive.addRecords({}, true);
    EXPECT_EQ(content(), old) << "a second early";
    m_clock.advance(1);
    m_archive.addRecords({}, false);
    EXPECT_EQ(content(), old) << "purging not asked for";
    m_archive.addRecords({}, true);
    EXPECT_EQ(content(), "");
    EXPECT_EQ(m_archive.getNextPurgeDate(), kStart + 60 * kDay);
    m_clock.advance(100 * kDay);
    m_archive.purgeArchive();
    EXPECT_EQ(m_archive.getNextPurgeDate(), kStart + 90 * kDay) << "one step however late";
    const RecordArchive<CrowdCountRecord> restarted("Archive.csv");
    EXPECT_EQ(restarted.getNextPurgeDate(), kStart + 160 * kDay);
}

TEST_F(Archive, KeepsItsHorizonInEveryTimeZoneAndYear) {
    const struct {
        const char* label;
        const char* zone;
        time_t now;
    } cases[] = {
        {"beyond 2038", "UTC0", 4102444800},
        {"the last second of 32 bits", "UTC0", 2147483647},
        {"the second after it", "UTC0", 2147483648},
        {"an hour was skipped", "CET-1CEST,M3.5.0,M10.5.0/3", 1711846800 + 60},
        {"an hour came twice", "CET-1CEST,M3.5.0,M10.5.0/3", 1729990800 + 60},
        {"west", "EST5EDT,M3.2.0,M11.1.0", 1710054000 + 60},
        {"south", "NZST-12NZDT,M9.5.0,M4.1.0/3", 1712412000 + 60},
        {"half an hour", "IST-5:30", kStart},
        {"quarter of an hour", "NPT-5:45", kStart},
    };
    for (const auto& [label, zone, now] : cases) {
        const TimeZone inZone(zone);
        m_clock.set(now);
        m_archive.clearArchive();
        m_archive.addRecords({record(now - 751 * kDay, 1), record(now - 749 * kDay, 2), record(now, 3)}, false);
        m_archive.purgeRecords();
        EXPECT_EQ(content(), record(now - 749 * kDay, 2).serialize() + "\n" + record(now, 3).serialize() + "\n")
            << label;
    }
}

TEST_F(Archive, PurgesWhenAClockThatWasSetGetsThere) {
    const struct {
        const char* label;
        time_t jump;
    } cases[] = {{"an hour on", 3600}, {"a day on", kDay}, {"an hour back", -3600}, {"a day back", -kDay}};
    for (const auto& [label, jump] : cases) {
        m_clock.set(kStart);
        RecordArchive<CrowdCountRecord> archive("Archive.csv");
        write("2000-01-01 00:00:00,c,0,0,1\n");
        m_clock.advance(29 * kDay);
        m_clock.advance(jump);
        archive.purgeArchive();
        const bool isDue = jump >= kDay;
        EXPECT_EQ(content().empty(), isDue) << label;
        m_clock.set(kStart + 30 * kDay - 1);
        archive.purgeArchive();
        EXPECT_EQ(content().empty(), isDue) << label << ", a second early";
        m_clock.advance(1);
        archive.purgeArchive();
        EXPECT_EQ(content(), "") << label;
    }
}

TEST_F(Archive, HasASchedule) {
    m_archive.setPurgeInterval(2);
    m_archive.setNextPurgeDate(1000);
    EXPECT_EQ(m_archive.incrementNextPurgeDate(), 1000 + 2 * kDay);
    m_archive.setPurgeHorizon(1);
    EXPECT_EQ(m_archive.getPurgeHorizon(), 1);
    m_archive.addRecords({record(kStart - kDay - 1, 1), record(kStart - kDay, 2)}, true);
    EXPECT_EQ(content(), record(kStart - kDay, 2).serialize() + "\n");
}

TEST_F(Archive, CompletesALastLineThatParsesAndDropsOneThatDoesNot) {
    const struct {
        const char* label;
        std::string before;
        std::string after;
        const char* dropped;
    } cases[] = {
        {"whole", "d,c,1,2,3\n", "d,c,1,2,3\n", nullptr},
        {"empty file", "", "", nullptr},
        {"only the end lacks", "d,c,1,2,3\ne,c,1,2,3", "d,c,1,2,3\ne,c,1,2,3\n", nullptr},
        {"torn in a field", "d,c,1,2,3\ne,c,1", "d,c,1,2,3\n", "e,c,1"},
        {"torn before a number", "d,c,1,2,3\ne,c,1,2,", "d,c,1,2,3\n", "e,c,1,2,"},
        {"torn and alone", "e", "", "e"},
        {"blank line at the end stays", "d,c,1,2,3\n\n", "d,c,1,2,3\n\n", nullptr},
        {"longer than a step of the search", "d,c,1,2,3\n" + std::string(10'000, 'x'), "d,c,1,2,3\n", "xxxxx"},
    };
    for (const auto& [label, before, after, dropped] : cases) {
        applicationLog().clear();
        write(before);
        m_archive.repair();
        EXPECT_EQ(content(), after) << label;
        EXPECT_EQ(LogCapture::countContaining("warning: repair: Dropped the torn last line of " + m_archive.path() +
                                              ": \"" + (dropped == nullptr ? "" : dropped)),
                  dropped == nullptr ? 0 : 1)
            << label;
    }
    std::filesystem::remove(m_archive.path());
    m_archive.repair();
    EXPECT_FALSE(std::filesystem::exists(m_archive.path()));
}

TEST_F(Archive, IsPurgedWhileItsTornLastLineIsMended) {
    const auto isRecord = [](const std::string& line) { return line != "to"; };
    const struct {
        const char* label;
        std::string last;
        const char* added;
        std::string after;
    } cases[] = {
        {"a whole line is completed", "whole", "", "kept\nwhole\n"},
        {"a whole line is completed and more comes", "whole", "more\n", "kept\nwhole\nmore\n"},
        {"a torn line is cut off", "to", "", "kept\n"},
        {"a torn line is cut off and more comes", "to", "more\n", "kept\nmore\n"},
        {"a torn line is cut off and as much comes", "to", "m\n", "kept\nm\n"},
    };
    for (const auto& each : cases) {
        write("old\nkept\n" + each.last);
        bool isMended = false;
        archive_file::rewrite(m_archive.path(), [&](const std::string& line, std::string& kept) {
            if (line == each.last && !std::exchange(isMended, true)) {
                EXPECT_TRUE(archive_file::repairLastLine(m_archive.path(), isRecord)) << each.label;
                EXPECT_TRUE(archive_file::append(m_archive.path(), each.added)) << each.label;
            }
            kept = line;
            return line != "old";
        });
        EXPECT_EQ(content(), each.after) << each.label;
    }
}

TEST_F(Archive, IsNeverReadInTheMiddleOfAnAppend) {
    constexpr size_t kFlush = 40'000;
    constexpr size_t kFlushes = kSlow ? 5 : 20;
    const CrowdCountRecord each("d", "Cam", aoi::aoi1, objects::person, 1'234'567);
    std::atomic<bool> done = false;
    std::thread writer([&] {
        for (size_t flush = 0; flush < kFlushes; ++flush) {
            m_archive.addRecords(std::vector<CrowdCountRecord>(kFlush, each), false);
        }
        done = true;
    });
    while (!done) {
        size_t whole = 0;
        size_t lines = 0;
        archive_file::forEachLine(m_archive.path(), [&](const std::string& line) {
            ++lines;
            whole += line == "d,Cam,0,0,1234567" ? 1 : 0;
        });
        EXPECT_EQ(whole, lines) << "a torn line";
        EXPECT_EQ(lines % kFlush, 0U) << "half a flush";
    }
    writer.join();
    EXPECT_EQ(m_archive.getRecords().size(), kFlushes * kFlush);
}

/** A process may open only so many files more for the length of a scope. */
class FewFilesMore {
public:
    explicit FewFilesMore(int more) {
        const int next = open("/dev/null", O_RDONLY);
        close(next);
        getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit limit = {static_cast<rlim_t>(next + more), m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~FewFilesMore() { setrlimit(RLIMIT_NOFILE, &m_before); }
    FewFilesMore(const FewFilesMore&) = delete;
    FewFilesMore& operator=(const FewFilesMore&) = delete;

private:
    rlimit m_before = {};
};

/** Failures are reported once a minute for the whole process: every test of them has minutes of its own. */
class BrokenDisk : public Archive {
protected:
    BrokenDisk() {
        static time_t used = 0;
        m_clock.advance(used += 10'000);
    }
    static int complaints() { return LogCapture::countContaining("error: append: Cannot write "); }
};

TEST_F(BrokenDisk, KeepsNothingOfAFlushThatDoesNotFit) {
    const CrowdCountRecord first("d", "Cam", aoi::aoi1, objects::person, 1);
    m_archive.addRecords({first}, false);
    const std::string before = content();
    const std::vector<CrowdCountRecord> large(10'000, first);
    {
        const FileSizeLimit limit(size_t{64} << 10U);
        EXPECT_TRUE(m_archive.addRecords(large, false));
        EXPECT_EQ(content(), before);
    }
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (std::vector<std::string>{"append: Cannot write " + m_archive.path() +
                                        " : File too large. Counting goes on, records are lost until it can."}));
    m_archive.addRecords({first}, false);
    EXPECT_EQ(content(), before + before);
}

TEST_F(BrokenDisk, LeavesTheOldFileWhenAPurgeDoesNotFit) {
    m_archive.addRecords({record(kStart - 751 * kDay, 1)}, false);
    m_archive.addRecords(std::vector<CrowdCountRecord>(10'000, record(m_clock.now(), 1)), false);
    const std::string before = content();
    {
        const FileSizeLimit limit(size_t{64} << 10U);
        EXPECT_TRUE(m_archive.purgeRecords());
    }
    EXPECT_EQ(content(), before);
    EXPECT_FALSE(std::filesystem::exists(m_archive.path() + ".new"));
    EXPECT_EQ(LogCapture::countContaining("error: rewrite: Cannot write " + m_archive.path() + " : File too large"), 1);
}

TEST_F(BrokenDisk, LeavesTheOldFileWhenAPurgeCannotOpenIt) {
    m_archive.addRecords({record(m_clock.now(), 1)}, false);
    m_archive.purgeRecords();  // UndefinedBehaviorSanitizer opens files when it meets a type for the first time
    m_archive.addRecords({record(kStart - 751 * kDay, 1)}, false);
    const std::string before = content();
    for (int more = 0; more < 2; ++more) {
        const FewFilesMore limit(more);
        EXPECT_TRUE(m_archive.purgeRecords());
    }
    EXPECT_EQ(content(), before);
    EXPECT_FALSE(std::filesystem::exists(m_archive.path() + ".new"));
}

TEST_F(BrokenDisk, LeavesTheOldFileWhenAPurgeCannotReadIt) {
    // A folder opens, but what is in it cannot be read.
    const std::filesystem::path folder = m_log.folder() / "folder";
    std::filesystem::create_directories(folder / "inner");
    std::filesystem::create_symlink(folder, m_archive.path());
    EXPECT_TRUE(m_archive.purgeRecords());
    EXPECT_TRUE(std::filesystem::is_symlink(m_archive.path()));
    EXPECT_EQ(LogCapture::countContaining("error: rewrite: Cannot write " + m_archive.path() + " : Is a directory"), 1);
}

TEST_F(BrokenDisk, IsReportedWhenAFlushDoesNotReachIt) {
    std::filesystem::create_symlink("/dev/null", m_archive.path());  // takes everything, but cannot be synced
    m_archive.addRecords({record(kStart, 1)}, false);
    EXPECT_EQ(complaints(), 1);
}

TEST_F(BrokenDisk, IsMendedBeforeAnythingIsAddedToATornLine) {
    const struct {
        const char* torn;
        const char* mended;
    } cases[] = {{"d,c,1,2,3\ne,c,1,2,4", "d,c,1,2,3\ne,c,1,2,4\n"}, {"d,c,1,2,3\ne,c", "d,c,1,2,3\n"}};
    const CrowdCountRecord next("f", "Cam", aoi::aoi1, objects::person, 5);
    // UndefinedBehaviorSanitizer opens files when it meets a type for the first time.
    m_archive.repair();
    m_archive.addRecords({next}, false);
    for (const auto& [torn, mended] : cases) {
        write(torn);
        {
            // No file opens: neither the start nor a flush can mend it.
            const FewFilesMore limit(0);
            EXPECT_FALSE(m_archive.repair());
            EXPECT_TRUE(m_archive.addRecords({next}, false));
        }
        EXPECT_EQ(content(), torn);
        m_archive.addRecords({next}, false);
        EXPECT_EQ(content(), mended + next.serialize() + "\n");
    }
}

TEST_F(BrokenDisk, IsReportedOnceAMinute) {
    std::filesystem::create_symlink("/dev/full", m_archive.path());
    for (int second = 0; second < 60; ++second) {
        EXPECT_TRUE(m_archive.addRecords({record(kStart, 1)}, false));
        m_clock.advance(1);
    }
    EXPECT_EQ(complaints(), 1);
    m_archive.addRecords({record(kStart, 1)}, false);
    EXPECT_EQ(complaints(), 2);
    m_clock.advance(-kDay);
    m_archive.addRecords({record(kStart, 1)}, false);
    EXPECT_EQ(complaints(), 3) << "a clock that was set back silences for no day";
    std::filesystem::remove(m_archive.path());
    m_archive.addRecords({record(kStart, 1)}, false);
    EXPECT_EQ(content(), "2024-01-01 00:00:00,Cam,0,0,1\n");
    EXPECT_EQ(complaints(), 3);
}

TEST_F(BrokenDisk, MayLackTheFolder) {
    const std::filesystem::path folder = std::filesystem::path(m_archive.path()).parent_path();
    std::filesystem::remove_all(folder);
    EXPECT_TRUE(m_archive.addRecords({record(kStart, 1)}, true));
    EXPECT_FALSE(std::filesystem::exists(folder)) << "an archive makes no folders";
    EXPECT_EQ(LogCapture::countContaining(": No such file or directory. Counting goes on"), 1);
    EXPECT_TRUE(m_archive.getRecords().empty());
    EXPECT_TRUE(m_archive.purgeRecords());
    m_archive.repair();
    std::filesystem::create_directories(folder);
    m_archive.addRecords({record(kStart, 1)}, true);
    EXPECT_EQ(m_archive.getRecords().size(), 1U);
}

}  // namespace

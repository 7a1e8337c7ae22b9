#include "statistics/report_stream.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "base/unique_fd.h"
#include "log_capture.h"
#include "memory_figure.h"
#include "slow_build.h"
#include "statistics/archive_cells.h"
#include "statistics/date_windows.h"
#include "statistics/occupancy_manager.h"
#include "statistics/summary_report.h"
#include "test_clock.h"

namespace {

std::string plain(const OccupancyManager& manager, bool html) {
    SummaryReport report;
    report.add(manager.getArchivedCrowdCountRecords());
    report.add(manager.getArchivedEntranceActivityRecords());
    report.add(manager.getArchivedOccupancyObjectRecords());
    report.addAverage(manager.getArchivedAverageCrowdCountRecords());
    return html ? report.getHTMLAsString() : report.getCSVAsString();
}

/** The text, or which exception came instead. */
template <typename Call>
std::string outcome(Call call) {
    try {
        return call();
    } catch (const std::invalid_argument&) {
        return "invalid argument";
    } catch (const std::out_of_range&) {
        return "out of range";
    }
}

class ShortWay : public testing::Test {
protected:
    std::string path(size_t archive) const {
        static constexpr const char* kNames[] = {"CrowdCountTidy.csv", "EntranceActivityTidy.csv", "OccupancyTidy.csv",
                                                 "AverageCrowdCountTidy.csv"};
        return (m_log.folder() / "usr/local/packages/ostrel_senvo/localdata" / kNames[archive]).string();
    }
    void write(size_t archive, const std::string& text) const { std::ofstream(path(archive)) << text; }

    std::optional<std::string> streamed(report_stream::Form form) const {
        return report_stream::write({{{path(0)}, {path(1)}, {path(2)}, {path(3)}}}, form);
    }

    void expectTheSame(const std::string& label) const {
        const std::string csv = outcome([&] { return plain(m_manager, false); });
        const std::string html = outcome([&] { return plain(m_manager, true); });
        EXPECT_TRUE(outcome([&] { return m_manager.getSummaryReportCSV(); }) == csv) << label;
        EXPECT_TRUE(outcome([&] { return m_manager.getSummaryReportHTML(); }) == html) << label;
    }

    const TestClock m_clock;
    const LogCapture m_log;
    const ConfigParams m_config = {};
    const OccupancyManager m_manager{m_config};
};

TEST_F(ShortWay, WritesTheReport) {
    EXPECT_EQ(streamed(report_stream::Form::Csv), "Date\n");
    write(0, "d,Cam,0,2,12\ne,Cam,0,2,-3");
    write(1, "e,Cam,2,8,4,5\n");
    EXPECT_EQ(streamed(report_stream::Form::Csv),
              "Date,AOI1_Car_Cam,Entrance3_Entrances_Boat_Cam,Entrance3_Exits_Boat_Cam\nd,12,0,0\ne,-3,4,5\n");
    expectTheSame("two files");
}

TEST_F(ShortWay, SortsTheHourThatComesTwice) {
    write(2, "01:55,Cam,2,1\n02:00,Cam,2,2\n02:55,Cam,2,3\n02:00,Cam,2,4\n02:05,Cam,2,5\n03:00,Cam,2,6\n");
    write(0, "01:55,Cam,0,2,7\n03:00,Cam,0,2,8\n02:05,Cam,0,2,9\n");
    EXPECT_EQ(streamed(report_stream::Form::Csv),
              "Date,AOI1_Car_Cam,Occup_Car_Cam\n01:55,7,1\n02:00,0,4\n02:05,9,5\n02:55,0,3\n03:00,8,6\n")
        << "the later flush of a date wins";
    expectTheSame("twice");
}

TEST_F(ShortWay, SortsDatesInDisorder) {
    std::string text;
    std::string rows;
    for (int number = 99; number >= 10; --number) {
        text += std::to_string(number) + ",Cam,2," + std::to_string(number) + "\n";
        rows = std::to_string(number) + "," + std::to_string(number) + "\n" + rows;
    }
    write(2, text);
    EXPECT_EQ(streamed(report_stream::Form::Csv), "Date,Occup_Car_Cam\n" + rows);
}

/** Clocks that are set back at any flush, in windows of any size. */
TEST_F(ShortWay, AgreesWithTheLongOneHoweverOftenClocksWereSetBack) {
    std::mt19937 random(11);
    for (int round = 0; round < (kSlow ? 2 : 20); ++round) {
        for (size_t archive = 0; archive < 4; ++archive) {
            std::string text;
            for (int flush = 0; flush < 300; ++flush) {
                const std::string date = std::to_string(1000 + random() % (round % 2 == 0 ? 300 : 20));
                for (int index = 0; index < 3; ++index) {
                    text += date + (flush % 7 == 0 ? ",Back" : ",Cam") +
                            (archive == 2 ? "" : "," + std::to_string(index)) + "," + std::to_string(index) + "," +
                            std::to_string(random() % 1000) + (archive == 1 ? ",5" : "") + "\n";
                }
            }
            write(archive, text + (round % 3 == 0 ? "no record\n" : ""));
        }
        expectTheSame("round " + std::to_string(round));

        Columns columns;
        std::vector<UniqueFd> files;
        std::vector<ArchivePart> parts;
        for (size_t archive = 0; archive < 4; ++archive) {
            files.emplace_back(open(path(archive).c_str(), O_RDONLY | O_CLOEXEC));
            parts.push_back({kArchiveKinds[archive],
                             files.back().get(),
                             {0, static_cast<off_t>(std::filesystem::file_size(path(archive)))},
                             std::nullopt});
            ArchiveCells cells(parts.back(), columns, true);
            while (cells.next()) {
            }
        }
        size_t place = 0;
        for (auto& [name, number] : columns) {
            number = place++;
        }
        const auto rowsOf = [&](size_t rowsAtOnce) {
            std::vector<std::pair<std::string, std::vector<int32_t>>> rows;
            DateWindows(parts, columns, rowsAtOnce).forEachRow([&](const std::string& date, const auto& row) {
                rows.emplace_back(date, row);
            });
            return rows;
        };
        const auto all = rowsOf(0);
        EXPECT_TRUE(std::is_sorted(all.begin(), all.end())) << round;
        for (const size_t rowsAtOnce : {1U, 2U, 7U, 100U}) {
            EXPECT_TRUE(rowsOf(rowsAtOnce) == all) << round << ", rows at once: " << rowsAtOnce;
        }
    }
}

TEST_F(ShortWay, TakesLittleMemoryHoweverOftenClocksWereSetBack) {
    if (kSanitized || !std::ofstream("/proc/self/clear_refs").is_open()) {
        GTEST_SKIP() << "This process's peak of memory cannot be told.";
    }
    for (const int flushesPerSetBack : {1, 7, 100}) {
        for (const size_t archive : {0U, 3U}) {
            std::ofstream file(path(archive));
            for (int flush = 0; flush < 10'000; ++flush) {
                // A day back, again and again, over dates that are not met twice.
                const int back = flush / flushesPerSetBack % 2 == 0 ? 0 : 86400;
                const std::string date = OccupancyRecordBase::timeToString(1700000000 + flush * 60 - back);
                for (int index = 0; index < 27; ++index) {
                    file << date << ",Cam," << index % 3 << ',' << index / 3 << ",1\n";
                }
            }
        }
        const auto takesMore = [&](bool longWay) {
            const pid_t child = fork();
            if (child == 0) {
                std::ofstream("/proc/self/clear_refs") << "5";
                const int64_t before = memoryFigure("VmRSS");
                const std::string text = longWay ? plain(m_manager, false) : m_manager.getSummaryReportCSV();
                const int64_t taken = memoryFigure("VmHWM") - before;
                const int64_t limit = static_cast<int64_t>(text.size() / 1024) + 16 * 1024;
                std::cout << flushesPerSetBack << " flushes a set-back: " << taken << " kB of " << limit << std::endl;
                _exit(taken > limit ? 1 : 0);
            }
            int status = 0;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_TRUE(WIFEXITED(status));
            return WEXITSTATUS(status) != 0;
        };
        EXPECT_FALSE(takesMore(false)) << flushesPerSetBack;
        EXPECT_TRUE(takesMore(true)) << "archives in which the long way breaks the limit, " << flushesPerSetBack;
    }
}

/** The beginning of the files does not tell what comes: each of these is met after more dates than a look takes in. */
TEST_F(ShortWay, NeverMeetsHalfAFlush) {
    std::vector<CrowdCountRecord> flush(100'000, {"d", "Cam", aoi::aoi1, objects::person, 1'234'567});
    flush.back().count = 7;
    RecordArchive<CrowdCountRecord> archive("CrowdCountTidy.csv");
    for (int round = 0; round < (kSlow ? 5 : 20); ++round) {
        std::filesystem::remove(path(0));
        std::thread writer([&] { archive.addRecords(flush, false); });
        std::error_code missing;
        while (std::filesystem::file_size(path(0), missing) == 0 || missing) {
        }
        EXPECT_EQ(outcome([&] { return m_manager.getSummaryReportCSV(); }), "Date,AOI1_Person_Cam\nd,7\n");
        writer.join();
    }
}

TEST_F(ShortWay, MeetsWhatOnlyComesLater) {
    std::string hundreds;
    for (int date = 1000; date < 1400; ++date) {
        hundreds += std::to_string(date) + ",Cam,0,0,1\n";
    }
    const struct {
        const char* label;
        std::string end;
    } cases[] = {
        {"a column", "2000,Cam,1,0,5\n2001,Back,0,0,6\n"},
        {"a clock that was set back", "1200,Cam,0,0,5\n1201,Cam,1,0,6\n"},
        {"a word", "2000,Cam,0,0,x\n"},
        {"no end of the last line", "2000,Cam,0,0,17"},
        {"a long date", std::string(100'000, 'd') + ",Cam,0,0,17\n"},
        {"long numbers",
         [] {
             std::string lines;
             for (int date = 2000; date < 6000; ++date) {
                 lines += std::to_string(date) + ",Cam,0,0,-1234567890\n";
             }
             return lines;
         }()},
    };
    for (const auto& [label, end] : cases) {
        write(0, hundreds + end);
        expectTheSame(label);
    }
    write(0, hundreds + "2000,Cam,0,0,x\n");
    write(1, "1000,Cam,0,0,1,99999999999\n");
    EXPECT_EQ(outcome([&] { return m_manager.getSummaryReportCSV(); }), "invalid argument") << "of the first file";
}

TEST_F(ShortWay, MeetsWhateverAFileHolds) {
    const struct {
        const char* label;
        std::string crowd;
    } cases[] = {
        {"blank lines between lines that are alike", "d,c,0,0,1\n\nd,c,0,0,2\n\n\ne,c,0,0,3\n"},
        {"carriage returns", "d,c,0,0,1\r\ne,c,0,0,2\r\n"},
        {"bytes of value zero", std::string("d,c\0,0,0,1\ne,c\0,0,0,2\n", 22)},
        {"unknown index", "d,c,0,0,1\nd,c,3,0,1\na,c,0,9,1\ne,c,0,0,1\n"},
        {"other spellings of numbers", "d,c,0,0,1\ne,c,0,0,+1\nf,c,0,0, 1\ng,c,0,0,1x\nh,c,0,0,0001\ni,c, 0,0,7\n"},
        {"largest numbers", "d,c,0,0,2147483647\ne,c,0,0,-2147483648\n"},
        {"out of range", "d,c,0,0,1\ne,c,0,0,2147483648\n"},
        {"word", "d,c,0,0,1\ne,c,0,0,x\n"},
        {"no number", "d,c,0,0,1\ne,c,0,0,\n"},
        {"two bad numbers, the first tells", "d,c,0,0,1\nd,c,99999999999,x,1\n"},
        {"descending before a word", "e,c,0,0,1\nd,c,0,0,1\nf,c,0,0,x\n"},
        {"a column that comes late and one that goes", "d,c,0,0,1\nd,c,0,1,2\ne,c,0,1,3\nf,c,0,0,4\nf,c,2,0,5\n"},
        {"repeated date and column", "d,c,0,0,1\nd,c,0,0,2\nd,c,0,0,0\n"},
        {"empty date and name", ",,0,0,1\n,,0,0,2\nd,,0,0,1\n"},
        {"no end of the last line", "d,c,0,0,1\ne,c,0,0,27"},
        {"line longer than a buffer", "d," + std::string(1'000'000, 'x') + ",0,0,1\ne,c,0,0,2\n"},
        {"one date begins like another", "d,c,0,0,1\nd1,c,0,0,2\nd12,c,0,0,3\n"},
    };
    for (const auto& [label, crowd] : cases) {
        write(0, crowd);
        expectTheSame(label);
    }
    write(0, "d,c,0,0,x\n");
    write(1, "d,c,0,0,1,99999999999\n");
    EXPECT_EQ(outcome([&] { return m_manager.getSummaryReportCSV(); }), "invalid argument") << "of the first file";
}

/** Archives of a few cameras with everything that can be wrong with a line now and then. */
TEST_F(ShortWay, AgreesWithTheLongOneOverRandomArchives) {
    std::mt19937 random(7);
    const auto oneIn = [&](unsigned n) { return random() % n == 0; };
    const int rounds = kSlow ? 8 : 150;
    for (int round = 0; round < rounds; ++round) {
        const bool clean = oneIn(3);
        for (size_t archive = 0; archive < 4; ++archive) {
            std::string text;
            for (int flush = 0; flush < 40; ++flush) {
                if (oneIn(6)) {
                    continue;
                }
                const int moment = !clean && oneIn(200) ? 0 : flush / (1 + round % 2);
                const std::string date = OccupancyRecordBase::timeToString(1700000000 + 300 * moment);
                for (const char* camera : {"Front", "Back", "", "a b"}) {
                    for (int index = 0; index < 12; ++index) {
                        if (oneIn(40)) {
                            continue;
                        }
                        text += date + "," + camera;
                        text += archive == 2 ? "" : "," + std::to_string(index % 4);
                        text += "," + std::to_string(index - (oneIn(30) ? 5 : 0));
                        for (size_t number = 0; number < (archive == 1 ? 2U : 1U); ++number) {
                            text += "," + (oneIn(9) ? std::to_string(static_cast<int32_t>(random()))
                                                    : std::to_string(random() % 12));
                        }
                        text += !clean && oneIn(5000) ? ",x\nq\n" : !clean && oneIn(9000) ? "\n,,z,,\n,\n" : "\n";
                    }
                }
            }
            write(archive, text);
        }
        expectTheSame("round " + std::to_string(round));
        if (clean) {
            EXPECT_TRUE(streamed(report_stream::Form::Csv).has_value())
                << "ascending dates take the short way, " << round;
        }
    }
}

}  // namespace

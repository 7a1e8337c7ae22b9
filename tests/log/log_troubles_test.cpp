#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <new>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

#include "log/Logger.h"
#include "memory_figure.h"
#include "slow_build.h"
#include "test_clock.h"
#include "test_folder.h"

namespace {

constexpr time_t kDay = 86400;
constexpr time_t kStart = 1700000000;

class LogTroubles : public testing::Test {
protected:
    std::string content() const {
        std::ifstream file(m_path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /** Lines of 64 bytes with their ends. */
    void fill(size_t bytes) const {
        std::ofstream file(m_path, std::ios::trunc);
        for (size_t written = 0; written < bytes; written += 64) {
            file << std::string(63, 'x') << '\n';
        }
    }

    const TimeZone m_utc{"UTC0"};
    const TestFolder m_folder;
    const std::string m_path = m_folder.path() / "log.txt";
};

TEST_F(LogTroubles, ThatThrowInAPurgeOrAtTheEndLeaveALogThatGoesOnAndEnds) {
    std::atomic<int> calls = 0;
    std::atomic<int> throwing = 0;  // the call that throws; 0: none
    std::atomic<int> days = 0;
    setClock([&] {
        if (++calls == throwing) {
            throw std::bad_alloc();
        }
        return (kStart + int64_t{days} * kDay) * 1000000;
    });
    const auto throwAt = [&](int call) {
        calls = 0;
        throwing = call;
    };
    // A flush asks for the time, then what it tells of the purge does, before and after it.
    for (int call = 2; call <= 4; ++call) {
        days = 0;
        std::optional<Logger> log;
        log.emplace("app", m_path);
        fill(2097152);
        days = 2;
        throwAt(call);
        EXPECT_NO_THROW(log->flush()) << "call " << call;
        EXPECT_GE(calls, 2) << "call " << call;
        throwAt(0);
        log->warning("after it");
        EXPECT_TRUE(content().ends_with("|app|warning|after it\n")) << "call " << call;
        log.reset();
        EXPECT_TRUE(content().ends_with("|app|warning|STOPPING app\n2023-11-16 22:13:20|app|warning|\n"))
            << "call " << call << ": " << content().substr(content().size() - 200);
    }
    // The end asks for the time of each of its two lines and whether a purge is due, which then tells of itself.
    for (int call = 1; call <= 6; ++call) {
        days = 0;
        std::optional<Logger> log;
        log.emplace("app", m_path);
        fill(2097152);
        days = 2;
        throwAt(call);
        log.reset();
        throwAt(0);
        EXPECT_TRUE(content().find("|STOPPING app\n") != std::string::npos || call == 1) << "call " << call;
        EXPECT_TRUE(content().find("|app|warning|\n") != std::string::npos || call == 5) << "call " << call;
    }
    setClock(nullptr);
}

/** The time for a purge may come at any moment of the end; only what the very last look purges is not told. */
TEST_F(LogTroubles, OfAPurgeAtTheEndAreTold) {
    constexpr int kCallsOfTheEnd = 5;  // each of the two lines, and after each and at last whether a purge is due
    for (int call = 1; call <= kCallsOfTheEnd; ++call) {
        int calls = 0;
        int dueAt = 0;  // the call from which on a day is over; 0: never
        setClock([&] { return (kStart + (dueAt > 0 && ++calls >= dueAt ? kDay + 1 : 0)) * 1000000; });
        std::optional<Logger> log;
        log.emplace("app", m_path);
        fill(3 * 1048576);
        dueAt = call;
        log.reset();
        const std::string text = content();
        EXPECT_LT(text.size(), 2 * 1048576U) << "call " << call;
        EXPECT_EQ(text.find("|Purging log file. Final log file size=") != std::string::npos, call < kCallsOfTheEnd)
            << "call " << call;
        EXPECT_NE(text.find("|warning|STOPPING app\n"), std::string::npos) << "call " << call;
        EXPECT_NE(text.find("|app|warning|\n"), std::string::npos) << "call " << call;
    }
    setClock(nullptr);
}

TEST_F(LogTroubles, TheEndLooksWhetherTheFileHasGrownTooLong) {
    TestClock clock(kStart);
    std::optional<Logger> log;
    log.emplace("app", m_path);
    fill(3 * 1048576);
    clock.advance(kDay + 1);
    log.reset();
    const std::string text = content();
    EXPECT_LT(text.size(), 2 * 1048576U);
    EXPECT_GT(text.size(), 1048576U);
    const std::string date = "2023-11-15 22:13:21|app|";
    EXPECT_TRUE(text.ends_with(date + "warning|STOPPING app\n" + date +
                               "info|Purging log file. Initial log file size=3145773 bytes.\n" + date +
                               "info|Purging log file. Final log file size=" +
                               std::to_string(text.size() - text.substr(text.find(date + "info|Purging")).size()) +
                               " bytes.\n" + date + "warning|\n"))
        << text.substr(text.size() - 400);
}

TEST_F(LogTroubles, TheNewestLinesAreThoseThatFitIntoAMebibyte) {
    const TestClock clock(kStart);
    Logger log("app", m_path);
    EXPECT_EQ(log.getNewestSerializedContents(), content()) << "a short log is shown whole";
    const struct {
        const char* label;
        size_t bytes;
        size_t shown;
    } cases[] = {{"just as much", 1048576, 1048576},
                 {"a line more", 1048576 + 64, 1048576},
                 {"much more", 10 * 1048576, 1048576},
                 {"nothing", 0, 0}};
    for (const auto& [label, bytes, shown] : cases) {
        fill(bytes);
        EXPECT_EQ(log.getNewestSerializedContents().size(), shown) << label;
    }
    fill(1048576);
    std::ofstream(m_path, std::ios::app) << "y\n";
    const std::string newest = log.getNewestSerializedContents();
    EXPECT_EQ(newest.size(), 1048576U - 64 + 2) << "the line that reaches across the limit is left out";
    EXPECT_TRUE(newest.starts_with("xxx") && newest.ends_with("x\ny\n"));
    std::ofstream(m_path) << std::string(2 * 1048576, 'z');
    EXPECT_EQ(log.getNewestSerializedContents(), "") << "one line that is longer";
}

TEST_F(LogTroubles, ReadingALongLogTakesTheRoomOfItsText) {
    if (kSanitized || !std::ofstream("/proc/self/clear_refs").is_open()) {
        GTEST_SKIP() << "This process's peak of memory cannot be told.";
    }
    const TestClock clock(kStart);
    Logger log("app", m_path);
    fill(size_t{48} << 20U);
    std::string (Logger::*const reads[])() = {&Logger::getSerializedLogContents, &Logger::getPlainLogContents,
                                              &Logger::getCSVLogContents};
    for (const auto read : reads) {
        const pid_t child = fork();
        if (child == 0) {
            std::ofstream("/proc/self/clear_refs") << "5";
            const int64_t before = memoryFigure("VmRSS");
            const std::string text = (log.*read)();
            const int64_t taken = memoryFigure("VmHWM") - before;
            std::cout << "reading " << text.size() / 1024 << " kB took " << taken << " kB\n";
            _exit(taken > 0 && taken <= static_cast<int64_t>(text.size() / 1024) + 4096 ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
}

}  // namespace

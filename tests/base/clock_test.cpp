#include "base/clock.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "log/Logger.h"
#include "program.h"
#include "statistics/occupancy_records.h"
#include "test_clock.h"
#include "test_folder.h"

namespace {

TEST(LocalTime, FollowsATimeZoneThatIsChangedWhileItRuns) {
    const TimeZone zone("UTC0");
    EXPECT_EQ(localTime(0).tm_hour, 0);
    // As a change of the machine's zone comes: nobody tells the process.
    setenv("TZ", "EET-2", 1);
    EXPECT_EQ(localTime(0).tm_hour, 2);
    setenv("TZ", "EST5", 1);
    EXPECT_EQ(Logger::timeToString(0), "1969-12-31 19:00:00");
    setenv("TZ", "JST-9", 1);
    EXPECT_EQ(OccupancyRecordBase::timeToString(0), "1970-01-01 09:00:00");
}

/** A file of a zone that is so many hours, less than ten, ahead of UTC all the year, in its first and shortest form. */
std::string zoneFile(int hours) {
    std::string counts(24, '\0');
    counts[19] = 1;  // type of time
    counts[23] = 4;  // letters
    const int seconds = 3600 * hours;
    const std::string type = {0, 0, static_cast<char>(seconds >> 8), static_cast<char>(seconds & 0xFF), 0, 0};
    return "TZif" + std::string(16, '\0') + counts + type + std::string("XXX\0", 4);
}

/** Exits with 0 when the hour of the machine's zone is another one once another file has taken the zone's place. */
[[noreturn]] void lookAtTheHourBeforeAndAfterAChange(const char* variable) {
    if (variable == nullptr) {
        unsetenv("TZ");
    } else {
        setenv("TZ", variable, 1);
    }
    const int before = localTime(0).tm_hour;
    std::filesystem::rename("/etc/other", "/etc/localtime");
    const int after = localTime(0).tm_hour;
    _exit(before != 2 ? 1 : after != 9 ? 2 : 0);
}

TEST(LocalTime, FollowsTheMachinesZoneFileThatIsReplacedWhileItRuns) {
    for (const char* variable : {static_cast<const char*>(nullptr), ":/etc/localtime", "/etc/localtime"}) {
        const TestFolder folder;
        std::filesystem::create_directory(folder.path() / "etc");
        writeFile(folder.path() / "etc/localtime", zoneFile(2));
        writeFile(folder.path() / "etc/other", zoneFile(9));
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            // The machine's own file is not the test's to replace: to the child another folder is the machine.
            if ((geteuid() != 0 && unshare(CLONE_NEWUSER) != 0) || chroot(folder.path().c_str()) != 0 ||
                chdir("/") != 0) {
                _exit(77);
            }
            lookAtTheHourBeforeAndAfterAChange(variable);
        }
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
            GTEST_SKIP() << "needs to be root, or user namespaces";
        }
        EXPECT_EQ(status, 0) << (variable == nullptr ? "no TZ" : variable);
    }
}

// Without a TZ the C library forgets and learns the zone at each question.
TEST(LocalTime, IsAskedForByTwoThreadsAtOnce) {
    unsetenv("TZ");
    const auto ask = [] {
        for (time_t moment = 0; moment < 100 * 86400; moment += 86400) {
            EXPECT_EQ(fromLocalTime(localTime(moment)), moment);
        }
    };
    std::thread other(ask);
    ask();
    other.join();
}

}  // namespace

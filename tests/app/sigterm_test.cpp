#include <array>
#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "Logger.h"
#include "program.h"
#include "test_folder.h"

/*
 * The real process, asked to end at any moment of its life, as a supervisor does it: SIGTERM is held back at the start,
 * so that none is lost before the process can handle it.
 */

namespace {

constexpr int kRuns = 1000;
constexpr int kThreads = 2;
constexpr int kLongestDelayMicros = 40000;
constexpr int kMostMilliseconds = 10000;

void pauseMicros(int micros) {
    const timespec pause = {0, micros * 1000L};
    nanosleep(&pause, nullptr);
}

/** What is wrong with a log whose process was asked to end; empty when nothing is. */
std::string checkLog(const std::string& text) {
    if (text.empty() || text.back() != '\n') {
        return "the last line is torn";
    }
    std::vector<std::string> lines;
    std::stringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
        if (line.size() < 20 || line[4] != '-' || line.compare(19, 14, "|ostrel_senvo|") != 0) {
            return "a torn line: " + line;
        }
    }
    // The stop is followed by an empty entry that separates it from the next start.
    if (lines.size() < 2 || LogEntry::deserialize(lines[lines.size() - 2])._message != "STOPPING ostrel_senvo" ||
        !LogEntry::deserialize(lines.back())._message.empty()) {
        return "the log does not end with the stop";
    }
    return {};
}

TEST(Sigterm, AtAnyMomentEndsTheProcessInOrder) {
    std::mutex mutex;  // guards statuses
    std::map<int, int> statuses;
    const auto runMany = [&](unsigned seed) {
        const TestFolder folder;
        for (const char* name : {"localdata", "tmp", "mnt/flash/usr/local/packages/ostrel_senvo"}) {
            std::filesystem::create_directories(folder.path() / name);
        }
        writeFile(folder.path() / "mnt/flash/usr/local/packages/ostrel_senvo/detect_960_540_tpu.tflite", "model");
        std::mt19937 random(seed);
        for (int run = 0; run < kRuns / kThreads; ++run) {
            const int delay = std::uniform_int_distribution<int>(0, kLongestDelayMicros)(random);
            Child child(startProgram({EMULATOR SCRIPTED_PROGRAM}, folder.path(), {"OSTREL_SENVO_ROOT=" + folder.path().string()},
                                     {SIGTERM}));
            pauseMicros(delay);
            kill(child.pid(), SIGTERM);
            const int status = child.wait(kMostMilliseconds);
            ASSERT_NE(status, -1) << "hangs, asked to end after " << delay << " us";
            const std::string log = readFile(folder.path() / "localdata/SenvoLog.txt");
            ASSERT_EQ(checkLog(log), "") << "after " << delay << " us:\n" << log << readFile(folder.path() / "err");
            std::filesystem::remove(folder.path() / "localdata/SenvoLog.txt");
            const std::lock_guard lock(mutex);
            ++statuses[status];
        }
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= kThreads; ++seed) {
        threads.emplace_back(runMany, seed);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(statuses[0] + statuses[1], kRuns) << "other statuses than 0 and 1";
    EXPECT_GT(statuses[0], 0) << "none came after the main loop began";
    EXPECT_GT(statuses[1], 0) << "none came before the main loop began";
}

}  // namespace

#include <array>
#include <chrono>
#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "log/Logger.h"
#include "scripted_process.h"
#include "slow_build.h"

/*
 * The real process, asked to end at any moment of its life, as a supervisor does it: SIGTERM is held back at the start,
 * so that none is lost before the process can handle it.
 */

namespace {

constexpr int kThreads = 2;
constexpr int kMostMilliseconds = 10000;

void pauseMicros(int micros) {
    const timespec pause = {micros / 1000000, micros % 1000000 * 1000L};
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

/** How long a process takes here until its main loop begins: its first line in the ledger comes right before. */
std::chrono::microseconds timeToMainLoop() {
    const ScriptedProcess process;
    const auto begin = std::chrono::steady_clock::now();
    const Child child(process.start());
    const std::filesystem::path ledger = process.folder() / "usr/local/packages/ostrel_senvo/localdata/ledger";
    while (!std::filesystem::exists(ledger) || std::filesystem::is_empty(ledger)) {
        pauseMicros(1000);
    }
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin);
}

TEST(Sigterm, AtAnyMomentEndsTheProcessInOrder) {
    const int runs = isEmulated() ? 40 : kSlow ? 200 : 1000;
    const auto longestDelayMicros = static_cast<int>(2 * timeToMainLoop().count());
    std::mutex mutex;  // guards statuses
    std::map<int, int> statuses;
    const auto runMany = [&](unsigned seed) {
        const ScriptedProcess process;
        std::mt19937 random(seed);
        for (int run = 0; run < runs / kThreads; ++run) {
            const int delay = std::uniform_int_distribution<int>(0, longestDelayMicros)(random);
            Child child(process.start());
            pauseMicros(delay);
            kill(child.pid(), SIGTERM);
            const int status = child.wait(kMostMilliseconds);
            ASSERT_NE(status, -1) << "hangs, asked to end after " << delay << " us";
            const std::string log = readFile(process.folder() / "localdata/SenvoLog.txt");
            ASSERT_EQ(checkLog(log), "") << "after " << delay << " us:\n" << log << readFile(process.folder() / "err");
            std::filesystem::remove(process.folder() / "localdata/SenvoLog.txt");
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
    EXPECT_EQ(statuses[0] + statuses[1], runs) << "other statuses than 0 and 1";
    EXPECT_GT(statuses[0], 0) << "none came after the main loop began";
    EXPECT_GT(statuses[1], 0) << "none came before the main loop began";
}

}  // namespace

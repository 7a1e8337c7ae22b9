#pragma once

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "shared.h"
#include "slow_build.h"

/*
 * A process that writes without a pause is killed at a random moment, again and again over the same files; each time a
 * start has to find everything that was finished before, in order and once, and at most one torn line.
 */

/** Numbers of what a writer has begun and finished. */
struct Progress {
    std::atomic<int> begun = 0;
    std::atomic<int> done = 0;
    std::atomic<int> purgeBegun = 0;
    std::atomic<int> purgeDone = 0;
};

/** One kind of file, its writer and what has to be found of its work. */
class Writer {
public:
    virtual ~Writer() = default;

    /** In the child: writes for ever. */
    virtual void write() = 0;

    /** In the parent: starts over what the child left, and checks it. */
    virtual void check() = 0;

    /** Whether the child was in the midst of something. */
    bool wasAtWork() const {
        return m_progress->begun != m_progress->done || m_progress->purgeBegun != m_progress->purgeDone;
    }

    /** Lines that were torn, and passed for whole ones. */
    size_t torn() const { return m_torn.size(); }

protected:
    /** Numbers in order without a gap, from first to what was finished or begun; returns the last. */
    void expectInOrder(const std::vector<int>& numbers, int first) {
        for (size_t i = 0; i < numbers.size(); ++i) {
            ASSERT_EQ(numbers[i], first + static_cast<int>(i));
        }
        const int next = first + static_cast<int>(numbers.size());
        EXPECT_GT(next, m_progress->done) << "a line that was flushed is gone";
        EXPECT_LE(next, m_progress->begun + 1);
        m_progress->begun = m_progress->done = next - 1;
        m_progress->purgeDone = m_progress->purgeBegun = first;
    }

    const Shared<Progress> m_progress;
    std::set<int> m_torn;
};

/** Kills a writer again and again; longest: microseconds until the kill at most, on a machine that is not slow. */
inline void killAtAnyMoment(Writer& writer, int longest) {
    const int rounds = kSlow ? 40 : 500;
    longest *= kSlow ? 10 : 1;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    int atWork = 0;
    for (int round = 0; round < rounds && !testing::Test::HasFailure(); ++round) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            writer.write();
            _exit(1);
        }
        const timespec moment = {0, std::uniform_int_distribution<long>(0, longest * 1000L)(random)};
        nanosleep(&moment, nullptr);
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself with " << status;
        atWork += writer.wasAtWork() ? 1 : 0;
        writer.check();
    }
    std::cout << "killed " << rounds << " times, " << atWork << " of them at work, " << writer.torn()
              << " torn lines passed for whole ones\n";
    EXPECT_GT(atWork, rounds / 20) << "the moments have to fall into the work";
}

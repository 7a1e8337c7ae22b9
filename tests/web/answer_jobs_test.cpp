#include "web/answer_jobs.h"

#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <stdexcept>
#include <thread>

#include "test_clock.h"

/* Answers that take longer than a request may. */

namespace {

TEST(AnswerJobs, GiveANumberWhereAnAnswerTakesLong) {
    AnswerJobs jobs;
    std::promise<void> goOn;
    const int64_t slow = jobs.post([waits = goOn.get_future().share()](const std::atomic<bool>&) {
        waits.wait();
        return std::string("slow");
    });
    EXPECT_GT(slow, 0);
    EXPECT_EQ(jobs.take(slow), std::nullopt);
    std::set<int64_t> numbers;
    for (int i = 0; i < 8; ++i) {
        numbers.insert(jobs.post([](const std::atomic<bool>&) { return std::string("next"); }));
    }
    EXPECT_EQ(numbers.size(), 8U);
    EXPECT_GT(*numbers.rbegin() - *numbers.begin(), 1'000) << "whoever has one does not know the others'";
    EXPECT_THROW(jobs.post([](const std::atomic<bool>&) { return std::string(); }), std::invalid_argument);
    goOn.set_value();
    std::optional<std::string> answer;
    while (!(answer = jobs.take(slow))) {
    }
    EXPECT_EQ(answer, "slow");
    EXPECT_THROW(jobs.take(slow), std::invalid_argument) << "it was fetched";
    while (!(answer = jobs.take(*numbers.begin()))) {
    }
    EXPECT_EQ(answer, "next");
}

/** The number of an answer of so many bytes that is being made. */
int64_t post(AnswerJobs& jobs, size_t bytes) {
    return jobs.post([bytes](const std::atomic<bool>&) { return std::string(bytes, 'x'); });
}

/** Fetches an answer; those before it are made then. */
size_t fetch(AnswerJobs& jobs, int64_t number) {
    for (;;) {
        if (const std::optional<std::string> answer = jobs.take(number)) {
            return answer->size();
        }
    }
}

TEST(AnswerJobs, AreKeptForTwoMinutes) {
    TestClock clock;
    AnswerJobs jobs;
    const int64_t first = post(jobs, 1);
    const int64_t second = post(jobs, 2);
    EXPECT_EQ(fetch(jobs, post(jobs, 3)), 3U);
    clock.advance(120);
    EXPECT_EQ(fetch(jobs, first), 1U);
    clock.advanceMillis(1);
    EXPECT_THROW(jobs.take(second), std::invalid_argument);
}

TEST(AnswerJobs, KeepSixteenMebibytes) {
    constexpr size_t kSix = size_t{6} << 20U;
    AnswerJobs jobs;
    const int64_t numbers[] = {post(jobs, kSix), post(jobs, kSix), post(jobs, kSix)};
    EXPECT_EQ(fetch(jobs, post(jobs, 1)), 1U);
    EXPECT_THROW(jobs.take(numbers[0]), std::invalid_argument) << "the oldest";
    EXPECT_EQ(fetch(jobs, numbers[1]), kSix);
    EXPECT_EQ(fetch(jobs, numbers[2]), kSix);
    const int64_t tooLong = post(jobs, 3 * kSix);
    try {
        fetch(jobs, tooLong);
        ADD_FAILURE() << "such an answer is kept";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(),
                     "expected a question whose answer has at most 16777216 bytes, got one with 18874368; "
                     "ask for longer steps or less time");
    }
}

TEST(AnswerJobs, EndWhileOneIsUnderWay) {
    std::promise<void> begun;
    auto jobs = std::make_unique<AnswerJobs>();
    jobs->post([&begun](const std::atomic<bool>& stop) {
        begun.set_value();
        while (!stop) {
            std::this_thread::yield();
        }
        return std::string();
    });
    bool isMade = false;
    jobs->post([&isMade](const std::atomic<bool>&) {
        isMade = true;
        return std::string();
    });
    begun.get_future().wait();
    jobs.reset();
    EXPECT_FALSE(isMade);
}

}  // namespace

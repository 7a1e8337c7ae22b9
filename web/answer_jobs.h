#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "base/mutex.h"

/**
 * Answers that may take longer than a request may: they are made by a thread of their own, one after the other, and
 * whoever asked comes back for them with their number.
 *
 * Any thread. The last answers are kept until they are fetched: for two minutes, sixteen of them and 16 MiB at most.
 */
class AnswerJobs {
public:
    /** Makes an answer; gives up, with any answer, once stop is true. What it throws is thrown by take. */
    using Work = std::function<std::string(const std::atomic<bool>& stop)>;

    AnswerJobs() = default;
    /** Stops what is under way and drops what waits. */
    ~AnswerJobs();

    AnswerJobs(const AnswerJobs&) = delete;
    AnswerJobs& operator=(const AnswerJobs&) = delete;

    /**
     * Takes work on and returns its number, from 1, which nobody guesses: an answer is for whoever asked. Throws
     * std::invalid_argument when eight wait already.
     */
    int64_t post(Work work) EXCLUDES(m_mutex);

    /**
     * The answer, once; nothing when it is not there within 50 ms. Throws std::invalid_argument for a number that is
     * not known, or no longer, and for an answer that is too long to be kept.
     */
    std::optional<std::string> take(int64_t number) EXCLUDES(m_mutex);

private:
    struct Job {
        int64_t number = 0;
        Work work;
    };
    struct Done {
        int64_t number = 0;
        std::string answer;
        std::exception_ptr error;
        int64_t madeMicros = 0; /**< steady */
    };

    void run() EXCLUDES(m_mutex);
    void letGo() REQUIRES(m_mutex);

    Mutex m_mutex; /**< guards what follows */
    ConditionVariable m_changed;
    std::deque<Job> m_waiting GUARDED_BY(m_mutex);
    std::deque<Done> m_done GUARDED_BY(m_mutex); /**< the oldest first */
    int64_t m_current GUARDED_BY(m_mutex) = 0;   /**< number of what is under way; 0 for none */
    bool m_isStarted GUARDED_BY(m_mutex) = false;
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

#pragma once

#include <atomic>
#include <deque>
#include <exception>
#include <functional>
#include <thread>

#include "base/mutex.h"

/**
 * Does purges of archives one after the other on a thread of its own: one of a large file takes many cycles' time.
 * Belongs to the thread that makes it.
 */
class PurgeQueue {
public:
    /** Ends early, leaving its file as it was, when stop becomes true. */
    using Purge = std::function<void(const std::atomic<bool>& stop)>;

    PurgeQueue() = default;

    /** Lets the purge that is at work end early, and those that wait. */
    ~PurgeQueue();

    PurgeQueue(const PurgeQueue&) = delete;
    PurgeQueue& operator=(const PurgeQueue&) = delete;

    /** Returns at once. Throws std::system_error when there can be no thread. */
    void post(Purge purge) EXCLUDES(m_mutex);

    /** Throws what a purge threw since the last call. */
    void rethrow() EXCLUDES(m_mutex);

private:
    void work() EXCLUDES(m_mutex);
    Purge next() EXCLUDES(m_mutex);

    Mutex m_mutex; /**< guards m_waiting and m_error */
    ConditionVariable m_posted;
    std::deque<Purge> m_waiting GUARDED_BY(m_mutex);
    std::exception_ptr m_error GUARDED_BY(m_mutex);
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

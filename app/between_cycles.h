#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "base/mutex.h"

/** Work that other threads have for the analysis thread, which does it between two cycles, in the order it came. */
class BetweenCycles {
public:
    /** Any thread; returns at once. */
    void post(std::function<void()> work) EXCLUDES(m_mutex) {
        const MutexLock lock(m_mutex);
        m_waiting.push_back(std::move(work));
    }

    /** Does what is waiting. The analysis thread. */
    void run() EXCLUDES(m_mutex) {
        std::vector<std::function<void()>> waiting;
        {
            const MutexLock lock(m_mutex);
            waiting.swap(m_waiting);
        }
        for (const std::function<void()>& work : waiting) {
            work();
        }
    }

private:
    Mutex m_mutex; /**< guards m_waiting */
    std::vector<std::function<void()>> m_waiting GUARDED_BY(m_mutex);
};

#pragma once

#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "base/mutex.h"
namespace desktop {

/** Work beside the supervisor, on a thread of its own: a step now and then, until it is done or this goes away. */
class Background {
public:
    /** step returns whether another is to follow; a pause lies before each. */
    Background(std::chrono::milliseconds pause, std::function<bool()> step)
        : m_thread([this, pause, step = std::move(step)] {
              while (!waits(pause) && step()) {
              }
          }) {}
    ~Background() {
        {
            const MutexLock lock(m_mutex);
            m_ending = true;
        }
        m_changed.notifyAll();
        m_thread.join();
    }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

private:
    /** True when the end has come. */
    bool waits(std::chrono::milliseconds pause) {
        const auto end = std::chrono::steady_clock::now() + pause;
        const MutexLock lock(m_mutex);
        while (!m_ending && m_changed.waitUntil(m_mutex, end)) {
        }
        return m_ending;
    }

    Mutex m_mutex; /**< guards m_ending */
    ConditionVariable m_changed;
    bool m_ending GUARDED_BY(m_mutex) = false;
    std::thread m_thread;
};

}  // namespace desktop

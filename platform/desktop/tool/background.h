#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

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
            const std::lock_guard lock(m_mutex);
            m_ending = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

private:
    /** True when the end has come. */
    bool waits(std::chrono::milliseconds pause) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, pause, [this] { return m_ending; });
    }

    std::mutex m_mutex; /**< guards m_ending */
    std::condition_variable m_changed;
    bool m_ending = false;
    std::thread m_thread;
};

}  // namespace desktop

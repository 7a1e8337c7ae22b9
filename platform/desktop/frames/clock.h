#pragma once

#include <chrono>

#include "base/mutex.h"
namespace desktop {

/** The time by which recorded sources are paced and waits end. */
class Clock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
    virtual ~Clock() = default;

    virtual TimePoint now() = 0;

    /** Waits until changed is notified or the time has come; may return early, so callers loop on their condition. */
    virtual void waitUntil(Mutex& mutex, ConditionVariable& changed, TimePoint when) REQUIRES(mutex) = 0;
};

/** The machine's monotonic clock. */
Clock& steadyClock();

}  // namespace desktop

#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/**
 * A mutex that clang's thread-safety analysis understands: members say GUARDED_BY which mutex, functions say REQUIRES,
 * and a build with clang proves it.
 */
#if defined(__clang__)
#define SENVO_THREAD_ATTRIBUTE(...) __attribute__((__VA_ARGS__))
#else
#define SENVO_THREAD_ATTRIBUTE(...)
#endif

#define GUARDED_BY(mutex) SENVO_THREAD_ATTRIBUTE(guarded_by(mutex))
#define REQUIRES(mutex) SENVO_THREAD_ATTRIBUTE(requires_capability(mutex))
#define EXCLUDES(...) SENVO_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

class SENVO_THREAD_ATTRIBUTE(capability("mutex")) Mutex {
public:
    void lock() SENVO_THREAD_ATTRIBUTE(acquire_capability()) { m_mutex.lock(); }
    bool try_lock() SENVO_THREAD_ATTRIBUTE(try_acquire_capability(true)) { return m_mutex.try_lock(); }
    void unlock() SENVO_THREAD_ATTRIBUTE(release_capability()) { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

class SENVO_THREAD_ATTRIBUTE(scoped_lockable) MutexLock {
public:
    explicit MutexLock(Mutex& mutex) SENVO_THREAD_ATTRIBUTE(acquire_capability(mutex)) : m_mutex(mutex) {
        m_mutex.lock();
    }
    /** Takes over what is locked already. */
    MutexLock(Mutex& mutex, std::adopt_lock_t) REQUIRES(mutex) : m_mutex(mutex) {}
    ~MutexLock() SENVO_THREAD_ATTRIBUTE(release_capability()) { m_mutex.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& m_mutex;
};

/**
 * What threads wait for under a mutex, which is free meanwhile. A wait may end for no reason, so callers loop on their
 * condition.
 */
class ConditionVariable {
public:
    void wait(Mutex& mutex) REQUIRES(mutex) { m_changed.wait(mutex); }

    /** False when the time has passed. */
    template <typename Rep, typename Period>
    bool waitFor(Mutex& mutex, std::chrono::duration<Rep, Period> time) REQUIRES(mutex) {
        return m_changed.wait_for(mutex, time) == std::cv_status::no_timeout;
    }

    /** False when the moment has come. */
    template <typename Clock, typename Duration>
    bool waitUntil(Mutex& mutex, std::chrono::time_point<Clock, Duration> moment) REQUIRES(mutex) {
        return m_changed.wait_until(mutex, moment) == std::cv_status::no_timeout;
    }

    void notifyOne() { m_changed.notify_one(); }
    void notifyAll() { m_changed.notify_all(); }

private:
    std::condition_variable_any m_changed;
};

#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include "base/clock.h"

/** Sets the application's clock for the length of a test. */
class TestClock {
public:
    explicit TestClock(time_t seconds = 1700000000) : m_micros(int64_t{seconds} * 1000000), m_steady(m_micros.load()) {
        setClock([this] { return m_micros.load(); }, [this] { return m_steady.load(); });
    }
    ~TestClock() { setClock(nullptr); }
    TestClock(const TestClock&) = delete;
    TestClock& operator=(const TestClock&) = delete;

    void advance(time_t seconds) { advanceMillis(int64_t{seconds} * 1000); }
    void advanceMillis(int64_t milliseconds) {
        m_micros += milliseconds * 1000;
        m_steady += milliseconds * 1000;
    }

    /** Somebody sets the wall clock; no time goes by. */
    void set(time_t seconds) { m_micros = int64_t{seconds} * 1000000; }
    time_t now() const { return static_cast<time_t>(m_micros / 1000000); }

private:
    std::atomic<int64_t> m_micros;
    std::atomic<int64_t> m_steady;
};

/** Puts the process into a time zone for the length of a test. */
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    ~TimeZone() {
        unsetenv("TZ");
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
};

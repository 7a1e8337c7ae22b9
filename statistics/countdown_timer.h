#pragma once

#include <cstdint>

#include "base/clock.h"

/** Counts down seconds by the wall clock; a clock that is set moves the expiry with it. */
class CountdownTimer {
public:
    explicit CountdownTimer(int length) { reset(length); }

    bool isExpired() const { return clockNowMicros() >= expiryTime; }

    /** Microseconds since 1970. */
    int64_t getExpiryTime() const { return expiryTime; }

    /** Starts the same countdown again. */
    void restart() { reset(seconds); }

    /** Starts another countdown. */
    void reset(int length) {
        seconds = length;
        expiryTime = clockNowMicros() + int64_t{length} * 1000000;
    }

private:
    int seconds = 0;
    int64_t expiryTime = 0;
};

#include "base/clock.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/mutex.h"

static_assert(sizeof(time_t) == sizeof(int64_t), "times go beyond 2038, on every processor");

namespace {

// Functions, so that the logger can ask during static initialisation.
std::function<int64_t()>& source() {
    static std::function<int64_t()> instance;
    return instance;
}

std::function<int64_t()>& steadySource() {
    static std::function<int64_t()> instance;
    return instance;
}

// Guards the C library's notion of the zone: its own lock is none that a race detector sees.
Mutex& zone() {
    static Mutex instance;
    return instance;
}

/**
 * Whoever changes the machine's time zone does not restart the application. The C library looks at that zone's file
 * again only where no variable names it. The first who asks is the log at the start, before there are threads.
 */
void learnZone() {
    const char* const name = std::getenv("TZ");
    if (name != nullptr && (std::strcmp(name, ":/etc/localtime") == 0 || std::strcmp(name, "/etc/localtime") == 0)) {
        unsetenv("TZ");
    }
    tzset();
}

}  // namespace

int64_t clockNowMicros() {
    if (source()) {
        return source()();
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

time_t clockNow() {
    return static_cast<time_t>(clockNowMicros() / 1000000);
}

int64_t steadyNowMicros() {
    if (steadySource()) {
        return steadySource()();
    }
    timespec time = {};
    clock_gettime(CLOCK_BOOTTIME, &time);
    return int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000;
}

time_t steadyNow() {
    return static_cast<time_t>(steadyNowMicros() / 1000000);
}

std::tm localTime(time_t moment) {
    std::tm result = {};
    const MutexLock lock(zone());
    learnZone();
    localtime_r(&moment, &result);
    return result;
}

time_t fromLocalTime(std::tm calendar) {
    const MutexLock lock(zone());
    return mktime(&calendar);
}

void setClock(std::function<int64_t()> nowMicros, std::function<int64_t()> steadyMicros) {
    steadySource() = steadyMicros ? std::move(steadyMicros) : nowMicros;
    source() = std::move(nowMicros);
}

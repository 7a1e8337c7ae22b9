#include "desktop/frames/clock.h"

#include "base/mutex.h"

namespace desktop {
namespace {

class SteadyClock : public Clock {
public:
    TimePoint now() override { return std::chrono::steady_clock::now(); }

    void waitUntil(Mutex& mutex, ConditionVariable& changed, TimePoint when) override REQUIRES(mutex) {
        changed.waitUntil(mutex, when);
    }
};

}  // namespace

Clock& steadyClock() {
    static SteadyClock clock;
    return clock;
}

}  // namespace desktop

#include "desktop/frames/clock.h"

namespace desktop {
namespace {

class SteadyClock : public Clock {
public:
    TimePoint now() override { return std::chrono::steady_clock::now(); }

    void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& changed, TimePoint when) override {
        changed.wait_until(lock, when);
    }
};

}  // namespace

Clock& steadyClock() {
    static SteadyClock clock;
    return clock;
}

}  // namespace desktop

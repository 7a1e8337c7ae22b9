#include "desktop/video/real_time_source.h"

#include <algorithm>
#include <future>
#include <gtest/gtest.h>
#include <list>

#include "desktop/frames/video_error.h"

namespace desktop {
namespace {

using namespace std::chrono_literals;

/** A clock that stands still until the test moves it, and knows who waits for which time. */
class ManualClock : public Clock {
public:
    TimePoint now() override {
        const std::lock_guard lock(m_guard);
        return m_now;
    }

    void waitUntil(Mutex& mutex, ConditionVariable& changed, TimePoint when) override REQUIRES(mutex) {
        std::list<Waiter>::iterator self;
        {
            const std::lock_guard guard(m_guard);
            if (m_now >= when) {
                return;
            }
            self = m_waiters.insert(m_waiters.end(), {&mutex, &changed, when});
            m_arrived.notify_all();
        }
        changed.wait(mutex);
        const std::lock_guard guard(m_guard);
        m_waiters.erase(self);
    }

    void advance(Duration step) {
        std::list<Waiter> waiters;
        {
            const std::lock_guard guard(m_guard);
            m_now += step;
            waiters = m_waiters;
        }
        for (const Waiter& waiter : waiters) {
            const MutexLock lock(*waiter.mutex);
            waiter.changed->notifyAll();
        }
    }

    /** Returns once someone waits for that time after the clock's start. */
    void awaitWaiter(Duration sinceStart) {
        std::unique_lock guard(m_guard);
        m_arrived.wait(guard, [&] {
            return std::any_of(m_waiters.begin(), m_waiters.end(),
                               [&](const Waiter& waiter) { return waiter.when == TimePoint() + sinceStart; });
        });
    }

private:
    struct Waiter {
        Mutex* mutex;
        ConditionVariable* changed;
        TimePoint when;
    };

    std::mutex m_guard;  // guards all below
    std::condition_variable m_arrived;
    TimePoint m_now;
    std::list<Waiter> m_waiters;
};

/** What a scripted source does at each pass. */
struct Pass {
    std::vector<int> times;    // of its frames, milliseconds
    std::string breaks = {};   // the error after the last frame; empty: the pass ends
    std::string refused = {};  // the error of opening it
    bool live = false;
};

class ScriptedReader : public FrameReader {
public:
    /** Counts what is drawn, if told where. */
    explicit ScriptedReader(Pass pass, int* draws = nullptr)
        : m_pass(std::move(pass)), m_info{640, 360, 10.0, 0, m_pass.live}, m_draws(draws) {}
    const SourceInfo& info() const override { return m_info; }
    std::optional<Frame> next() override {
        if (m_next == m_pass.times.size()) {
            if (!m_pass.breaks.empty()) {
                throw VideoError(VDO_ERROR_NO_VIDEO, m_pass.breaks);
            }
            return std::nullopt;
        }
        const int64_t time = int64_t{1000} * m_pass.times[m_next++];
        return Frame{time, [draws = m_draws] {
                         if (draws) {
                             ++*draws;
                         }
                         return SharedPicture(makeFrame());
                     }};
    }

private:
    const Pass m_pass;
    const SourceInfo m_info;
    int* const m_draws;
    std::size_t m_next = 0;
};

/** Plays the passes one after another; the last one again and again. */
RealTimeSource::Opener script(std::vector<Pass> passes) {
    return [passes = std::move(passes), next = std::size_t{0}](const std::atomic<bool>&) mutable {
        const Pass& pass = passes[std::min(next++, passes.size() - 1)];
        if (!pass.refused.empty()) {
            throw VideoError(VDO_ERROR_NO_VIDEO, pass.refused);
        }
        return std::make_unique<ScriptedReader>(pass);
    };
}

class RealTimeSourceTest : public testing::Test {
protected:
    RealTimeSettings settings() { return {.clock = &m_clock}; }
    std::future<std::string> fetchLater(RealTimeSource& source, uint64_t after) {
        return std::async(std::launch::async, [this, &source, after]() -> std::string {
            try {
                return "frame " + std::to_string(source.newest(after, m_stopped).number);
            } catch (const VideoError& error) {
                return "error " + std::to_string(error.code()) + ": " + error.what();
            }
        });
    }

    ManualClock m_clock;
    std::atomic<bool> m_stopped = false;
};

TEST_F(RealTimeSourceTest, ARecordingIsPacedByTheClock) {
    RealTimeSource source(script({{.times = {0, 100, 250}}}), "clip", settings());
    m_clock.awaitWaiter(100ms);
    EXPECT_EQ(source.newest(0, m_stopped).number, 1U) << "only the first frame is due";
    m_clock.advance(100ms);
    m_clock.awaitWaiter(250ms);
    EXPECT_EQ(source.newest(0, m_stopped).number, 2U);
    m_clock.advance(149ms);
    EXPECT_EQ(source.newest(0, m_stopped).number, 2U) << "a millisecond too early";
}

TEST_F(RealTimeSourceTest, ARecordingStartsAgainAndTimeGoesOn) {
    RealTimeSource source(script({{.times = {0, 100}}}), "clip", settings());
    m_clock.awaitWaiter(100ms);
    m_clock.advance(100ms);
    m_clock.awaitWaiter(200ms);  // the second pass begins when the last frame has been shown for its interval
    EXPECT_EQ(source.newest(0, m_stopped).number, 2U);
    m_clock.advance(100ms);
    m_clock.awaitWaiter(300ms);
    EXPECT_EQ(source.newest(2, m_stopped).number, 3U);
}

TEST_F(RealTimeSourceTest, ALateConsumerGetsTheNewestFrame) {
    RealTimeSource source(script({{.times = {0, 100, 200, 300, 10'000}}}), "clip", settings());
    for (const auto due : {100ms, 200ms, 300ms}) {
        m_clock.awaitWaiter(due);
        m_clock.advance(100ms);
    }
    m_clock.awaitWaiter(10'000ms);
    EXPECT_EQ(source.newest(1, m_stopped).number, 4U);
}

TEST_F(RealTimeSourceTest, OnlyFramesThatAreAskedForAreDrawnAndOnce) {
    int draws = 0;
    const auto open = [&draws](const std::atomic<bool>&) {
        return std::make_unique<ScriptedReader>(Pass{.times = {0, 100, 200, 10'000}}, &draws);
    };
    RealTimeSource source(open, "clip", settings());
    for (const auto due : {100ms, 200ms}) {
        m_clock.awaitWaiter(due);
        m_clock.advance(100ms);
    }
    m_clock.awaitWaiter(10'000ms);
    EXPECT_EQ(draws, 0);
    const Delivery one = source.newest(0, m_stopped);
    const Delivery other = source.current();
    EXPECT_EQ(one.number, 3U);
    EXPECT_EQ(other.number, 3U);
    EXPECT_EQ(one.picture, other.picture);
    EXPECT_EQ(draws, 1);
}

TEST_F(RealTimeSourceTest, AMachineThatWasHeldUpGoesOnFromThere) {
    RealTimeSource source(script({{.times = {0, 100, 200}}}), "clip", settings());
    m_clock.awaitWaiter(100ms);
    m_clock.advance(60s);
    // The frame that was due at 200 ms is shown now, and the next pass follows its interval later.
    m_clock.awaitWaiter(60s + 100ms);
    EXPECT_EQ(source.newest(0, m_stopped).number, 3U);
}

TEST_F(RealTimeSourceTest, ALiveSourceIsNotPaced) {
    RealTimeSource source(script({{.times = {0, 60'000, 120'000}, .breaks = "gone", .live = true}}), "cam", settings());
    m_clock.awaitWaiter(1s);  // the pause before it is opened again
    EXPECT_EQ(source.newest(0, m_stopped).number, 3U);
}

TEST_F(RealTimeSourceTest, ALostSourceIsAnErrorUntilItIsBack) {
    RealTimeSource source(script({{.times = {0}, .breaks = "cam: connection lost", .live = true},
                                  {.times = {}, .refused = "cam: connection refused"},
                                  {.times = {0}, .breaks = "cam: connection lost", .live = true}}),
                          "cam", settings());
    m_clock.awaitWaiter(1s);
    EXPECT_EQ(source.newest(0, m_stopped).number, 1U);
    auto waiting = fetchLater(source, 1);
    m_clock.awaitWaiter(2s);
    m_clock.advance(1s);
    m_clock.awaitWaiter(3s);  // refused: the next pause is twice as long
    m_clock.advance(1s);
    EXPECT_EQ(waiting.get(), "error 4: cam: connection refused, trying again");
    m_clock.advance(1s);
    EXPECT_EQ(source.newest(1, m_stopped).number, 2U);
}

TEST_F(RealTimeSourceTest, PausesGrowToFiveSecondsAndShrinkWithSuccess) {
    const Pass refused = {.times = {}, .refused = "cam: refused"};
    const Pass brief = {.times = {0}, .breaks = "cam: lost", .live = true};
    RealTimeSource source(script({brief, refused, refused, refused, refused, brief, refused}), "cam", settings());
    Clock::Duration due = 0s;
    for (const auto pause : {1s, 2s, 4s, 5s, 5s, 1s, 2s}) {
        due += pause;
        m_clock.awaitWaiter(due);
        m_clock.advance(pause);
    }
    EXPECT_EQ(source.newest(0, m_stopped).number, 2U);
}

TEST_F(RealTimeSourceTest, ASilentSourceIsAnErrorOfTheCall) {
    RealTimeSource source(script({{.times = {0, 60'000}}}), "clip", settings());
    m_clock.awaitWaiter(60s);
    auto waiting = fetchLater(source, 1);
    m_clock.awaitWaiter(2s);
    m_clock.advance(2s);
    EXPECT_EQ(waiting.get(), "error 4: clip: no new frame came in time");
}

TEST_F(RealTimeSourceTest, ASourceWithoutPicturesIsAnErrorAndNotARace) {
    RealTimeSource source(script({{.times = {}}}), "clip", settings());
    m_clock.awaitWaiter(1s);
    auto waiting = fetchLater(source, 0);
    m_clock.awaitWaiter(2s);
    m_clock.advance(2s);
    EXPECT_EQ(waiting.get(), "error 4: clip: holds no picture, trying again");
}

TEST_F(RealTimeSourceTest, AStoppedStreamStopsWaiting) {
    RealTimeSource source(script({{.times = {0, 60'000}}}), "clip", settings());
    m_clock.awaitWaiter(60s);
    auto waiting = fetchLater(source, 1);
    m_clock.awaitWaiter(2s);
    m_stopped = true;
    source.wake();
    EXPECT_EQ(waiting.get(), "error 6: the stream was stopped");
}

TEST_F(RealTimeSourceTest, ASourceThatCannotBeOpenedIsAnErrorOfTheConstruction) {
    const auto open = [&] { RealTimeSource(script({{.times = {}, .refused = "cam: refused"}}), "cam", settings()); };
    EXPECT_THROW(open(), VideoError);
}

}  // namespace
}  // namespace desktop

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "base/mutex.h"
#include "desktop/frames/clock.h"
#include "desktop/frames/video_source.h"

namespace desktop {

struct RealTimeSettings {
    Clock* clock = &steadyClock();
    Clock::Duration patience = std::chrono::seconds(2);     /**< longest wait for a frame before a call fails */
    Clock::Duration firstRetry = std::chrono::seconds(1);   /**< pause before a lost source is opened again */
    Clock::Duration longestRetry = std::chrono::seconds(5); /**< the pause doubles up to this */
};

/**
 * A source as a camera's sensor would be: its own thread reads it, keeps the newest frame, starts a recording again
 * when it has ended and opens a lost source again until it is back. A picture is made when the first stream asks for
 * its frame, by that stream's thread.
 */
class RealTimeSource final : public VideoSource {
public:
    /** Opens one pass; throws VideoError. Waits in it and in the reader end once the flag is set. */
    using Opener = std::function<std::unique_ptr<FrameReader>(const std::atomic<bool>& stop)>;

    /** Opens the source, so that a wrong one is an error here. Throws VideoError. */
    RealTimeSource(Opener open, std::string name, RealTimeSettings settings);

    /** Ends the thread, whatever it waits for. */
    ~RealTimeSource() override;

    const SourceInfo& info() const override { return m_info; }
    Delivery newest(uint64_t after, const std::atomic<bool>& stopped) override;
    Delivery current() override;
    void wake() override;

private:
    /** A frame that nobody may have asked for yet, and what draws it. */
    struct Undrawn {
        uint64_t number = 0;
        int64_t micros = 0;
        std::function<SharedPicture()> picture;
    };

    void run(std::unique_ptr<FrameReader> reader);
    void play(FrameReader& reader);
    void waitUntil(Clock::TimePoint when);
    void publish(std::function<SharedPicture()> picture);
    Undrawn waitForNewest(uint64_t after, const std::atomic<bool>& stopped);
    Undrawn currentFrame();
    Delivery drawn(const Undrawn& frame);
    Clock::Duration silenceAllowed() const;

    const Opener m_open;
    const std::string m_name;
    const RealTimeSettings m_settings;
    SourceInfo m_info;

    std::atomic<bool> m_stop = false;
    Clock::TimePoint m_passStart;  // of the thread alone: when the current pass's time 0 was
    Clock::Duration m_retry;       // of the thread alone: the next pause before opening again

    Mutex m_drawing;                         // guards m_drawn and the making of pictures; never taken under m_mutex
    Delivery m_drawn GUARDED_BY(m_drawing);  // the frame that was asked for last

    Mutex m_mutex;                // guards m_newest and m_loss, and m_stop's setting against missed wake-ups
    ConditionVariable m_changed;  // a frame came, the source was lost, someone stops
    Undrawn m_newest GUARDED_BY(m_mutex);
    std::string m_loss GUARDED_BY(m_mutex);  // why no frames come; empty while they do

    std::thread m_thread;  // last, so that it starts when all else is there
};

}  // namespace desktop

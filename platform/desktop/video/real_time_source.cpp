#include "desktop/video/real_time_source.h"

#include <algorithm>
#include <utility>

#include "desktop/frames/video_error.h"

namespace desktop {
namespace {

constexpr auto kLagForgiven = std::chrono::seconds(1);

}  // namespace

RealTimeSource::RealTimeSource(Opener open, std::string name, RealTimeSettings settings)
    : m_open(std::move(open)), m_name(std::move(name)), m_settings(settings), m_retry(settings.firstRetry) {
    auto reader = m_open(m_stop);
    m_info = reader->info();
    m_thread = std::thread([this, first = std::move(reader)]() mutable { run(std::move(first)); });
}

RealTimeSource::~RealTimeSource() {
    m_stop = true;
    wake();
    m_thread.join();
}

void RealTimeSource::wake() {
    // The lock is what makes a waiter that has just looked at its flag see the notification.
    const MutexLock lock(m_mutex);
    m_changed.notifyAll();
}

void RealTimeSource::run(std::unique_ptr<FrameReader> reader) {
    m_passStart = m_settings.clock->now();
    while (!m_stop) {
        try {
            if (!reader) {
                reader = m_open(m_stop);
            }
            play(*reader);
        } catch (const std::exception& error) {
            {
                const MutexLock lock(m_mutex);
                m_loss = error.what();
                m_changed.notifyAll();
            }
            waitUntil(m_settings.clock->now() + m_retry);
            m_retry = std::min(2 * m_retry, m_settings.longestRetry);
            m_passStart = m_settings.clock->now();
        }
        reader.reset();
    }
}

/** One pass, at its pace. A pass ends with an exception unless it was a whole recording. */
void RealTimeSource::play(FrameReader& reader) {
    const SourceInfo& info = reader.info();
    const auto interval =
        std::chrono::duration_cast<Clock::Duration>(std::chrono::duration<double>(1.0 / info.frameRate));
    Clock::Duration length = Clock::Duration::zero();
    while (!m_stop) {
        std::optional<Frame> frame = reader.next();
        if (!frame) {
            break;
        }
        if (!info.live) {
            const Clock::Duration time = std::chrono::microseconds(frame->time);
            const Clock::TimePoint now = m_settings.clock->now();
            if (now - (m_passStart + time) > kLagForgiven) {
                m_passStart = now - time;  // a machine that was held up goes on from here and does not race after it
            }
            waitUntil(m_passStart + time);
            length = time + interval;
        }
        publish(std::move(frame->picture));
        m_retry = m_settings.firstRetry;
    }
    if (m_stop) {
        return;
    }
    if (info.live) {
        throw VideoError(VDO_ERROR_NO_VIDEO, m_name + ": connection lost (the sender ended it)");
    }
    if (length == Clock::Duration::zero()) {
        throw VideoError(VDO_ERROR_NO_VIDEO, m_name + ": holds no picture");
    }
    m_passStart += length;
}

void RealTimeSource::waitUntil(Clock::TimePoint when) {
    const MutexLock lock(m_mutex);
    while (!m_stop && m_settings.clock->now() < when) {
        m_settings.clock->waitUntil(m_mutex, m_changed, when);
    }
}

void RealTimeSource::publish(std::function<SharedPicture()> picture) {
    const auto now = m_settings.clock->now().time_since_epoch();
    const MutexLock lock(m_mutex);
    m_newest = {m_newest.number + 1, std::chrono::duration_cast<std::chrono::microseconds>(now).count(),
                std::move(picture)};
    m_loss.clear();
    m_changed.notifyAll();
}

Delivery RealTimeSource::drawn(const Undrawn& frame) {
    if (frame.number == 0) {
        return {};
    }
    const MutexLock lock(m_drawing);
    if (m_drawn.number != frame.number) {
        m_drawn = {frame.number, frame.picture(), frame.micros};
    }
    return m_drawn;
}

Clock::Duration RealTimeSource::silenceAllowed() const {
    const auto twoFrames = std::chrono::duration<double>(2.0 / m_info.frameRate);
    return std::max(m_settings.patience, std::chrono::duration_cast<Clock::Duration>(twoFrames));
}

RealTimeSource::Undrawn RealTimeSource::waitForNewest(uint64_t after, const std::atomic<bool>& stopped) {
    const Clock::TimePoint deadline = m_settings.clock->now() + silenceAllowed();
    const MutexLock lock(m_mutex);
    while (m_newest.number <= after) {
        if (stopped) {
            throw VideoError(VDO_ERROR_FAILED, "the stream was stopped");
        }
        if (m_settings.clock->now() >= deadline) {
            throw VideoError(VDO_ERROR_NO_VIDEO,
                             m_loss.empty() ? m_name + ": no new frame came in time" : m_loss + ", trying again");
        }
        m_settings.clock->waitUntil(m_mutex, m_changed, deadline);
    }
    return m_newest;
}

Delivery RealTimeSource::newest(uint64_t after, const std::atomic<bool>& stopped) {
    return drawn(waitForNewest(after, stopped));
}

RealTimeSource::Undrawn RealTimeSource::currentFrame() {
    const MutexLock lock(m_mutex);
    if (!m_loss.empty()) {
        throw VideoError(VDO_ERROR_NO_VIDEO, m_loss + ", trying again");
    }
    return m_newest;
}

Delivery RealTimeSource::current() {
    return drawn(currentFrame());
}

}  // namespace desktop

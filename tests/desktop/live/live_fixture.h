#pragma once

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
}

#include "desktop/frames/video_error.h"
#include "desktop/overlay/overlay_service.h"
#include "live_client.h"
#include "test_folder.h"

/** A clock that stands still until the test moves it. */
class HandClock : public desktop::Clock {
public:
    TimePoint now() override { return TimePoint(Duration(m_now.load())); }
    void waitUntil(Mutex&, ConditionVariable&, TimePoint) override {}
    void advance(Duration step) { m_now += step.count(); }

private:
    std::atomic<Duration::rep> m_now = Duration(std::chrono::hours(1)).count();
};

/** A picture of 320x180 with upright stripes, the first of them bright, so that what is pixelated has no contrast. */
inline desktop::SharedPicture stripes() {
    desktop::FramePtr frame = desktop::makeNv12Frame(320, 180);
    for (int y = 0; y < 180; ++y) {
        for (int x = 0; x < 320; ++x) {
            frame->data[0][y * frame->linesize[0] + x] = x / 8 % 2 == 0 ? 235 : 16;
        }
    }
    for (int y = 0; y < 90; ++y) {
        std::fill_n(frame->data[1] + y * frame->linesize[1], 320, uint8_t{128});
    }
    return {frame.release(), desktop::FreeFrame()};
}

/** A source that shows what the test says. */
class HandSource : public desktop::VideoSource {
public:
    const desktop::SourceInfo& info() const override { return m_info; }
    desktop::Delivery newest(uint64_t, const std::atomic<bool>&) override { return current(); }
    void wake() override {}
    desktop::Delivery current() override {
        const std::lock_guard lock(m_mutex);
        if (!m_loss.empty()) {
            throw desktop::VideoError(VDO_ERROR_NO_VIDEO, m_loss);
        }
        return m_newest;
    }
    void show(const desktop::SharedPicture& picture) {
        const std::lock_guard lock(m_mutex);
        m_newest = {m_newest.number + 1, picture};
    }
    void lose(const std::string& reason) {
        const std::lock_guard lock(m_mutex);
        m_loss = reason;
    }

private:
    const desktop::SourceInfo m_info = {320, 180, 100.0, 0, true};
    std::mutex m_mutex;  // guards what follows
    desktop::Delivery m_newest;
    std::string m_loss;
};

/** The overlay service with its live picture, on a source and a clock of the test's. */
class LiveFixture : public testing::Test {
protected:
    /** What the application's callbacks see and do. */
    struct Calls {
        int adjusted = 0;
        int drawn = 0;
        std::vector<axoverlay_stream_data> streams;
        bool leavesTheSurface = true; /**< false: fills the left half with white */
    };

    desktop::OverlayParts parts() {
        return {.source = m_source,
                .liveSocket = socketPath(),
                .anonymised = {"On", "Size", "RivalOn", "RivalSize"},
                .choices = {},
                .rotation = 0,
                .mirrored = false,
                .clock = &m_clock};
    }

    void start(desktop::OverlayParts parts) {
        m_source->show(stripes());
        axoverlay_settings settings = {};
        settings.adjustment_callback = [](gint, axoverlay_stream_data* stream, axoverlay_position_type*, gfloat*,
                                          gfloat*, gint* width, gint* height, gpointer user) {
            ++static_cast<Calls*>(user)->adjusted;
            const bool turned = stream->rotation % 180 != 0;
            *width = turned ? stream->height : stream->width;
            *height = turned ? stream->width : stream->height;
        };
        settings.render_callback = [](gpointer context, gint, axoverlay_stream_data* stream, axoverlay_position_type,
                                      gfloat, gfloat, gint width, gint height, gpointer user) {
            auto& calls = *static_cast<Calls*>(user);
            ++calls.drawn;
            calls.streams.push_back(*stream);
            if (!calls.leavesTheSurface) {
                auto* const cairo = static_cast<cairo_t*>(context);
                cairo_rectangle(cairo, 0, 0, width / 2, height);
                cairo_set_source_rgb(cairo, 1, 1, 1);
                cairo_fill(cairo);
            }
        };
        m_service = std::make_unique<desktop::OverlayService>(settings, std::move(parts));
        axoverlay_overlay_data data = {};
        data.postype = AXOVERLAY_TOP_LEFT;
        data.width = 320;
        data.height = 180;
        data.colorspace = AXOVERLAY_COLORSPACE_ARGB32;
        m_service->create(data, &m_calls);
    }

    std::string socketPath() const { return m_folder.path() / "live.socket"; }
    LiveClient client(const std::string& target) const { return {socketPath(), target}; }
    desktop::OverlayService& service() { return *m_service; }
    const desktop::LiveServer& live() const { return *m_service->live(); }

    void redraw(int rotation = 0) {
        const auto now = std::chrono::duration_cast<std::chrono::microseconds>(m_clock.now().time_since_epoch());
        m_service->redraw({m_analysed, rotation, m_analysedSize.width, m_analysedSize.height,
                           m_stalledAt.value_or(now.count()), 0, m_found});
    }

    /** What the inference finds from here on. */
    void find(std::vector<desktop::FoundBox> boxes) {
        m_found = std::make_shared<const std::vector<desktop::FoundBox>>(std::move(boxes));
    }

    /** Lets the live thread go on until something is so; false when a minute is not enough. */
    static bool becomes(const std::function<bool()>& expected) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (!expected()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    bool viewersBecome(size_t count) {
        return becomes([&] { return live().viewers() == count; });
    }

    /** Redraws, as often as it takes, until the callbacks have drawn. */
    bool redrawUntilDrawn(int rotation = 0) {
        const int before = m_calls.drawn;
        return becomes([&] {
            redraw(rotation);
            return m_calls.drawn > before;
        });
    }

    TestFolder m_folder;
    HandClock m_clock;
    Calls m_calls;
    std::shared_ptr<HandSource> m_source = std::make_shared<HandSource>();
    desktop::SharedPicture m_analysed = stripes();
    desktop::StreamSize m_analysedSize = {640, 360};
    std::optional<int64_t> m_stalledAt; /**< when the frame came that is analysed; nothing: now */
    desktop::FoundBoxes m_found = std::make_shared<const std::vector<desktop::FoundBox>>();
    std::unique_ptr<desktop::OverlayService> m_service;
};

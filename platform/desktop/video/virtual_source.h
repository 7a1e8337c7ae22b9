#pragma once

#include <memory>
#include <string>

#include "desktop/frames/video_source.h"

namespace desktop {

/** A recorded or drawn source that is driven by hand; see virtual_time.h. One thread. */
class VirtualSource : public VideoSource {
public:
    VirtualSource(std::unique_ptr<FrameReader> reader, std::string name);

    const SourceInfo& info() const override { return m_reader->info(); }
    Delivery newest(uint64_t after, const std::atomic<bool>& stopped) override;
    Delivery current() override { return m_current; }
    void wake() override {}

    void setTime(int64_t micros);
    int64_t nextFrameTime();
    void holdLastFrame() { m_holding = true; }
    const std::string& error() const { return m_error; }

private:
    void lookAhead();

    std::unique_ptr<FrameReader> m_reader;
    std::string m_name;
    int64_t m_now = 0;
    std::optional<Frame> m_next;  // read, but not yet handed out or skipped
    bool m_ended = false;
    bool m_holding = false;  // the last frame is handed out again and again
    std::string m_error;
    Delivery m_current;
};

}  // namespace desktop

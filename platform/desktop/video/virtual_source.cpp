#include "desktop/video/virtual_source.h"

#include <algorithm>
#include <utility>

#include "desktop/frames/video_error.h"

namespace desktop {

VirtualSource::VirtualSource(std::unique_ptr<FrameReader> reader, std::string name)
    : m_reader(std::move(reader)), m_name(std::move(name)) {}

void VirtualSource::setTime(int64_t micros) {
    m_now = std::max(m_now, micros);
}

int64_t VirtualSource::nextFrameTime() {
    lookAhead();
    return m_next ? m_next->time : -1;
}

void VirtualSource::lookAhead() {
    if (m_next || m_ended) {
        return;
    }
    try {
        m_next = m_reader->next();
    } catch (const VideoError& error) {
        m_error = error.what();
    }
    m_ended = !m_next.has_value();
}

Delivery VirtualSource::newest(uint64_t after, const std::atomic<bool>& stopped) {
    if (stopped) {
        throw VideoError(VDO_ERROR_FAILED, "the stream was stopped");
    }
    lookAhead();
    // When no frame is due, the caller waits for the next one, which here means that it gets it at once.
    std::optional<Frame> newest;
    while (m_next && (m_next->time <= m_now || m_current.number <= after)) {
        newest = std::exchange(m_next, std::nullopt);
        m_current.number += 1;
        lookAhead();
    }
    if (newest) {
        m_current.picture = newest->picture();
        m_current.micros = newest->time;
    } else if (m_holding && m_current.number <= after && m_current.picture) {
        m_current.number += 1;
        m_current.micros = std::max(m_now, m_current.micros);
    }
    if (m_current.number <= after) {
        throw VideoError(VDO_ERROR_NO_VIDEO, m_error.empty() ? m_name + ": the recording has ended" : m_error);
    }
    return m_current;
}

}  // namespace desktop

#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "base/unique_fd.h"
#include "desktop/frames/clock.h"
#include "desktop/live/live_request.h"

namespace desktop {

/** A part of an answer, shared by all viewers who get it. */
using Bytes = std::shared_ptr<const std::string>;

/**
 * One connection to the live picture: reads its request, writes pictures as fast as the other side takes them and none
 * that come while it is still busy with one. Never waits. Used by one thread.
 */
class Viewer {
public:
    Viewer(UniqueFd socket, Clock::TimePoint now);

    int descriptor() const { return m_socket.get(); }

    /** Reads what came. Returns the request's first line once its head is whole, at most once. */
    std::optional<std::string> read();

    /** Takes the request on: the viewer wants pictures from now on. */
    void watch(const LiveRequest& request, Clock::TimePoint now);

    /** The request while pictures are wanted for it. */
    const std::optional<LiveRequest>& request() const { return m_request; }

    /** Whether it got no picture yet. */
    bool waitsForTheFirst() const { return m_request && !m_begun; }

    /** When it asked, or last took something. */
    Clock::TimePoint lastMoved() const { return m_lastMoved; }

    /** Whether it takes a picture that is shown now. */
    bool wantsPicture(Clock::TimePoint now) const;

    /** Sends a picture, a JPEG file. */
    void show(const Bytes& jpeg, Clock::TimePoint now);

    /** Sends the reason why there is no picture, and ends. */
    void refuse(const Refusal& refusal, Clock::TimePoint now);

    /** Writes as much as the other side takes. */
    void write(Clock::TimePoint now);

    bool hasMoreToWrite() const { return !m_out.empty(); }

    /** Whether the connection is over. */
    bool isOver() const { return m_broken || (m_last && m_out.empty()); }

private:
    void send(const std::string& text) { m_out.push_back(std::make_shared<const std::string>(text)); }

    UniqueFd m_socket;
    std::string m_head;
    bool m_headRead = false;
    std::optional<LiveRequest> m_request;
    bool m_begun = false;   // the answer's head is on its way
    bool m_last = false;    // nothing follows what is on its way
    bool m_broken = false;  // the other side is gone
    std::deque<Bytes> m_out;
    std::size_t m_sent = 0;  // of the first in m_out
    Clock::TimePoint m_lastMoved;
    Clock::TimePoint m_due;  // when the next picture may come
};

}  // namespace desktop

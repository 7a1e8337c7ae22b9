#include "desktop/live/viewer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/socket.h>
#include <utility>

namespace desktop {
namespace {

constexpr std::size_t kLongestHead = 16384;
constexpr const char* kBoundary = "senvo-picture";
constexpr const char* kNotStored = "Cache-Control: no-store\r\nConnection: close\r\n";

const char* phraseOf(int status) {
    switch (status) {
        case 400:
            return "Bad Request";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        default:
            return "Service Unavailable";
    }
}

}  // namespace

Viewer::Viewer(UniqueFd socket, Clock::TimePoint now) : m_socket(std::move(socket)), m_lastMoved(now) {}

std::optional<std::string> Viewer::read() {
    std::array<char, 4096> buffer = {};
    ssize_t count = 0;
    while ((count = recv(m_socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
        if (!m_headRead) {
            m_head.append(buffer.data(), static_cast<std::size_t>(count));
        }
        if (m_head.size() > kLongestHead) {
            break;
        }
    }
    if (count >= 0 || (errno != EAGAIN && errno != EINTR)) {
        m_broken = true;  // gone, or too much of a request
        return std::nullopt;
    }
    if (m_headRead || m_head.find("\r\n\r\n") == std::string::npos) {
        return std::nullopt;
    }
    m_headRead = true;
    return std::exchange(m_head, {}).substr(0, m_head.find("\r\n"));
}

void Viewer::watch(const LiveRequest& request, Clock::TimePoint now) {
    m_request = request;
    m_lastMoved = m_due = now;
}

bool Viewer::wantsPicture(Clock::TimePoint now) const {
    return m_request && m_out.empty() && !m_broken && now >= m_due;
}

void Viewer::show(const Bytes& jpeg, Clock::TimePoint now) {
    const std::string part = "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg->size()) + "\r\n";
    if (!m_request->video) {
        send("HTTP/1.1 200 OK\r\n" + part + kNotStored + "\r\n");
        m_out.push_back(jpeg);
        m_last = true;
        m_request.reset();
    } else {
        if (!m_begun) {
            send(std::string("HTTP/1.1 200 OK\r\nContent-Type: multipart/x-mixed-replace; boundary=") + kBoundary +
                 "\r\n" + kNotStored + "\r\n--" + kBoundary + "\r\n");
        }
        send(part + "\r\n");
        m_out.push_back(jpeg);
        // The next boundary comes at once: browsers show a part when they see its end.
        send(std::string("\r\n--") + kBoundary + "\r\n");
        if (m_request->fps > 0) {
            const auto interval = std::chrono::duration_cast<Clock::Duration>(std::chrono::seconds(1)) / m_request->fps;
            // Behind by a whole interval or more: from here on, so that two do not come at once.
            m_due = m_due + interval <= now ? now + interval : m_due + interval;
        }
    }
    m_begun = true;
    m_lastMoved = now;
    write(now);
}

void Viewer::refuse(const Refusal& refusal, Clock::TimePoint now) {
    if (!m_begun) {
        send("HTTP/1.1 " + std::to_string(refusal.status) + " " + phraseOf(refusal.status) +
             "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " +
             std::to_string(refusal.reason.size() + 1) + "\r\n" + kNotStored + "\r\n" + refusal.reason + "\n");
    }
    m_request.reset();
    m_last = true;
    m_lastMoved = now;
    write(now);
}

void Viewer::write(Clock::TimePoint now) {
    while (!m_out.empty()) {
        const std::string& bytes = *m_out.front();
        const ssize_t count =
            ::send(m_socket.get(), bytes.data() + m_sent, bytes.size() - m_sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0) {
            m_broken = errno != EAGAIN && errno != EINTR;
            return;
        }
        m_lastMoved = now;
        m_sent += static_cast<std::size_t>(count);
        if (m_sent == bytes.size()) {
            m_out.pop_front();
            m_sent = 0;
        }
    }
}

}  // namespace desktop

#pragma once

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cstdint>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>

#include "base/unique_fd.h"
#include "fastcgi_client.h"

namespace building {

/**
 * The web server of a camera, on loopback: hands one request after the other to the application, and says that it is
 * not there while it is not.
 */
class Front {
public:
    explicit Front(FastCgiClient application) : m_application(std::move(application)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto* const name = reinterpret_cast<sockaddr*>(&address);
        constexpr int kMostWaiting = 64;
        if (bind(m_socket.get(), name, size) != 0 || listen(m_socket.get(), kMostWaiting) != 0 ||
            getsockname(m_socket.get(), name, &size) != 0) {
            throw std::runtime_error("cannot listen on loopback");
        }
        m_address = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        m_thread = std::thread([this] { serve(); });
    }
    ~Front() {
        m_isEnding = true;
        shutdown(m_socket.get(), SHUT_RDWR);
        m_thread.join();
    }
    Front(const Front&) = delete;
    Front& operator=(const Front&) = delete;

    /** "127.0.0.1:PORT" */
    const std::string& address() const { return m_address; }

private:
    void serve() const {
        while (!m_isEnding) {
            if (const UniqueFd connection(accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC)); connection) {
                answer(connection.get());
            }
        }
    }
    void answer(int connection) const {
        std::string request;
        while (request.find("\r\n\r\n") == std::string::npos) {
            std::array<char, 4096> buffer;
            const ssize_t count = recv(connection, buffer.data(), buffer.size(), 0);
            if (count <= 0) {
                return;
            }
            request.append(buffer.data(), static_cast<size_t>(count));
        }
        const size_t query = request.find('?') + 1;
        std::string text;
        try {
            text = m_application.get(request.substr(query, request.find(' ', query) - query));
        } catch (const std::runtime_error&) {
            text.clear();
        }
        constexpr std::string_view kStatus = "Status: ";
        text = text.rfind(kStatus, 0) == 0 ? text.substr(kStatus.size()) : "502 Bad Gateway\r\n\r\n";
        text.insert(text.find("\r\n"), "\r\nConnection: close");
        text.insert(0, "HTTP/1.1 ");
        ::send(connection, text.data(), text.size(), MSG_NOSIGNAL);
    }

    const FastCgiClient m_application;
    const UniqueFd m_socket{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::string m_address;
    std::atomic<bool> m_isEnding = false;
    std::thread m_thread;
};

}  // namespace building

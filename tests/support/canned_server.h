#pragma once

#include <arpa/inet.h>
#include <atomic>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

/**
 * An HTTP server on loopback that can answer anything: each connection's requests are handed to a function with the
 * connection to write on. A connection is closed when the function returns false.
 */
class CannedServer {
public:
    using Handler = std::function<bool(int connection, const std::string& request)>;

    explicit CannedServer(Handler handler) : m_handler(std::move(handler)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto* const name = reinterpret_cast<sockaddr*>(&address);
        if (bind(m_socket, name, size) != 0 || listen(m_socket, 64) != 0 || getsockname(m_socket, name, &size) != 0) {
            throw std::runtime_error("cannot listen on loopback");
        }
        m_address = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        m_accepting = std::thread([this] { accept(); });
    }
    ~CannedServer() {
        m_stopping = true;
        shutdown(m_socket, SHUT_RDWR);
        m_accepting.join();
        {
            const std::lock_guard lock(m_mutex);
            for (const int connection : m_connections) {
                shutdown(connection, SHUT_RDWR);
            }
        }
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        for (const int connection : m_connections) {
            close(connection);
        }
        close(m_socket);
    }
    CannedServer(const CannedServer&) = delete;
    CannedServer& operator=(const CannedServer&) = delete;

    /** "127.0.0.1:PORT" */
    const std::string& address() const { return m_address; }

    /** A server that says this to every request, as a page of plain text. */
    static Handler saying(const std::string& body) {
        return [body](int connection, const std::string&) {
            return write(connection, "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " +
                                         std::to_string(body.size()) + "\r\n\r\n" + body);
        };
    }

    /** The first lines of the requests so far. */
    std::vector<std::string> requests() const {
        const std::lock_guard lock(m_mutex);
        return m_requests;
    }

    static bool write(int connection, const std::string& bytes) {
        return ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

private:
    void accept() {
        while (!m_stopping) {
            const int connection = ::accept(m_socket, nullptr, nullptr);
            if (connection < 0) {
                continue;
            }
            const std::lock_guard lock(m_mutex);
            m_connections.push_back(connection);
            m_threads.emplace_back([this, connection] { serve(connection); });
        }
    }
    void serve(int connection) {
        for (;;) {
            std::string request;
            while (request.find("\r\n\r\n") == std::string::npos) {
                char buffer[4096];
                const ssize_t count = recv(connection, buffer, sizeof(buffer), 0);
                if (count <= 0) {
                    return;
                }
                request.append(buffer, static_cast<size_t>(count));
            }
            {
                const std::lock_guard lock(m_mutex);
                m_requests.push_back(request.substr(0, request.find("\r\n")));
            }
            if (!m_handler(connection, request)) {
                shutdown(connection, SHUT_RDWR);
                return;
            }
        }
    }

    Handler m_handler;
    int m_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string m_address;
    std::atomic<bool> m_stopping = false;
    mutable std::mutex m_mutex; /**< guards m_connections, m_threads and m_requests while accepting */
    std::vector<int> m_connections;
    std::vector<std::thread> m_threads;
    std::vector<std::string> m_requests;
    std::thread m_accepting;
};

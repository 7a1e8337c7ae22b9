#pragma once

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

/** A web server's side of FastCGI: one request per connection, as the web servers of cameras speak it. */
class FastCgiClient {
public:
    explicit FastCgiClient(std::string socketPath) : m_path(std::move(socketPath)) {}

    std::string get(const std::string& query) const {
        return request({{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", uri(query)}}, "");
    }
    std::string post(const std::string& query, const std::string& body) const {
        return post(query, body, std::to_string(body.size()));
    }
    /** The body with a content length of its own. */
    std::string post(const std::string& query, const std::string& body, const std::string& length) const {
        return request({{"REQUEST_METHOD", "POST"}, {"REQUEST_URI", uri(query)}, {"CONTENT_LENGTH", length}}, body);
    }

    using Variables = std::vector<std::pair<std::string, std::string>>;

    /** Everything that the application wrote, header and body, until it ended the request. */
    std::string request(const Variables& variables, const std::string& body) const {
        const int connection = connectTo();
        std::string params;
        for (const auto& [name, value] : variables) {
            params += length(name) + length(value) + name + value;
        }
        send(connection,
             record(kBegin, std::string("\0\1\0\0\0\0\0\0", 8)) + stream(kParams, params) + stream(kStdin, body));
        std::string answer;
        for (;;) {
            unsigned char head[8] = {};
            if (!receive(connection, head, sizeof(head))) {
                break;
            }
            std::string content(static_cast<size_t>(head[4] << 8 | head[5]) + head[6], '\0');
            if (!receive(connection, content.data(), content.size()) || head[1] == kEnd) {
                break;
            }
            if (head[1] == kStdout) {
                answer += content.substr(0, content.size() - head[6]);
            }
        }
        close(connection);
        return answer;
    }

    /** Connects and sends these bytes, then goes away. */
    void abandon(const std::string& bytes) const {
        const int connection = connectTo();
        send(connection, bytes);
        close(connection);
    }

    /** Sends these bytes and stays; the caller closes the connection. */
    int stay(const std::string& bytes) const {
        const int connection = connectTo();
        send(connection, bytes);
        return connection;
    }

    /** The beginning of a request that promises more. */
    static std::string beginning() { return record(kBegin, std::string("\0\1\0\0\0\0\0\0", 8)); }

    /** The request's variables as these bytes, whatever they say. */
    static std::string variables(const std::string& bytes) { return stream(kParams, bytes); }

private:
    static constexpr char kBegin = 1;
    static constexpr unsigned char kEnd = 3;
    static constexpr char kParams = 4;
    static constexpr char kStdin = 5;
    static constexpr unsigned char kStdout = 6;

    static std::string uri(const std::string& query) { return "/local/ostrel_senvo/webservices.cgi?" + query; }

    int connectTo() const {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        if (m_path.size() >= sizeof(address.sun_path)) {
            throw std::runtime_error("too long for a socket: " + m_path);
        }
        std::memcpy(address.sun_path, m_path.c_str(), m_path.size());
        const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            close(connection);
            throw std::runtime_error("cannot connect to " + m_path + ": " + std::strerror(errno));
        }
        return connection;
    }
    static std::string record(char type, const std::string& content) {
        const auto size = static_cast<unsigned>(content.size());
        return {std::string({1, type, 0, 1, static_cast<char>(size >> 8U), static_cast<char>(size & 0xFFU), 0, 0}) +
                content};
    }
    static std::string stream(char type, const std::string& content) {
        constexpr size_t kMost = 65535;
        std::string records;
        for (size_t at = 0; at < content.size(); at += kMost) {
            records += record(type, content.substr(at, kMost));
        }
        return records + record(type, "");
    }
    static std::string length(const std::string& text) {
        const auto size = static_cast<uint32_t>(text.size());
        if (size < 128) {
            return {static_cast<char>(size)};
        }
        return {static_cast<char>(0x80U | size >> 24U), static_cast<char>(size >> 16U & 0xFFU),
                static_cast<char>(size >> 8U & 0xFFU), static_cast<char>(size & 0xFFU)};
    }
    static void send(int connection, const std::string& bytes) {
        for (size_t sent = 0; sent < bytes.size();) {
            const ssize_t count = ::send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                return;
            }
            sent += static_cast<size_t>(count);
        }
    }
    static bool receive(int connection, void* buffer, size_t size) {
        auto* to = static_cast<char*>(buffer);
        while (size > 0) {
            const ssize_t count = recv(connection, to, size, 0);
            if (count <= 0) {
                return false;
            }
            to += count;
            size -= static_cast<size_t>(count);
        }
        return true;
    }

    std::string m_path;
};

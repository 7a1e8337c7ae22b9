#pragma once

#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <turbojpeg.h>
#include <vector>

#include "base/unique_fd.h"

/** A decoded picture; luma only, which is what tests look at. */
struct Seen {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> luma;

    int at(int x, int y) const {
        return luma[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
    }

    /** Difference between the brightest and the darkest pixel of a row. */
    int contrast(int y) const {
        const auto row = luma.begin() + static_cast<std::ptrdiff_t>(y) * width;
        const auto [least, most] = std::minmax_element(row, row + width);
        return *most - *least;
    }
};

/** Decodes a JPEG file; 0x0 when it is none. */
inline Seen decode(const std::string& jpeg) {
    const std::unique_ptr<void, decltype(&tjDestroy)> decoder(tjInitDecompress(), tjDestroy);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
    Seen seen;
    int sampling = 0;
    int colours = 0;
    if (tjDecompressHeader3(decoder.get(), bytes, jpeg.size(), &seen.width, &seen.height, &sampling, &colours) != 0) {
        return {};
    }
    seen.luma.resize(static_cast<size_t>(seen.width) * static_cast<size_t>(seen.height));
    if (tjDecompress2(decoder.get(), bytes, jpeg.size(), seen.luma.data(), seen.width, 0, seen.height, TJPF_GRAY, 0) !=
        0) {
        return {};
    }
    return seen;
}

/** A viewer of the live picture, connected to its socket directly. */
class LiveClient {
public:
    LiveClient(const std::string& socketPath, const std::string& target, int receiveBuffer = 0)
        : m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un name = {};
        name.sun_family = AF_UNIX;
        std::strncpy(name.sun_path, socketPath.c_str(), sizeof(name.sun_path) - 1);
        if (receiveBuffer > 0) {
            setsockopt(m_socket.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
        }
        EXPECT_EQ(connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof(name)), 0) << socketPath;
        const std::string request = "GET " + target + " HTTP/1.0\r\nHost: camera\r\n\r\n";
        EXPECT_EQ(send(m_socket.get(), request.data(), request.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(request.size()));
    }

    /** Whether something came, or the end, within so many milliseconds. */
    bool hasNews(int milliseconds) const {
        pollfd wait = {m_socket.get(), POLLIN, 0};
        return poll(&wait, 1, milliseconds) == 1;
    }

    /** Reads on to a mark and returns what stands before it; nothing at the end, or when a minute is not enough. */
    std::optional<std::string> readTo(const std::string& mark) {
        for (;;) {
            if (const size_t at = m_read.find(mark); at != std::string::npos) {
                std::string before = m_read.substr(0, at);
                m_read.erase(0, at + mark.size());
                return before;
            }
            if (!readMore()) {
                return std::nullopt;
            }
        }
    }

    /** The head of the answer, or of a part of it. */
    std::string head() { return readTo("\r\n\r\n").value_or(""); }

    /** The next picture of an endless answer whose own head was read. */
    Seen part() {
        const std::string lines = head();
        const size_t at = lines.find("Content-Length: ");
        if (at == std::string::npos) {
            return {};
        }
        const size_t size = std::stoul(lines.substr(at + 16));
        while (m_read.size() < size && readMore()) {
        }
        const Seen seen = decode(m_read.substr(0, size));
        m_read.erase(0, std::min(size, m_read.size()));
        EXPECT_EQ(readTo("\r\n--senvo-picture\r\n"), "") << "between two pictures";
        return seen;
    }

    /** All until the end. */
    std::string rest() {
        while (readMore()) {
        }
        return m_read;
    }

private:
    bool readMore() {
        char buffer[65536];
        if (!hasNews(60000)) {
            return false;
        }
        const ssize_t count = recv(m_socket.get(), buffer, sizeof(buffer), 0);
        if (count > 0) {
            m_read.append(buffer, static_cast<size_t>(count));
        }
        return count > 0;
    }

    UniqueFd m_socket;
    std::string m_read;
};

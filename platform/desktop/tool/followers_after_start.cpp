#include "desktop/tool/followers_after_start.h"

#include <array>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <utility>

#include "base/unique_fd.h"

namespace desktop {
namespace {

constexpr timeval kPatience = {2, 0};
constexpr size_t kHeadSize = 8;

// Of the FastCGI protocol.
enum RecordType : char {
    BeginRequest = 1,
    EndRequest = 3,
    Params = 4,
    Input = 5,
};

std::string record(RecordType type, std::string_view content) {
    std::string head = {1, type, 0, 1, static_cast<char>(content.size() >> 8U), static_cast<char>(content.size()),
                        0, 0};
    return head.append(content);
}

std::string parameter(std::string_view name, std::string_view value) {
    std::string text = {static_cast<char>(name.size()), static_cast<char>(value.size())};
    return text.append(name).append(value);
}

bool receive(int connection, char* data, size_t size) {
    return recv(connection, data, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

/** Reads records until the one that ends the request. */
bool awaitEnd(int connection) {
    for (;;) {
        std::array<char, kHeadSize> head = {};
        if (!receive(connection, head.data(), head.size())) {
            return false;
        }
        const auto byte = [&](size_t i) { return static_cast<size_t>(static_cast<unsigned char>(head.at(i))); };
        std::string content((byte(4) << 8U) + byte(5) + byte(6), '\0');
        if (!receive(connection, content.data(), content.size())) {
            return false;
        }
        if (head[1] == EndRequest) {
            return true;
        }
    }
}

}  // namespace

bool postAction(const std::filesystem::path& socket, const std::string& action) {
    const UniqueFd folder(open(socket.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const UniqueFd connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = "/proc/self/fd/" + std::to_string(folder.get()) + "/" + socket.filename().string();
    if (folder.get() < 0 || connection.get() < 0 || path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    path.copy(address.sun_path, path.size());
    setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof(kPatience));
    setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof(kPatience));
    const std::string request =
        record(BeginRequest, std::string_view("\0\1\0\0\0\0\0\0", 8)) +
        record(Params, parameter("REQUEST_METHOD", "POST") + parameter("REQUEST_URI", "/?action=" + action)) +
        record(Params, "") + record(Input, "");
    return connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
           send(connection.get(), request.data(), request.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(request.size()) &&
           awaitEnd(connection.get());
}

FollowersAfterStart::FollowersAfterStart(std::filesystem::path socket, std::chrono::milliseconds pause)
    : m_socket(std::move(socket)), m_background(pause, [this] { return step(); }) {}

bool FollowersAfterStart::step() {
    const int start = m_starts;
    if (start != m_told && postAction(m_socket, "use_followers")) {
        m_told = start;
    }
    return true;
}

}  // namespace desktop

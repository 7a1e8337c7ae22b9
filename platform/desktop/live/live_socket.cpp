#include "desktop/live/live_socket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace desktop {
namespace {

constexpr int kBacklog = 128;

}  // namespace

UniqueFd listenOn(const std::string& path) {
    // A socket's address is short: the way there leads through the folder's descriptor.
    const std::filesystem::path whole = std::filesystem::absolute(path);
    const UniqueFd folder(open(whole.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::string address = "/proc/self/fd/" + std::to_string(folder.get()) + "/" + whole.filename().string();
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    if (address.size() >= sizeof(name.sun_path)) {
        throw std::runtime_error("cannot listen on " + path + ": its name is too long");
    }
    std::memcpy(name.sun_path, address.c_str(), address.size() + 1);
    unlink(path.c_str());
    UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // Nobody can connect before it listens, so that its mode is in force by then.
    if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&name), sizeof(name)) != 0 ||
        chmod(address.c_str(), S_IRUSR | S_IWUSR) != 0 || listen(listener.get(), kBacklog) != 0) {
        throw std::runtime_error("cannot listen on " + path + ": " + std::strerror(errno));
    }
    return listener;
}

}  // namespace desktop

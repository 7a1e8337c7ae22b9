#include "web/fastcgi_socket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "log/Logger.h"

int openFastCgiSocket(const std::string& path, int backlog) {
    const std::filesystem::path place(path);
    const std::string folder = place.parent_path().string();
    // Through the folder's descriptor the address stays short wherever the folder lies.
    const UniqueFd directory(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::string address = "/proc/self/fd/" + std::to_string(directory.get()) + "/" + place.filename().string();
    // Not by libfcgi, which ends the process where it cannot bind.
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    UniqueFd listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const bool fits = address.size() < sizeof(name.sun_path);
    address.copy(name.sun_path, sizeof(name.sun_path) - 1);
    errno = fits ? errno : ENAMETOOLONG;
    if (directory && listening && fits) {
        unlink(address.c_str());
    }
    // A web server that finds the queue full turns its client away; dozens may ask at once.
    if (!directory || !listening || !fits ||
        bind(listening.get(), reinterpret_cast<const sockaddr*>(&name), sizeof(name)) != 0 ||
        listen(listening.get(), std::max(backlog, SOMAXCONN)) != 0) {
        applicationLog().error("init: cannot open a socket in " + folder + ": " + std::strerror(errno));
        return -1;
    }
    chmod(address.c_str(), 0777);
    return listening.release();
}

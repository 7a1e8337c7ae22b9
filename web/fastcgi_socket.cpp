#include "fastcgi_socket.h"

#include <cerrno>
#include <cstring>
#include <fcgiapp.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Logger.h"
#include "unique_fd.h"

int openFastCgiSocket(const std::string& path, int backlog) {
    const std::filesystem::path place(path);
    const std::string folder = place.parent_path().string();
    // Through the folder's descriptor the address stays short wherever the folder lies.
    const UniqueFd directory(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::string address = "/proc/self/fd/" + std::to_string(directory.get()) + "/" + place.filename().string();
    // libfcgi ends the process where it cannot bind, so what can be known beforehand is asked first.
    if (!directory || faccessat(directory.get(), ".", W_OK | X_OK, 0) != 0 || std::filesystem::is_directory(place)) {
        applicationLog().error("init: cannot open a socket in " + folder + ": " + std::strerror(errno));
        return -1;
    }
    const int socket = FCGX_OpenSocket(address.c_str(), backlog);
    if (socket >= 0) {
        fcntl(socket, F_SETFD, FD_CLOEXEC);
        // A web server that finds the queue full turns its client away; dozens may ask at once.
        listen(socket, SOMAXCONN);
        chmod(address.c_str(), 0777);
    }
    return socket;
}

#include "front_process.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "base/camera_paths.h"
#include "desktop/webserver/accounts.h"

namespace {

std::filesystem::path html() {
    return cameraPath("/usr/local/packages/ostrel_senvo/html");
}

}  // namespace

std::string outputOf(const std::string& command) {
    const std::unique_ptr<FILE, decltype(&pclose)> pipe(popen((command + " 2>/dev/null").c_str(), "r"), pclose);
    std::string output;
    std::array<char, 4096> buffer = {};
    for (size_t count = 0; (count = fread(buffer.data(), 1, buffer.size(), pipe.get())) > 0;) {
        output.append(buffer.data(), count);
    }
    return output;
}

std::string FrontProcess::socketPath() {
    return html() / "ostrel_senvo_fcgi.socket";
}

FrontProcess::FrontProcess(const std::string& listen) : m_socket(listen, 0) {
    std::filesystem::create_directories(html());
    const std::filesystem::path folder = cameraPath("/");
    desktop::Accounts(desktop::accountsFile(folder)).set(desktop::kOperator, kPassword);
    prepareFront(folder.lexically_normal(), html(), m_socket);
    // The shell knows its process id, which the server wants to see beside the socket; lighttpd takes its place.
    const std::string command =
        "cd '" + folder.string() + "' && LISTEN_FDS=1 LISTEN_PID=$$ exec lighttpd -D -f front.conf";
    std::string words[] = {"/bin/sh", "-c", command};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, m_socket.descriptor(), 3);
    if (posix_spawn(&m_pid, words[0].c_str(), &actions, nullptr, arguments, environ) != 0) {
        throw std::runtime_error("cannot start the web server");
    }
    posix_spawn_file_actions_destroy(&actions);
}

FrontProcess::~FrontProcess() {
    kill(m_pid, SIGTERM);
    waitpid(m_pid, nullptr, 0);
}

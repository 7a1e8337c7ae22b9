#include "topic_process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace {

constexpr int kCannotRun = 127;

/** The children of this process: what its own child left behind comes to it, since it is their reaper. */
std::vector<pid_t> children() {
    std::ifstream list("/proc/self/task/" + std::to_string(getpid()) + "/children");
    std::vector<pid_t> found;
    for (pid_t child = 0; list >> child;) {
        found.push_back(child);
    }
    return found;
}

std::string nameOf(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

/** Ends all that was left, and whatever those leave in turn; returns their names. */
std::string endWhatIsLeft() {
    std::string names;
    for (std::vector<pid_t> left = children(); !left.empty(); left = children()) {
        for (const pid_t process : left) {
            // One that has ended and only waits to be asked for its status is not left behind.
            if (waitpid(process, nullptr, WNOHANG) == process) {
                continue;
            }
            names += (names.empty() ? "" : ", ") + nameOf(process);
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
    }
    return names;
}

pid_t start(const std::vector<std::string>& command, int output) {
    std::vector<char*> arguments;
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (output >= 0) {
            dup2(output, STDOUT_FILENO);
        }
        execv(arguments[0], arguments.data());
        _exit(kCannotRun);
    }
    return child;
}

/** Reads until the child has ended or the time is over; true when it has ended. */
bool readUntilEnd(int ended, int output, std::chrono::seconds limit, std::string& text) {
    const auto end = std::chrono::steady_clock::now() + limit;
    std::array<char, 4096> buffer = {};
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        pollfd files[] = {{ended, POLLIN, 0}, {output, POLLIN, 0}};
        if (left <= 0 || poll(files, output >= 0 ? 2 : 1, static_cast<int>(left)) == 0) {
            return false;
        }
        if (output >= 0 && (files[1].revents & POLLIN) != 0) {
            const ssize_t count = read(output, buffer.data(), buffer.size());
            text.append(buffer.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
        } else if ((files[0].revents & POLLIN) != 0) {
            return true;
        }
    }
}

}  // namespace

TopicEnd runTopic(const std::vector<std::string>& command, std::chrono::seconds limit, bool keep) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    UniqueFd reading;
    UniqueFd writing;
    if (keep) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("cannot make a pipe");
        }
        reading = UniqueFd(ends[0]);
        writing = UniqueFd(ends[1]);
    }
    const pid_t child = start(command, keep ? writing.get() : -1);
    writing = UniqueFd();
    const UniqueFd ended(child < 0 ? -1 : static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    if (!ended) {
        throw std::runtime_error("cannot start " + command[0] + ": " + strerror(errno));
    }
    TopicEnd result;
    if (!readUntilEnd(ended.get(), keep ? reading.get() : -1, limit, result.output)) {
        result.fault = "did not end within " + std::to_string(limit.count()) + " seconds";
        kill(child, SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const std::string left = endWhatIsLeft();
    if (result.fault.empty() && WIFSIGNALED(status)) {
        result.fault = std::string("ended by a signal: ") + strsignal(WTERMSIG(status));
    } else if (result.fault.empty() && !left.empty()) {
        result.fault = "left processes behind: " + left;
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : kCannotRun;
    return result;
}

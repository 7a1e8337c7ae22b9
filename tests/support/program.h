#pragma once

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/** How a program's run ended and what it said. */
struct ProgramResult {
    int status = -1; /**< exit status; 128 and the signal's number when a signal ended it */
    std::string out;
    std::string err;
};

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void writeFile(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

/** A child process that does not outlive the test. */
class Child {
public:
    Child() = default;
    explicit Child(pid_t pid) : m_pid(pid) {}
    ~Child() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return m_pid; }

    /** Waits for the end; -1 when it has not come after so many milliseconds, else as ProgramResult::status. */
    int wait(int milliseconds) {
        const auto handle = static_cast<int>(syscall(SYS_pidfd_open, m_pid, 0));
        pollfd ended = {handle, POLLIN, 0};
        const int ready = poll(&ended, 1, milliseconds);
        close(handle);
        if (ready != 1) {
            return -1;
        }
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t m_pid = -1;
};

/**
 * Starts a program in a folder with more environment ("NAME=VALUE"), its output going into the files "out" and "err"
 * there. holdBack: signals that are blocked at its start.
 */
inline pid_t startProgram(const std::vector<std::string>& command, const std::filesystem::path& folder,
                          const std::vector<std::string>& environment = {}, const std::vector<int>& holdBack = {}) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    std::vector<char*> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string name = std::string(*variable).substr(0, std::string(*variable).find('=') + 1);
        const auto replaces = [&](const std::string& entry) { return entry.rfind(name, 0) == 0; };
        if (std::none_of(environment.begin(), environment.end(), replaces)) {
            variables.push_back(*variable);
        }
    }
    for (const std::string& variable : environment) {
        variables.push_back(const_cast<char*>(variable.c_str()));
    }
    variables.push_back(nullptr);
    const std::string out = folder / "out";
    const std::string err = folder / "err";
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : holdBack) {
        sigaddset(&blocked, signal);
    }
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const pid_t child = fork();
    if (child != 0) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    if (child < 0) {
        throw std::runtime_error("cannot fork");
    }
    if (child == 0) {
        // Only calls that are safe after a fork from a process with threads.
        struct sigaction standard = {};
        standard.sa_handler = SIG_DFL;
        sigaction(SIGTERM, &standard, nullptr);
        sigaction(SIGPIPE, &standard, nullptr);
        sigprocmask(SIG_SETMASK, &blocked, nullptr);
        const int outFd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int errFd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (dup2(outFd, STDOUT_FILENO) >= 0 && dup2(errFd, STDERR_FILENO) >= 0 && chdir(folder.c_str()) == 0) {
            execve(arguments[0], arguments.data(), variables.data());
        }
        _exit(126);
    }
    return child;
}

/** Runs a program to its end; status -1 when that does not come within ten minutes. */
inline ProgramResult runProgram(const std::vector<std::string>& command, const std::filesystem::path& folder,
                                const std::vector<std::string>& environment = {}) {
    Child child(startProgram(command, folder, environment));
    const int status = child.wait(600000);
    return {status, readFile(folder / "out"), readFile(folder / "err")};
}

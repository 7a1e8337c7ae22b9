#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

/*
 * Does what the environment variable BEHAVIOUR says, one word a start: the word's place is the number of lines in the
 * file "starts" of the working folder, and the last word goes on for ever.
 *
 * hang: goes on for ever. hangup: ends with status 0 when SIGHUP comes. beat: changes the file "heartbeat" for twelve
 * seconds, then ends with status 0. stay: waits for SIGTERM, writes the file "asked" and ends with 0. listen: writes
 * the port of the socket that it was handed into the file "listening" and ends with status 1. answer: answers seven
 * callers of that socket, writing what the last one asked into the file "asked", and ends with 0.
 *
 * ok, error: ends with status 0 or 1. killed: ends by SIGKILL. wait: tells the supervisor's process by SIGTERM that it
 * runs, then waits for SIGTERM, writes the file "asked" and ends with 0. stubborn: the same, but does not end.
 */
namespace {

std::string wordOf(const std::string& words, int number) {
    size_t from = 0;
    for (; number > 0 && words.find(' ', from) != std::string::npos; --number) {
        from = words.find(' ', from) + 1;
    }
    return words.substr(from, words.find(' ', from) - from);
}

}  // namespace

int main() {
    int starts = 0;
    {
        std::ifstream file("starts");
        for (std::string line; std::getline(file, line);) {
            ++starts;
        }
    }
    std::ofstream("starts", std::ios::app) << getpid() << '\n';
    const char* const behaviour = std::getenv("BEHAVIOUR");
    const std::string word = wordOf(behaviour == nullptr ? "" : behaviour, starts);
    if (word == "ok") {
        return EXIT_SUCCESS;
    }
    if (word == "hangup") {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGHUP);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        int signal = 0;
        return sigwait(&signals, &signal) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    while (word == "hang") {
        pause();
    }
    for (int i = 0; word == "beat"; ++i) {
        if (i == 120) {
            return EXIT_SUCCESS;
        }
        std::ofstream("heartbeat", std::ios::trunc) << i;
        usleep(100000);
    }
    if (word == "listen") {
        sockaddr_in address = {};
        socklen_t size = sizeof(address);
        const char* const pid = std::getenv("LISTEN_PID");
        const char* const count = std::getenv("LISTEN_FDS");
        if (pid != nullptr && std::to_string(getpid()) == pid && count != nullptr && std::string(count) == "1" &&
            getsockname(3, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
            std::ofstream("listening") << ntohs(address.sin_port) << '\n';
        }
        return EXIT_FAILURE;
    }
    for (int i = 0; word == "answer"; ++i) {
        if (i == 7) {
            return EXIT_SUCCESS;
        }
        const int caller = accept(3, nullptr, nullptr);
        char text[100] = {};
        const ssize_t count = recv(caller, text, sizeof(text), 0);
        std::ofstream("asked", std::ios::trunc).write(text, count);
        send(caller, "x", 1, MSG_NOSIGNAL);
        close(caller);
    }
    if (word == "killed") {
        raise(SIGKILL);
    }
    if (word == "wait" || word == "stubborn" || word == "stay") {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        if (word != "stay") {
            kill(getppid(), SIGTERM);
        }
        int signal = 0;
        // Held back since the start: a SIGTERM that came before this line is received, too.
        sigwait(&signals, &signal);
        std::ofstream("asked") << strsignal(signal) << '\n';
        while (word == "stubborn") {
            pause();
        }
        return EXIT_SUCCESS;
    }
    return EXIT_FAILURE;
}

#include "app/termination.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "log/Logger.h"

namespace {

constexpr char kTerminate = 't';
constexpr char kStopWatching = 's';

/** Where the signal handler writes; -1 while nobody watches. */
std::atomic<int> g_wakeFd = -1;

void handle_sigterm(int) {
    const int reason = errno;
    const int fd = g_wakeFd.load();
    if (fd >= 0) {
        // A full pipe already holds a wake-up.
        [[maybe_unused]] const ssize_t written = write(fd, &kTerminate, 1);
    }
    errno = reason;
}

void handleSignal(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

}  // namespace

void grateful_dead(const std::string& message) {
    applicationLog().error("grateful_dead: " + message);
    applicationLog().close();
    std::_Exit(EXIT_FAILURE);
}

TerminationWatch::TerminationWatch(std::function<void()> onTerminate) : m_onTerminate(std::move(onTerminate)) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe for SIGTERM");
    }
    m_wakeRead.reset(ends[0]);
    m_wakeWrite.reset(ends[1]);
    fcntl(m_wakeWrite.get(), F_SETFL, O_NONBLOCK);
    m_thread = std::thread([this] { watch(); });
    g_wakeFd = m_wakeWrite.get();
    handleSignal(SIGPIPE, SIG_IGN);
    handleSignal(SIGTERM, handle_sigterm);
    // A supervisor may start the application with SIGTERM held back, so that none is lost before this line.
    sigset_t unblocked;
    sigemptyset(&unblocked);
    sigaddset(&unblocked, SIGTERM);
    pthread_sigmask(SIG_UNBLOCK, &unblocked, nullptr);
}

TerminationWatch::~TerminationWatch() {
    handleSignal(SIGTERM, SIG_IGN);
    g_wakeFd = -1;
    // The thread reads what came before first; this byte comes after it all.
    while (write(m_wakeWrite.get(), &kStopWatching, 1) < 0) {
        std::this_thread::yield();
    }
    m_thread.join();
}

void TerminationWatch::watch() const {
    for (;;) {
        char byte = 0;
        const ssize_t count = read(m_wakeRead.get(), &byte, 1);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count != 1 || byte == kStopWatching) {
            return;
        }
        m_onTerminate();
    }
}

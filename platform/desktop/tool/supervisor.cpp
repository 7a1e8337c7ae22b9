#include "supervisor.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace desktop {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kCannotExecute = 127;
constexpr size_t kFastRestarts = 5;
constexpr std::chrono::seconds kRestartWindow(60);
constexpr std::chrono::seconds kBackOff(10);
constexpr std::chrono::seconds kGrace(10);

sigset_t signalsOfInterest() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGCHLD);
    return signals;
}

/** Waits for one of the signals, until the time given; 0 when that is over. */
int waitForSignal(const std::optional<Clock::time_point>& until) {
    const sigset_t signals = signalsOfInterest();
    for (;;) {
        int signal = 0;
        if (until) {
            const auto left = std::max(Clock::duration::zero(), *until - Clock::now());
            const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
            const timespec timeout = {seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
            signal = sigtimedwait(&signals, nullptr, &timeout);
            if (signal < 0 && errno == EAGAIN) {
                return 0;
            }
        } else {
            signal = sigwaitinfo(&signals, nullptr);
        }
        if (signal > 0) {
            return signal;
        }
    }
}

[[noreturn]] void execute(const SupervisedProcess& process) {
    // A group of its own: Ctrl-C on the terminal is the supervisor's business.
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    sigset_t heldBack;
    sigemptyset(&heldBack);
    sigaddset(&heldBack, SIGTERM);
    sigprocmask(SIG_SETMASK, &heldBack, nullptr);
    for (const auto& [name, value] : process.environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    if (chdir(process.workingFolder.c_str()) == 0) {
        const char* const arguments[] = {process.executable.c_str(), nullptr};
        execv(process.executable.c_str(), const_cast<char* const*>(arguments));
    }
    _exit(kCannotExecute);
}

pid_t start(const SupervisedProcess& process) {
    const pid_t child = fork();
    if (child == 0) {
        execute(process);
    }
    return child;
}

std::string describe(int status) {
    if (WIFSIGNALED(status)) {
        return std::string("killed by signal ") + strsignal(WTERMSIG(status));
    }
    return "ended with status " + std::to_string(WEXITSTATUS(status));
}

/** Asks the process to end, and makes it end when it does not. */
void stop(pid_t child, const std::function<void(const std::string&)>& say) {
    kill(child, SIGTERM);
    const auto deadline = Clock::now() + kGrace;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (waitForSignal(deadline) == 0) {
            say("the application does not end; killing it");
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return;
        }
    }
}

/** Decides how long to wait before the next start. */
class RestartPolicy {
public:
    std::chrono::seconds next() {
        const auto now = Clock::now();
        while (!m_restarts.empty() && now - m_restarts.front() > kRestartWindow) {
            m_restarts.pop_front();
        }
        m_restarts.push_back(now);
        return m_restarts.size() > kFastRestarts ? kBackOff : std::chrono::seconds(0);
    }

private:
    std::deque<Clock::time_point> m_restarts;
};

}  // namespace

int supervise(const SupervisedProcess& process, std::optional<std::chrono::seconds> duration,
              const std::function<void(const std::string&)>& say) {
    const sigset_t signals = signalsOfInterest();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const auto deadline = duration ? std::optional(Clock::now() + *duration) : std::nullopt;
    RestartPolicy policy;
    for (;;) {
        const pid_t child = start(process);
        if (child < 0) {
            say(std::string("cannot start the application: ") + strerror(errno));
            return EXIT_FAILURE;
        }
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            if (waitForSignal(deadline) != SIGCHLD) {
                stop(child, say);
                return EXIT_SUCCESS;
            }
        }
        if (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) {
            return EXIT_SUCCESS;
        }
        if (WIFEXITED(status) && WEXITSTATUS(status) == kCannotExecute) {
            say("cannot execute " + process.executable.string() + " in " + process.workingFolder.string());
            return EXIT_FAILURE;
        }
        const std::chrono::seconds pause = policy.next();
        say("the application " + describe(status) + "; starting it again" +
            (pause.count() > 0 ? " in " + std::to_string(pause.count()) + " s" : ""));
        const auto resume = Clock::now() + pause;
        while (Clock::now() < resume) {
            const int signal = waitForSignal(deadline ? std::min(*deadline, resume) : resume);
            if (signal == SIGTERM || signal == SIGINT || (deadline && Clock::now() >= *deadline)) {
                return EXIT_SUCCESS;
            }
        }
    }
}

}  // namespace desktop

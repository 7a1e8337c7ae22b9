#include "desktop/supervisor/supervisor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "base/unique_fd.h"

namespace desktop {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kCannotExecute = 127;
constexpr int kFirstInheritedDescriptor = 3;
constexpr size_t kFastRestarts = 5;
constexpr std::chrono::seconds kRestartWindow(60);
constexpr std::chrono::seconds kBackOff(10);
constexpr std::chrono::seconds kGrace(10);
constexpr std::chrono::seconds kHeartbeatCheck(1);
constexpr std::uintmax_t kMostLogBytes = std::uintmax_t{1} << 20U;
constexpr int kLogs = 4;                     // the one that is written, and three older
constexpr std::chrono::seconds kGrownUp(5);  // by then a process knows what SIGHUP means, of which it would end before

sigset_t signalsOfInterest() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGCHLD);
    return signals;
}

/** Waits for one of the signals, until the time given; 0 when that is over. */
int waitForSignal(Clock::time_point until) {
    const sigset_t signals = signalsOfInterest();
    for (;;) {
        const auto left = std::max(Clock::duration::zero(), until - Clock::now());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec timeout = {seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
        const int signal = sigtimedwait(&signals, nullptr, &timeout);
        if (signal > 0) {
            return signal;
        }
        if (errno == EAGAIN) {
            return 0;
        }
    }
}

/** Everything that a start needs, laid out before the fork: between fork and exec nothing may be allocated. */
class StartPlan {
public:
    explicit StartPlan(const SupervisedProcess& process)
        : m_executable(process.executable),
          m_folder(process.workingFolder),
          m_supervisor(getpid()),
          m_sockets(process.listeningSockets),
          m_holdBack(process.takesSigtermUp) {
        m_texts.push_back(process.executable.string());
        m_texts.insert(m_texts.end(), process.arguments.begin(), process.arguments.end());
        const size_t arguments = m_texts.size();
        std::map<std::string, std::string> variables;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string variable = *entry;
            variables[variable.substr(0, variable.find('='))] = variable.substr(variable.find('=') + 1);
        }
        for (const auto& [name, value] : process.environment) {
            variables[name] = value;
        }
        if (!m_sockets.empty()) {
            variables["LISTEN_FDS"] = std::to_string(m_sockets.size());
        }
        for (const auto& [name, value] : variables) {
            m_texts.push_back(name + "=" + value);
        }
        for (size_t i = 0; i < m_texts.size(); ++i) {
            (i < arguments ? m_arguments : m_environment).push_back(m_texts[i].data());
        }
        m_arguments.push_back(nullptr);
        if (!m_sockets.empty()) {
            m_environment.push_back(m_listenPid.data());
        }
        m_environment.push_back(nullptr);
    }

    [[noreturn]] void execute() {
        // A group of its own: Ctrl-C on the terminal is the supervisor's business.
        setpgid(0, 0);
        // One that hangs must not outlive the supervisor, either; all of them may be killed at any time.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != m_supervisor) {
            _exit(EXIT_FAILURE);  // its death came before the request to be told of it
        }
        sigset_t heldBack;
        sigemptyset(&heldBack);
        if (m_holdBack) {
            sigaddset(&heldBack, SIGTERM);
        }
        sigprocmask(SIG_SETMASK, &heldBack, nullptr);
        if (!m_sockets.empty()) {
            handSocketsOn();
        }
        if (chdir(m_folder.c_str()) == 0) {
            execve(m_executable.c_str(), m_arguments.data(), m_environment.data());
        }
        _exit(kCannotExecute);
    }

private:
    void handSocketsOn() {
        const int count = static_cast<int>(m_sockets.size());
        // Out of the way first: one may be where another has to go.
        for (int& socket : m_sockets) {
            socket = fcntl(socket, F_DUPFD_CLOEXEC, kFirstInheritedDescriptor + count);
        }
        for (int i = 0; i < count; ++i) {
            dup2(m_sockets[static_cast<size_t>(i)], kFirstInheritedDescriptor + i);
        }
        // The receiver believes LISTEN_FDS only beside its own process id, which is known no earlier.
        pid_t pid = getpid();
        size_t at = m_listenPid.size() - 2;
        do {
            m_listenPid[at--] = static_cast<char>('0' + pid % 10);
            pid /= 10;
        } while (pid > 0);
        const char name[] = "LISTEN_PID=";
        std::memmove(m_listenPid.data() + sizeof(name) - 1, m_listenPid.data() + at + 1, m_listenPid.size() - at - 1);
        std::memcpy(m_listenPid.data(), name, sizeof(name) - 1);
    }

    std::string m_executable;
    std::string m_folder;
    pid_t m_supervisor;
    std::vector<int> m_sockets;
    bool m_holdBack;
    std::vector<std::string> m_texts;
    std::vector<char*> m_arguments;
    std::vector<char*> m_environment;
    std::array<char, 32> m_listenPid = {};
};

std::string describe(int status) {
    if (WIFSIGNALED(status)) {
        return std::string("killed by signal ") + strsignal(WTERMSIG(status));
    }
    return "ended with status " + std::to_string(WEXITSTATUS(status));
}

/** Asks a process something on its listening socket, over and over, and never waits for the answer. */
class Caller {
public:
    explicit Caller(const SupervisedProcess& process) : m_process(process) {}

    /** Whether an answer has come since the last time; a process that hangs up is at work, too. */
    bool hears() {
        if (m_call.get() < 0) {
            call();
        }
        if (!m_asked) {
            const std::string& question = m_process.question;
            m_asked = send(m_call.get(), question.data(), question.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
        }
        char byte = 0;
        const bool heard = m_asked && recv(m_call.get(), &byte, 1, MSG_DONTWAIT) >= 0;
        if (!heard && errno == EAGAIN) {
            return false;
        }
        const bool hungUp = errno == ECONNRESET || errno == EPIPE;
        m_call = UniqueFd();
        return heard || hungUp;
    }

private:
    void call() {
        sockaddr_storage name = {};
        socklen_t size = sizeof(name);
        auto* const address = reinterpret_cast<sockaddr*>(&name);
        getsockname(m_process.listeningSockets.at(0), address, &size);
        m_call = UniqueFd(socket(name.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        m_asked = false;
        // What is not connected yet, or cannot be, shows when it is written to.
        [[maybe_unused]] const int connected = connect(m_call.get(), address, size);
    }

    const SupervisedProcess& m_process;
    UniqueFd m_call;
    bool m_asked = false;
};

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

/** One process through its starts and ends. */
class Child {
public:
    Child(const SupervisedProcess& process, const std::function<void(const std::string&)>& say)
        : m_process(process), m_say(say), m_caller(process) {}

    bool isRunning() const { return m_pid > 0; }
    pid_t pid() const { return m_pid; }
    const SupervisedProcess& process() const { return m_process; }

    /** Starts it when its time has come; false when the system has no room for it. */
    bool startWhenDue() {
        if (isRunning() || Clock::now() < m_resume) {
            return true;
        }
        if (const std::string told = m_process.prepare ? m_process.prepare() : ""; !told.empty()) {
            m_say(told);
        }
        StartPlan plan(m_process);
        const pid_t child = fork();
        if (child == 0) {
            plan.execute();
        }
        if (child < 0) {
            m_say("cannot start " + m_process.name + ": " + std::strerror(errno));
            return false;
        }
        m_pid = child;
        m_begun = m_beatSeen = Clock::now();
        if (m_process.started) {
            m_process.started();
        }
        return true;
    }

    /** The wait status when it has ended. */
    std::optional<int> reap() {
        int status = 0;
        if (!isRunning() || waitpid(m_pid, &status, WNOHANG) != m_pid) {
            return std::nullopt;
        }
        m_pid = -1;
        return status;
    }

    void startAgainAfter(int status) {
        const std::chrono::seconds pause = m_policy.next();
        m_resume = Clock::now() + pause;
        m_say(m_process.name + " " +
              (std::exchange(m_hung, false)
                   ? "did nothing for " + std::to_string(m_process.heartbeatLimit.count()) + " s and was killed"
                   : describe(status)) +
              "; starting it again" + (pause.count() > 0 ? " in " + std::to_string(pause.count()) + " s" : "") +
              (m_process.lastWords ? m_process.lastWords() : ""));
    }

    /** Kills it when it has shown for too long that it hangs, and looks after its log. */
    void check() {
        if (!isRunning() || !isWatched() || m_hung) {
            return;
        }
        if (Clock::now() - m_begun > kGrownUp) {
            beginLogAnew();
        }
        if (beats() || (!m_process.question.empty() && m_caller.hears())) {
            m_beatSeen = Clock::now();
        } else if (Clock::now() - m_beatSeen > m_process.heartbeatLimit) {
            m_hung = true;
            kill(m_pid, SIGKILL);
        }
    }

    /** When it wants attention without a signal. */
    Clock::time_point nextLook() const {
        if (!isRunning()) {
            return m_resume;
        }
        return isWatched() ? Clock::now() + kHeartbeatCheck : Clock::time_point::max();
    }

private:
    bool isWatched() const { return !m_process.heartbeat.empty() || !m_process.question.empty(); }

    /** Whether the heartbeat's file has changed since the last time. */
    bool beats() {
        if (m_process.heartbeat.empty()) {
            return false;
        }
        std::ifstream file(m_process.heartbeat, std::ios::binary);
        std::string beat((std::istreambuf_iterator<char>(file)), {});
        return std::exchange(m_beat, beat) != beat;
    }

    void beginLogAnew() const {
        std::error_code ignored;
        if (m_process.log.empty() || std::filesystem::file_size(m_process.log, ignored) <= kMostLogBytes || ignored) {
            return;
        }
        for (int older = kLogs - 1; older > 0; --older) {
            const std::string name = m_process.log.string();
            std::filesystem::rename(older == 1 ? name : name + "." + std::to_string(older - 1),
                                    name + "." + std::to_string(older), ignored);
        }
        kill(m_pid, SIGHUP);
    }

    const SupervisedProcess& m_process;
    const std::function<void(const std::string&)>& m_say;
    Caller m_caller;
    RestartPolicy m_policy;
    pid_t m_pid = -1;
    Clock::time_point m_resume = Clock::time_point::min();
    std::string m_beat;
    Clock::time_point m_begun;
    Clock::time_point m_beatSeen;
    bool m_hung = false;
};

/** Asks all to end, and makes those end that do not. */
void stopAll(std::vector<Child>& children, const std::function<void(const std::string&)>& say) {
    const auto running = [&] {
        return std::any_of(children.begin(), children.end(), [](const Child& child) { return child.isRunning(); });
    };
    for (const Child& child : children) {
        if (child.isRunning()) {
            kill(child.pid(), SIGTERM);
        }
    }
    const auto deadline = Clock::now() + kGrace;
    while (running()) {
        for (Child& child : children) {
            child.reap();
        }
        if (running() && waitForSignal(deadline) == 0) {
            break;
        }
    }
    for (Child& child : children) {
        if (child.isRunning()) {
            say(child.process().name + " does not end; killing it");
            kill(child.pid(), SIGKILL);
            waitpid(child.pid(), nullptr, 0);
        }
    }
}

/** Looks after those that have ended; the supervisor's own end when it has come. */
std::optional<int> reapAll(std::vector<Child>& children, const std::function<void(const std::string&)>& say) {
    for (Child& child : children) {
        const std::optional<int> status = child.reap();
        if (!status) {
            continue;
        }
        const int code = WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
        if (code == EXIT_SUCCESS && child.process().mayEnd) {
            return EXIT_SUCCESS;
        }
        if (code == kCannotExecute) {
            say("cannot execute " + child.process().executable.string() + " in " +
                child.process().workingFolder.string());
            return EXIT_FAILURE;
        }
        child.startAgainAfter(*status);
    }
    return std::nullopt;
}

}  // namespace

void holdBackSupervisorSignals() {
    const sigset_t signals = signalsOfInterest();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

int supervise(const std::vector<SupervisedProcess>& processes, std::optional<std::chrono::seconds> duration,
              const std::function<void(const std::string&)>& say) {
    holdBackSupervisorSignals();
    const auto deadline = duration ? Clock::now() + *duration : Clock::time_point::max();
    std::vector<Child> children;
    children.reserve(processes.size());
    for (const SupervisedProcess& process : processes) {
        children.emplace_back(process, say);
    }
    std::optional<int> end;
    while (!end) {
        auto wake = std::min(deadline, Clock::now() + std::chrono::hours(1));
        for (Child& child : children) {
            if (!child.startWhenDue()) {
                end = EXIT_FAILURE;
            }
            wake = std::min(wake, child.nextLook());
        }
        const int signal = waitForSignal(wake);
        if (signal == SIGTERM || signal == SIGINT || Clock::now() >= deadline) {
            end = EXIT_SUCCESS;
        } else if (!end) {
            end = reapAll(children, say);
        }
        for (Child& child : children) {
            child.check();
        }
    }
    stopAll(children, say);
    return *end;
}

}  // namespace desktop

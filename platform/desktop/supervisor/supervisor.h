#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace desktop {

/** A process to keep running, as a camera's platform keeps its applications running. */
struct SupervisedProcess {
    std::string name = "the application"; /**< for messages */
    std::filesystem::path executable;
    std::vector<std::string> arguments; /**< behind its own name */
    std::filesystem::path workingFolder;
    std::map<std::string, std::string> environment; /**< on top of the supervisor's own */
    std::vector<int> listeningSockets; /**< handed on from descriptor 3 on, in the way of systemd's socket activation */
    std::filesystem::path heartbeat;   /**< a file that changes while the process is at work; may be empty */
    std::string question; /**< asked over and over on its first socket, to be answered with anything; may be empty */
    std::chrono::seconds heartbeatLimit = std::chrono::seconds(30); /**< it hangs when it did neither for longer */
    std::filesystem::path log;  /**< begun anew when it is large, upon which the process gets SIGHUP; may be empty */
    bool takesSigtermUp = true; /**< starts with SIGTERM held back, and lets it through once it can handle it */
    bool mayEnd = true;         /**< an end without an error is no fault, and ends the supervision */
    std::function<std::string()> prepare;   /**< called before each start; what it tells is told; may be empty */
    std::function<void()> started;          /**< called after each start; may be empty */
    std::function<std::string()> lastWords; /**< asked for when it ended with an error: what it had to say about it */
};

/**
 * Holds SIGTERM, SIGINT and SIGCHLD back for supervise(). A program with more threads calls it before it starts them;
 * supervise() does so itself otherwise.
 */
void holdBackSupervisorSignals();

/**
 * Runs processes until SIGTERM or SIGINT comes, or the time is over, and starts each again whenever it ends with an
 * error or is killed because its heartbeat has stood still or it answers nobody: at once, or, after five starts within
 * a minute, only ten seconds later.
 *
 * A process may start with SIGTERM held back, so that none is lost before it can handle it; asked to end, it has ten
 * seconds. None is started that would outlive the supervisor, and all are asked to end when it is killed. Call from the
 * main thread, once.
 *
 * say: told what happens, one line each, with a process's last words behind it.
 * Returns 0 when the processes ended as asked, or one ended by itself without an error, 1 when one cannot be started at
 * all.
 */
int supervise(const std::vector<SupervisedProcess>& processes, std::optional<std::chrono::seconds> duration,
              const std::function<void(const std::string&)>& say);

}  // namespace desktop

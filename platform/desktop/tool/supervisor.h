#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace desktop {

/** A process to keep running, as a camera's platform keeps its applications running. */
struct SupervisedProcess {
    std::filesystem::path executable;
    std::filesystem::path workingFolder;
    std::map<std::string, std::string> environment; /**< on top of the supervisor's own */
};

/**
 * Runs a process until SIGTERM or SIGINT comes, or the time is over, and starts it again whenever it ends with an
 * error: at once, or, after five ends within a minute, only ten seconds later.
 *
 * The process starts with SIGTERM held back, so that none is lost before it can handle it; asked to end, it has ten
 * seconds. It does not outlive the supervisor. Call from the main thread, once.
 *
 * say: told what happens, one line each.
 * Returns 0 when the process ended as asked or by itself without an error, 1 when it cannot be started at all.
 */
int supervise(const SupervisedProcess& process, std::optional<std::chrono::seconds> duration,
              const std::function<void(const std::string&)>& say);

}  // namespace desktop

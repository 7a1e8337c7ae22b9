#pragma once

#include <functional>
#include <string>
#include <thread>

#include "base/unique_fd.h"

/**
 * Logs the message as an error and ends the process with exit status 1; the platform's supervisor starts the
 * application again. The log is closed in order; nothing else is torn down, since other threads may be at work. Any
 * thread.
 */
[[noreturn]] void grateful_dead(const std::string& message);

/**
 * Turns SIGTERM into a call on a thread of its own, where logging and locking are allowed, and ignores SIGPIPE.
 *
 * The signal handler itself only wakes that thread: a SIGTERM may come in the middle of a log write. One instance per
 * process at a time.
 */
class TerminationWatch {
public:
    /** onTerminate is called on the watch's thread, once per SIGTERM. */
    explicit TerminationWatch(std::function<void()> onTerminate);

    /** Stops watching; a SIGTERM from here on does nothing. */
    ~TerminationWatch();

    TerminationWatch(const TerminationWatch&) = delete;
    TerminationWatch& operator=(const TerminationWatch&) = delete;

private:
    void watch() const;

    std::function<void()> m_onTerminate;
    UniqueFd m_wakeRead;
    UniqueFd m_wakeWrite;
    std::thread m_thread;
};

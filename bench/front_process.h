#pragma once

#include <string>
#include <sys/types.h>

#include "desktop/webserver/front.h"

inline constexpr const char* kPassword = "bench-bench";

/** What a shell command writes to its standard output. */
std::string outputOf(const std::string& command);

/** A camera's web server for as long as this lives, before the FastCGI socket of the bench's folder. */
class FrontProcess {
public:
    explicit FrontProcess(const std::string& listen = "127.0.0.1");
    ~FrontProcess();
    FrontProcess(const FrontProcess&) = delete;
    FrontProcess& operator=(const FrontProcess&) = delete;

    std::string address() const { return m_socket.reachableAs(); }

    /** Where the application's socket belongs. */
    static std::string socketPath();

private:
    desktop::ListeningSocket m_socket;
    pid_t m_pid = -1;
};

#pragma once

#include <atomic>
#include <string>

/** Talks to a camera's web interface as any program does: over HTTP, with digest authentication. One thread. */
class CameraClient {
public:
    /** givenUp: once set, by any thread, there are no answers any more; outlives the client. */
    CameraClient(std::string address, std::string user, std::string password, const std::atomic<bool>& givenUp);

    /** The answer to an action; empty when there is none. */
    std::string get(const std::string& action) const;

    /** Sends a body to an action; whether it was taken. */
    bool post(const std::string& action, const std::string& body) const;

private:
    bool transfer(const std::string& action, const std::string* body, std::string& answer) const;

    std::string m_address;
    std::string m_credentials;
    const std::atomic<bool>& m_givenUp;
};

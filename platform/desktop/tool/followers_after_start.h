#pragma once

#include <atomic>
#include <filesystem>

#include "desktop/tool/background.h"

namespace desktop {

/**
 * Tells the application after each of its starts to ask the followers that its settings name: by itself it does so only
 * once settings have been saved. Nothing is saved for it, and no password is needed: it goes through the application's
 * own socket.
 */
class FollowersAfterStart {
public:
    /** socket: the application's FastCGI socket. pause: how long to wait before it is tried again. */
    explicit FollowersAfterStart(std::filesystem::path socket,
                                 std::chrono::milliseconds pause = std::chrono::milliseconds(200));

    /** The application was started; returns at once. Any thread. */
    void started() { ++m_starts; }

private:
    bool step();

    const std::filesystem::path m_socket;
    std::atomic<int> m_starts = 0;
    int m_told = 0; /**< the start that was told last; the background's */
    Background m_background;
};

/**
 * Posts an action without a body to a FastCGI socket. False when nobody listens there, or when the answer has not come
 * within two seconds. The socket's path may be longer than its address can be.
 */
bool postAction(const std::filesystem::path& socket, const std::string& action);

}  // namespace desktop

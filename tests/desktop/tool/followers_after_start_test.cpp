#include "desktop/tool/followers_after_start.h"

#include <atomic>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <mutex>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "test_folder.h"

namespace {

std::atomic<int> g_refused = 0;  // connections for which nobody listened

}  // namespace

/** Stands before the system's call, for every library. */
extern "C" int connect(int socket, const sockaddr* address, socklen_t size) {
    using Connect = int (*)(int, const sockaddr*, socklen_t);
    static const auto real = reinterpret_cast<Connect>(dlsym(RTLD_NEXT, "connect"));
    const int result = real(socket, address, size);
    g_refused += result == 0 ? 0 : 1;
    return result;
}

namespace {

using desktop::FollowersAfterStart;

/** A FastCGI socket that ends every request, and remembers them. */
class Application {
public:
    explicit Application(const std::filesystem::path& socket) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        socket.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
        unlink(socket.c_str());
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(m_socket, 5), 0);
        m_thread = std::thread([this] { serve(); });
    }
    ~Application() {
        shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        close(m_socket);
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    std::vector<std::string> requests() {
        const std::lock_guard lock(m_mutex);
        return m_requests;
    }

private:
    void serve() {
        for (int connection = accept(m_socket, nullptr, nullptr); connection >= 0;
             connection = accept(m_socket, nullptr, nullptr)) {
            std::string request;
            char buffer[4096];
            // Ends with the end of the input: a record of type 5 without content.
            while (!request.ends_with(std::string("\1\5\0\1\0\0\0\0", 8))) {
                const ssize_t got = recv(connection, buffer, sizeof(buffer), 0);
                if (got <= 0) {
                    break;
                }
                request.append(buffer, static_cast<size_t>(got));
            }
            {
                const std::lock_guard lock(m_mutex);
                m_requests.push_back(request);
            }
            const std::string answer("\1\6\0\1\0\5\3\0Hello...\1\3\0\1\0\10\0\0\0\0\0\0\0\0\0\0", 32);
            send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
            close(connection);
        }
    }

    int m_socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::mutex m_mutex; /**< guards m_requests */
    std::vector<std::string> m_requests;
    std::thread m_thread;
};

bool becomes(const std::function<bool()>& condition) {
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (!condition() && std::chrono::steady_clock::now() < giveUp) {
        std::this_thread::yield();
    }
    return condition();
}

TEST(FollowersAfterStart, AreToldToEachStartOnce) {
    const TestFolder folder;
    const std::filesystem::path socket = folder.path() / "application.socket";
    constexpr std::chrono::milliseconds kPause(1);
    FollowersAfterStart followers(socket, kPause);
    const auto awaitSteps = [&] {
        std::atomic<int> steps = 0;
        const desktop::Background beside(kPause, [&] { return ++steps < 50; });
        EXPECT_TRUE(becomes([&] { return steps == 50; }));
    };
    {
        Application application(socket);
        followers.started();
        EXPECT_TRUE(becomes([&] { return application.requests().size() == 1; }));
        const std::string request = application.requests().at(0);
        EXPECT_NE(request.find("POST"), std::string::npos);
        EXPECT_NE(request.find("/?action=use_followers"), std::string::npos);
        awaitSteps();
        EXPECT_EQ(application.requests().size(), 1U) << "once";
    }
    g_refused = 0;
    followers.started();
    EXPECT_TRUE(becomes([] { return g_refused > 0; })) << "nobody listens yet";
    Application again(socket);
    EXPECT_TRUE(becomes([&] { return again.requests().size() == 1; }));
    followers.started();
    EXPECT_TRUE(becomes([&] { return again.requests().size() == 2; }));
    awaitSteps();
    EXPECT_EQ(again.requests().size(), 2U) << "once a start";
}

TEST(FollowersAfterStart, ReachNobodyWhereNobodyIs) {
    const TestFolder folder;
    EXPECT_FALSE(desktop::postAction(folder.path() / "nothing.socket", "use_followers"));
    EXPECT_FALSE(desktop::postAction(folder.path() / "no folder/nothing.socket", "use_followers"));
}

}  // namespace

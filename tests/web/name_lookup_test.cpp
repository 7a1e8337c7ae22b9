#include <arpa/inet.h>
#include <chrono>
#include <condition_variable>
#include <dlfcn.h>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <netdb.h>
#include <vector>

#include "canned_server.h"
#include "log_capture.h"
#include "test_clock.h"
#include "web/http_request_controller.h"

namespace {

/** A name server that does not answer until it is released. */
class SilentNameServer {
public:
    static constexpr const char* kDomain = ".silent.test";
    /** Its names are found, here. */
    static constexpr const char* kHealthyDomain = ".healthy.test";

    /** What stands for the machine's resolver while one of these lives. */
    static SilentNameServer*& current() {
        static SilentNameServer* instance = nullptr;
        return instance;
    }
    SilentNameServer() { current() = this; }
    ~SilentNameServer() {
        release();
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_asking == 0; });
    }
    SilentNameServer(const SilentNameServer&) = delete;
    SilentNameServer& operator=(const SilentNameServer&) = delete;

    void ask() {
        std::unique_lock lock(m_mutex);
        ++m_lookups;
        ++m_asking;
        m_changed.wait(lock, [this] { return m_released; });
        --m_asking;
        m_changed.notify_all();
    }
    void release() {
        const std::lock_guard lock(m_mutex);
        m_released = true;
        m_changed.notify_all();
    }
    int lookups() {
        const std::lock_guard lock(m_mutex);
        return m_lookups;
    }

private:
    std::mutex m_mutex; /**< guards all that follows */
    std::condition_variable m_changed;
    bool m_released = false;
    int m_lookups = 0;
    int m_asking = 0;
};

class NameLookup : public testing::Test {
protected:
    /** Asks follower N for its status: whether that came to an end while the name server was silent. */
    static std::future<int> ask(int follower) {
        return std::async(std::launch::async, [follower] {
            http_request_controller client;
            return client.get_status_from_followerip(
                "camera" + std::to_string(follower) + SilentNameServer::kDomain + ":1", "root", "pass");
        });
    }
    /** Ends a hang only. */
    static bool ends(const std::future<int>& request) {
        return request.wait_for(std::chrono::minutes(2)) == std::future_status::ready;
    }

    const LogCapture m_log;
    TestClock m_clock;
    SilentNameServer m_names;
};

/** Five seconds hold for the lookup, too, and so do they for what comes after it. */
TEST_F(NameLookup, ThatHangsDoesNotHoldTheRequest) {
    std::future<int> request = ask(1);
    const bool ended = ends(request);
    m_names.release();
    ASSERT_TRUE(ended);
    EXPECT_EQ(request.get(), 700);
    EXPECT_EQ(m_names.lookups(), 1);
}

/** However long ago it began. */
TEST_F(NameLookup, ThatHangsIsNotStartedAgain) {
    std::vector<std::future<int>> requests;
    for (int i = 0; i < 5; ++i) {
        requests.push_back(ask(1));
    }
    for (std::future<int>& request : requests) {
        ASSERT_TRUE(ends(request));
    }
    for (int i = 0; i < 20; ++i) {
        m_clock.advance(3600);
        EXPECT_EQ(ask(1).get(), 700);
    }
    EXPECT_EQ(m_names.lookups(), 1);

    const CannedServer server(CannedServer::saying("200"));
    http_request_controller client;
    EXPECT_EQ(client.get_status_from_followerip(server.address(), "", ""), 200) << "an address needs no lookup";
    const std::string port = server.address().substr(server.address().find(':'));
    EXPECT_EQ(client.get_status_from_followerip(std::string("gate") + SilentNameServer::kHealthyDomain + port, "", ""),
              200)
        << "another name";
    m_names.release();
    while (m_names.lookups() == 1) {
        ask(1).get();
    }
}

TEST_F(NameLookup, IsNotStartedWhenManyHang) {
    constexpr int kMost = 20;
    std::vector<std::future<int>> requests;
    for (int i = 0; i < kMost + 5; ++i) {
        requests.push_back(ask(i));
    }
    for (std::future<int>& request : requests) {
        EXPECT_TRUE(ends(request));
    }
    EXPECT_EQ(m_names.lookups(), kMost);
    m_clock.advance(3600);
    EXPECT_EQ(ask(kMost + 5).get(), 700);
    EXPECT_EQ(m_names.lookups(), kMost) << "they hang still";
    m_names.release();
    while (m_names.lookups() == kMost) {
        ask(kMost + 5).get();
    }
}

}  // namespace

/** Stands before the machine's resolver, for every library. */
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    SilentNameServer* const server = SilentNameServer::current();
    if (server != nullptr && node != nullptr && std::string(node).ends_with(SilentNameServer::kDomain)) {
        server->ask();
        return EAI_NONAME;
    }
    if (node != nullptr && std::string(node).ends_with(SilentNameServer::kHealthyDomain)) {
        node = "127.0.0.1";
    }
    using Lookup = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto real = reinterpret_cast<Lookup>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return real(node, service, hints, result);
}

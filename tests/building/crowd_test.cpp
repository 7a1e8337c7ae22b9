#include <arpa/inet.h>
#include <atomic>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "base/unique_fd.h"
#include "camera_and_front.h"
#include "digest.h"

namespace {

constexpr size_t kSilent = 2000;
constexpr size_t kDripping = 50;
constexpr int kMostAtOnce = 128;
constexpr const char* kUpload = "/local/ostrel_senvo/webservices.cgi?action=set_post_parameters";

/** The header of an operator who uploads, made by hand: it is to be sent before the body is there. */
std::string uploadersLogin(const std::string& address, const std::string& password) {
    return "Authorization: Digest username=\"operator\", " +
           digestOf(nonceOf(address), "operator", password, "POST", kUpload) + "\r\n";
}

/** Connections of people who say nothing, or one letter at a time, and who come again whenever they are sent away. */
class Crowd {
public:
    Crowd(const std::string& address, size_t silent, size_t dripping, const std::string& login = {})
        : m_port(static_cast<uint16_t>(std::stoi(address.substr(address.find(':') + 1)))),
          m_text(textOf(address, login)),
          m_members(silent + dripping),
          m_dripping(dripping),
          m_thread([this] { run(); }) {}
    ~Crowd() {
        m_stop = true;
        m_thread.join();
    }
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    /** How many are connected. */
    size_t present() const { return m_present; }

private:
    struct Member {
        UniqueFd socket;
        size_t said = 0;
    };

    /** A head that takes longer to say than any test, and the beginning of a body. */
    static std::string textOf(const std::string& address, const std::string& login) {
        return std::string("POST ") + kUpload + " HTTP/1.1\r\nHost: " + address + "\r\n" + login +
               "Content-Length: 100000\r\n\r\n" + std::string(99999, '<');
    }

    void join(Member& member, bool far) const {
        member.socket = UniqueFd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        sockaddr_in name = {};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        name.sin_port = htons(m_port);
        connect(member.socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof(name));
        member.said = 0;
        if (far) {
            // Half of those who drip are in the body already.
            pollfd writable = {member.socket.get(), POLLOUT, 0};
            poll(&writable, 1, 1000);
            const size_t head = m_text.find("\r\n\r\n") + 4;
            send(member.socket.get(), m_text.data(), head, MSG_NOSIGNAL);
            member.said = head;
        }
    }

    void run() {
        while (!m_stop) {
            std::vector<pollfd> sockets;
            for (size_t i = 0; i < m_members.size(); ++i) {
                if (m_members[i].socket.get() < 0) {
                    join(m_members[i], i < m_dripping && i % 2 == 0);
                }
                sockets.push_back({m_members[i].socket.get(), POLLIN | POLLOUT, 0});
            }
            poll(sockets.data(), sockets.size(), 0);
            size_t present = 0;
            for (size_t i = 0; i < m_members.size(); ++i) {
                if ((sockets[i].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
                    m_members[i] = Member();
                } else if ((sockets[i].revents & POLLOUT) != 0) {
                    ++present;
                    if (i < m_dripping) {
                        send(m_members[i].socket.get(), &m_text[m_members[i].said++], 1, MSG_NOSIGNAL);
                    }
                }
            }
            m_present = present;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }

    uint16_t m_port;
    const std::string m_text;
    std::vector<Member> m_members;
    size_t m_dripping;
    std::atomic<size_t> m_present = 0;
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

class Crowds : public CameraAndFront {
protected:
    static void SetUpTestSuite() {
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        s_hasRoom = limit.rlim_max >= 2 * (kSilent + kDripping);
        CameraAndFront::SetUpTestSuite();
    }
    void SetUp() override {
        if (!s_hasRoom) {
            GTEST_SKIP() << "needs room for " << 2 * (kSilent + kDripping) << " descriptors in a process";
        }
    }
    static inline bool s_hasRoom = false;
};

TEST_F(Crowds, ShutNobodyOutWhileTheyStay) {
    const Crowd crowd(s_camera->address(), kSilent, kDripping);
    ASSERT_TRUE(eventually([&] { return crowd.present() == kSilent + kDripping; })) << crowd.present();
    for (int time = 0; time < 10; ++time) {
        // Those who were sent away together come back together.
        ASSERT_TRUE(eventually([&] { return crowd.present() > kSilent / 2; })) << crowd.present();
        EXPECT_EQ(camera().ask("get_analysis_resolution", {"--max-time", "30"}).body, "1280x720");
    }
}

TEST_F(Crowds, AreSentAwayAfterSeconds) {
    const std::string address = s_camera->address();
    for (const std::string& said : {std::string(), std::string("GET / HT"),
                                    "POST / HTTP/1.1\r\nHost: " + address + "\r\nContent-Length: 9\r\n\r\nx"}) {
        const UniqueFd client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in name = {};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        name.sin_port = htons(static_cast<uint16_t>(std::stoi(address.substr(address.find(':') + 1))));
        ASSERT_EQ(connect(client.get(), reinterpret_cast<const sockaddr*>(&name), sizeof(name)), 0);
        ASSERT_EQ(send(client.get(), said.data(), said.size(), MSG_NOSIGNAL), static_cast<ssize_t>(said.size()));
        pollfd ended = {client.get(), POLLIN, 0};
        EXPECT_EQ(poll(&ended, 1, 50'000), 1) << "sent away before a minute is over: " << said;
    }
}

TEST_F(Crowds, OfOneAddressTakeNobodyElsesPlace) {
    const Crowd crowd(s_camera->address(), 0, 2 * kMostAtOnce + 60,  // half of them in their requests' bodies
                      uploadersLogin(s_camera->address(), s_camera->password));
    const auto askFrom = [](const char* address) { return camera().ask("get_status_code", {"--interface", address}); };
    // So many logins at once are refused by themselves, too.
    EXPECT_TRUE(eventually([&] {
        return askFrom("127.0.0.1").body ==
               "expected at most " + std::to_string(kMostAtOnce) + " requests at once from one address\n";
    }));
    EXPECT_EQ(askFrom("127.0.0.2").status, 200);
}

}  // namespace

#include "web/http_request_controller.h"

#include <chrono>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdexcept>

#include "canned_server.h"
#include "log_capture.h"

namespace {

using Texts = std::vector<std::string>;
constexpr const char* kPath = "/local/ostrel_senvo/webservices.cgi?action=";

std::string answer(const std::string& status, const std::string& headers, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

CannedServer::Handler always(const std::string& bytes) {
    return [bytes](int connection, const std::string&) { return CannedServer::write(connection, bytes); };
}

/** A login that is never good. */
CannedServer::Handler refusingEveryLogin() {
    return [n = 0](int connection, const std::string&) mutable {
        return CannedServer::write(connection, answer("401 Unauthorized",
                                                      "WWW-Authenticate: Digest realm=\"r\", nonce=\"" +
                                                          std::to_string(++n) + "\", stale=true, qop=\"auth\"\r\n",
                                                      "<h1>401 Unauthorized</h1>"));
    };
}

class FollowerClient : public testing::Test {
protected:
    const LogCapture m_log;
    http_request_controller m_client;
};

TEST(FollowerAddress, IsUsedAsWritten) {
    EXPECT_EQ(makeRequest("10.0.0.7:8080", "get_status_code"),
              "http://10.0.0.7:8080/local/ostrel_senvo/webservices.cgi?action=get_status_code");
}

TEST(FollowerAnswer, IsAppended) {
    std::string text = "a";
    EXPECT_EQ(WriteCallback("bcd", 1, 3, &text), 3U);
    EXPECT_EQ(WriteCallback("efgh", 2, 2, &text), 4U);
    EXPECT_EQ(text, "abcdefgh");
}

TEST_F(FollowerClient, AsksForEachCountByItsAction) {
    CannedServer server(CannedServer::saying("17"));
    const std::string& ip = server.address();
    m_client.set_followerip(ip, "root", "pass");
    EXPECT_EQ(m_client.get_occupancy_from_followerip(ip), 17);
    EXPECT_EQ(m_client.get_crowd_sum_of_3_areas_from_followerip(ip), 17);
    EXPECT_EQ(m_client.get_crowd_per_area_from_followerip(ip, 1), 17);
    EXPECT_EQ(m_client.get_crowd_per_area_from_followerip(ip, 2), 17);
    EXPECT_EQ(m_client.get_crowd_per_area_from_followerip(ip, 3), 17);
    EXPECT_EQ(m_client.get_crowd_per_area_from_followerip(ip, 0), -1);
    EXPECT_EQ(m_client.get_crowd_per_area_from_followerip(ip, 4), -1);
    EXPECT_EQ(m_client.get_status_from_followerip(ip, "root", "pass"), 17);
    EXPECT_TRUE(m_client.reset_occupancy_of_followerip(ip, "root", "pass"));
    EXPECT_EQ(m_client.follower_flush(ip, "root", "pass"), "17");
    Texts lines;
    for (const char* action : {"get_occupancy_count", "get_total_crowd", "get_crowd_1", "get_crowd_2", "get_crowd_3",
                               "get_status_code", "reset_occupancy", "follower_flush"}) {
        lines.push_back(std::string("GET ") + kPath + action + " HTTP/1.1");
    }
    EXPECT_EQ(server.requests(), lines);
    EXPECT_EQ(LogCapture::count("info: reset_occupancy_of_followerip: 17 for " + ip), 1);
}

TEST_F(FollowerClient, DoesNotAskAnAddressThatItWasNotTold) {
    CannedServer server(CannedServer::saying("17"));
    const std::string& ip = server.address();
    EXPECT_EQ(m_client.get_occupancy_from_followerip(ip), -1);
    m_client.set_followerip(ip, "root", "pass");
    m_client.remove_followerip(ip);
    EXPECT_EQ(m_client.get_crowd_sum_of_3_areas_from_followerip(ip), -1);
    EXPECT_TRUE(server.requests().empty());
    m_client.remove_followerip(ip);
    EXPECT_EQ(LogCapture::ofLevel("error"), Texts{"remove_followerip: " + ip + " not found."});
}

TEST_F(FollowerClient, LogsInWithTheCredentialsOfTheLastThatSharesAnAddress) {
    std::vector<std::string> logins;
    CannedServer server([&](int connection, const std::string& request) {
        const size_t at = request.find("Authorization: Digest username=\"");
        if (at == std::string::npos) {
            return CannedServer::write(
                connection,
                answer("401 Unauthorized", "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\"\r\n", ""));
        }
        const size_t start = request.find('"', at) + 1;
        logins.push_back(request.substr(start, request.find('"', start) - start));
        return CannedServer::write(connection, answer("200 OK", "", "3"));
    });
    m_client.set_followerip(server.address(), "first", "one");
    m_client.set_followerip(server.address(), "second", "two");
    EXPECT_EQ(m_client.get_occupancy_from_followerip(server.address()), 3);
    EXPECT_EQ(logins, Texts{"second"});
}

TEST_F(FollowerClient, HasNoAnswerFromAHostileFollower) {
    const std::string tooLong(2U << 20U, '1');
    const struct {
        const char* label;
        CannedServer::Handler handler;
    } cases[] = {
        {"hangs up", [](int, const std::string&) { return false; }},
        {"no HTTP", always("\x16\x03\x01 garbage\r\n\r\n")},
        {"500", always(answer("500 Internal Server Error", "", "5"))},
        {"404", always(answer("404 Not Found", "", "<h1>not here</h1>"))},
        {"wrong password", refusingEveryLogin()},
        {"error in the text", always(answer("200 OK", "", "12 errors"))},
        {"an empty body", always(answer("200 OK", "", ""))},
        {"a body that never ends well", always("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n12")},
        {"a body too long", always(answer("200 OK", "", tooLong))},
        {"a redirect without a body", always(answer("302 Found", "Location: http://127.0.0.1:1/\r\n", ""))},
        {"a redirect to a file", always(answer("302 Found", "Location: file:///etc/passwd\r\n", ""))},
    };
    for (const auto& hostile : cases) {
        const std::string label = hostile.label;
        CannedServer server([&](int connection, const std::string& request) {
            hostile.handler(connection, request);
            // Nothing more comes: what was promised and not sent stays unsent.
            return label == "wrong password";
        });
        m_client.set_followerip(server.address(), "root", "secret");
        EXPECT_EQ(m_client.get_occupancy_from_followerip(server.address()), -1) << label;
        EXPECT_EQ(m_client.get_status_from_followerip(server.address(), "root", "secret"), 700) << label;
        EXPECT_EQ(m_client.follower_flush(server.address(), "root", "secret"), "") << label;
        EXPECT_LE(server.requests().size(), 15U) << label;
    }
    EXPECT_EQ(LogCapture::countContaining("secret"), 0);
}

TEST_F(FollowerClient, KeepsAFileOnlyOfCookies) {
    CannedServer plain(CannedServer::saying("200"));
    EXPECT_EQ(m_client.get_status_from_followerip(plain.address(), "", ""), 200);
    EXPECT_FALSE(std::filesystem::exists("cookie.txt"));

    std::vector<std::string> requests;
    CannedServer setting([&](int connection, const std::string& request) {
        requests.push_back(request);
        const std::string cookie = requests.size() == 1 ? "set-cookie: a=b; Max-Age=3600\r\n" : "";
        return CannedServer::write(connection, answer("200 OK", cookie, "200"));
    });
    EXPECT_EQ(m_client.get_status_from_followerip(setting.address(), "", ""), 200);
    EXPECT_TRUE(std::filesystem::exists("cookie.txt"));
    const auto before = std::filesystem::last_write_time("cookie.txt") - std::chrono::hours(24);
    std::filesystem::last_write_time("cookie.txt", before);
    EXPECT_EQ(m_client.get_status_from_followerip(setting.address(), "", ""), 200);
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_NE(requests[1].find("Cookie: a=b"), std::string::npos) << requests[1];
    EXPECT_EQ(std::filesystem::last_write_time("cookie.txt"), before) << "written anew";
}

TEST_F(FollowerClient, KeepsNoFileOfCookiesThatAreTakenBack) {
    CannedServer server([](int connection, const std::string&) {
        return CannedServer::write(connection, answer("200 OK", "Set-Cookie: a=; Max-Age=0\r\n", "200"));
    });
    EXPECT_EQ(m_client.get_status_from_followerip(server.address(), "", ""), 200);
    EXPECT_FALSE(std::filesystem::exists("cookie.txt"));
    std::ofstream("cookie.txt") << "# Netscape HTTP Cookie File\n127.0.0.1\tFALSE\t/local/ostrel_senvo/\tFALSE\t"
                                << "4000000000\ta\tb\n";
    EXPECT_EQ(m_client.get_status_from_followerip(server.address(), "", ""), 200);
    EXPECT_FALSE(std::filesystem::exists("cookie.txt")) << "the last one is gone";
}

TEST_F(FollowerClient, HasNoAnswerFromNobody) {
    for (const char* ip : {"127.0.0.1:1", "", "no such host", "256.1.1.1", "ftp://x", "[::", "127.0.0.1:99999"}) {
        m_client.set_followerip(ip, "root", "secret");
        EXPECT_EQ(m_client.get_occupancy_from_followerip(ip), -1) << ip;
        EXPECT_EQ(m_client.get_status_from_followerip(ip, "root", "secret"), 700) << ip;
    }
    EXPECT_FALSE(m_client.reset_occupancy_of_followerip("127.0.0.1:1", "root", "secret"));
}

TEST_F(FollowerClient, GivesUpOnFollowersThatHangOrDrip) {
    CannedServer hanging([](int, const std::string&) { return true; });
    CannedServer dripping([&](int connection, const std::string&) {
        CannedServer::write(connection, "HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n");
        pollfd client = {connection, POLLIN, 0};
        while (poll(&client, 1, 50) == 0 && CannedServer::write(connection, "1")) {
        }
        return false;
    });
    auto dripped = std::async(std::launch::async, [&] {
        http_request_controller client;
        return client.follower_flush(dripping.address(), "", "");
    });
    EXPECT_EQ(m_client.get_status_from_followerip(hanging.address(), "", ""), 700);
    EXPECT_EQ(dripped.get(), "");
}

TEST_F(FollowerClient, ThrowsOverAnAnswerThatIsNoNumber) {
    const struct {
        const char* label;
        std::string body;
        bool outOfRange;
    } cases[] = {
        {"another application", "<html>Welcome</html>", false},
        {"garbage", "\x01\x02\x03", false},
        {"too large", "99999999999", true},
    };
    for (const auto& [label, body, outOfRange] : cases) {
        CannedServer server(CannedServer::saying(body));
        m_client.set_followerip(server.address(), "root", "pass");
        const std::string said = "expected a number from " + server.address() + " for get_occupancy_count, got " +
                                 std::to_string(body.size()) + " bytes that are none" +
                                 (outOfRange ? " of 32 bits" : "");
        try {
            m_client.get_occupancy_from_followerip(server.address());
            ADD_FAILURE() << label;
        } catch (const std::out_of_range& error) {
            EXPECT_TRUE(outOfRange) << label;
            EXPECT_EQ(error.what(), said);
        } catch (const std::invalid_argument& error) {
            EXPECT_FALSE(outOfRange) << label;
            EXPECT_EQ(error.what(), said);
        }
    }
    CannedServer redirect(always(answer("302 Found", "Location: http://127.0.0.1:1/\r\n", "moved")));
    EXPECT_THROW(m_client.get_status_from_followerip(redirect.address(), "", ""), std::invalid_argument)
        << "not followed";
    EXPECT_EQ(redirect.requests().size(), 1U);
}

TEST_F(FollowerClient, KeepsALoginThatIsPartOfAnAddressToItself) {
    CannedServer server(CannedServer::saying("none"));
    const std::string ip = "root:secret@" + server.address();
    m_client.reset_occupancy_of_followerip(ip, "", "");
    m_client.remove_followerip(ip);
    EXPECT_EQ(LogCapture::count("info: reset_occupancy_of_followerip: none for " + server.address()), 1);
    EXPECT_EQ(LogCapture::ofLevel("error"), Texts{"remove_followerip: " + server.address() + " not found."});
    try {
        m_client.get_status_from_followerip(ip, "", "");
        ADD_FAILURE() << "no number";
    } catch (const std::invalid_argument& error) {
        EXPECT_EQ(std::string(error.what()).find("secret"), std::string::npos) << error.what();
    }
}

}  // namespace

#include "web/follower_trial.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "canned_server.h"
#include "test_clock.h"

namespace {

std::string response(const std::string& status, const std::string& headers, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

/** Says one thing to who asks for the status, another to who asks what it is. */
CannedServer::Handler saying(const std::string& status, const std::string& about) {
    return [status, about](int connection, const std::string& request) {
        const bool isStatus = request.find("action=get_status_code") != std::string::npos;
        return CannedServer::write(connection, isStatus ? status : about);
    };
}

nlohmann::json trial(const std::string& ip) {
    const std::string text = tryFollower(ip, "root", "secret");
    EXPECT_EQ(text.find("secret"), std::string::npos);
    EXPECT_EQ(text.find("root"), std::string::npos);
    return nlohmann::json::parse(text);
}

TEST(FollowerTrial, TellsTheVersionAndTheClockOfAGoodOne) {
    const TestClock clock;
    const std::string about = aboutText();
    const nlohmann::json own = nlohmann::json::parse(about);
    EXPECT_EQ(own["time"], "2023-11-14T22:13:20.000Z");
    for (const int ahead : {0, 90, -7'200}) {
        const TestClock theirs(1700000000 + ahead);
        const std::string told = aboutText();
        const TestClock ours;
        CannedServer server(
            saying(response("200 OK", "X-Senvo-Role: operator\r\n", "200"), response("200 OK", "", told)));
        EXPECT_EQ(trial(server.address()), nlohmann::json({{"found", true},
                                                           {"status", 200},
                                                           {"counts", true},
                                                           {"role", "operator"},
                                                           {"version", own["version"]},
                                                           {"own", own["version"]},
                                                           {"ahead", ahead}}));
    }
}

TEST(FollowerTrial, TellsInWhichZoneTheCameraHangs) {
    const std::tuple<const char*, time_t, const char*, int> zones[] = {
        {"Europe/Berlin", 1700000000, "Europe/Berlin", 3'600},  // in November
        {"Europe/Berlin", 1720000000, "Europe/Berlin", 7'200},  // in July
        {"Australia/Adelaide", 1720000000, "Australia/Adelaide", 34'200},
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1720000000, "", 7'200},
        {"UTC", 1720000000, "UTC", 0},
    };
    for (const auto& [rules, moment, name, offset] : zones) {
        const TimeZone zone(rules);
        const TestClock clock(moment);
        const nlohmann::json about = nlohmann::json::parse(aboutText());
        EXPECT_EQ(about["zone"], name) << rules;
        EXPECT_EQ(about["offset"], offset) << rules << ' ' << moment;
    }
}

TEST(FollowerTrial, TellsWhyThereIsNoAnswer) {
    const std::string question = "WWW-Authenticate: Digest realm=\"r\", nonce=\"1\", qop=\"auth\"\r\n";
    const std::string number = response("200 OK", "", "200");
    const struct {
        const char* label;
        CannedServer::Handler handler;
        int status;
        bool counts;
        const char* role;
    } cases[] = {
        {"a login that is refused", saying(response("401 Unauthorized", question, "secret"), number), 401, false, ""},
        {"logins slowed down", saying(response("429 Too Many Requests", "", ""), number), 429, false, ""},
        {"another application", saying(response("200 OK", "", "<h1>root</h1>"), number), 200, false, ""},
        {"no application", saying(response("404 Not Found", "", ""), number), 404, false, ""},
        {"an answer cut off", saying("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n200", number), 200, false, ""},
        {"who may only look", saying(response("200 OK", "X-Senvo-Role: viewer\r\n", "200"), number), 200, true,
         "viewer"},
        {"a role of its own", saying(response("200 OK", "X-Senvo-Role: secret\r\n", "200"), number), 200, true, ""},
        {"an older one", saying(number, response("200 OK", "", "")), 200, true, ""},
        {"nonsense", saying(number, response("200 OK", "", "{\"application\":\"other\",\"version\":\"secret\"}")), 200,
         true, ""},
        {"other types",
         saying(number,
                response("200 OK", "", "{\"application\":\"ostrel_senvo\",\"version\":[\"secret\"],\"time\":5}")),
         200, true, ""},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.label);
        const bool isCut = one.label == std::string("an answer cut off");
        CannedServer server(
            [&](int connection, const std::string& request) { return one.handler(connection, request) && !isCut; });
        const nlohmann::json told = trial(server.address());
        EXPECT_EQ(told["found"], true);
        EXPECT_EQ(told["status"], one.status);
        EXPECT_EQ(told["counts"], one.counts);
        EXPECT_EQ(told["role"], one.role);
        EXPECT_TRUE(told["version"].is_null());
        EXPECT_TRUE(told["ahead"].is_null());
    }
}

TEST(FollowerTrial, TellsNobodyFromNoSuchName) {
    const nlohmann::json closed = trial("127.0.0.1:1");
    EXPECT_EQ(closed["found"], true);
    EXPECT_EQ(closed["status"], 0);
    const nlohmann::json nameless = trial("no-such-host.invalid");
    EXPECT_EQ(nameless["found"], false);
    EXPECT_EQ(nameless["status"], 0);
}

}  // namespace

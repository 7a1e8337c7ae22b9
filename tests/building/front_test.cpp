#include <arpa/inet.h>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "running_camera.h"

namespace {

/** One camera behind its web server, for all tests. */
class Front : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new TestFolder;
        s_camera = new RunningCamera(s_folder->path());
    }
    static void TearDownTestSuite() {
        EXPECT_EQ(s_camera->stop(), 0);
        delete s_camera;
        delete s_folder;
    }

    static CameraAccess camera() { return s_camera->access(); }
    static std::string url(const std::string& path) { return "http://" + s_camera->address() + path; }
    static std::vector<std::string> login(const std::string& password = s_camera->password) {
        return {"--digest", "-u", "operator:" + password};
    }
    static std::vector<std::string> loginAnd(std::vector<std::string> more) {
        const std::vector<std::string> own = login();
        more.insert(more.end(), own.begin(), own.end());
        return more;
    }

    static TestFolder* s_folder;
    static RunningCamera* s_camera;
};
TestFolder* Front::s_folder = nullptr;
RunningCamera* Front::s_camera = nullptr;

TEST_F(Front, AsksEverybodyForALogin) {
    for (const char* path : {"/", "/local/ostrel_senvo/webservices.cgi?action=get_status_code", "/local/ostrel_senvo/",
                             "/local/ostrel_senvo/ostrel_senvo_fcgi.socket", "/accounts", "/nothing"}) {
        const HttpAnswer answer = curl(url(path));
        EXPECT_EQ(answer.status, 401) << path;
        EXPECT_NE(answer.headers.find("algorithm=SHA-256"), std::string::npos) << path;
        EXPECT_EQ(curl(url(path), login("wrong")).status, 401) << path;
    }
    EXPECT_EQ(camera().get("get_status_code"), "200");
}

TEST_F(Front, ServesNothingButThePageAndTheApplication) {
    for (const char* path :
         {"/accounts", "/front.conf", "/nothing", "/local/other/webservices.cgi?action=get_status_code",
          "/local/ostrel_senvo/../../../desktop.json", "/local/ostrel_senvo/%2e%2e/localdata/SenvoLog.txt",
          "/etc/passwd"}) {
        const HttpAnswer answer = curl(url(path), loginAnd({"--path-as-is"}));
        EXPECT_TRUE(answer.status == 403 || answer.status == 404) << path << ' ' << answer.status;
    }
    EXPECT_EQ(curl(url("/local/ostrel_senvo/ostrel_senvo_fcgi.socket"), login()).status, 403);
    EXPECT_EQ(curl(url("/"), login()).status, 301);
}

TEST_F(Front, TellsBrowsersToTrustNobodyElse) {
    for (const char* path : {"/", "/local/ostrel_senvo/webservices.cgi?action=get_status_code"}) {
        for (const bool loggedIn : {false, true}) {
            const std::string headers = curl(url(path), loggedIn ? login() : std::vector<std::string>()).headers;
            for (const char* header : {"X-Content-Type-Options: nosniff", "Referrer-Policy: no-referrer",
                                       "X-Frame-Options: DENY", "Content-Security-Policy: default-src 'self'"}) {
                EXPECT_NE(headers.find(header), std::string::npos) << path << ' ' << header;
            }
        }
    }
}

TEST_F(Front, RefusesWhatForeignPagesSend) {
    const std::string action = "/local/ostrel_senvo/webservices.cgi?action=reset_occupancy";
    const struct {
        const char* label;
        std::string header;
        int status;
    } cases[] = {
        {"another site", "Sec-Fetch-Site: cross-site", 403},
        {"another port", "Sec-Fetch-Site: same-site", 403},
        {"another origin", "Origin: http://evil.example", 403},
        {"an origin that is none", "Origin: null", 403},
        {"its own page", "Sec-Fetch-Site: same-origin", 200},
        {"its own origin", "Origin: http://" + s_camera->address(), 200},
        {"typed into the browser", "Sec-Fetch-Site: none", 200},
        {"a leader", "Accept: */*", 200},
    };
    for (const auto& [label, header, status] : cases) {
        EXPECT_EQ(curl(url(action), loginAnd({"-H", header})).status, status) << label;
    }
    EXPECT_EQ(curl(url("/"), loginAnd({"-H", "Sec-Fetch-Site: cross-site"})).status, 301) << "a link to the page";
}

TEST_F(Front, HasLimits) {
    EXPECT_EQ(camera().post("set_post_parameters", std::string((1U << 20U) + 1024, 'x')).status, 413);
    EXPECT_EQ(camera().post("set_post_parameters", std::string((1U << 20U) - 1024, 'x')).status, 400) << "no tags";
    EXPECT_EQ(curl(url("/"), {"-H", "X-Long: " + std::string(9000, 'x')}).status, 431);
    EXPECT_EQ(camera().get("get_status_code"), "200");
}

TEST_F(Front, AnswersOthersBesideSlowClients) {
    std::vector<int> slow;
    const std::string address = s_camera->address();
    sockaddr_in name = {};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    name.sin_port = htons(static_cast<uint16_t>(std::stoi(address.substr(address.find(':') + 1))));
    const std::string head =
        "POST /local/ostrel_senvo/webservices.cgi?action=set_post_parameters HTTP/1.1\r\nHost: " + address +
        "\r\nContent-Length: 1000\r\n\r\n<";
    for (size_t i = 0; i < 50; ++i) {
        slow.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(connect(slow.back(), reinterpret_cast<const sockaddr*>(&name), sizeof(name)), 0);
        const std::string some = head.substr(0, 20 + 3 * i);
        ASSERT_EQ(send(slow.back(), some.data(), some.size(), MSG_NOSIGNAL), static_cast<ssize_t>(some.size()));
    }
    EXPECT_EQ(camera().ask("get_status_code", {"--max-time", "3"}).body, "200");
    for (const int client : slow) {
        close(client);
    }
}

TEST_F(Front, KeepsNothingForOthersToRead) {
    for (const char* file : {"accounts", "parameters.db", "front.conf"}) {
        struct stat entry = {};
        ASSERT_EQ(stat((s_camera->state() / file).c_str(), &entry), 0) << file;
        EXPECT_EQ(entry.st_mode & 0077U, 0U) << file;
    }
    EXPECT_EQ(readFile(s_camera->state() / "accounts").find(s_camera->password), std::string::npos);
}

TEST_F(Front, TakesANewPasswordAtOnce) {
    const TestFolder folder;
    const ProgramResult result =
        runProgram({CAMERA_PROGRAM, "password", "--random", "--state", s_camera->state()}, folder.path());
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string before = s_camera->password;
    s_camera->password = valueOf(result.out, "password");
    EXPECT_EQ(s_camera->password.size(), 16U);
    EXPECT_NE(s_camera->password, before);
    EXPECT_EQ(curl(url("/"), login(before)).status, 401);
    EXPECT_EQ(curl(url("/"), login()).status, 301);
}

TEST_F(Front, ComesBackWithoutTurningAnybodyAway) {
    const std::string pidOfFront = [] {
        const TestFolder folder;
        return runProgram({"/bin/sh", "-c",
                           "for p in /proc/[0-9]*; do [ \"$(readlink $p/cwd)\" = \"" + s_camera->state().string() +
                               "\" ] && grep -q lighttpd $p/comm && basename $p; done; true"},
                          folder.path())
            .out;
    }();
    ASSERT_FALSE(pidOfFront.empty());
    kill(std::stoi(pidOfFront), SIGKILL);
    EXPECT_EQ(camera().get("get_status_code"), "200") << "it waits in the socket's queue";
    EXPECT_NE(s_camera->errors().find("the web server killed by signal Killed; starting it again"), std::string::npos);
}

}  // namespace

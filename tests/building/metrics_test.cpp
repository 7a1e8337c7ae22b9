#include <gtest/gtest.h>
#include <regex>

#include "camera_and_front.h"
#include "this_build.h"

namespace {

constexpr const char* kToken = "0123456789abcdef0123456789abcdef";

/** A camera whose figures a token opens. */
class Metrics : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new TestFolder;
        writeFile(tokenFile(), std::string(kToken) + "\n");
        s_camera = new RunningCamera(s_folder->path() / "camera", "127.0.0.1", {"--metrics-token", tokenFile()});
    }
    static void TearDownTestSuite() {
        EXPECT_EQ(s_camera->stop(), 0);
        delete s_camera;
        delete s_folder;
    }
    static std::string tokenFile() { return s_folder->path() / "token"; }
    static std::string url(const std::string& path) { return "http://" + s_camera->address() + path; }
    static HttpAnswer askWith(const std::string& token, const std::string& path = "/metrics") {
        return curl(url(path), {"-H", "Authorization: Bearer " + token});
    }
    static inline TestFolder* s_folder = nullptr;
    static inline RunningCamera* s_camera = nullptr;
};

TEST_F(Metrics, AreOpenedByTheTokenOrTheLogin) {
    const HttpAnswer answer = askWith(kToken);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.contentType, "text/plain; version=0.0.4; charset=utf-8");
    EXPECT_TRUE(std::regex_search(answer.body, std::regex("\nsenvo_occupancy [0-9]+\n"))) << answer.body;
    const HttpAnswer loggedIn = curl(url("/metrics"), {"--digest", "-u", "operator:" + s_camera->password});
    EXPECT_EQ(loggedIn.status, 200);
    EXPECT_NE(loggedIn.body.find("senvo_build_info{version="), std::string::npos) << loggedIn.body;
}

TEST_F(Metrics, AreOpenedByNothingElse) {
    EXPECT_EQ(curl(url("/metrics")).status, 401);
    for (const std::string& token :
         {std::string(), std::string("x"), std::string(kToken) + "0", std::string(kToken).substr(1)}) {
        EXPECT_NE(askWith(token).status, 200) << token;
    }
    EXPECT_EQ(curl(url("/metrics"), {"-H", std::string("Authorization: Basic ") + kToken}).status, 401);
}

TEST_F(Metrics, AreAllThatTheTokenOpens) {
    for (const char* path :
         {"/", "/local/ostrel_senvo/", "/local/ostrel_senvo/webservices.cgi?action=get_metrics", "/live/image.jpg",
          "/metrics/", "/metrics/x", "/metrics/../local/ostrel_senvo/index.html"}) {
        EXPECT_NE(askWith(kToken, path).status, 200) << path;
    }
    const HttpAnswer other = askWith(kToken, "/metrics?action=get_all_parameters");
    EXPECT_EQ(other.body.find("<app>"), std::string::npos) << "what the question adds is not answered";
    EXPECT_NE(
        curl(url("/metrics"), {"-H", std::string("Authorization: Bearer ") + kToken, "--data", "<root></root>"}).status,
        200)
        << "posted";
}

TEST_F(Metrics, FollowTheFileOfTheToken) {
    const std::string other(40, 'b');
    writeFile(tokenFile(), other);
    EXPECT_EQ(askWith(other).status, 200);
    EXPECT_NE(askWith(kToken).status, 200);
    writeFile(tokenFile(), "short");
    EXPECT_NE(askWith("short").status, 200) << "too short to be tried as often as anybody likes";
    writeFile(tokenFile(), std::string(kToken) + "\n");
    EXPECT_EQ(askWith(kToken).status, 200);
}

TEST_F(Metrics, RefuseATokenThatIsNone) {
    const TestFolder folder;
    const struct {
        const char* name;
        std::string content;
        std::string error;
    } cases[] = {
        {"short", "0123456789", "expected at least 32 characters in the first line of"},
        {"empty", "", "expected a file with a line, got"},
    };
    for (const auto& [name, content, error] : cases) {
        writeFile(folder.path() / name, content);
        const ProgramResult result =
            runProgram({this_build::program("senvo-camera"), "run", "--video", "scene:plaza", "--port", "0", "--state",
                        folder.path() / "state", "--metrics-token", folder.path() / name},
                       folder.path());
        EXPECT_NE(result.status, 0) << name;
        EXPECT_NE(result.err.find("--metrics-token: " + error), std::string::npos) << name << ": " << result.err;
    }
}

}  // namespace

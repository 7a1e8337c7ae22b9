#include "camera_and_front.h"
#include "this_build.h"

namespace {

constexpr const char* kService = "/local/ostrel_senvo/webservices.cgi?action=";

/** A camera with TLS. */
class Tls : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new TestFolder;
        s_camera = new RunningCamera(s_folder->path(), "127.0.0.1", {"--tls", "0"});
    }
    static void TearDownTestSuite() {
        EXPECT_EQ(s_camera->stop(), 0);
        delete s_camera;
        delete s_folder;
    }
    static std::string secure(const std::string& path) {
        const std::string url = valueOf(s_camera->output(), "url");
        return url.substr(0, url.size() - 1) + path;
    }
    static std::string plain(const std::string& path) {
        return "http://" + valueOf(s_camera->output(), "address") + path;
    }
    static HttpAnswer ask(const std::string& url, std::vector<std::string> more = {}) {
        more.insert(more.end(), {"--digest", "-u", "operator:" + s_camera->password, "--cacert",
                                 (s_camera->state() / "tls-cert.pem").string()});
        return curl(url, more);
    }
    static inline TestFolder* s_folder = nullptr;
    static inline RunningCamera* s_camera = nullptr;
};

TEST_F(Tls, HasThePageThePictureAndEveryAction) {
    EXPECT_EQ(secure("").rfind("https://127.0.0.1:", 0), 0U);
    EXPECT_EQ(ask(secure("/")).status, 301);
    EXPECT_EQ(ask(secure("/local/ostrel_senvo/index.html")).status, 200);
    EXPECT_EQ(ask(secure("/live/image.jpg")).contentType, "image/jpeg");
    for (const char* action : {"get_analysis_resolution", "get_all_parameters", "reset_occupancy", "clear_logfile"}) {
        EXPECT_EQ(ask(secure(std::string(kService) + action)).status, 200) << action;
    }
    EXPECT_EQ(
        ask(secure(std::string(kService) + "reset_occupancy"), {"-H", "X-Senvo-Page: 1", "-H", "Origin: " + secure("")})
            .status,
        200)
        << "its own origin";
    EXPECT_EQ(curl(secure("/"), {"-k"}).status, 401) << "and asks for the login";
    EXPECT_EQ(curl(secure("/")).status, 0) << "whose certificate nobody vouches for";
}

TEST_F(Tls, LeavesThePlainPortToLeaders) {
    for (const char* action : {"get_status_code", "get_occupancy_count", "get_total_crowd", "get_crowd_1",
                               "get_crowd_2", "get_crowd_3", "reset_occupancy", "follower_flush"}) {
        EXPECT_EQ(ask(plain(std::string(kService) + action)).status, 200) << action;
        EXPECT_EQ(curl(plain(std::string(kService) + action)).status, 401) << action << ", without a login";
    }
    for (const char* path :
         {"/", "/local/ostrel_senvo/", "/local/ostrel_senvo/index.html", "/live/image.jpg",
          "/local/ostrel_senvo/webservices.cgi", "/local/ostrel_senvo/webservices.cgi?action=get_all_parameters",
          "/local/ostrel_senvo/webservices.cgi?action=get_status_code&action=get_all_parameters",
          "/local/ostrel_senvo/webservices.cgi?action=reset_total_occupancy",
          "/local/ostrel_senvo/webservices.cgi?action=nobody_knows_this_one",
          "/local/ostrel_senvo/webservices.cgi/x?action=get_status_code"}) {
        EXPECT_EQ(ask(plain(path)).status, 403) << path;
    }
    EXPECT_EQ(ask(plain(std::string(kService) + "get_status_code"), {"--data", "x"}).status, 403) << "posted";
}

TEST_F(Tls, TellsTheFingerprintOfTheCertificate) {
    const TestFolder folder;
    const std::string expected = runProgram({"/usr/bin/openssl", "x509", "-noout", "-fingerprint", "-sha256", "-in",
                                             (s_camera->state() / "tls-cert.pem").string()},
                                            folder.path())
                                     .out;
    EXPECT_EQ("sha256 Fingerprint=" + valueOf(s_camera->output(), "fingerprint").substr(7) + "\n", expected);
}

TEST_F(Tls, KeepsItsCertificateAndTakesOneThatIsGiven) {
    const TestFolder folder;
    const auto pair = [&](const std::string& name) {
        runProgram({"/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                    "-nodes", "-days", "2", "-subj", "/CN=given", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
                    name + ".key", "-out", name + ".crt"},
                   folder.path());
        return std::vector<std::string>{
            "--tls", "0", "--tls-cert", folder.path() / (name + ".crt"), "--tls-key", folder.path() / (name + ".key")};
    };
    std::vector<std::string> given = pair("one");
    std::string password;
    std::string own;
    for (int start = 0; start < 2; ++start) {
        RunningCamera camera(folder.path(), "127.0.0.1", {"--tls", "0"});
        password += camera.password;
        EXPECT_TRUE(start == 0 || own == valueOf(camera.output(), "fingerprint")) << "the same at every start";
        own = valueOf(camera.output(), "fingerprint");
        EXPECT_EQ(camera.stop(), 0);
    }
    RunningCamera camera(folder.path(), "127.0.0.1", given);
    const std::string url = valueOf(camera.output(), "url");
    EXPECT_EQ(curl(url, {"--cacert", given[3], "--digest", "-u", "operator:" + password}).status, 301);
    EXPECT_NE(valueOf(camera.output(), "fingerprint"), own);
    EXPECT_EQ(camera.stop(), 0);

    const std::vector<std::string> other = pair("other");
    const struct {
        const char* label;
        std::vector<std::string> options;
        const char* said;
    } cases[] = {
        {"another's key", {"--tls", "0", "--tls-cert", given[3], "--tls-key", other[5]}, "expected the key of"},
        {"no certificate", {"--tls", "0", "--tls-cert", given[5], "--tls-key", given[5]}, "--tls-cert: expected a PEM"},
        {"no file", {"--tls", "0", "--tls-cert", given[3], "--tls-key", "/missing"}, "--tls-key: expected a PEM"},
        {"a certificate without its key", {"--tls", "0", "--tls-cert", given[3]}, "--tls-key"},
        {"a certificate without TLS", {"--tls-cert", given[3], "--tls-key", given[5]}, "--tls"},
    };
    for (const auto& [label, options, said] : cases) {
        std::vector<std::string> command = {
            this_build::program("senvo-camera"), "run", "--video", "scene:plaza", "--port", "0", "--state",
            (folder.path() / "wrong").string()};
        command.insert(command.end(), options.begin(), options.end());
        const ProgramResult result = runProgram(command, folder.path());
        EXPECT_EQ(result.status, 2) << label;
        EXPECT_NE(result.err.find(said), std::string::npos) << label << ": " << result.err;
    }
}

}  // namespace

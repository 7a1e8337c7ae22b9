#include <spawn.h>

#include "curl.h"
#include "desktop/webserver/accounts.h"
#include "desktop/webserver/front.h"
#include "live_fixture.h"

namespace {

constexpr const char* kPassword = "letmein-please";

/** The live picture behind a camera's web server. */
class LiveFront : public LiveFixture {
protected:
    void SetUp() override {
        const std::filesystem::path html = m_folder.path() / "html";
        std::filesystem::create_directories(html);
        desktop::Accounts(desktop::accountsFile(m_folder.path())).set(desktop::kOperator, kPassword);
        desktop::prepareFront(m_folder.path(), html, m_socket);
        start(parts());
        const std::string command =
            "cd '" + m_folder.path().string() + "' && LISTEN_FDS=1 LISTEN_PID=$$ exec lighttpd -D -f front.conf";
        std::string words[] = {"/bin/sh", "-c", command};
        char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, m_socket.descriptor(), 3);
        pid_t pid = -1;
        ASSERT_EQ(posix_spawn(&pid, words[0].c_str(), &actions, nullptr, arguments, environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        m_front = std::make_unique<Child>(pid);
        ASSERT_EQ(m_front->wait(0), -1) << "the web server does not start";
    }

    HttpAnswer ask(const std::string& target, std::vector<std::string> more = {}) const {
        more.insert(more.end(), {"--digest", "-u", std::string(desktop::kOperator) + ":" + kPassword});
        return curl("http://" + m_socket.reachableAs() + target, more);
    }

    const desktop::ListeningSocket m_socket{"127.0.0.1", 0};
    std::unique_ptr<Child> m_front;
};

/** Redraws as the analysis does, for as long as this lives. */
class Analysis {
public:
    explicit Analysis(const std::function<void()>& cycle)
        : m_thread([this, cycle] {
              while (!m_stop) {
                  cycle();
                  std::this_thread::yield();
              }
          }) {}
    ~Analysis() {
        m_stop = true;
        m_thread.join();
    }
    Analysis(const Analysis&) = delete;
    Analysis& operator=(const Analysis&) = delete;

private:
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

TEST_F(LiveFront, AsksForTheLogin) {
    for (const char* path : {"/live/image.jpg", "/live/video.mjpg", "/live/", "/live"}) {
        EXPECT_EQ(curl("http://" + m_socket.reachableAs() + path).status, 401) << path;
    }
    EXPECT_EQ(live().picturesMade(), 0U);
}

TEST_F(LiveFront, ShowsAPicture) {
    const Analysis analysis([this] { redraw(); });
    const HttpAnswer answer = ask("/live/image.jpg?resolution=640x360");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.contentType, "image/jpeg");
    EXPECT_NE(answer.headers.find("Cache-Control: no-store"), std::string::npos) << answer.headers;
    EXPECT_NE(answer.headers.find("X-Content-Type-Options: nosniff"), std::string::npos) << answer.headers;
    const Seen seen = decode(answer.body);
    EXPECT_EQ(seen.width, 640);
    EXPECT_EQ(seen.height, 360);
    EXPECT_EQ(decode(ask("/live/image.jpg").body).width, 1280);
}

TEST_F(LiveFront, ShowsAVideo) {
    const Analysis analysis([this] { redraw(); });
    const TestFolder folder;
    Child viewer(startProgram({"/usr/bin/curl", "-s", "-N", "--noproxy", "*", "--digest", "-u",
                               std::string(desktop::kOperator) + ":" + kPassword,
                               "http://" + m_socket.reachableAs() + "/live/video.mjpg?resolution=320x180"},
                              folder.path()));
    const std::string boundary = "--senvo-picture\r\nContent-Type: image/jpeg\r\nContent-Length: ";
    std::string received;
    ASSERT_TRUE(becomes([&] {
        received = readFile(folder.path() / "out");
        size_t parts = 0;
        for (size_t at = received.find(boundary); at != std::string::npos; at = received.find(boundary, at + 1)) {
            ++parts;
        }
        return parts >= 5;
    })) << received.size();
    size_t at = 0;
    for (int picture = 0; picture < 4; ++picture) {
        ASSERT_EQ(received.compare(at, boundary.size(), boundary), 0) << picture;
        size_t digits = 0;
        const size_t size = std::stoul(received.substr(at + boundary.size()), &digits);
        at += boundary.size() + digits + 4;
        EXPECT_EQ(decode(received.substr(at, size)).width, 320) << picture;
        at += size + 2;
    }
    kill(viewer.pid(), SIGINT);
    viewer.wait(60000);
    EXPECT_TRUE(viewersBecome(0)) << "who goes is missed";
}

TEST_F(LiveFront, AnswersBadRequestsInOneLine) {
    const std::string sizes = "resolution: expected one of 1920x1080, 1280x720, 640x360, 480x270, 320x180, got ";
    const std::string fps = "fps: expected a whole number from 1 to 60, got ";
    const struct {
        const char* target;
        int status;
        std::string body;
    } cases[] = {
        {"/live/image.jpg?resolution=800x600", 400, sizes + "\"800x600\"\n"},
        {"/live/image.jpg?resolution=0x0", 400, sizes + "\"0x0\"\n"},
        {"/live/video.mjpg?resolution=100000x100000", 400, sizes + "\"100000x100000\"\n"},
        {"/live/video.mjpg?resolution=nonsense", 400, sizes + "\"nonsense\"\n"},
        {"/live/video.mjpg?fps=0", 400, fps + "\"0\"\n"},
        {"/live/video.mjpg?fps=10000", 400, fps + "\"10000\"\n"},
        {"/live/video.mjpg?fps=x", 400, fps + "\"x\"\n"},
        {"/live/image.jpg?overlays=yes", 400, "overlays: expected 0 or 1, got \"yes\"\n"},
        {"/live/nothing", 404, "expected /live/image.jpg or /live/video.mjpg, got \"/live/nothing\"\n"},
    };
    for (const auto& [target, status, body] : cases) {
        const HttpAnswer answer = ask(target);
        EXPECT_EQ(answer.status, status) << target;
        EXPECT_EQ(answer.contentType, "text/plain; charset=utf-8") << target;
        EXPECT_EQ(answer.body, body) << target;
    }
    EXPECT_EQ(ask("/live/image.jpg", {"-X", "POST", "-d", "x"}).status, 405);
    m_source->lose("cam: connection lost");
    const HttpAnswer lost = ask("/live/image.jpg?overlays=0");
    EXPECT_EQ(lost.status, 503);
    EXPECT_EQ(lost.body, "no picture: cam: connection lost\n");
}

TEST_F(LiveFront, RefusesForeignPages) {
    const Analysis analysis([this] { redraw(); });
    for (const char* target : {"/live/image.jpg", "/live/video.mjpg", "/%6cive/image.jpg"}) {
        EXPECT_EQ(ask(target, {"-H", "Sec-Fetch-Site: cross-site"}).status, 403) << target;
    }
    EXPECT_EQ(ask("/live/image.jpg", {"-H", "Sec-Fetch-Site: same-origin"}).status, 200);
}

TEST_F(LiveFront, SaysThatTheApplicationIsNotThere) {
    m_service.reset();
    EXPECT_EQ(ask("/live/image.jpg").status, 503);
    start(parts());
    const Analysis analysis([this] { redraw(); });
    EXPECT_TRUE(becomes([&] { return ask("/live/image.jpg").status == 200; })) << "it is back";
}

}  // namespace

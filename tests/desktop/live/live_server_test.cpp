#include "desktop/live/live_server.h"

#include <filesystem>
#include <list>
#include <sys/resource.h>
#include <sys/stat.h>

#include "live_fixture.h"
#include "slow_build.h"

namespace {

using namespace std::chrono_literals;

class LiveServerTest : public LiveFixture {
protected:
    void SetUp() override { start(parts()); }
};

std::string bodyOf(const std::string& answer) {
    return answer.substr(answer.find("\r\n\r\n") + 4);
}

TEST_F(LiveServerTest, ShowsOnePictureWithWhatWasDrawn) {
    m_calls.leavesTheSurface = false;
    LiveClient viewer = client("/live/image.jpg?resolution=320x180");
    ASSERT_TRUE(redrawUntilDrawn());
    const std::string answer = viewer.rest();
    EXPECT_EQ(answer.rfind("HTTP/1.1 200 OK\r\nContent-Type: image/jpeg\r\n", 0), 0U) << answer.substr(0, 200);
    EXPECT_NE(answer.find("Cache-Control: no-store\r\n"), std::string::npos);
    const Seen seen = decode(bodyOf(answer));
    ASSERT_EQ(seen.width, 320);
    ASSERT_EQ(seen.height, 180);
    EXPECT_GT(seen.at(12, 90), 245) << "a dark stripe under white";
    EXPECT_LT(seen.at(300, 90), 10) << "a dark stripe";
    EXPECT_GT(seen.at(308, 90), 245) << "a bright stripe";
    EXPECT_TRUE(viewersBecome(0));
}

TEST_F(LiveServerTest, LeavesASurfaceAsTransparentAsItWas) {
    LiveClient viewer = client("/live/video.mjpg?resolution=320x180");
    for (const bool leaves : {false, true, false, true, true}) {
        m_calls.leavesTheSurface = leaves;
        ASSERT_TRUE(redrawUntilDrawn());
        if (m_calls.drawn == 1) {
            viewer.head();
            viewer.readTo("--senvo-picture\r\n");
        }
        EXPECT_EQ(viewer.part().at(12, 90) < 10, leaves) << m_calls.drawn;
    }
}

TEST_F(LiveServerTest, ShowsPicturesOneAfterAnother) {
    LiveClient viewer = client("/live/video.mjpg?resolution=320x180");
    ASSERT_TRUE(redrawUntilDrawn());
    const std::string head = viewer.head();
    EXPECT_EQ(head.rfind("HTTP/1.1 200 OK\r\nContent-Type: multipart/x-mixed-replace; boundary=senvo-picture\r\n", 0),
              0U)
        << head;
    EXPECT_EQ(viewer.readTo("--senvo-picture\r\n"), "");
    EXPECT_EQ(viewer.part().width, 320);
    for (int more = 0; more < 3; ++more) {
        ASSERT_TRUE(redrawUntilDrawn());
        EXPECT_EQ(viewer.part().height, 180) << more;
    }
}

TEST_F(LiveServerTest, AsksForNothingWithoutAViewer) {
    for (int i = 0; i < 1000; ++i) {
        redraw();
    }
    EXPECT_EQ(m_calls.adjusted, 0);
    EXPECT_EQ(m_calls.drawn, 0);
    EXPECT_EQ(live().picturesMade(), 0U);
}

TEST_F(LiveServerTest, StreamsComeAndGoWithTheirViewers) {
    {
        LiveClient first = client("/live/video.mjpg?resolution=320x180");
        LiveClient second = client("/live/video.mjpg?resolution=640x360");
        LiveClient bare = client("/live/video.mjpg?resolution=480x270&overlays=0");
        ASSERT_TRUE(viewersBecome(3));
        ASSERT_TRUE(becomes([&] {
            redraw();
            return m_calls.streams.size() >= 2 && m_calls.streams[m_calls.streams.size() - 1].width !=
                                                      m_calls.streams[m_calls.streams.size() - 2].width;
        }));
        for (const axoverlay_stream_data& stream : m_calls.streams) {
            EXPECT_TRUE(stream.width == 320 || stream.width == 640) << stream.width;
            EXPECT_EQ(stream.height, stream.width * 9 / 16);
            EXPECT_EQ(stream.camera, 1);
            EXPECT_EQ(stream.type, AXOVERLAY_STREAM_JPEG);
            EXPECT_EQ(stream.rotation, 0);
            EXPECT_FALSE(stream.mirrored);
        }
    }
    // Whoever is gone is missed with the next pictures.
    ASSERT_TRUE(becomes([&] {
        redraw();
        m_source->show(stripes());
        return live().viewers() == 0;
    }));
    const int before = m_calls.drawn;
    redraw();
    EXPECT_EQ(m_calls.drawn, before);
}

TEST_F(LiveServerTest, TurnsThePicture) {
    m_calls.leavesTheSurface = false;
    LiveClient viewer = client("/live/image.jpg?resolution=320x180");
    ASSERT_TRUE(redrawUntilDrawn(90));
    const Seen seen = decode(bodyOf(viewer.rest()));
    ASSERT_EQ(seen.width, 180);
    ASSERT_EQ(seen.height, 320);
    EXPECT_EQ(m_calls.streams[0].rotation, 90);
    EXPECT_EQ(m_calls.streams[0].width, 320) << "as the channel lists it";
    EXPECT_GT(seen.at(40, 12), 245) << "what was drawn, left for the viewer";
    EXPECT_LT(seen.at(140, 12), 10) << "the stripes lie";
    EXPECT_GT(seen.at(140, 4), 245);
}

TEST_F(LiveServerTest, ShowsTheFrameThatWasDrawnOn) {
    LiveClient viewer = client("/live/image.jpg?resolution=320x180");
    ASSERT_TRUE(viewersBecome(1));
    for (int newer = 0; newer < 10; ++newer) {
        desktop::FramePtr frame = desktop::makeNv12Frame(320, 180);
        std::fill_n(frame->data[0], frame->linesize[0] * 180, uint8_t{16});
        std::fill_n(frame->data[1], frame->linesize[1] * 90, uint8_t{128});
        m_source->show({frame.release(), desktop::FreeFrame()});
    }
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_GT(decode(bodyOf(viewer.rest())).contrast(90), 200) << "the stripes";
}

TEST_F(LiveServerTest, ShowsTheNewestWithoutOverlays) {
    redraw();  // the analysis is at work
    LiveClient viewer = client("/live/video.mjpg?resolution=320x180&overlays=0");
    viewer.head();
    viewer.readTo("--senvo-picture\r\n");
    EXPECT_GT(viewer.part().contrast(90), 200);
    m_source->show(stripes());
    EXPECT_EQ(viewer.part().width, 320);
    EXPECT_EQ(m_calls.drawn, 0);
}

TEST_F(LiveServerTest, MakesOnePictureForTwentyViewers) {
    std::list<LiveClient> viewers;
    for (int i = 0; i < 20; ++i) {
        viewers.push_back(client("/live/video.mjpg?resolution=320x180"));
    }
    ASSERT_TRUE(viewersBecome(20));
    for (int frame = 1; frame <= 5; ++frame) {
        ASSERT_TRUE(redrawUntilDrawn());
        for (LiveClient& viewer : viewers) {
            if (frame == 1) {
                viewer.head();
                viewer.readTo("--senvo-picture\r\n");
            }
            EXPECT_EQ(viewer.part().width, 320);
        }
        EXPECT_EQ(live().picturesMade(), static_cast<uint64_t>(m_calls.drawn)) << frame;
    }
}

TEST_F(LiveServerTest, DoesNotWaitForASlowViewer) {
    LiveClient slow = client("/live/video.mjpg?resolution=1920x1080");
    LiveClient quick = client("/live/video.mjpg?resolution=1920x1080");
    ASSERT_TRUE(viewersBecome(2));
    ASSERT_TRUE(redrawUntilDrawn());
    quick.head();
    quick.readTo("--senvo-picture\r\n");
    int shown = 0;
    for (; shown < 30; ++shown) {
        ASSERT_EQ(quick.part().width, 1920) << shown;
        ASSERT_TRUE(redrawUntilDrawn());
    }
    EXPECT_EQ(live().viewers(), 2U) << "the slow one may still come back";
    slow.head();
    slow.readTo("--senvo-picture\r\n");
    EXPECT_EQ(slow.part().width, 1920) << "whole";
}

TEST_F(LiveServerTest, DropsAViewerWhoTakesNothing) {
    LiveClient stuck = client("/live/video.mjpg?resolution=1920x1080");
    ASSERT_TRUE(becomes([&] {
        const uint64_t before = live().picturesMade();
        return redrawUntilDrawn() && redrawUntilDrawn() && redrawUntilDrawn() && live().picturesMade() == before;
    })) << "the socket is full";
    m_clock.advance(29s);
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_EQ(live().viewers(), 1U);
    m_clock.advance(2s);
    EXPECT_TRUE(viewersBecome(0));
}

TEST_F(LiveServerTest, KeepsToTheRateThatWasAsked) {
    LiveClient viewer = client("/live/video.mjpg?resolution=320x180&fps=10");
    ASSERT_TRUE(redrawUntilDrawn());
    viewer.head();
    viewer.readTo("--senvo-picture\r\n");
    viewer.part();
    const uint64_t made = live().picturesMade();
    for (int early = 0; early < 5; ++early) {
        m_clock.advance(19ms);
        ASSERT_TRUE(redrawUntilDrawn());
    }
    EXPECT_EQ(live().picturesMade(), made) << "95 ms";
    m_clock.advance(5ms);
    ASSERT_TRUE(becomes([&] {
        redraw();
        return live().picturesMade() > made;
    }));
    EXPECT_EQ(viewer.part().width, 320);
}

TEST_F(LiveServerTest, SendsNoTwoAtOnceAfterAPause) {
    LiveClient viewer = client("/live/video.mjpg?resolution=320x180&fps=10");
    ASSERT_TRUE(redrawUntilDrawn());
    viewer.head();
    viewer.readTo("--senvo-picture\r\n");
    viewer.part();
    m_clock.advance(1500ms);
    ASSERT_TRUE(redrawUntilDrawn());
    viewer.part();
    const uint64_t made = live().picturesMade();
    m_clock.advance(99ms);
    ASSERT_TRUE(redrawUntilDrawn());
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_EQ(live().picturesMade(), made);
    m_clock.advance(1ms);
    ASSERT_TRUE(becomes([&] {
        redraw();
        return live().picturesMade() > made;
    }));
}

TEST_F(LiveServerTest, HasRoomForAHundredViewers) {
    std::list<LiveClient> viewers;
    for (int i = 0; i < desktop::LiveServer::kMostViewers; ++i) {
        viewers.push_back(client("/live/video.mjpg?resolution=320x180"));
    }
    ASSERT_TRUE(viewersBecome(100));
    const std::string answer = client("/live/image.jpg").rest();
    EXPECT_EQ(answer.rfind("HTTP/1.1 503 ", 0), 0U);
    EXPECT_EQ(bodyOf(answer), "expected at most 100 viewers, who are there already\n");
    viewers.pop_back();
    ASSERT_TRUE(becomes([&] {
        redraw();
        return live().viewers() < 100;
    }));
    LiveClient next = client("/live/image.jpg?resolution=320x180");
    ASSERT_TRUE(redrawUntilDrawn());
    ASSERT_TRUE(becomes([&] {
        redraw();
        return next.hasNews(0);
    }));
    EXPECT_EQ(next.head().rfind("HTTP/1.1 200 ", 0), 0U);
}

TEST_F(LiveServerTest, TakesAViewerOnceThereIsADescriptor) {
    if (kSanitized) {
        GTEST_SKIP() << "sanitizers want descriptors of their own";
    }
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = static_cast<rlim_t>(UniqueFd(dup(0)).get()) + 1;  // room for the viewer's own end
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    LiveClient waiting = client("/live/image.jpg?resolution=1x1");
    EXPECT_FALSE(waiting.hasNews(100));
    limit.rlim_cur = before;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(waiting.head().rfind("HTTP/1.1 400 ", 0), 0U);
}

TEST_F(LiveServerTest, SaysWhyThereIsNoPicture) {
    m_source->lose("cam: connection lost");
    EXPECT_EQ(bodyOf(client("/live/image.jpg?overlays=0").rest()), "no picture: cam: connection lost\n");
    ASSERT_TRUE(viewersBecome(0));
    LiveClient drawn = client("/live/video.mjpg");
    ASSERT_TRUE(viewersBecome(1));
    m_clock.advance(2s);
    const std::string answer = drawn.rest();
    EXPECT_EQ(answer.rfind("HTTP/1.1 503 Service Unavailable\r\n", 0), 0U) << answer;
    EXPECT_EQ(bodyOf(answer), "no picture: cam: connection lost\n");
}

TEST_F(LiveServerTest, GivesUpWhenNothingComes) {
    m_source->show(nullptr);
    m_source = std::make_shared<HandSource>();
    m_service.reset();
    axoverlay_settings none = {};
    m_service = std::make_unique<desktop::OverlayService>(none, parts());
    LiveClient viewer = client("/live/image.jpg?overlays=0");
    ASSERT_TRUE(viewersBecome(1));
    m_clock.advance(8s);
    EXPECT_EQ(bodyOf(viewer.rest()), "no picture has come yet\n");
}

TEST_F(LiveServerTest, RefusesWhatItDoesNotUnderstand) {
    const std::string answer = client("/live/image.jpg?resolution=1x1").rest();
    EXPECT_EQ(answer.rfind("HTTP/1.1 400 Bad Request\r\nContent-Type: text/plain; charset=utf-8\r\n", 0), 0U) << answer;
    EXPECT_EQ(bodyOf(answer),
              "resolution: expected one of 1920x1080, 1280x720, 640x360, 480x270, 320x180, got \"1x1\"\n");
    EXPECT_EQ(client("/live/other").rest().rfind("HTTP/1.1 404 Not Found\r\n", 0), 0U);
    EXPECT_EQ(client("/" + std::string(20000, 'x')).rest(), "") << "no request is that long";
}

TEST_F(LiveServerTest, EndsWithViewersAndLeavesNothing) {
    struct stat status = {};
    ASSERT_EQ(stat(socketPath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    LiveClient video = client("/live/video.mjpg?resolution=320x180");
    LiveClient image = client("/live/image.jpg?resolution=640x360");
    ASSERT_TRUE(viewersBecome(2));
    m_service.reset();
    EXPECT_EQ(video.rest(), "");
    EXPECT_EQ(image.rest(), "");
    EXPECT_FALSE(std::filesystem::exists(socketPath()));
}

TEST_F(LiveServerTest, TakesThePlaceOfOneThatWasKilled) {
    m_service.reset();
    { const UniqueFd left = UniqueFd(open(socketPath().c_str(), O_CREAT | O_WRONLY, 0644)); }
    start(parts());
    LiveClient viewer = client("/live/image.jpg?resolution=320x180");
    EXPECT_TRUE(redrawUntilDrawn());
    EXPECT_EQ(viewer.head().rfind("HTTP/1.1 200 ", 0), 0U);
}

TEST(LiveServer, SaysWhereItCannotListen) {
    desktop::OverlayParts parts;
    parts.source = std::make_shared<HandSource>();
    parts.liveSocket = "/missing/live.socket";
    try {
        const desktop::OverlayService service({}, parts);
        FAIL() << "listens in a missing folder";
    } catch (const desktop::OverlayError& error) {
        EXPECT_EQ(error.code(), AXOVERLAY_ERROR_SERVICE_UNAVAILABLE);
        EXPECT_EQ(std::string(error.what()), "cannot listen on /missing/live.socket: No such file or directory");
    }
}

}  // namespace

#include "live_fixture.h"

namespace {

using namespace std::chrono_literals;

constexpr const char* kStream = "/live/video.mjpg?resolution=320x180";
constexpr int kClear = 200;  /**< least contrast of a row of stripes */
constexpr int kHidden = 100; /**< most contrast of a row of squares */

class LivePrivacy : public LiveFixture {
protected:
    void startAnonymised() {
        desktop::OverlayParts anonymised = parts();
        anonymised.choices = {{"On", "true"}, {"Size", "320x180"}};
        start(anonymised);
    }

    static Seen first(LiveClient& viewer) {
        viewer.head();
        viewer.readTo("--senvo-picture\r\n");
        return viewer.part();
    }

    /** The next picture; a row above the words says whether it is hidden. */
    static int contrastOf(LiveClient& viewer, bool isFirst = false) {
        const Seen seen = isFirst ? first(viewer) : viewer.part();
        EXPECT_EQ(seen.width, 320);
        return seen.width == 0 ? -1 : seen.contrast(20);
    }

    static bool hasWords(const Seen& seen) { return seen.contrast(seen.height / 2) > 150; }
};

TEST_F(LivePrivacy, ShowsTheAnonymisedStreamWhileItIsDrawnOn) {
    startAnonymised();
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_GT(contrastOf(viewer, true), kClear);
}

TEST_F(LivePrivacy, HidesItTwoSecondsAfterTheLastDrawing) {
    startAnonymised();
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_GT(contrastOf(viewer, true), kClear);
    m_source->show(stripes());
    m_clock.advance(1999ms);
    EXPECT_FALSE(viewer.hasNews(300)) << "nothing is shown without a drawing";
    m_clock.advance(1ms);
    const Seen seen = viewer.part();
    ASSERT_EQ(seen.width, 320);
    EXPECT_LT(seen.contrast(20), kHidden);
    EXPECT_LT(seen.contrast(170), kHidden);
    EXPECT_TRUE(hasWords(seen));
    m_source->show(stripes());
    EXPECT_LT(contrastOf(viewer), kHidden) << "and goes on so";
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_GT(contrastOf(viewer), kClear) << "until the analysis is back";
}

TEST_F(LivePrivacy, GoesOnClearWhereNobodyHasToBeHidden) {
    start(parts());
    redraw();
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(viewersBecome(1));
    m_clock.advance(2s);
    EXPECT_GT(contrastOf(viewer, true), kClear);
}

TEST_F(LivePrivacy, HidesEveryStreamBeforeTheFirstRedraw) {
    for (const char* overlays : {"&overlays=0", "&overlays=1"}) {
        start(parts());
        m_service->redraw({});  // what the application does at its start, with nothing analysed
        LiveClient viewer = client(kStream + std::string(overlays));
        ASSERT_TRUE(viewersBecome(1));
        m_clock.advance(2s);
        viewer.head();
        viewer.readTo("--senvo-picture\r\n");
        const Seen seen = viewer.part();
        EXPECT_LT(seen.contrast(20), kHidden) << overlays;
        EXPECT_TRUE(hasWords(seen)) << overlays;
        redraw();
        m_source->show(stripes());
        ASSERT_TRUE(becomes([&] {
            redraw();
            return viewer.hasNews(0);
        }));
        EXPECT_GT(contrastOf(viewer), kClear) << overlays;
        m_service.reset();
    }
}

TEST_F(LivePrivacy, RefusesItWithoutOverlays) {
    startAnonymised();
    redraw();
    for (const char* target :
         {"/live/image.jpg?resolution=320x180&overlays=0", "/live/video.mjpg?overlays=0&resolution=320x180"}) {
        const std::string answer = client(target).rest();
        EXPECT_EQ(answer.rfind("HTTP/1.1 403 Forbidden\r\n", 0), 0U) << answer.substr(0, 100);
        EXPECT_NE(answer.find("\r\n\r\noverlays=0: expected overlays=1 for 320x180, which the settings want "
                              "anonymised\n"),
                  std::string::npos)
            << answer;
    }
    EXPECT_EQ(live().picturesMade(), 0U);
    EXPECT_EQ(client("/live/image.jpg?resolution=640x360&overlays=0").head().rfind("HTTP/1.1 200 ", 0), 0U)
        << "another stream";
}

TEST_F(LivePrivacy, HidesANewlyAnonymisedStreamUntilTheApplicationObeys) {
    start(parts());
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_GT(contrastOf(viewer, true), kClear);
    service().parameterSet("Size", "320x180");
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_GT(contrastOf(viewer), kClear) << "not switched on yet";
    service().parameterSet("On", "true");
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_LT(contrastOf(viewer), kHidden) << "at once";
    m_clock.advance(2s);
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_LT(contrastOf(viewer), kHidden) << "that cycle had begun before";
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_GT(contrastOf(viewer), kClear);
}

TEST_F(LivePrivacy, HidesItWhileTheApplicationWantsTheSameSizeUnmasked) {
    startAnonymised();
    LiveClient viewer = client(kStream);
    m_analysedSize = {320, 180};
    ASSERT_TRUE(redrawUntilDrawn());
    const Seen analysed = first(viewer);
    EXPECT_LT(analysed.contrast(20), kHidden) << "the analysed stream itself";
    EXPECT_TRUE(hasWords(analysed));
    m_analysedSize = {640, 360};
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_GT(contrastOf(viewer), kClear);
    service().parameterSet("RivalSize", "320x180");
    service().parameterSet("RivalOn", "true");
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_LT(contrastOf(viewer), kHidden) << "overlays are to show everybody there";
    service().parameterSet("RivalOn", "false");
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_LT(contrastOf(viewer), kHidden) << "the application has yet to obey";
}

TEST_F(LivePrivacy, HidesItWhileTheApplicationDrawsNothing) {
    startAnonymised();
    service().destroy(1);
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(becomes([&] {
        redraw();
        return live().picturesMade() > 0;
    }));
    EXPECT_LT(contrastOf(viewer, true), kHidden);
}

TEST_F(LivePrivacy, EndsClearViewsOfANewlyAnonymisedStream) {
    start(parts());
    redraw();
    LiveClient viewer = client("/live/video.mjpg?resolution=320x180&overlays=0");
    EXPECT_GT(contrastOf(viewer, true), kClear);
    service().parameterSet("Size", "320x180");
    service().parameterSet("On", "true");
    EXPECT_TRUE(viewersBecome(0));
    m_source->show(stripes());
    EXPECT_EQ(viewer.rest(), "") << "not one picture more";
}

}  // namespace

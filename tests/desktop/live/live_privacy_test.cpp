#include "live_fixture.h"

namespace {

using namespace std::chrono_literals;

constexpr const char* kStream = "/live/video.mjpg?resolution=320x180";
constexpr int kClear = 200;  /**< least contrast of a row of stripes */
constexpr int kHidden = 100; /**< most contrast of a row of squares */
constexpr int kCovered = 30; /**< most contrast of a row of something covered */

/** A part of a picture, in pixels. */
struct Area {
    int left;
    int top;
    int right;
    int bottom;
};

/** A dark picture of 320x180 with bright areas. */
desktop::SharedPicture blocks(const std::vector<Area>& areas) {
    desktop::FramePtr frame = desktop::makeNv12Frame(320, 180);
    for (int y = 0; y < 180; ++y) {
        std::fill_n(frame->data[0] + y * frame->linesize[0], 320, uint8_t{16});
    }
    for (int y = 0; y < 90; ++y) {
        std::fill_n(frame->data[1] + y * frame->linesize[1], 320, uint8_t{128});
    }
    for (const Area& area : areas) {
        for (int y = area.top; y < area.bottom; ++y) {
            std::fill_n(frame->data[0] + y * frame->linesize[0] + area.left, area.right - area.left, uint8_t{235});
        }
    }
    return {frame.release(), desktop::FreeFrame()};
}

/** How many pixels of an area are as bright as what was drawn; a cover has the mean, with the dark around it. */
int brightPixels(const Seen& seen, const Area& area) {
    int bright = 0;
    for (int y = area.top; y < area.bottom; ++y) {
        for (int x = area.left; x < area.right; ++x) {
            bright += seen.at(x, y) > 230 ? 1 : 0;
        }
    }
    return bright;
}

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

    /** Looks at what comes behind the drawings until now, so that these are shown; nobody asks for drawings of it. */
    void lookOn() {
        for (int look = 0; look < 4; ++look) {
            m_clock.advance(350ms);
            redraw();
        }
    }

    /** What somebody sees who asks for one picture now. */
    Seen seeNow() {
        LiveClient viewer = client("/live/image.jpg?resolution=320x180");
        EXPECT_TRUE(viewersBecome(1));
        EXPECT_TRUE(redrawUntilDrawn());
        lookOn();
        const std::string answer = viewer.rest();
        EXPECT_TRUE(viewersBecome(0));
        return decode(answer.substr(answer.find("\r\n\r\n") + 4));
    }

    int contrastNow() {
        const Seen seen = seeNow();
        EXPECT_EQ(seen.width, 320);
        return seen.width == 0 ? -1 : seen.contrast(20);
    }

    static int contrastWithin(const Seen& seen, int y, int left, int right) {
        const auto row = seen.luma.begin() + static_cast<std::ptrdiff_t>(y) * seen.width;
        const auto [least, most] = std::minmax_element(row + left, row + right);
        return *most - *least;
    }

    static bool hasWords(const Seen& seen) { return seen.contrast(seen.height / 2) > 150; }
};

TEST_F(LivePrivacy, ShowsTheAnonymisedStreamWhileItIsDrawnOn) {
    startAnonymised();
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(redrawUntilDrawn());
    lookOn();
    EXPECT_GT(contrastOf(viewer, true), kClear);
}

TEST_F(LivePrivacy, HidesItTwoSecondsAfterTheLastDrawing) {
    startAnonymised();
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(redrawUntilDrawn());
    lookOn();
    EXPECT_GT(contrastOf(viewer, true), kClear);
    ASSERT_TRUE(redrawUntilDrawn());
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
    lookOn();
    EXPECT_GT(contrastOf(viewer), kClear) << "until the analysis is back";
}

TEST_F(LivePrivacy, CoversWhatIsFoundWhateverTheApplicationDraws) {
    startAnonymised();
    find({{0.25F, 0.5F, 0.5F, 1.0F}});
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(redrawUntilDrawn());
    lookOn();
    const Seen seen = first(viewer);
    EXPECT_LT(contrastWithin(seen, 140, 82, 158), kCovered) << "the application has drawn nothing there";
    EXPECT_GT(contrastWithin(seen, 140, 0, 70), kClear) << "beside it";
    EXPECT_GT(contrastWithin(seen, 60, 0, 319), kClear) << "above it";
}

TEST_F(LivePrivacy, CoversItMirroredAndTurnedAsThePictureIs) {
    desktop::OverlayParts mirrored = parts();
    mirrored.choices = {{"On", "true"}, {"Size", "320x180"}};
    mirrored.mirrored = true;
    start(mirrored);
    find({{0.0F, 0.0F, 0.25F, 1.0F}});
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(redrawUntilDrawn());
    lookOn();
    const Seen seen = first(viewer);
    EXPECT_LT(contrastWithin(seen, 140, 242, 318), kCovered);
    EXPECT_GT(contrastWithin(seen, 140, 0, 230), kClear);
}

struct TurnCase {
    const char* label;
    int rotation;
    bool mirrored;
    desktop::FoundBox found; /**< of the square in the middle, as the inference counts it */
    Area another;            /**< where the picture has what was looked at, and nobody found */
};

class LivePrivacyTurned : public LivePrivacy, public testing::WithParamInterface<TurnCase> {};

// A network sees the largest square of what it is given, turned, and says where in that it has found something.
TEST_P(LivePrivacyTurned, CoversWhatIsFoundAndWhatWasNotLookedAt) {
    desktop::OverlayParts turned = parts();
    turned.choices = {{"On", "true"}, {"Size", "320x180"}};
    turned.rotation = GetParam().rotation;
    turned.mirrored = GetParam().mirrored;
    start(turned);
    const desktop::SharedPicture picture = blocks({{80, 0, 110, 30}, {0, 0, 60, 60}, {200, 120, 230, 160}});
    m_source->show(picture);
    m_analysed = picture;
    desktop::noteFetched({.picture = picture,
                          .rotation = turned.rotation,
                          .width = m_analysedSize.width,
                          .height = m_analysedSize.height});
    desktop::noteFound({GetParam().found}, 300, 300);
    m_found = desktop::lastFetched().found;
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(redrawUntilDrawn(turned.rotation));
    for (int look = 0; look < 4; ++look) {
        m_clock.advance(350ms);
        redraw(turned.rotation);
    }
    const Seen seen = first(viewer);
    ASSERT_EQ(seen.width, turned.rotation % 180 == 0 ? 320 : 180);
    const Area& another = GetParam().another;
    const int shown = brightPixels(seen, another);
    EXPECT_GT(shown, (another.right - another.left) * (another.bottom - another.top) * 3 / 4) << GetParam().label;
    EXPECT_EQ(brightPixels(seen, {0, 0, seen.width, seen.height}), shown) << GetParam().label << ", and nothing else";
}

INSTANTIATE_TEST_SUITE_P(
    Table, LivePrivacyTurned,
    testing::Values(
        TurnCase{"upright", 0, false, {10 / 180.0F, 0, 40 / 180.0F, 30 / 180.0F}, {200, 120, 230, 160}},
        TurnCase{"by 90 degrees", 90, false, {150 / 180.0F, 10 / 180.0F, 1, 40 / 180.0F}, {20, 200, 60, 230}},
        TurnCase{"by 180 degrees", 180, false, {140 / 180.0F, 150 / 180.0F, 170 / 180.0F, 1}, {90, 20, 120, 60}},
        TurnCase{"by 270 degrees", 270, false, {0, 140 / 180.0F, 30 / 180.0F, 170 / 180.0F}, {120, 90, 160, 120}},
        TurnCase{"by 90 degrees, and mirrored",
                 90,
                 true,
                 {150 / 180.0F, 10 / 180.0F, 1, 40 / 180.0F},
                 {120, 200, 160, 230}}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(LivePrivacy, CoversWhoIsFoundOnlyOnALaterPictureOrNoMore) {
    const std::vector<desktop::FoundBox> somebody = {{0.4F, 0.4F, 0.6F, 0.8F}};
    const struct {
        const char* label;
        int emptyBefore;  // pictures, 200 ms apart
        int with;
        int emptyAfter;
        int clearAtFirst;  // of all pictures in a row
        int clearAtLast;
    } cases[] = {{"comes in", 9, 9, 0, 4, 0}, {"goes out", 0, 9, 9, 0, 4}};
    for (const auto& [label, emptyBefore, with, emptyAfter, clearAtFirst, clearAtLast] : cases) {
        startAnonymised();
        LiveClient viewer = client(kStream);
        const uint64_t picturesBefore = live().picturesMade();
        std::vector<Seen> shown;
        const int pictures = emptyBefore + with + emptyAfter;
        for (int i = 0; i < pictures + 6; ++i) {
            const bool there = i >= emptyBefore && (i < emptyBefore + with || emptyAfter == 0);
            find(there ? somebody : std::vector<desktop::FoundBox>());
            m_clock.advance(200ms);
            ASSERT_TRUE(redrawUntilDrawn());
            if (i >= 6) {  // the picture of 1.2 seconds ago
                ASSERT_TRUE(becomes([&] { return live().picturesMade() > picturesBefore + shown.size(); })) << label;
                shown.push_back(shown.empty() ? first(viewer) : viewer.part());
            }
        }
        for (int i = 0; i < pictures; ++i) {
            const bool clear = i < clearAtFirst || i >= pictures - clearAtLast;
            const int contrast = contrastWithin(shown[static_cast<size_t>(i)], 108, 130, 190);
            if (clear) {
                EXPECT_GT(contrast, kClear) << label << ", picture " << i;
            } else {
                EXPECT_LT(contrast, kCovered) << label << ", picture " << i;
            }
        }
        m_service.reset();
    }
}

TEST_F(LivePrivacy, WaitsForYoungerFramesWhileTheSameOneIsAnalysedAgain) {
    startAnonymised();
    LiveClient viewer = client(kStream);
    m_stalledAt = 1000;
    for (int i = 0; i < 8; ++i) {
        ASSERT_TRUE(redrawUntilDrawn());
        m_clock.advance(300ms);
    }
    EXPECT_EQ(live().picturesMade(), 0U);
    m_stalledAt.reset();
    lookOn();
    EXPECT_GT(contrastOf(viewer, true), kClear);
}

TEST_F(LivePrivacy, HidesItWhereNobodyHasLooked) {
    startAnonymised();
    m_found = nullptr;
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(redrawUntilDrawn());
    lookOn();
    EXPECT_LT(contrastOf(viewer, true), kHidden);
}

TEST_F(LivePrivacy, HidesEveryStreamOnceSettingsAreLost) {
    for (const char* overlays : {"&overlays=0", "&overlays=1"}) {
        start(parts());
        redraw();
        service().parametersLost();
        LiveClient viewer = client(kStream + std::string(overlays));
        ASSERT_TRUE(viewersBecome(1));
        m_source->show(stripes());
        m_clock.advance(2s);
        const Seen seen = first(viewer);
        EXPECT_LT(seen.contrast(20), kHidden) << overlays;
        EXPECT_TRUE(hasWords(seen)) << overlays;
        service().parameterSet("On", "false");
        m_source->show(stripes());
        EXPECT_GT(contrastOf(viewer), kClear) << overlays << ", once it is known again";
        m_service.reset();
    }
}

TEST_F(LivePrivacy, HidesTheChosenSizeWhileItCannotBeReadWhetherToHide) {
    desktop::OverlayParts unread = parts();
    unread.choices = {{"On", std::nullopt}, {"Size", "320x180"}};
    start(unread);
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(redrawUntilDrawn());
    EXPECT_LT(contrastOf(viewer, true), kHidden);
    LiveClient other = client("/live/video.mjpg?resolution=480x270");
    ASSERT_TRUE(viewersBecome(2));
    ASSERT_TRUE(redrawUntilDrawn());
    other.head();
    other.readTo("--senvo-picture\r\n");
    EXPECT_GT(other.part().contrast(20), kClear) << "another size";
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
    EXPECT_GT(contrastNow(), kClear);
    service().parameterSet("Size", "320x180");
    EXPECT_GT(contrastNow(), kClear) << "not switched on yet";
    service().parameterSet("On", "true");
    EXPECT_LT(contrastNow(), kHidden) << "at once";
    m_clock.advance(2s);
    EXPECT_LT(contrastNow(), kHidden) << "that cycle had begun before";
    EXPECT_GT(contrastNow(), kClear);
}

TEST_F(LivePrivacy, HidesItWhileTheApplicationWantsTheSameSizeUnmasked) {
    startAnonymised();
    m_analysedSize = {320, 180};
    const Seen analysed = seeNow();
    EXPECT_LT(analysed.contrast(20), kHidden) << "the analysed stream itself";
    EXPECT_TRUE(hasWords(analysed));
    m_analysedSize = {640, 360};
    EXPECT_GT(contrastNow(), kClear);
    service().parameterSet("RivalSize", "320x180");
    service().parameterSet("RivalOn", "true");
    EXPECT_LT(contrastNow(), kHidden) << "overlays are to show everybody there";
    service().parameterSet("RivalOn", "false");
    EXPECT_LT(contrastNow(), kHidden) << "the application has yet to obey";
}

TEST_F(LivePrivacy, HidesItWhileTheApplicationDrawsNothing) {
    startAnonymised();
    service().destroy(1);
    LiveClient viewer = client(kStream);
    ASSERT_TRUE(viewersBecome(1));
    redraw();
    lookOn();
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

#include "overlay/overlay_manager.h"

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <optional>

#include "builders.h"
#include "config/parameter_controller.h"
#include "drawn_picture.h"
#include "log_capture.h"
#include "overlay/palette.h"
#include "scripted_platform.h"
#include "this_build.h"

namespace {

constexpr uint32_t kRed = 0xffff0000;
constexpr uint32_t kGreen = 0xff00ff00;
constexpr uint32_t kYellow = 0xffffff00;
constexpr uint32_t kOrange = 0xffff9900;
constexpr uint32_t kWhite = 0xffffffff;

axoverlay_stream_data streamOf(int width, int height, int rotation = 0, bool mirrored = false) {
    return {.id = 1,
            .camera = 1,
            .type = AXOVERLAY_STREAM_JPEG,
            .width = width,
            .height = height,
            .rotation = rotation,
            .mirrored = mirrored ? TRUE : FALSE};
}

one_find findAt(const detection& box, footings footing = footings::not_in_AOI, int32_t seconds = 0) {
    one_find find;
    find.detect = box;
    find.locator = box.get_bottom();
    find.id = 1;
    find.footing = footing;
    find.seconds = seconds;
    find.entrance = entrances::not_in_entrance;
    return find;
}

/** An analysis stream of 640 x 360 whose findings a test makes up. */
class Overlay : public testing::Test {
protected:
    Overlay() {
        scripted::reset();
        m_config.b_LocatorAtBottom = true;
    }
    ~Overlay() override { g_SensorIs16x9 = true; }

    OverlayManager& manager() {
        if (!m_manager) {
            m_manager.emplace(m_config, m_width, m_height);
            m_manager->showFindings(m_findings);
        }
        return *m_manager;
    }

    /** What a stream shows after a redraw. */
    DrawnPicture shown(const axoverlay_stream_data& stream) {
        manager();
        std::optional<DrawnPicture> picture;
        scripted::watch(stream, [&](int width, int height) {
            picture.emplace(width, height);
            return picture->context();
        });
        EXPECT_TRUE(manager().renderFindings());
        scripted::watch(stream, nullptr);
        return std::move(*picture);
    }

    LogCapture m_log;
    ConfigParams m_config;
    uint32_t m_width = 640;
    uint32_t m_height = 360;
    std::vector<one_find> m_findings;
    std::optional<OverlayManager> m_manager;
};

// --- The service -----------------------------------------------------------------------------------------------------

TEST_F(Overlay, IsOneAsLargeAsTheCameraAllows) {
    manager();
    ASSERT_EQ(scripted::overlays().size(), 1U);
    const axoverlay_overlay_data& data = scripted::overlayData(scripted::overlays()[0]);
    EXPECT_EQ(data.postype, AXOVERLAY_TOP_LEFT);
    EXPECT_EQ(data.anchor_point, AXOVERLAY_ANCHOR_TOP_LEFT);
    EXPECT_EQ(data.x, 0.0F);
    EXPECT_EQ(data.y, 0.0F);
    EXPECT_EQ(data.width, 1920);
    EXPECT_EQ(data.height, 1080);
    EXPECT_EQ(data.colorspace, AXOVERLAY_COLORSPACE_ARGB32);
    EXPECT_EQ(data.scale_to_stream, FALSE);
    EXPECT_EQ(scripted::calls("axoverlay_redraw"), 1) << "drawn once at the start";
    EXPECT_TRUE(LogCapture::lines().empty());
    m_manager.reset();
    EXPECT_TRUE(scripted::overlays().empty());
    EXPECT_EQ(scripted::calls("axoverlay_cleanup"), 1);
}

struct StartFault {
    const char* call;
    int code;
    const char* line;
};

class OverlayStart : public Overlay, public testing::WithParamInterface<StartFault> {};

TEST_P(OverlayStart, ReportsWhatFailsAndGoesOn) {
    scripted::failAt(GetParam().call, 1, {GetParam().code, "out of order"});
    manager();
    EXPECT_EQ(LogCapture::ofLevel("error"), std::vector<std::string>{GetParam().line});
    for (const char* call : {"axoverlay_is_backend_supported", "axoverlay_init", "axoverlay_get_max_resolution_width",
                             "axoverlay_get_max_resolution_height", "axoverlay_create_overlay", "axoverlay_redraw"}) {
        EXPECT_EQ(scripted::calls(call), 1) << call;
    }
}

INSTANTIATE_TEST_SUITE_P(EachCall, OverlayStart,
                         testing::Values(StartFault{"axoverlay_is_backend_supported", 0,
                                                    "OverlayManager: AXOVERLAY_CAIRO_IMAGE_BACKEND is not supported"},
                                         StartFault{"axoverlay_init", AXOVERLAY_ERROR_BACKEND,
                                                    "OverlayManager: Failed to initialize axoverlay: out of order"},
                                         StartFault{"axoverlay_create_overlay", AXOVERLAY_ERROR_INVALID_VALUE,
                                                    "createOverlay: Failed to create overlay: out of order"},
                                         StartFault{
                                             "axoverlay_redraw", AXOVERLAY_ERROR_INTERNAL,
                                             "OverlayManager: Failed to do initial draw of overlays: out of order"}),
                         [](const auto& each) { return std::string(each.param.call); });

TEST_F(Overlay, IsNoneWithoutAnIdentifier) {
    scripted::failAt("axoverlay_create_overlay", 1, {AXOVERLAY_ERROR_INVALID_VALUE, "too large"});
    m_findings = {findAt(boxAt(100, 100, 60, 120))};
    OverlayManager& own = manager();
    const DrawnPicture picture(640, 360);
    axoverlay_stream_data stream = streamOf(640, 360);
    OverlayManager::renderCallback(picture.context(), 0, &stream, AXOVERLAY_TOP_LEFT, 0, 0, 640, 360, &own);
    EXPECT_EQ(picture.drawn(), 0);
    EXPECT_EQ(own.info().appStreamType, 0);
    EXPECT_FALSE(own.info().renderOnUserStreams);
}

TEST_F(Overlay, IsTakenDownWhenTheFirstDrawingFails) {
    scripted::failAt("axoverlay_redraw", 1, {AXOVERLAY_ERROR_INTERNAL, "out of order"});
    manager();
    EXPECT_TRUE(scripted::overlays().empty());
    EXPECT_EQ(scripted::calls("axoverlay_cleanup"), 1);
    m_manager.reset();
    EXPECT_EQ(scripted::calls("axoverlay_cleanup"), 1) << "once is enough";
}

TEST_F(Overlay, ReportsARedrawThatFails) {
    EXPECT_TRUE(manager().renderFindings());
    scripted::failAt("axoverlay_redraw", 1, {AXOVERLAY_ERROR_SERVICE_UNAVAILABLE, "nobody there"});
    EXPECT_FALSE(manager().renderFindings());
    EXPECT_EQ(LogCapture::ofLevel("error"),
              std::vector<std::string>{"renderFindings: Failed to redraw overlay: (6000) nobody there"});
    EXPECT_TRUE(manager().renderFindings());
}

TEST_F(Overlay, IsAsLargeAsTheTurnedStream) {
    for (const auto& [rotation, width, height] :
         {std::tuple(0, 640, 360), {90, 360, 640}, {180, 640, 360}, {270, 360, 640}}) {
        axoverlay_stream_data stream = streamOf(640, 360, rotation);
        gint w = 1;
        gint h = 2;
        OverlayManager::adjustmentCallback(1, &stream, nullptr, nullptr, nullptr, &w, &h, nullptr);
        EXPECT_EQ(w, width);
        EXPECT_EQ(h, height);
    }
    EXPECT_EQ(OverlayManager::selectStreamCallback(1, 1, 1, 0, FALSE, AXOVERLAY_STREAM_OTHER), TRUE);
}

// --- Which streams ---------------------------------------------------------------------------------------------------

TEST_F(Overlay, IsDrawnOnKnownStreamsOnly) {
    m_findings = {findAt(boxAt(100, 100, 60, 120))};
    m_config.b_DetectionOverlaysOn = true;
    m_config.str_DetectionOverlay = "1280x720";
    m_config.b_AnonOverlaysOn = true;
    m_config.str_AnonOverlay = "320x180";
    manager().useConfiguredStreams();
    EXPECT_GT(shown(streamOf(640, 360)).drawn(), 0);
    EXPECT_GT(shown(streamOf(1280, 720)).drawn(), 0);
    EXPECT_GT(shown(streamOf(320, 180)).drawn(), 0);
    EXPECT_EQ(shown(streamOf(1920, 1080)).drawn(), 0);
    m_config.b_DetectionOverlaysOn = false;
    m_config.b_AnonOverlaysOn = false;
    manager().useConfiguredStreams();
    EXPECT_GT(shown(streamOf(640, 360)).drawn(), 0);
    EXPECT_EQ(shown(streamOf(1280, 720)).drawn(), 0);
    EXPECT_EQ(shown(streamOf(320, 180)).drawn(), 0);
    EXPECT_TRUE(LogCapture::ofLevel("error").empty());
}

TEST_F(Overlay, IsNotDrawnForAnotherIdentifierNorOnStreamsOfNoSize) {
    m_findings = {findAt(boxAt(100, 100, 60, 120))};
    manager();
    const DrawnPicture picture(640, 360);
    scripted::drawOverlay(77, streamOf(640, 360), picture.context());
    EXPECT_EQ(picture.drawn(), 0);
    for (const auto& [width, height] : {std::pair(0, 0), {1, 360}, {640, 1}, {-640, -360}}) {
        SetApplicationStreamResolution(manager().info(), static_cast<uint32_t>(width), static_cast<uint32_t>(height));
        scripted::drawOverlay(scripted::overlays()[0], streamOf(width, height), picture.context());
        EXPECT_EQ(picture.drawn(), 0);
    }
    SetApplicationStreamResolution(manager().info(), 640, 360);
    scripted::drawOverlay(scripted::overlays()[0], streamOf(640, 360), picture.context());
    EXPECT_GT(picture.drawn(), 0);
}

TEST_F(Overlay, IsEmptyWithoutFindings) {
    EXPECT_EQ(shown(streamOf(640, 360)).drawn(), 0);
    OverlayManager early(m_config, 640, 360);
    EXPECT_TRUE(early.renderFindings()) << "before there is a list";
}

// --- What is drawn ---------------------------------------------------------------------------------------------------

struct ColorCase {
    footings footing;
    entrances entrance;
    uint32_t color;
};

class OverlayColor : public Overlay, public testing::WithParamInterface<ColorCase> {};

TEST_P(OverlayColor, TellsWhereTheObjectStands) {
    m_findings = {findAt(boxAt(100, 100, 60, 120), GetParam().footing)};
    m_findings[0].entrance = GetParam().entrance;
    const DrawnPicture picture = shown(streamOf(640, 360));
    EXPECT_EQ(picture.colorAt(100, 160), GetParam().color) << "left edge";
    EXPECT_EQ(picture.colorAt(160, 160), GetParam().color) << "right edge";
    EXPECT_EQ(picture.at(130, 160), 0U) << "not filled";
}

INSTANTIATE_TEST_SUITE_P(Table, OverlayColor,
                         testing::Values(ColorCase{footings::not_in_AOI, entrances::not_in_entrance, kGreen},
                                         ColorCase{footings::in_AOI1_briefly, entrances::not_in_entrance, kYellow},
                                         ColorCase{footings::in_AOI2_briefly, entrances::not_in_entrance, kYellow},
                                         ColorCase{footings::in_AOI3_briefly, entrances::not_in_entrance, kYellow},
                                         ColorCase{footings::in_AOI1_lengthily, entrances::not_in_entrance, kRed},
                                         ColorCase{footings::in_AOI2_lengthily, entrances::not_in_entrance, kRed},
                                         ColorCase{footings::in_AOI3_lengthily, entrances::not_in_entrance, kRed},
                                         ColorCase{footings::not_in_AOI, entrances::in_entrance1, kOrange},
                                         ColorCase{footings::in_AOI1_briefly, entrances::in_entrance2, kOrange},
                                         ColorCase{footings::in_AOI3_lengthily, entrances::in_entrance3, kOrange},
                                         ColorCase{footings::not_in_AOI, entrances::unknown, kOrange}));

TEST_F(Overlay, HasLinesThatSuitTheStream) {
    struct Case {
        uint32_t width;
        uint32_t height;
        int line;
    };
    // Half of one per cent of the shorter side, at least one.
    for (const Case& each : {Case{1920, 1080, 5}, {1280, 720, 3}, {320, 240, 1}, {3840, 2160, 10}}) {
        m_width = each.width;
        m_height = each.height;
        m_manager.reset();
        scripted::reset();
        m_findings = {findAt(boxAt(100, 50, 60, 120))};
        const DrawnPicture picture = shown(streamOf(static_cast<int>(each.width), static_cast<int>(each.height)));
        int full = 0;
        int partly = 0;
        for (int x = 85; x < 115; ++x) {
            full += picture.at(x, 90) == kGreen ? 1 : 0;
            partly += picture.at(x, 90) != kGreen && picture.at(x, 90) != 0 ? 1 : 0;
        }
        // An odd line around a column's edge covers half a pixel at both sides.
        EXPECT_EQ(full, each.line % 2 == 0 ? each.line : each.line - 1);
        EXPECT_EQ(partly, each.line % 2 == 0 ? 0 : 2);
    }
}

TEST_F(Overlay, MarksTheLocatorInWhite) {
    for (const bool atBottom : {true, false}) {
        m_config.b_LocatorAtBottom = atBottom;
        m_findings = {findAt(boxAt(100, 100, 60, 120))};
        const DrawnPicture picture = shown(streamOf(640, 360));
        const int y = atBottom ? 220 : 160;
        EXPECT_EQ(picture.at(124, y), kWhite);
        EXPECT_EQ(picture.at(135, y), kWhite);
        EXPECT_EQ(picture.at(130, y - 6), kWhite);
        EXPECT_EQ(picture.at(130, y + 5), kWhite);
        EXPECT_EQ(picture.at(130, atBottom ? 160 : 190), 0U);
    }
}

TEST_F(Overlay, NamesEverythingButPersons) {
    m_findings = {findAt(boxAt(100, 100, 200, 120, objects::person))};
    EXPECT_EQ(shown(streamOf(640, 360)).drawnIn(105, 103, 290, 150), 0);
    for (const objects object : {objects::bicycle, objects::car, objects::boat, objects::unknown}) {
        m_findings = {findAt(boxAt(100, 100, 200, 120, object))};
        EXPECT_GT(shown(streamOf(640, 360)).drawnIn(105, 103, 290, 150), 50) << static_cast<int>(object);
    }
}

TEST_F(Overlay, TellsTheDwellTimeInAnAreaOnly) {
    m_findings = {findAt(boxAt(100, 100, 200, 120), footings::not_in_AOI, 37)};
    EXPECT_EQ(shown(streamOf(640, 360)).drawnIn(0, 232, 639, 359), 0);
    m_findings = {findAt(boxAt(100, 100, 200, 120), footings::in_AOI2_briefly, 37)};
    const DrawnPicture below = shown(streamOf(640, 360));
    EXPECT_GT(below.drawnIn(105, 230, 295, 250), 50);
    EXPECT_EQ(below.drawnIn(0, 0, 639, 90), 0);
    m_findings = {findAt(boxAt(100, 100, 200, 255), footings::in_AOI2_lengthily, 37)};
    const DrawnPicture above = shown(streamOf(640, 360));
    EXPECT_GT(above.drawnIn(105, 60, 295, 95), 50) << "the box reaches the bottom edge";
}

TEST_F(Overlay, HidesPeopleOnTheAnonymisedStream) {
    m_config.b_AnonOverlaysOn = true;
    m_config.str_AnonOverlay = "1280x720";
    m_findings = {findAt(boxAt(100, 100, 60, 120), footings::in_AOI1_lengthily)};
    manager().useConfiguredStreams();
    const DrawnPicture picture = shown(streamOf(1280, 720));
    // 1279/639 = 2.0016: columns 200 to 320, rows 200 to 440
    for (int y = 204; y < 425; ++y) {
        for (int x = 204; x < 318; ++x) {
            ASSERT_EQ(picture.at(x, y), (x / 4 + y / 4) % 2 == 0 ? kRed : kWhite) << x << ", " << y;
        }
    }
    m_config.b_AnonOverlaysOn = false;
    m_config.b_DetectionOverlaysOn = true;
    m_config.str_DetectionOverlay = "1280x720";
    manager().useConfiguredStreams();
    EXPECT_EQ(shown(streamOf(1280, 720)).at(260, 300), 0U) << "the other choice does not hide";
}

TEST_F(Overlay, DrawsLaterFindingsOverEarlierOnes) {
    m_findings = {findAt(boxAt(100, 100, 60, 120)), findAt(boxAt(130, 100, 60, 120), footings::in_AOI1_lengthily)};
    m_config.b_AnonOverlaysOn = true;
    m_config.str_AnonOverlay = "1280x720";
    manager().useConfiguredStreams();
    const auto isRedAt = [&](int x, int y) { return shown(streamOf(1280, 720)).at(x - x % 8, y - y % 8) == kRed; };
    EXPECT_TRUE(isRedAt(290, 300)) << "where both are, the second";
    std::swap(m_findings[0], m_findings[1]);
    EXPECT_FALSE(isRedAt(290, 300));
    manager().addUserRectangle(110, 110, 100, 60, Blue);
    EXPECT_EQ(shown(streamOf(1280, 720)).at(2 * 160, 2 * 110), 0xff0000ffU) << "rectangles of users come last";
}

TEST_F(Overlay, DrawsUserRectanglesUnfilledOnTop) {
    m_config.b_AnonOverlaysOn = true;
    m_config.str_AnonOverlay = "1280x720";
    manager().useConfiguredStreams();
    for (int i = 0; i < 16; ++i) {
        manager().addUserRectangle(10 + 30 * i, 50, 20, 40, i % 7);
    }
    EXPECT_TRUE(LogCapture::lines().empty());
    manager().addUserRectangle(600, 50, 20, 40, Red);
    EXPECT_EQ(LogCapture::ofLevel("error"), std::vector<std::string>{"addUserRectangle: too many user rectangles."});
    const DrawnPicture picture = shown(streamOf(1280, 720));
    const uint32_t colors[] = {0xff000000, kRed, kGreen, 0xff0000ff, kYellow, kWhite, kOrange};
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(picture.at(2 * (10 + 30 * i), 140), colors[i % 7]) << i;
        EXPECT_EQ(picture.at(2 * (20 + 30 * i), 140), 0U) << i;
    }
    EXPECT_EQ(picture.drawnIn(1180, 0, 1279, 719), 0) << "the seventeenth";
    manager().clearUserRectangles();
    EXPECT_EQ(shown(streamOf(1280, 720)).drawn(), 0);
}

TEST_F(Overlay, BearsFiveHundredObjectsAnywhere) {
    for (int i = 0; i < 500; ++i) {
        m_findings.push_back(findAt(boxAt(i * 7 - 1000, i * 3 - 500, i % 300, i % 200, static_cast<objects>(i % 12)),
                                    static_cast<footings>(i % 7), i * 1000));
    }
    m_findings.push_back(findAt(boxAt(INT32_MIN / 4, INT32_MIN / 4, INT32_MAX / 4, INT32_MAX / 4),
                                footings::in_AOI1_briefly, INT32_MAX));
    m_config.b_AnonOverlaysOn = true;
    m_config.str_AnonOverlay = "1280x720";
    manager().useConfiguredStreams();
    EXPECT_GT(shown(streamOf(640, 360)).drawn(), 10000);
    EXPECT_GT(shown(streamOf(1280, 720)).drawn(), 10000);
}

TEST_F(Overlay, HasTextWithoutArialToo) {
    // Which fonts there are is read once in a process: in one of its own, as each test has it under ctest.
    EXPECT_EXIT(
        {
            setenv("FONTCONFIG_FILE", "/dev/null", 1);
            m_findings = {findAt(boxAt(100, 100, 200, 120, objects::car), footings::in_AOI1_briefly, 37)};
            const DrawnPicture picture = shown(streamOf(640, 360));
            const bool hasText = picture.drawnIn(105, 103, 290, 130) > 20;
            std::_Exit(hasText && picture.colorAt(100, 160) == kYellow ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(Overlay, HidesNoMoreOfARealFrameThanItShould) {
    constexpr int kFrameWidth = 640;
    constexpr int kFrameHeight = 360;
    const auto clip = this_build::shared() / "media/one-by-one-person-detection.mp4";
    if (!std::filesystem::exists(clip)) {
        GTEST_SKIP() << "there is no " << clip;
    }
    const std::string command = std::string(FFMPEG_PROGRAM) + " -v error -ss 8 -i '" + clip.string() +
                                "' -frames:v 1 -vf scale=640:360 -pix_fmt bgra -f rawvideo -";
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<uint32_t> frame(size_t{kFrameWidth} * kFrameHeight);
    ASSERT_EQ(fread(frame.data(), sizeof(uint32_t), frame.size(), pipe.get()), frame.size());
    const DrawnPicture picture(kFrameWidth, kFrameHeight);
    picture.fill(frame);
    const detection person = boxAt(320, 12, 118, 316);
    m_findings = {findAt(person, footings::in_AOI1_briefly, 9)};
    m_width = 1280;
    m_height = 720;
    m_findings[0].detect = boxAt(2 * person.X, 2 * person.Y, 2 * person.W, 2 * person.H);
    m_config.b_AnonOverlaysOn = true;
    m_config.str_AnonOverlay = "640x360";
    manager().useConfiguredStreams();
    scripted::drawOverlay(scripted::overlays()[0], streamOf(kFrameWidth, kFrameHeight), picture.context());
    picture.writePng(this_build::folder() / "pictures/overlay-on-a-real-frame.png");
    for (int y = 0; y < kFrameHeight; ++y) {
        for (int x = 0; x < kFrameWidth; ++x) {
            const bool isText = y > person.Y + person.H || y < person.Y - 30;
            const bool isFarAway = x < person.X - 2 || x > person.X + person.W + 2;
            const uint32_t before = frame[static_cast<size_t>(y) * kFrameWidth + static_cast<size_t>(x)];
            if (isFarAway && !isText) {
                ASSERT_EQ(picture.at(x, y), before) << x << ", " << y;
            } else if (x > person.X && x < person.X + person.W - 2 && y > person.Y && y < person.Y + person.H - 8) {
                ASSERT_EQ(picture.at(x, y), (x / 4 + y / 4) % 2 == 0 ? kYellow : kWhite) << x << ", " << y;
            }
        }
    }
}

// --- Reference pictures ----------------------------------------------------------------------------------------------

/** Every style at once: what stands where, of every class and colour, with texts at all edges. */
std::vector<one_find> everyStyle() {
    std::vector<one_find> finds = {
        findAt(boxAt(40, 90, 60, 120)),                                                   // green
        findAt(boxAt(130, 90, 60, 120), footings::in_AOI1_briefly, 1),                    // yellow, below
        findAt(boxAt(230, 120, 120, 70, objects::car), footings::in_AOI2_lengthily, 75),  // red, with a name
        findAt(boxAt(380, 60, 140, 90, objects::bus)),                                    // green, with a name
        findAt(boxAt(300, 230, 50, 125), footings::in_AOI3_lengthily, 3600),              // above: no room below
        findAt(boxAt(560, 200, 60, 120)),                                                 // orange
    };
    finds.back().entrance = entrances::in_entrance2;
    return finds;
}

struct PictureCase {
    const char* name;
    int width;
    int height;
    bool hidden = false;
    int rotation = 0;
    bool mirrored = false;
    bool wideSensor = true;
};

class OverlayPicture : public Overlay, public testing::WithParamInterface<PictureCase> {};

TEST_P(OverlayPicture, IsAsItShouldBe) {
    const PictureCase& each = GetParam();
    g_SensorIs16x9 = each.wideSensor;
    m_findings = everyStyle();
    if (each.rotation % 180 == 90) {
        m_width = 360;
        m_height = 640;
        for (one_find& find : m_findings) {
            detection& box = find.detect;
            box = boxAt(box.Y, box.X, box.H, box.W, static_cast<objects>(box.ClassId));
        }
    }
    (each.hidden ? m_config.b_AnonOverlaysOn : m_config.b_DetectionOverlaysOn) = true;
    (each.hidden ? m_config.str_AnonOverlay : m_config.str_DetectionOverlay) =
        std::to_string(each.width) + "x" + std::to_string(each.height);
    // The analysis stream has a size of its own, which no stream here has.
    manager();
    SetApplicationStreamResolution(manager().info(), 1, 1);
    manager().useConfiguredStreams();
    shown(streamOf(each.width, each.height, each.rotation, each.mirrored)).expectLike(each.name);
}

INSTANTIATE_TEST_SUITE_P(
    Every, OverlayPicture,
    testing::Values(PictureCase{"embedding-same-shape", 640, 360}, PictureCase{"hidden", 640, 360, true},
                    PictureCase{"mirrored", 640, 360, false, 0, true},
                    PictureCase{"hidden-mirrored", 640, 360, true, 0, true},
                    PictureCase{"rotated-90", 640, 360, false, 90}, PictureCase{"rotated-270", 640, 360, true, 270},
                    PictureCase{"rotated-90-cut", 480, 360, false, 90}, PictureCase{"extraction-sides-cut", 480, 360},
                    PictureCase{"embedding-bands-beside", 800, 360},
                    PictureCase{"extraction-top-cut", 800, 360, false, 0, false, false},
                    PictureCase{"embedding-bands-above", 480, 360, false, 0, false, false},
                    PictureCase{"large", 1280, 720}),
    [](const auto& each) {
        std::string name = each.param.name;
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

}  // namespace

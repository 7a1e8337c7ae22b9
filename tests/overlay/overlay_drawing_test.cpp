#include "overlay/overlay_drawing.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

#include "builders.h"
#include "drawn_picture.h"
#include "log_capture.h"
#include "overlay/StreamMapper.h"
#include "overlay/text_cache.h"

namespace {

using namespace overlay_drawing;

constexpr uint32_t kRed = 0xffff0000;
constexpr uint32_t kWhite = 0xffffffff;
constexpr uint32_t kOrange = 0xffff9900;

void useOverlayFont(cairo_t* context, double size) {
    cairo_set_antialias(context, CAIRO_ANTIALIAS_BEST);
    cairo_select_font_face(context, "Arial", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(context, size);
}

TEST(Palette, HasSevenColours) {
    const uint32_t expected[] = {0xff000000, kRed, 0xff00ff00, 0xff0000ff, 0xffffff00, kWhite, kOrange};
    for (int color = Black; color <= Orange; ++color) {
        const DrawnPicture picture(1, 1);
        usePaletteColor(picture.context(), color, 1.0);
        cairo_paint(picture.context());
        EXPECT_EQ(picture.at(0, 0), expected[color]) << color;
    }
}

TEST(Palette, HasNoOtherColour) {
    const LogCapture log;
    const DrawnPicture picture(1, 1);
    for (const int color : {-1, 7}) {
        usePaletteColor(picture.context(), Red, 1.0);
        usePaletteColor(picture.context(), color, 1.0);
        cairo_paint(picture.context());
        EXPECT_EQ(picture.at(0, 0), kRed) << "left as it was";
    }
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (std::vector<std::string>{"usePaletteColor: Expected a colour from 0 to 6, got -1",
                                        "usePaletteColor: Expected a colour from 0 to 6, got 7"}));
}

TEST(Palette, TakesTheCallersAlpha) {
    const DrawnPicture picture(1, 1);
    usePaletteColor(picture.context(), Red, 0.2);
    cairo_paint(picture.context());
    EXPECT_EQ(picture.at(0, 0), 0x33330000U) << "a fifth of 255, premultiplied";
}

TEST(CheckeredPattern, HasFieldsOfFourPixels) {
    const std::pair<int, uint32_t> colors[] = {{Red, kRed},         {Green, 0xff00ff00}, {Yellow, 0xffffff00},
                                               {Orange, kOrange},   {Blue, 0xff808080},  {Black, 0xff808080},
                                               {White, 0xff808080}, {77, 0xff808080}};
    for (const auto& [color, argb] : colors) {
        const DrawnPicture picture(24, 16);
        const Pattern pattern = getCheckeredPattern(color);
        cairo_set_source(picture.context(), pattern.get());
        cairo_paint(picture.context());
        for (int y = 0; y < 16; ++y) {
            for (int x = 0; x < 24; ++x) {
                ASSERT_EQ(picture.at(x, y), (x / 4 + y / 4) % 2 == 0 ? argb : kWhite) << x << ", " << y;
            }
        }
    }
}

TEST(Rectangle, IsAFrameOfTheLinesWidth) {
    const DrawnPicture picture(60, 60);
    drawRectangle(picture.context(), 10, 20, 40, 50, {Red, 4}, false);
    // A line of 4 around column 10 covers columns 8 to 11.
    for (const int x : {8, 11, 38, 41}) {
        EXPECT_EQ(picture.at(x, 35), kRed) << x;
    }
    for (const int x : {7, 12, 25, 37, 42}) {
        EXPECT_EQ(picture.at(x, 35), 0U) << x;
    }
    EXPECT_EQ(picture.at(8, 18), kRed) << "the corner is whole";
    EXPECT_EQ(picture.at(25, 18), kRed);
    EXPECT_EQ(picture.at(25, 51), kRed);
    EXPECT_EQ(picture.at(25, 52), 0U);
}

TEST(Rectangle, HidesWhatIsInside) {
    const DrawnPicture picture(60, 60);
    drawRectangle(picture.context(), 10, 20, 40, 50, {Orange, 4}, true);
    for (int y = 20; y < 50; ++y) {
        for (int x = 10; x < 40; ++x) {
            ASSERT_EQ(picture.at(x, y), (x / 4 + y / 4) % 2 == 0 ? kOrange : kWhite) << x << ", " << y;
        }
    }
    EXPECT_EQ(picture.at(8, 35), kOrange) << "the outer half of the frame";
    EXPECT_EQ(picture.at(7, 35), 0U);
}

TEST(Rectangle, ReplacesWhatLiesUnderIt) {
    const DrawnPicture picture(60, 60);
    cairo_set_source_rgba(picture.context(), 0, 0, 1, 0.5);
    cairo_paint(picture.context());
    drawRectangle(picture.context(), 10, 10, 50, 50, {Red, 4}, false);
    EXPECT_EQ(picture.at(30, 10), kRed);
    EXPECT_EQ(cairo_get_operator(picture.context()), CAIRO_OPERATOR_SOURCE);
}

TEST(Rectangle, IsMappedByItsCorners) {
    const StreamMapper twice(11, 11, 21, 21, true);
    const DrawnPicture picture(21, 21);
    drawRectangle(picture.context(), twice, rectangle{2, 3, 4, 5}, {Red, 2}, false);
    // x 2..6 becomes 4..12, mirrored 16..8; y 3..8 becomes 6..16
    for (const auto& [x, y] : {std::pair(16, 10), {8, 10}, {12, 6}, {12, 16}, {15, 15}}) {
        EXPECT_EQ(picture.at(x, y), kRed) << x << ", " << y;
    }
    EXPECT_EQ(picture.at(12, 10), 0U);
    EXPECT_EQ(picture.at(18, 10), 0U);
    const DrawnPicture same(21, 21);
    drawRectangle(same.context(), twice, boxAt(2, 3, 4, 5), {Red, 2}, false);
    EXPECT_EQ(same.pixels(), picture.pixels());
}

TEST(Cross, HasTwoArmsEachWay) {
    const DrawnPicture picture(40, 40);
    drawCross(picture.context(), 20, 20, {White, 2}, 6);
    EXPECT_EQ(picture.at(14, 20), kWhite);
    EXPECT_EQ(picture.at(25, 20), kWhite);
    EXPECT_EQ(picture.at(20, 14), kWhite);
    EXPECT_EQ(picture.at(20, 25), kWhite);
    EXPECT_EQ(picture.at(13, 20), 0U);
    EXPECT_EQ(picture.at(26, 20), 0U);
    EXPECT_EQ(picture.at(23, 23), 0U);
}

TEST(Cross, StandsAtTheLocator) {
    const StreamMapper twice(21, 21, 41, 41, false);
    for (const bool atBottom : {false, true}) {
        const DrawnPicture picture(41, 41);
        drawLocatorCross(picture.context(), twice, boxAt(4, 2, 8, 12), atBottom, {White, 2}, 3);
        EXPECT_EQ(picture.at(16, atBottom ? 28 : 16), kWhite);
        EXPECT_EQ(picture.at(16, atBottom ? 16 : 28), 0U);
    }
}

TEST(Shapes, OfTheToolbox) {
    const DrawnPicture box(40, 40);
    drawBox(box.context(), 20, 20, {Red, 2}, 5);
    EXPECT_EQ(box.at(15, 20), kRed);
    EXPECT_EQ(box.at(24, 24), kRed);
    EXPECT_EQ(box.at(20, 20), 0U);
    EXPECT_EQ(box.at(12, 20), 0U);
    for (const bool filled : {false, true}) {
        const DrawnPicture circle(40, 40);
        drawCircle(circle.context(), 20, 20, {Red, 4}, 10, filled);
        EXPECT_EQ(circle.at(10, 20), kRed);
        EXPECT_EQ(circle.at(29, 20), kRed);
        EXPECT_EQ(circle.at(20, 20), filled ? kRed : 0U);
        EXPECT_EQ(circle.at(10, 10), 0U) << "round";
    }
}

TEST(LineStyles, AreDashedDottedAndSolid) {
    const auto drawnPixels = [](void (*style)(cairo_t*)) {
        const DrawnPicture picture(39, 2);
        useDashedLineStyle(picture.context());
        style(picture.context());
        usePaletteColor(picture.context(), Red, 1.0);
        cairo_set_line_width(picture.context(), 2);
        cairo_move_to(picture.context(), 0, 1);
        cairo_line_to(picture.context(), 39, 1);
        cairo_stroke(picture.context());
        std::string row;
        for (int x = 0; x < 39; ++x) {
            row += picture.at(x, 0) == kRed ? '#' : ' ';
        }
        return row;
    };
    EXPECT_EQ(drawnPixels(useDashedLineStyle), "##########   ##########   ##########   ");
    EXPECT_EQ(drawnPixels(useDottedLineStyle), "## ## ## ## ## ## ## ## ## ## ## ## ## ");
    EXPECT_EQ(drawnPixels(useSolidLineStyle), std::string(39, '#'));
}

struct TimeCase {
    int32_t seconds;
    const char* text;
};

TEST(TimeText, IsInSecondsThenInMinutes) {
    const TimeCase cases[] = {{1, "1 second"},    {0, "0 seconds"},        {-1, "-1 seconds"},
                              {2, "2 seconds"},   {59, "59 seconds"},      {60, "1 minute"},
                              {119, "1 minute"},  {120, "2 minutes"},      {179, "2 minutes"},
                              {180, "3 minutes"}, {86400, "1440 minutes"}, {INT32_MIN, "-2147483648 seconds"}};
    for (const TimeCase& each : cases) {
        EXPECT_EQ(secondsToTimeText(each.seconds), each.text);
    }
}

// --- Text ------------------------------------------------------------------------------------------------------------

/** What was drawn of a text at a box on a picture of 400 x 300, one pixel each. */
class DetectionText : public testing::Test {
protected:
    struct Edges {
        int left = 1000;
        int right = -1;
        int top = 1000;
        int bottom = -1;
    };

    Edges draw(const detection& box, VerticalMode vertical, HorizontalMode horizontal, bool mirrored = false) {
        const StreamMapper same(300, 400, 300, 400, mirrored);
        const DrawnPicture picture(400, 300);
        useOverlayFont(picture.context(), 16);
        cairo_set_operator(picture.context(), CAIRO_OPERATOR_SOURCE);
        TextCache texts;
        drawDetectionText(picture.context(), texts, same, box, "Hd", vertical, horizontal, White);
        cairo_text_extents(picture.context(), "Hd", &m_extents);
        Edges edges;
        for (int y = 0; y < 300; ++y) {
            for (int x = 0; x < 400; ++x) {
                if (picture.at(x, y) != 0) {
                    edges = {std::min(edges.left, x), std::max(edges.right, x), std::min(edges.top, y),
                             std::max(edges.bottom, y)};
                }
            }
        }
        return edges;
    }

    /** The row of the base line when the text stands on it: its last row that is wholly inside. */
    static int baseLine(const Edges& edges) { return edges.bottom; }

    cairo_text_extents_t m_extents = {};
};

/** Letters stand within a pixel of their origin, the rim included. */
constexpr int kPixel = 2;

TEST_F(DetectionText, StandsInsideTheTopLeftCorner) {
    const Edges edges = draw(boxAt(100, 50, 200, 100), VerticalMode::InsideTop, HorizontalMode::Left);
    const int base = static_cast<int>(50 + m_extents.height + 2);
    EXPECT_NEAR(edges.left, 100, kPixel);
    EXPECT_NEAR(baseLine(edges), base, 1);
    EXPECT_GT(edges.top, 50);
}

TEST_F(DetectionText, StandsAboveWhereThereIsRoom) {
    const Edges above = draw(boxAt(100, 50, 200, 100), VerticalMode::Above, HorizontalMode::Left);
    EXPECT_NEAR(baseLine(above), static_cast<int>(50 - m_extents.height - 2), 1);
    const Edges noRoom = draw(boxAt(100, 14, 200, 100), VerticalMode::Above, HorizontalMode::Left);
    EXPECT_NEAR(baseLine(noRoom), static_cast<int>(114 + m_extents.height + 2), 1);
}

TEST_F(DetectionText, StandsBelowWhereThereIsRoom) {
    const Edges below = draw(boxAt(100, 50, 200, 100), VerticalMode::Below, HorizontalMode::Left);
    EXPECT_NEAR(baseLine(below), static_cast<int>(150 + m_extents.height + 2), 1);
    const Edges noRoom = draw(boxAt(100, 150, 200, 140), VerticalMode::Below, HorizontalMode::Left);
    EXPECT_NEAR(baseLine(noRoom), static_cast<int>(150 - m_extents.height - 2), 1);
}

TEST_F(DetectionText, ChangesSidesAtTheLastPixelThatLeavesRoom) {
    draw(boxAt(100, 50, 200, 100), VerticalMode::Above, HorizontalMode::Left);
    const double needed = m_extents.height + 2;
    // A base line at row 3 is the highest above, one at HO - 3 the lowest below.
    const int top = static_cast<int>(std::ceil(needed)) + 3;
    EXPECT_NEAR(baseLine(draw(boxAt(100, top, 200, 100), VerticalMode::Above, HorizontalMode::Left)), 3, 1);
    EXPECT_GT(baseLine(draw(boxAt(100, top - 1, 200, 100), VerticalMode::Above, HorizontalMode::Left)), top + 100);
    const int bottom = 298 - static_cast<int>(needed);
    EXPECT_LT(baseLine(draw(boxAt(100, bottom - 50, 200, 50), VerticalMode::Below, HorizontalMode::Left)), bottom - 50);
    EXPECT_NEAR(baseLine(draw(boxAt(100, bottom - 51, 200, 50), VerticalMode::Below, HorizontalMode::Left)), 297, 1);
}

TEST_F(DetectionText, StandsInsideTheBottom) {
    const Edges edges = draw(boxAt(100, 50, 200, 100), VerticalMode::InsideBottom, HorizontalMode::Left);
    EXPECT_NEAR(baseLine(edges), static_cast<int>(150 - m_extents.height - 2), 1);
}

TEST_F(DetectionText, IsCentredOrAtTheRight) {
    const Edges centred = draw(boxAt(100, 50, 200, 100), VerticalMode::InsideTop, HorizontalMode::Centred);
    EXPECT_NEAR(centred.left, 100 + (200 - m_extents.width) / 2, kPixel);
    const Edges right = draw(boxAt(100, 50, 200, 100), VerticalMode::InsideTop, HorizontalMode::Right);
    EXPECT_NEAR(right.right, 300, kPixel);
}

TEST_F(DetectionText, IsNotMirrored) {
    // 100..150 mirrored is 299..249
    const Edges edges = draw(boxAt(100, 50, 50, 100), VerticalMode::InsideTop, HorizontalMode::Left, true);
    EXPECT_NEAR(edges.left, 249, kPixel);
    EXPECT_GT(edges.right, edges.left + 10);
}

/** Texts drawn from the cache against those that cairo draws each time. */
class CachedText : public testing::Test {
protected:
    using Draw = std::function<void(cairo_t*, const std::string&, int, int, int)>;

    static std::vector<uint32_t> drawn(const std::function<void(cairo_t*)>& prepare, const Draw& draw) {
        const DrawnPicture picture(640, 360);
        useOverlayFont(picture.context(), 22);
        prepare(picture.context());
        std::mt19937 random(1);
        const char* const texts[] = {"Car", "Truck", "37 seconds", "2 minutes", "Motorcycle", ""};
        for (int i = 0; i < 300; ++i) {
            const auto x = static_cast<int>(random() % 700) - 40;
            const auto y = static_cast<int>(random() % 420) - 20;
            draw(picture.context(), texts[random() % std::size(texts)], x, y, static_cast<int>(random() % 7));
        }
        return picture.pixels();
    }

    void expectTheSame(const std::function<void(cairo_t*)>& prepare) {
        const auto plain = drawn(prepare, TextCache::drawPlainly);
        const auto cached = drawn(prepare, [this](cairo_t* context, const std::string& text, int x, int y, int color) {
            m_texts.draw(context, text, x, y, color);
        });
        int drawnOn = 0;
        int different = 0;
        for (size_t i = 0; i < plain.size(); ++i) {
            drawnOn += plain[i] != 0 ? 1 : 0;
            different += plain[i] != cached[i] ? 1 : 0;
            ASSERT_LE(DrawnPicture::distance(plain[i], cached[i]), 1) << "more than rounding";
        }
        EXPECT_GT(drawnOn, 1000);
        EXPECT_LE(different * 1000, drawnOn);
    }

    TextCache m_texts;
};

TEST_F(CachedText, HasThePixelsOfPlainText) {
    expectTheSame([](cairo_t* context) { cairo_set_operator(context, CAIRO_OPERATOR_SOURCE); });
}

TEST_F(CachedText, HasThemOverAnyBackground) {
    expectTheSame([](cairo_t* context) {
        cairo_set_operator(context, CAIRO_OPERATOR_SOURCE);
        std::mt19937 random(2);
        const auto component = [&] { return static_cast<double>(random() % 256) / 255; };
        for (int x = 0; x < 640; x += 2) {
            for (int y = 0; y < 360; y += 2) {
                cairo_set_source_rgba(context, component(), component(), component(), component());
                cairo_rectangle(context, x, y, 2, 2);
                cairo_fill(context);
            }
        }
    });
}

TEST_F(CachedText, HasThemWhereTheContextIsNoPlainPicture) {
    expectTheSame([](cairo_t*) {});  // blends instead of replacing
    expectTheSame([](cairo_t* context) {
        cairo_set_operator(context, CAIRO_OPERATOR_SOURCE);
        cairo_rectangle(context, 100, 100, 300, 150);
        cairo_clip(context);
    });
    expectTheSame([](cairo_t* context) {
        cairo_set_operator(context, CAIRO_OPERATOR_SOURCE);
        cairo_translate(context, 0.5, 10);
    });
    expectTheSame([](cairo_t* context) {
        cairo_set_operator(context, CAIRO_OPERATOR_SOURCE);
        cairo_surface_set_device_offset(cairo_get_target(context), 5, 7);
    });
}

TEST_F(CachedText, IsKeptOncePerTextAndSizeAndNotWithoutEnd) {
    const DrawnPicture picture(200, 100);
    useOverlayFont(picture.context(), 16);
    cairo_set_operator(picture.context(), CAIRO_OPERATOR_SOURCE);
    m_texts.draw(picture.context(), "Car", 10, 50, White);
    m_texts.draw(picture.context(), "Car", 20, 60, Red);
    EXPECT_EQ(m_texts.size(), 1U);
    cairo_set_font_size(picture.context(), 18);
    m_texts.draw(picture.context(), "Car", 20, 60, White);
    EXPECT_EQ(m_texts.size(), 2U);
    size_t most = 0;
    for (int i = 0; i < 2000; ++i) {
        m_texts.draw(picture.context(), std::to_string(i), 10, 50, White);
        most = std::max(most, m_texts.size());
    }
    EXPECT_GT(most, 100U);
    EXPECT_LT(most, 1000U);
}

}  // namespace

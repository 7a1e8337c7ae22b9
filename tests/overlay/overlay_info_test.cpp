#include "overlay/overlay_info.h"

#include <gtest/gtest.h>

#include "log_capture.h"

namespace {

class Streams : public testing::Test {
protected:
    LogCapture m_log;
    OverlayInfo m_info;
};

TEST_F(Streams, AreToldByTheirExactSize) {
    SetApplicationStreamResolution(m_info, 1280, 720);
    SetOverlayStreamResolution(m_info, 1920, 1080);
    SetAnonymizedStreamResolution(m_info, 640, 360);
    EXPECT_EQ(m_info.getStreamType(1280, 720), StreamType::ApplicationStream);
    EXPECT_EQ(m_info.getStreamType(1920, 1080), StreamType::OverlayStream);
    EXPECT_EQ(m_info.getStreamType(640, 360), StreamType::AnonymizedStream);
    EXPECT_EQ(m_info.getStreamType(1280, 721), StreamType::OtherStream);
    EXPECT_EQ(m_info.getStreamType(1080, 1920), StreamType::OtherStream);
}

TEST_F(Streams, OfEqualSizesAreTheFirstKind) {
    SetAnonymizedStreamResolution(m_info, 640, 360);
    EXPECT_EQ(m_info.getStreamType(640, 360), StreamType::AnonymizedStream);
    SetOverlayStreamResolution(m_info, 640, 360);
    EXPECT_EQ(m_info.getStreamType(640, 360), StreamType::OverlayStream);
    SetApplicationStreamResolution(m_info, 640, 360);
    EXPECT_EQ(m_info.getStreamType(640, 360), StreamType::ApplicationStream);
}

TEST_F(Streams, AreChosenByText) {
    SetOverlayStreamResolutionFromString(m_info, "1920x1080");
    SetAnonymizedStreamResolutionFromString(m_info, "640x360x25");
    EXPECT_EQ(m_info.getStreamType(1920, 1080), StreamType::OverlayStream);
    EXPECT_EQ(m_info.getStreamType(640, 360), StreamType::AnonymizedStream);
    SetOverlayStreamResolutionFromString(m_info, "0x0");
    EXPECT_EQ(m_info.getStreamType(1920, 1080), StreamType::OtherStream);
    EXPECT_TRUE(LogCapture::ofLevel("error").empty());
}

TEST_F(Streams, AreNotChosenByATextThatIsNoSize) {
    const std::vector<std::string> texts = {"",         "0",          "1280",         "x",       "x720",      "1280x",
                                            "axb",      "1280 x 720", "1280X720",     "-1x-1",   "1280x720 ", "1e3x720",
                                            "0x1Fx720", "12.5x7",     "4294967296x1", "<b>x</b>"};
    for (const std::string& text : texts) {
        applicationLog().clear();
        SetOverlayStreamResolution(m_info, 1280, 720);
        SetOverlayStreamResolutionFromString(m_info, text);
        EXPECT_EQ(m_info.overlayStreamWidth, 0U) << text;
        EXPECT_EQ(m_info.overlayStreamHeight, 0U) << text;
        EXPECT_EQ(
            LogCapture::ofLevel("error"),
            std::vector<std::string>{"SetOverlayStreamResolutionFromString: Expected a size such as 1280x720, got "
                                     "\"" +
                                     text + "\". No stream is chosen."});
    }
}

TEST(RenderOptions, AreKeptByResolution) {
    OverlayRenderOptionsDict dict;
    OverlayRenderOptions options = {true, true};
    EXPECT_FALSE(dict.getOptions(640, 360, options));
    EXPECT_EQ(options, (OverlayRenderOptions{true, true})) << "left alone";
    dict.setOptions({640, 360}, {true, false});
    dict.setOptions({1280, 720}, {false, true});
    EXPECT_TRUE(dict.getOptions(640, 360, options));
    EXPECT_EQ(options, (OverlayRenderOptions{true, false}));
    EXPECT_TRUE(dict.getOptions(Resolution{1280, 720}, options));
    EXPECT_EQ(options, (OverlayRenderOptions{false, true}));
    dict.setOptions({640, 360}, {false, false});
    EXPECT_TRUE(dict.getOptions(640, 360, options));
    EXPECT_EQ(options, OverlayRenderOptions());
}

TEST(UserRectanglesTest, AreSixteenAtMost) {
    UserRectangles rectangles;
    for (int i = 0; i < 16; ++i) {
        EXPECT_TRUE(rectangles.add({{i, 0, 1, 1}, i}));
    }
    EXPECT_FALSE(rectangles.add({{16, 0, 1, 1}, 0}));
    int next = 0;
    for (const UserRectangle& rectangle : rectangles) {
        EXPECT_EQ(rectangle.rect.X, next++);
    }
    EXPECT_EQ(next, 16);
    rectangles.clear();
    EXPECT_EQ(rectangles.begin(), rectangles.end());
    EXPECT_TRUE(rectangles.add({{16, 0, 1, 1}, 0}));
}

}  // namespace

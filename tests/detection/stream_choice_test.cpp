#include "detector_fixture.h"

namespace {

using Sizes = std::vector<scripted::Size>;
using Lines = std::vector<std::string>;

struct RatioCase {
    int width;
    int height;
    AspectRatioType ratio;
};

class Ratio : public Detector, public testing::WithParamInterface<RatioCase> {};

TEST_P(Ratio, HasOpenBounds) {
    EXPECT_EQ(m_detector.get_aspect_ratio_type(GetParam().width, GetParam().height), GetParam().ratio)
        << GetParam().width << "x" << GetParam().height;
}

INSTANTIATE_TEST_SUITE_P(Table, Ratio,
                         testing::Values(RatioCase{1920, 1080, WIDESCREEN}, RatioCase{1701, 1000, WIDESCREEN},
                                         RatioCase{1700, 1000, ASPECT_RATIO_INVALID}, RatioCase{1799, 1000, WIDESCREEN},
                                         RatioCase{1800, 1000, ASPECT_RATIO_INVALID}, RatioCase{640, 480, FULLSCREEN},
                                         RatioCase{1280, 1024, FULLSCREEN}, RatioCase{1200, 1000, ASPECT_RATIO_INVALID},
                                         RatioCase{1399, 1000, FULLSCREEN}, RatioCase{1400, 1000, ASPECT_RATIO_INVALID},
                                         RatioCase{1000, 1000, SQUARE}, RatioCase{901, 1000, SQUARE},
                                         RatioCase{900, 1000, ASPECT_RATIO_INVALID},
                                         RatioCase{1100, 1000, ASPECT_RATIO_INVALID},
                                         RatioCase{1080, 1920, ASPECT_RATIO_INVALID},
                                         RatioCase{2560, 1080, ASPECT_RATIO_INVALID}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Detector, AStreamContainsAModelOfItsOwnSize) {
    EXPECT_TRUE(m_detector.does_stream_contain_model(960, 540, 960, 540));
    EXPECT_FALSE(m_detector.does_stream_contain_model(959, 540, 960, 540));
    EXPECT_FALSE(m_detector.does_stream_contain_model(960, 539, 960, 540));
}

struct ChoiceCase {
    const char* label;
    Sizes offered;
    scripted::Size chosen;
    const char* message;
};

class Choice : public Detector, public testing::WithParamInterface<ChoiceCase> {};

TEST_P(Choice, PrefersTheRatioToTheSize) {
    const ChoiceCase& given = GetParam();
    scripted::offerResolutions(1, given.offered);
    unsigned width = 0;
    unsigned height = 0;
    EXPECT_TRUE(m_detector.choose_resolution(960, 540, &width, &height)) << given.label;
    EXPECT_EQ(width, given.chosen.width) << given.label;
    EXPECT_EQ(height, given.chosen.height) << given.label;
    EXPECT_EQ(LogCapture::lines().back(), std::string("info: choose_resolution: ") + given.message +
                                              std::to_string(given.chosen.width) + "x" +
                                              std::to_string(given.chosen.height));
}

constexpr const char* kWideContaining = "Found a 16:9 stream that contains the model WxH=";
constexpr const char* kWideSmaller = "Found a 16:9 stream that does not contain the model WxH=";
constexpr const char* kFullContaining = "Found a 4:3 stream that contains the model WxH=";
constexpr const char* kFullSmaller = "Found a 4:3 stream that does not contain the model WxH=";

INSTANTIATE_TEST_SUITE_P(
    Table, Choice,
    testing::Values(
        ChoiceCase{
            "smallest 16:9 that contains", {{1920, 1080}, {1280, 720}, {640, 360}}, {1280, 720}, kWideContaining},
        ChoiceCase{"the model's own size", {{1920, 1080}, {960, 540}, {1280, 720}}, {960, 540}, kWideContaining},
        ChoiceCase{
            "16:9 below the model before 4:3 above", {{480, 270}, {640, 360}, {1280, 960}}, {640, 360}, kWideSmaller},
        ChoiceCase{"smallest 4:3 that contains", {{2048, 1536}, {1280, 960}, {640, 480}}, {1280, 960}, kFullContaining},
        ChoiceCase{"largest 4:3 that does not", {{320, 240}, {800, 600}, {640, 480}}, {800, 600}, kFullSmaller},
        ChoiceCase{"wide enough but too low is smaller", {{960, 538}}, {960, 538}, kWideSmaller},
        ChoiceCase{"a square does not count", {{1000, 1000}, {640, 480}}, {640, 480}, kFullSmaller}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Detector, AmongEqualAreasTheFirstListedIsChosen) {
    // Both have 725,760 pixels.
    for (const bool swapped : {false, true}) {
        const scripted::Size first = swapped ? scripted::Size{1134, 640} : scripted::Size{1120, 648};
        const scripted::Size second = swapped ? scripted::Size{1120, 648} : scripted::Size{1134, 640};
        scripted::offerResolutions(1, {first, second});
        unsigned width = 0;
        unsigned height = 0;
        EXPECT_TRUE(m_detector.find_smallest_containing_stream(960, 540, WIDESCREEN, width, height));
        EXPECT_EQ(width, first.width);
        EXPECT_TRUE(m_detector.find_largest_not_containing_stream(1920, 1080, WIDESCREEN, width, height));
        EXPECT_EQ(width, first.width);
    }
}

TEST_F(Detector, TheSearchTellsWhatItLooksFor) {
    scripted::offerResolutions(1, {{1280, 720}});
    unsigned width = 0;
    unsigned height = 0;
    m_detector.choose_resolution(960, 540, &width, &height);
    EXPECT_EQ(LogCapture::lines(),
              (Lines{"info: find_smallest_containing_stream: modelWidth=960, modelHeight=540, aspectRatio=2",
                     "info: choose_resolution: Found a 16:9 stream that contains the model WxH=1280x720"}));
}

TEST_F(Detector, WithoutASuitableStreamTheErrorNamesTheModel) {
    for (const Sizes& offered : {Sizes{{720, 720}, {1080, 1080}}, Sizes{{1080, 1920}, {720, 1280}}, Sizes{}}) {
        scripted::offerResolutions(1, offered);
        unsigned width = 7;
        unsigned height = 8;
        EXPECT_FALSE(m_detector.choose_resolution(960, 540, &width, &height));
        EXPECT_EQ(width, 7U) << "the outputs are left alone";
        EXPECT_EQ(height, 8U);
        EXPECT_EQ(LogCapture::lines().back(),
                  "error: choose_resolution: Failed to find a suitable stream for model WxH=960x540");
    }
}

struct FaultCase {
    const char* call;
    const char* message;
    const char* line;
};

class ChoiceFault : public Detector, public testing::WithParamInterface<FaultCase> {};

TEST_P(ChoiceFault, IsLoggedByBothSearches) {
    scripted::offerResolutions(1, {{1280, 720}});
    scripted::failFrom(GetParam().call, 1, {VDO_ERROR_FAILED, GetParam().message});
    unsigned width = 7;
    unsigned height = 8;
    EXPECT_FALSE(m_detector.find_smallest_containing_stream(960, 540, WIDESCREEN, width, height));
    EXPECT_FALSE(m_detector.find_largest_not_containing_stream(960, 540, WIDESCREEN, width, height));
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (Lines{std::string("find_smallest_containing_stream: ") + GetParam().line,
                     std::string("find_largest_not_containing_stream: ") + GetParam().line}));
    EXPECT_EQ(width, 7U);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ChoiceFault,
    testing::Values(FaultCase{"vdo_channel_get", "busy", "Failed vdo_channel_get(): busy"},
                    FaultCase{"vdo_channel_get", "", "Failed vdo_channel_get(): N/A"},
                    FaultCase{"vdo_channel_get_resolutions", "busy", "Failed vdo_channel_get_resolutions(): busy"},
                    FaultCase{"vdo_channel_get_resolutions", "", "Failed vdo_channel_get_resolutions(): N/A"}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

}  // namespace

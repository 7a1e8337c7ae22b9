#include <array>
#include <gtest/gtest.h>

#include "config/parameter_controller.h"
#include "overlay/StreamMapper.h"

namespace {

/** The sensor's format for the length of a test. */
class Sensor {
public:
    explicit Sensor(bool is16x9) { g_SensorIs16x9 = is16x9; }
    ~Sensor() { g_SensorIs16x9 = true; }
    Sensor(const Sensor&) = delete;
    Sensor& operator=(const Sensor&) = delete;
};

using Rectangle = std::array<int, 4>;

Rectangle inputOf(const StreamMapper& mapper) {
    Rectangle r = {};
    mapper.getActiveInputRectangle(r[0], r[1], r[2], r[3]);
    return r;
}

Rectangle outputOf(const StreamMapper& mapper) {
    Rectangle r = {};
    mapper.getActiveOutputRectangle(r[0], r[1], r[2], r[3]);
    return r;
}

template <class Kind>
bool is(const std::unique_ptr<StreamMapper>& mapper) {
    return dynamic_cast<Kind*>(mapper.get()) != nullptr;
}

TEST(StreamMapper, ScalesCornersOntoCorners) {
    const StreamMapper mapper(480, 640, 1080, 1920, false);
    EXPECT_EQ(mapper.mapX(0), 0);
    EXPECT_EQ(mapper.mapX(320), 961);  // 320 * 1919 / 639 = 961.0016
    EXPECT_EQ(mapper.mapX(639), 1919);
    EXPECT_EQ(mapper.mapY(240), 540);  // 240 * 1079 / 479 = 540.63
    EXPECT_EQ(mapper.mapY(479), 1079);
    EXPECT_EQ(mapper.mapWidth(100), 300);   // 300.31
    EXPECT_EQ(mapper.mapHeight(100), 225);  // 225.26
    EXPECT_EQ(inputOf(mapper), (Rectangle{0, 0, 639, 479}));
    EXPECT_EQ(outputOf(mapper), (Rectangle{0, 0, 1919, 1079}));
}

TEST(StreamMapper, ReachesTheLastPixelWhateverTheSizes) {
    for (int in = 2; in < 400; ++in) {
        for (int out = 2; out < 400; ++out) {
            const StreamMapper mapper(in, in, out, out, false);
            ASSERT_EQ(mapper.mapX(in - 1), out - 1) << in << " to " << out;
        }
    }
}

TEST(StreamMapper, MirrorsColumnsAndNothingElse) {
    const StreamMapper mapper(480, 640, 1080, 1920, true);
    EXPECT_EQ(mapper.mapX(0), 1919);
    EXPECT_EQ(mapper.mapX(639), 0);
    EXPECT_EQ(mapper.mapWidth(100), 300);
    int x = 0;
    int y = 479;
    mapper.mapPoint(x, y);
    EXPECT_EQ(x, 1919);
    EXPECT_EQ(y, 1079);
}

TEST(StreamMapper, LeavesEveryPointWhereItIsBetweenEqualStreams) {
    for (const bool wide : {false, true}) {
        const Sensor sensor(wide);
        const auto mapper = getStreamMapper(720, 1280, 720, 1280, false, false);
        EXPECT_EQ(is<EmbeddingMapper>(mapper), wide);
        EXPECT_EQ(is<ExtractionMapper>(mapper), !wide);
        const auto mirrored = getStreamMapper(720, 1280, 720, 1280, false, true);
        for (int x = 0; x < 1280; ++x) {
            ASSERT_EQ(mapper->mapX(x), x);
            ASSERT_EQ(mirrored->mapX(x), 1280 - x - 1);
            ASSERT_EQ(mapper->mapWidth(x), x);
        }
        for (int y = 0; y < 720; ++y) {
            ASSERT_EQ(mapper->mapY(y), y);
            ASSERT_EQ(mirrored->mapY(y), y);
        }
        EXPECT_EQ(inputOf(*mapper), (Rectangle{0, 0, 1279, 719}));
        EXPECT_EQ(outputOf(*mapper), (Rectangle{0, 0, 1279, 719}));
    }
}

TEST(StreamMapper, CutsTopAndBottomForAWiderStreamOfANarrowSensor) {
    const Sensor sensor(false);
    const auto mapper = getStreamMapper(480, 640, 1080, 1920, false, false);
    ASSERT_TRUE(is<ExtractionMapper>(mapper));
    EXPECT_EQ(mapper->mapY(30), 0) << "cut away";
    EXPECT_EQ(mapper->mapY(60), 0);
    EXPECT_EQ(mapper->mapY(240), 540);   // 1919/639 * 180 = 540.56
    EXPECT_EQ(mapper->mapY(419), 1078);  // 1919/639 * 359 = 1078.1
    EXPECT_EQ(mapper->mapY(420), 1079);
    EXPECT_EQ(mapper->mapY(479), 1079);
    EXPECT_EQ(mapper->mapX(0), 0);
    EXPECT_EQ(mapper->mapX(639), 1919);
    EXPECT_EQ(mapper->mapWidth(10), 30);   // 30.03
    EXPECT_EQ(mapper->mapHeight(10), 30);  // one factor for both
    EXPECT_EQ(inputOf(*mapper), (Rectangle{0, 60, 639, 419}));
    EXPECT_EQ(outputOf(*mapper), (Rectangle{0, 0, 1919, 1079}));
}

TEST(StreamMapper, CutsTheSidesForANarrowerStreamOfAWideSensor) {
    const Sensor sensor(true);
    const auto mapper = getStreamMapper(1080, 1920, 960, 1280, false, false);
    ASSERT_TRUE(is<ExtractionMapper>(mapper));
    EXPECT_EQ(mapper->mapX(239), 0);
    EXPECT_EQ(mapper->mapX(240), 0);
    EXPECT_EQ(mapper->mapX(960), 639);  // 959/1079 * 720 = 639.92
    EXPECT_EQ(mapper->mapX(1680), 1279);
    EXPECT_EQ(mapper->mapX(1919), 1279);
    EXPECT_EQ(mapper->mapY(1079), 959);
    EXPECT_EQ(mapper->mapWidth(300), 266);  // 266.6
    EXPECT_EQ(inputOf(*mapper), (Rectangle{240, 0, 1679, 1079}));
    const auto mirrored = getStreamMapper(1080, 1920, 960, 1280, false, true);
    EXPECT_EQ(mirrored->mapX(100), 1279);
    EXPECT_EQ(mirrored->mapX(1800), 0);
}

TEST(StreamMapper, PutsBandsAboveAndBelowInANarrowerStreamOfANarrowSensor) {
    const Sensor sensor(false);
    const auto mapper = getStreamMapper(1080, 1920, 960, 1280, false, false);
    ASSERT_TRUE(is<EmbeddingMapper>(mapper));
    // 1279/1919 = 0.66649; a band of (960 - (0.66649 * 1079 + 1)) / 2 = 119.93, its fraction kept
    EXPECT_EQ(mapper->mapY(0), 120);
    EXPECT_EQ(mapper->mapY(751), 620);  // 500.536 + 119.927 + 0.5 = 620.96; a band of 120 would give 621
    EXPECT_EQ(mapper->mapY(1079), 839);
    EXPECT_EQ(mapper->mapX(0), 0);
    EXPECT_EQ(mapper->mapX(1919), 1279);
    EXPECT_EQ(mapper->mapWidth(300), 199);  // 199.9
    EXPECT_EQ(mapper->mapHeight(300), 199);
    EXPECT_EQ(inputOf(*mapper), (Rectangle{0, 0, 1919, 1079}));
    EXPECT_EQ(outputOf(*mapper), (Rectangle{0, 120, 1279, 839}));
    EXPECT_EQ(outputOf(*getStreamMapper(1080, 1920, 960, 1280, false, true)), (Rectangle{1279, 120, 0, 839}));
}

TEST(StreamMapper, PutsBandsAtTheSidesOfAWiderStreamOfAWideSensor) {
    const Sensor sensor(true);
    const auto mapper = getStreamMapper(480, 640, 1080, 1920, false, false);
    ASSERT_TRUE(is<EmbeddingMapper>(mapper));
    // 1079/479 = 2.25261; the picture is int(2.25261 * 639 + 1) = 1440 wide, which leaves bands of exactly 240
    EXPECT_EQ(mapper->mapX(0), 240);
    EXPECT_EQ(mapper->mapX(2), 245);  // 4.505 + 240 + 0.5 = 245.005; a band of 239.79 would give 244
    EXPECT_EQ(mapper->mapX(639), 1679);
    EXPECT_EQ(mapper->mapY(479), 1079);
    EXPECT_EQ(outputOf(*mapper), (Rectangle{240, 0, 1679, 1079}));
}

TEST(StreamMapper, ComparesTurnedStreamsTheOtherWayRound) {
    // A portrait camera: pictures of 720 x 1280, watched in 720 x 1280 and in 960 x 1280.
    const Sensor sensor(true);
    const auto same = getStreamMapper(1280, 720, 1280, 720, true, false);
    EXPECT_TRUE(is<EmbeddingMapper>(same));
    EXPECT_EQ(same->mapX(700), 700);
    EXPECT_EQ(same->mapY(1200), 1200);
    EXPECT_TRUE(is<ExtractionMapper>(getStreamMapper(1280, 720, 1280, 960, true, false)));
    EXPECT_TRUE(is<EmbeddingMapper>(getStreamMapper(1280, 720, 1280, 960, false, false)));
    const Sensor narrow(false);
    EXPECT_TRUE(is<EmbeddingMapper>(getStreamMapper(1280, 720, 1280, 960, true, false)));
}

}  // namespace

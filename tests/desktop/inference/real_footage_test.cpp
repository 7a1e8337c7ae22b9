#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>

#include "desktop/config/desktop_config.h"
#include "desktop/inference/engines.h"
#include "this_build.h"

namespace desktop {
namespace {

/** Reads a clip's pictures, 960x540 RGB, with the ffmpeg program. */
class Clip {
public:
    Clip(const std::string& name, const std::string& options)
        : m_pipe(popen(("ffmpeg -v error " + options + " -i '" + (this_build::shared() / "media" / name).string() +
                        "' -vf fps=10,scale=960:540 -f rawvideo -pix_fmt rgb24 -")
                           .c_str(),
                       "r"),
                 &pclose) {}

    bool next(cv::Mat& picture) {
        picture.create(540, 960, CV_8UC3);
        const size_t bytes = picture.total() * 3;
        return m_pipe != nullptr && std::fread(picture.data, 1, bytes, m_pipe.get()) == bytes;
    }

private:
    std::unique_ptr<FILE, int (*)(FILE*)> m_pipe;
};

ModelCard shippedCard(const std::string& name) {
    std::ifstream file(this_build::checkout() / "package/models" / name);
    std::stringstream text;
    text << file.rdbuf();
    return parseModelCard(text.str());
}

class RealFootage : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(this_build::shared() / "media") ||
            !std::filesystem::exists(this_build::shared() / "models")) {
            GTEST_SKIP() << "needs the clips and networks in " << this_build::shared();
        }
        if (std::system("ffmpeg -version >/dev/null 2>&1") != 0) {  // NOLINT: a fixed command
            GTEST_SKIP() << "needs the ffmpeg program to read the clips";
        }
        m_before = desktopConfig();
        DesktopConfig config = m_before;
        config.networksFolder = this_build::shared() / "models";
        setDesktopConfig(config);
    }

    void TearDown() override { setDesktopConfig(m_before); }

    /** The person who stands at the table 10 seconds into the clip, as seen by eye. */
    static void expectThePersonAtTheTable(const std::string& card) {
        const auto engine = makeEngine(shippedCard(card));
        cv::Mat picture;
        ASSERT_TRUE(Clip("one-by-one-person-detection.mp4", "-ss 10").next(picture));
        const std::vector<Detection> found = engine->detect(picture);
        ASSERT_FALSE(found.empty());
        const Detection person = {0.50F, 0.02F, 0.67F, 0.92F, ObjectClass::Person, 1};
        EXPECT_EQ(found[0].objectClass, ObjectClass::Person);
        EXPECT_GT(found[0].score, 0.5F);
        EXPECT_GT(intersectionOverUnion(found[0], person), 0.75F);
    }

    DesktopConfig m_before;
};

TEST_F(RealFootage, DarknetNetworkFindsAPerson) {
    expectThePersonAtTheTable("yolo-fastest-xl.json");
}

TEST_F(RealFootage, OnnxNetworkFindsAPerson) {
    expectThePersonAtTheTable("fastestdet.json");
}

TEST_F(RealFootage, ANetworkThatDoesNotFitTheDecoderIsRefused) {
    ModelCard card = shippedCard("fastestdet.json");
    card.network.decoder = shippedCard("yolov8n.json").network.decoder;
    try {
        makeEngine(card);
        FAIL() << "accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(),
                     "\"decoder\": yolov8 expected 1 output 1x(4+classes)xN, the network gave 1 output 1x85x22x22");
    }
}

/** Seconds in which so many objects are well visible, by the clips' answers; in between nothing may be shown. */
struct Visible {
    double from;
    double to;
    size_t count;
};

void expectObjects(const std::string& clip, ObjectClass objectClass, const std::vector<Visible>& visible,
                   const std::vector<Visible>& empty) {
    const auto engine = makeEngine(shippedCard("motion.json"));
    Clip pictures(clip, "");
    cv::Mat picture;
    int cycles = 0;
    for (; pictures.next(picture); ++cycles) {
        const std::vector<Detection> found = engine->detect(picture);
        const double second = cycles / 10.0;
        for (const auto& [from, to, count] : visible) {
            if (second >= from && second <= to) {
                EXPECT_EQ(found.size(), count) << clip << " at " << second << " s";
            }
        }
        for (const auto& [from, to, count] : empty) {
            if (second > from && second < to) {
                EXPECT_EQ(found.size(), count) << clip << " at " << second << " s";
            }
        }
        for (const Detection& detection : found) {
            EXPECT_EQ(detection.objectClass, objectClass) << clip << " at " << second << " s";
        }
    }
    EXPECT_GT(cycles, 250) << "the clip was read";
}

TEST_F(RealFootage, MotionFindsEachCarAsOneCar) {
    // well visible: from one second after coming in to half a second before leaving
    expectObjects("car-detection.mp4", ObjectClass::Car, {{5.0, 8.3, 1}, {15.8, 17.9, 2}, {25.8, 27.5, 1}},
                  {{0, 4.0, 0}, {9.5, 13.5, 0}, {20.0, 24.5, 0}, {28.7, 31, 0}});
}

TEST_F(RealFootage, MotionFindsEachPersonAsOnePerson) {
    expectObjects(
        "one-by-one-person-detection.mp4", ObjectClass::Person,
        {{7.0, 19.3, 1}, {23.8, 44.2, 1}, {51.1, 69.4, 1}, {75.4, 86.5, 1}, {93.2, 119.5, 1}, {124.6, 135.4, 1}},
        {{0, 5.5, 0}, {21.3, 22.3, 0}, {46.2, 49.6, 0}, {71.4, 73.9, 0}, {88.5, 91.7, 0}, {121.5, 123.1, 0}});
}

}  // namespace
}  // namespace desktop

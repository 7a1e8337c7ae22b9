#include "desktop/inference/motion/motion_engine.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <random>

namespace desktop {
namespace {

constexpr int kWidth = 960;
constexpr int kHeight = 540;
const cv::Scalar kDark(40, 45, 50);
const cv::Scalar kRed(170, 40, 40);

/** A paved ground with some texture, the same in every call. */
cv::Mat ground() {
    cv::Mat picture(kHeight, kWidth, CV_8UC3, cv::Scalar(120, 118, 115));
    for (int x = 0; x < kWidth; x += 120) {
        cv::line(picture, {x, 0}, {x + 60, kHeight}, cv::Scalar(100, 100, 98), 3);
    }
    cv::rectangle(picture, {0, 0}, {kWidth, 40}, cv::Scalar(190, 190, 185), cv::FILLED);
    return picture;
}

void drawCar(cv::Mat& picture, int left, int top, const cv::Scalar& colour = kRed) {
    cv::rectangle(picture, cv::Rect(left, top, 240, 100), colour, cv::FILLED);
    cv::rectangle(picture, cv::Rect(left + 60, top + 15, 50, 70), kDark, cv::FILLED);
}

/** A person of 60x150 pixels; step moves the legs. */
void drawPerson(cv::Mat& picture, int left, int top, int step) {
    const int swing = static_cast<int>(std::lround(18 * std::sin(step * 0.9)));
    cv::circle(picture, {left + 30, top + 14}, 14, cv::Scalar(60, 40, 30), cv::FILLED);
    cv::rectangle(picture, cv::Rect(left + 6, top + 28, 48, 62), kDark, cv::FILLED);
    cv::line(picture, {left + 26, top + 88}, {left + 26 - swing, top + 148}, kDark, 16);
    cv::line(picture, {left + 34, top + 88}, {left + 34 + swing, top + 148}, kDark, 16);
}

class Motion : public testing::Test {
protected:
    const std::vector<Detection>& show(const cv::Mat& picture) {
        m_found = m_engine.detect(picture);
        return m_found;
    }

    void showEmpty(int cycles) {
        for (int i = 0; i < cycles; ++i) {
            ASSERT_TRUE(show(ground()).empty()) << "an empty scene, cycle " << i;
        }
    }

    /** The only detection lies about where it is expected (pixels). */
    void expectBox(const cv::Rect& expected, ObjectClass objectClass, const std::string& when) {
        ASSERT_EQ(m_found.size(), 1U) << when;
        const Detection box = {static_cast<float>(expected.x) / kWidth,
                               static_cast<float>(expected.y) / kHeight,
                               static_cast<float>(expected.br().x) / kWidth,
                               static_cast<float>(expected.br().y) / kHeight,
                               objectClass,
                               1};
        EXPECT_GT(intersectionOverUnion(m_found[0], box), 0.7F) << when;
        EXPECT_EQ(m_found[0].objectClass, objectClass) << when;
        EXPECT_GE(m_found[0].score, 0.5F) << when;
        EXPECT_LE(m_found[0].score, 0.99F) << when;
    }

    MotionEngine m_engine{MotionCard{}};
    std::vector<Detection> m_found;
};

TEST_F(Motion, ACarThatDrivesThroughIsOneBoxInEveryCycle) {
    showEmpty(20);
    for (int x = -240; x < kWidth; x += 24) {
        cv::Mat picture = ground();
        drawCar(picture, x, 250);
        show(picture);
        if (x >= 0 && x + 240 <= kWidth) {
            expectBox({x, 250, 240, 100}, ObjectClass::Car, "car at " + std::to_string(x));
        }
    }
    show(ground());
    show(ground());
    EXPECT_TRUE(show(ground()).empty()) << "the car has left";
}

TEST_F(Motion, AWalkingPersonIsAPerson) {
    showEmpty(20);
    int step = 0;
    for (int x = -60; x < kWidth - 70; x += 12, ++step) {
        cv::Mat picture = ground();
        drawPerson(picture, x, 250, step);
        show(picture);
        if (x >= 60) {
            expectBox({x, 250, 60, 156}, ObjectClass::Person, "person at " + std::to_string(x));
        }
    }
}

TEST_F(Motion, AnObjectAtRestStays) {
    showEmpty(20);
    for (int x = -240; x < 300; x += 20) {
        cv::Mat picture = ground();
        drawCar(picture, x, 250);
        show(picture);
    }
    cv::Mat parked = ground();
    drawCar(parked, 300, 250);
    for (int i = 0; i < 600; ++i) {
        show(parked);
        expectBox({300, 250, 240, 100}, ObjectClass::Car, "at rest, cycle " + std::to_string(i));
    }
}

TEST_F(Motion, WhoStopsInMidPictureIsUnconfirmedUntilItIsFound) {
    showEmpty(20);
    EXPECT_TRUE(m_engine.unconfirmed().empty());
    cv::Mat picture = ground();
    drawPerson(picture, 300, 250, 0);
    const Detection somebody = {300.0F / kWidth, 250.0F / kHeight, 360.0F / kWidth, 406.0F / kHeight};
    int cycles = 0;
    for (; show(picture).empty() && cycles < 100; ++cycles) {
        const std::vector<Detection> unconfirmed = m_engine.unconfirmed();
        ASSERT_EQ(unconfirmed.size(), 1U) << "cycle " << cycles;
        EXPECT_GT(intersectionOverUnion(unconfirmed[0], somebody), 0.7F) << "cycle " << cycles;
    }
    EXPECT_GT(cycles, 0);
    EXPECT_LT(cycles, 100);
    EXPECT_TRUE(m_engine.unconfirmed().empty()) << "found by now";
}

TEST(MotionSettings, AbsorbCyclesEndsARest) {
    MotionCard card;
    card.absorbCycles = 50;
    MotionEngine engine(card);
    for (int i = 0; i < 20; ++i) {
        engine.detect(ground());
    }
    cv::Mat picture;
    for (int x = -240; x <= 300; x += 20) {
        picture = ground();
        drawCar(picture, x, 250);
        engine.detect(picture);
    }
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(engine.detect(picture).size(), 1U) << "cycle " << i;
    }
    for (int i = 0; i < 20; ++i) {
        engine.detect(picture);
    }
    EXPECT_TRUE(engine.detect(picture).empty());
}

TEST(MotionSettings, OnlyTheCardsClassesAreGiven) {
    MotionCard card;
    card.classes = {ObjectClass::Boat};
    MotionEngine engine(card);
    std::vector<Detection> found;
    for (int i = 0; i < 20; ++i) {
        engine.detect(ground());
    }
    for (int x = -240; x <= 300; x += 20) {
        cv::Mat picture = ground();
        drawCar(picture, x, 250);
        found = engine.detect(picture);
    }
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].objectClass, ObjectClass::Boat);
}

struct Lighting {
    const char* name;
    std::function<double(int cycle)> gain;
    std::function<double(int cycle)> offset;
};

class MotionUnderLight : public testing::TestWithParam<Lighting> {};

TEST_P(MotionUnderLight, AnEmptySceneStaysEmpty) {
    MotionEngine engine{MotionCard{}};
    for (int i = 0; i < 150; ++i) {
        cv::Mat picture;
        ground().convertTo(picture, CV_8U, GetParam().gain(i), GetParam().offset(i));
        ASSERT_TRUE(engine.detect(picture).empty()) << "cycle " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Light, MotionUnderLight,
    testing::Values(Lighting{"Dusk", [](int i) { return 1 - 0.004 * i; }, [](int) { return 0; }},
                    Lighting{"Dawn", [](int i) { return 0.5 + 0.005 * i; }, [](int) { return 0; }},
                    Lighting{"Flicker", [](int i) { return 1 + 0.12 * std::sin(i * 1.3); }, [](int) { return 0; }},
                    Lighting{"ExposureStep", [](int i) { return i < 50 ? 1 : 0.6; }, [](int) { return 0; }},
                    Lighting{"Haze", [](int) { return 1; }, [](int i) { return i < 60 ? 0 : 15; }}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(Motion, NoiseIsNoObject) {
    std::mt19937 generator(7);
    std::normal_distribution<double> noise(0, 6);
    for (int i = 0; i < 40; ++i) {
        cv::Mat picture = ground();
        for (int y = 0; y < picture.rows; ++y) {
            auto* row = picture.ptr<unsigned char>(y);
            for (int x = 0; x < picture.cols * 3; ++x) {
                row[x] = cv::saturate_cast<unsigned char>(row[x] + noise(generator));
            }
        }
        EXPECT_TRUE(show(picture).empty()) << "cycle " << i;
    }
}

TEST_F(Motion, AMovingShadowIsNoObject) {
    showEmpty(20);
    for (int x = -200; x < kWidth; x += 20) {
        cv::Mat picture = ground();
        const cv::Rect shadow = cv::Rect(x, 300, 200, 120) & cv::Rect(0, 0, kWidth, kHeight);
        if (shadow.area() > 0) {
            picture(shadow) *= 0.7;
        }
        EXPECT_TRUE(show(picture).empty()) << "shadow at " << x;
    }
}

TEST_F(Motion, ACarThatTheFirstPictureShowsLeavesNoGhost) {
    cv::Mat picture = ground();
    drawCar(picture, 300, 250);
    for (int i = 0; i < 30; ++i) {
        show(picture);
    }
    for (int x = 300; x < kWidth; x += 30) {
        picture = ground();
        drawCar(picture, x, 250);
        show(picture);
    }
    for (int i = 0; i < 8; ++i) {
        show(ground());
    }
    showEmpty(100);
}

TEST_F(Motion, TwoCarsThatPassStayTwo) {
    showEmpty(20);
    for (int i = 0; i <= 50; ++i) {
        cv::Mat picture = ground();
        // towards each other on neighbouring lanes that touch in the picture
        drawCar(picture, -240 + i * 24, 200);
        drawCar(picture, kWidth - i * 24, 304, cv::Scalar(40, 60, 160));
        show(picture);
        if (i >= 12 && i <= 38) {
            ASSERT_EQ(m_found.size(), 2U) << "cycle " << i;
            EXPECT_EQ(m_found[0].objectClass, ObjectClass::Car) << "cycle " << i;
            EXPECT_EQ(m_found[1].objectClass, ObjectClass::Car) << "cycle " << i;
        }
    }
}

TEST_F(Motion, ATotalChangeIsANewBackground) {
    showEmpty(20);
    const cv::Mat other(kHeight, kWidth, CV_8UC3, cv::Scalar(30, 200, 90));
    cv::Mat turned = other.clone();
    cv::rectangle(turned, {200, 0}, {500, kHeight}, cv::Scalar(220, 30, 60), cv::FILLED);
    for (int i = 0; i < 30; ++i) {
        EXPECT_TRUE(show(turned).empty()) << "cycle " << i;
    }
}

TEST_F(Motion, TheSamePicturesGiveTheSameBoxes) {
    MotionEngine again{MotionCard{}};
    for (int i = 0; i < 60; ++i) {
        cv::Mat picture = ground();
        drawPerson(picture, -60 + 14 * i, 200, i);
        drawCar(picture, 900 - 20 * i, 400);
        show(picture);
        const std::vector<Detection> second = again.detect(picture);
        ASSERT_EQ(m_found.size(), second.size()) << "cycle " << i;
        for (size_t k = 0; k < second.size(); ++k) {
            EXPECT_EQ(m_found[k].left, second[k].left) << "cycle " << i;
            EXPECT_EQ(m_found[k].score, second[k].score) << "cycle " << i;
        }
    }
}

}  // namespace
}  // namespace desktop

#include "web/settings_text.h"

#include <gtest/gtest.h>
#include <stdexcept>

#include "slow_build.h"

namespace {

TEST(SettingsText, OfACoordinateIsItsShareOfTheStream) {
    EXPECT_EQ(settings_text::coordinate(480, 960), "0.500000");
    EXPECT_EQ(settings_text::coordinate(0, 540), "0.000000");
    EXPECT_EQ(settings_text::coordinate(540, 540), "1.000000");
    EXPECT_EQ(settings_text::coordinate(-480, 960), "-0.500000");
    EXPECT_EQ(settings_text::coordinate(1440, 960), "1.500000");
    EXPECT_EQ(settings_text::coordinate(7, 0), "0.000000") << "no stream yet";
}

TEST(SettingsText, OfACoordinateOnTheWayBackIsCut) {
    EXPECT_EQ(settings_text::pixel("0.5", 960), 480);
    EXPECT_EQ(settings_text::pixel("0.5", 540), 270);
    EXPECT_EQ(settings_text::pixel("0.9999", 100), 99);
    EXPECT_EQ(settings_text::pixel("-0.019", 100), -1);
    EXPECT_EQ(settings_text::pixel(" 1e-1x", 100), 10) << "as much as is a number";
}

TEST(SettingsText, ThatIsNoCoordinateIsRefused) {
    for (const char* text : {"", "x", ".", "<"}) {
        EXPECT_THROW(settings_text::pixel(text, 960), std::invalid_argument) << text;
    }
    for (const char* text : {"nan", "inf", "-inf", "1e38", "3000000", "-3000000", "1e400"}) {
        EXPECT_THROW(settings_text::pixel(text, 960), std::out_of_range) << text;
    }
}

/** The greatest distance of a text from the exact fraction, which the way there and back must survive. */
double worstError(int32_t size) {
    double worst = 0;
    for (int32_t pixel = 0; pixel <= size; ++pixel) {
        const std::string text = settings_text::coordinate(pixel, size);
        EXPECT_EQ(settings_text::pixel(text, size), pixel) << text << " of " << size;
        EXPECT_EQ(text.size(), 8U) << text;
        worst = std::max(worst, std::abs(std::stod(text) - static_cast<double>(pixel) / size));
    }
    return worst;
}

TEST(SettingsText, OfEveryPixelOfTheCommonStreamsSurvivesTheTrip) {
    for (const int32_t size :
         {90,  120, 160, 180, 240, 270,  300,  320,  360,  384,  400,  480,  540,  600,  640,  720,
          768, 800, 864, 960, 972, 1024, 1080, 1200, 1280, 1440, 1536, 1600, 1920, 2160, 2560, 3840}) {
        EXPECT_LE(worstError(size), 2e-6) << size;
    }
}

TEST(SettingsText, OfEveryPixelOfEveryStreamSurvivesTheTrip) {
    for (int32_t size = 90; size <= 3840; size += kSlow ? 61 : 1) {
        EXPECT_LE(worstError(size), 2e-6) << size;
    }
}

TEST(SettingsText, OfCyclesIsSeconds) {
    EXPECT_EQ(settings_text::seconds(10, 200), "2");
    EXPECT_EQ(settings_text::seconds(7, 200), "1.400000");
    EXPECT_EQ(settings_text::seconds(0, 200), "0");
    EXPECT_EQ(settings_text::seconds(5, 1001), "0") << "not one whole cycle a second";
    EXPECT_EQ(settings_text::seconds(5, 0), "0");
    EXPECT_EQ(settings_text::seconds(5, -5), "0");
    EXPECT_EQ(settings_text::cycles("2", 200), 10);
    EXPECT_EQ(settings_text::cycles("2", 150), 12) << "six cycles a second, not 6.67";
    EXPECT_EQ(settings_text::cycles("2", 1001), 0);
    EXPECT_THROW(settings_text::cycles("2", 0), std::domain_error);
    EXPECT_THROW(settings_text::cycles("", 200), std::invalid_argument);
}

TEST(SettingsText, OfCyclesSurvivesTheTrip) {
    for (int32_t period = 1; period <= 1000; ++period) {
        for (const int32_t cycles : {0, 1, 2, 3, 5, 7, 10, 11, 13, 30, 99, 100, 601, 1000}) {
            EXPECT_EQ(settings_text::cycles(settings_text::seconds(cycles, period), period), cycles) << period;
        }
    }
}

}  // namespace

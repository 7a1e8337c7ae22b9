#include "config/settings_file.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "program.h"
#include "test_folder.h"

namespace {

struct BadCase {
    const char* label;
    const char* text;
    const char* error;
};

class BadSettings : public testing::TestWithParam<BadCase> {};

TEST_P(BadSettings, AreRefusedWithWhatWasExpected) {
    const TestFolder folder;
    const std::string path = folder.path() / "settings.json";
    writeFile(path, GetParam().text);
    std::string error = "nothing";
    try {
        readSettingsFile(path);
    } catch (const std::runtime_error& thrown) {
        error = thrown.what();
    }
    EXPECT_EQ(error, path + ": " + GetParam().error) << GetParam().label;
}

constexpr const char* kClasses = "Person, Bicycle, Car, Motorcycle, Airplane, Bus, Train, Truck, Boat";

std::string oneOf(const char* what, const char* got) {
    return std::string("\"classes\": expected ") + what + kClasses + ", got " + got;
}

const std::string kUnknownClass = oneOf("one of ", "\"Dog\"");
const std::string kTwoClassesInOne = oneOf("one of ", "\"Person, Bicycle\"");
const std::string kNoClass = oneOf("one of ", "\"\"");
const std::string kClassNumber = oneOf("one of ", "0");
const std::string kClassText = oneOf("a list of ", "\"Person\"");

INSTANTIATE_TEST_SUITE_P(
    Table, BadSettings,
    testing::Values(
        BadCase{"empty", "", "expected JSON"}, BadCase{"no JSON", "{classes}", "expected JSON"},
        BadCase{"a list", "[1]", "expected settings as a JSON object, got [1]"},
        BadCase{"unknown key", R"({"colour": 1})",
                "unknown setting \"colour\"; known: classes, sensitivity, locator_at_bottom, camera_inside, "
                "detection1..3, detection1..3_threshold_seconds, entrance1..3, exclusion1..3, min_number_for_trigger, "
                "min_occupants_for_trigger, comparison, max_disappear_seconds"},
        BadCase{"unknown class", R"({"classes": ["Person", "Dog"]})", kUnknownClass.c_str()},
        BadCase{"two classes in one", R"({"classes": ["Person, Bicycle"]})", kTwoClassesInOne.c_str()},
        BadCase{"no class", R"({"classes": [""]})", kNoClass.c_str()},
        BadCase{"class by number", R"({"classes": [0]})", kClassNumber.c_str()},
        BadCase{"class as a text", R"({"classes": "Person"})", kClassText.c_str()},
        BadCase{"sensitivity above 1", R"({"sensitivity": 1.5})",
                "\"sensitivity\": expected a number from 0 to 1, got 1.5"},
        BadCase{"sensitivity as a text", R"({"sensitivity": "0.5"})",
                "\"sensitivity\": expected a number from 0 to 1, got \"0.5\""},
        BadCase{"flag as a number", R"({"camera_inside": 1})", "\"camera_inside\": expected true or false, got 1"},
        BadCase{"flag as a text", R"({"locator_at_bottom": "true"})",
                "\"locator_at_bottom\": expected true or false, got \"true\""},
        BadCase{"negative count", R"({"min_number_for_trigger": -1})",
                "\"min_number_for_trigger\": expected a whole number from 0 to 1000000, got -1"},
        BadCase{"half a count", R"({"min_occupants_for_trigger": 1.5})",
                "\"min_occupants_for_trigger\": expected a whole number from 0 to 1000000, got 1.5"},
        BadCase{"unknown comparison", R"({"comparison": "more"})",
                "\"comparison\": expected lessThan, exactly or atLeast, got \"more\""},
        BadCase{"comparison by number", R"({"comparison": 2})",
                "\"comparison\": expected lessThan, exactly or atLeast, got 2"},
        BadCase{"negative time", R"({"max_disappear_seconds": -1})",
                "\"max_disappear_seconds\": expected seconds from 0 to 86400, got -1"},
        BadCase{"two corners", R"({"detection1": [[0,0],[1,1]]})",
                "\"detection1\": expected 3 to 8 corners [x, y], got [[0,0],[1,1]]"},
        BadCase{"nine corners", R"({"entrance3": [[0,0],[0,0],[0,0],[0,0],[0,0],[0,0],[0,0],[0,0],[0,0]]})",
                "\"entrance3\": expected 3 to 8 corners [x, y], got "
                "[[0,0],[0,0],[0,0],[0,0],[0,0],[0,0],[0,0],[0,0],[0,0]]"},
        BadCase{"exclusion of three", R"({"exclusion2": [[0,0],[1,1],[1,0]]})",
                "\"exclusion2\": expected 4 corners [x, y], got [[0,0],[1,1],[1,0]]"},
        BadCase{"corner of three", R"({"detection2": [[0,0],[1,1],[1,0,1]]})",
                "\"detection2\": expected corners [x, y], got [1,0,1]"},
        BadCase{"corner outside", R"({"detection2": [[0,0],[1,1],[1.01,0]]})",
                "\"detection2\": expected a number from 0 to 1, got 1.01"},
        BadCase{"area 4", R"({"detection4": []})",
                "unknown setting \"detection4\"; known: classes, sensitivity, locator_at_bottom, camera_inside, "
                "detection1..3, detection1..3_threshold_seconds, entrance1..3, exclusion1..3, min_number_for_trigger, "
                "min_occupants_for_trigger, comparison, max_disappear_seconds"},
        BadCase{"threshold as a text", R"({"detection1_threshold_seconds": "5"})",
                "\"detection1_threshold_seconds\": expected a whole number from 0 to 1000000, got \"5\""}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST(SettingsFile, ThatIsMissingIsNamed) {
    try {
        readSettingsFile("/missing/settings.json");
        ADD_FAILURE() << "expected an error";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "cannot read the settings file /missing/settings.json");
    }
}

TEST(SettingsFile, ReachesTheRecordInPixels) {
    const Settings settings = parseSettings(nlohmann::json::parse(R"({
        "classes": ["Car", "Boat"], "sensitivity": 0.5, "locator_at_bottom": true, "camera_inside": true,
        "min_number_for_trigger": 2, "min_occupants_for_trigger": 9, "comparison": "exactly",
        "max_disappear_seconds": 2.5, "detection2_threshold_seconds": 7,
        "detection2": [[0, 0], [0.5, 0], [0.5, 1]],
        "detection3": [[0, 0], [1, 0], [1, 1], [0.25, 1], [0, 0.75]],
        "exclusion1": [[0, 0], [1, 0], [1, 1], [0, 1]]})"));
    ConfigParams config;
    config.b_DetectPersons = true;
    config.b_Detection1Active = true;
    config.i_MainLoopTime = 77;
    applySettings(settings, 640, 360, 100, config);
    EXPECT_FALSE(config.b_DetectPersons);
    EXPECT_TRUE(config.b_DetectCars);
    EXPECT_TRUE(config.b_DetectBoats);
    EXPECT_EQ(config.f_Sensitivity, 0.5F);
    EXPECT_TRUE(config.b_LocatorAtBottom);
    EXPECT_TRUE(config.b_IsCameraInside);
    EXPECT_EQ(config.i_MinNumberOfPeopleForTrigger, 2);
    EXPECT_EQ(config.i_MinOccupantsForTrigger, 9);
    EXPECT_EQ(config.e_AoiLogicComparison, logicComparison::exactly);
    EXPECT_EQ(config.i_MaxDisappeared, 25) << "2.5 s are 25 cycles of 100 ms";
    EXPECT_EQ(config.i_Detection2ThreshSeconds, 7);
    EXPECT_FALSE(config.b_Detection1Active) << "not named, so off";
    EXPECT_TRUE(config.b_Detection2Active);
    EXPECT_TRUE(config.b_Detection3Active);
    EXPECT_TRUE(config.b_Exclusion1Active);
    EXPECT_EQ(config.i_DetectionControlPoints, 5) << "the most corners of an area";
    EXPECT_EQ(config.i_Detection2,
              (PointArray<8>{0, 0, 320, 0, 320, 360, 320, 360, 320, 360, 320, 360, 320, 360, 320, 360}))
        << "missing corners stand on the last";
    EXPECT_EQ(config.i_Detection3[6], 160);
    EXPECT_EQ(config.i_Detection3[9], 270);
    EXPECT_EQ(config.i_Exclusion1, (PointArray<4>{0, 0, 640, 0, 640, 360, 0, 360}));
    EXPECT_EQ(config.i_MainLoopTime, 77) << "what settings cannot say stays";
}

}  // namespace

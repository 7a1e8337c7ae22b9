#include <algorithm>

#include "store_fixture.h"

namespace {

using Lines = std::vector<std::string>;

/** Every name in order, each behind the word. */
Lines each(const std::string& word, const Lines& names) {
    Lines lines;
    for (const std::string& name : names) {
        lines.push_back(word + " " + name);
    }
    return lines;
}

Lines joined(const std::vector<Lines>& parts) {
    Lines all;
    for (const Lines& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

/** The corners of three areas: Exclusion10x, Exclusion10y, Exclusion11x, ... */
Lines corners(const std::string& family, int perArea) {
    Lines names;
    for (const char area : {'1', '2', '3'}) {
        for (int corner = 0; corner < perArea; ++corner) {
            for (const char axis : {'x', 'y'}) {
                names.push_back(family + area + std::to_string(corner) + axis);
            }
        }
    }
    return names;
}

Lines followers(const std::string& before, const std::string& after) {
    Lines names;
    for (int number = 1; number <= 10; ++number) {
        names.push_back(before + std::to_string(number) + after);
    }
    return names;
}

const Lines kExclusionFlags = {"Exclusion1Active", "Exclusion2Active", "Exclusion3Active"};
const Lines kDetectionFlags = {"Detection1Active", "Detection2Active", "Detection3Active"};
const Lines kDwellTimes = {"Detection1ThreshSeconds", "Detection2ThreshSeconds", "Detection3ThreshSeconds"};
const Lines kEntranceFlags = {"Occupancy1Active", "Occupancy2Active", "Occupancy3Active"};
const Lines kClassFlags = {"DetectPersons", "DetectCars",   "DetectMotorcycles", "DetectBicycles", "DetectAirplanes",
                           "DetectBuses",   "DetectTrains", "DetectTrucks",      "DetectBoats"};

/** In the order in which the store learns of them. */
Lines registration() {
    return joined(
        {{"HStream", "WStream", "MinNumberOfPeopleForTrigger", "Sensitivity", "ModelWidth", "ModelHeight",
          "MaxDisappeared", "MainLoopTime", "IsCameraInside", "DetectionControlPoints"},
         corners("Detection", 8),
         kDetectionFlags,
         kDwellTimes,
         corners("Exclusion", 4),
         kExclusionFlags,
         {"DetectionOverlaysOn", "AnonOverlaysOn", "SelectedDetectionOverlay", "SelectedAnonOverlay", "PeriodTime"},
         followers("Follower", "IP"),
         followers("Follower", "login"),
         followers("Follower", "PWD"),
         followers("Follower", "CameraName"),
         {"ThisDeviceCameraName"},
         followers("isFollower", "Active"),
         {"EntrancesControlPoints"},
         corners("Occupancy", 8),
         kEntranceFlags,
         {"OccupancyAutoResetActive", "OccupancyAutoResetTime", "MinOccupantsForTrigger"},
         kClassFlags,
         {"VerboseLog", "AoiLogicComparison", "ResetByOccupanyCount", "LocatorAtBottom", "IsSnap"}});
}

/** What loading and saving have in common, in their order; the stream's size stands where only saving has it. */
Lines walk(const Lines& streamSize) {
    return joined({corners("Exclusion", 4),
                   kExclusionFlags,
                   {"DetectionControlPoints"},
                   corners("Detection", 8),
                   kDetectionFlags,
                   kDwellTimes,
                   streamSize,
                   {"MinNumberOfPeopleForTrigger", "Sensitivity", "DetectionOverlaysOn", "AnonOverlaysOn",
                    "SelectedDetectionOverlay", "SelectedAnonOverlay", "MaxDisappeared"},
                   kClassFlags,
                   {"VerboseLog", "AoiLogicComparison", "ResetByOccupanyCount", "LocatorAtBottom", "IsSnap",
                    "EntrancesControlPoints"},
                   corners("Occupancy", 8),
                   kEntranceFlags,
                   {"IsCameraInside", "OccupancyAutoResetActive", "OccupancyAutoResetTime", "MinOccupantsForTrigger"}});
}

TEST_F(Store, RegistersEveryParameterInOrder) {
    m_store.init_controller("ostrel_senvo");
    EXPECT_EQ(registration().size(), 216U);
    EXPECT_EQ(scripted::parameterCalls(),
              joined({{"get root.Image.I0.Appearance.Rotation"}, each("add", registration())}));
}

TEST_F(Store, LoadsInOrder) {
    open();
    m_store.load_config_params();
    EXPECT_EQ(scripted::parameterCalls(), each("get", joined({{"ModelWidth", "ModelHeight", "MainLoopTime"},
                                                              walk({}),
                                                              {"PeriodTime"},
                                                              followers("Follower", "IP"),
                                                              followers("Follower", "login"),
                                                              followers("Follower", "PWD"),
                                                              followers("Follower", "CameraName"),
                                                              {"ThisDeviceCameraName"},
                                                              followers("isFollower", "Active")})));
}

TEST_F(Store, SavesInOrder) {
    open();
    m_store.save_config_params({});
    Lines names;
    for (const std::string& call : scripted::parameterCalls()) {
        names.push_back(call.substr(0, call.find('=')));
    }
    EXPECT_EQ(names, each("set", joined({walk({"HStream", "WStream"}),
                                         {"PeriodTime"},
                                         followers("Follower", "IP"),
                                         followers("Follower", "login"),
                                         followers("Follower", "PWD"),
                                         {"ThisDeviceCameraName"},
                                         followers("Follower", "CameraName"),
                                         followers("isFollower", "Active")})));
}

TEST_F(Store, EveryParameterReachesItsFieldAndComesBack) {
    open();
    // A value of its own for every parameter, so that no two fields can be mixed up.
    std::map<std::string, std::string> expected;
    int number = 100;
    for (const ParameterDeclaration& parameter : parameterTable()) {
        std::string& text = scripted::parameters()[parameter.name];
        ++number;
        switch (parameter.type) {
            case ParameterType::Integer:
                text = std::to_string(number);
                break;
            case ParameterType::Float:
                text = "0.250000";
                break;
            case ParameterType::Bool:
                text = number % 2 == 0 ? "true" : "false";
                break;
            case ParameterType::String:
                text = "text " + std::to_string(number);
                break;
        }
        expected[parameter.name] = text;
    }
    const ConfigParams config = m_store.load_config_params();
    EXPECT_EQ(config.i_WStream, 0) << "never read";
    EXPECT_EQ(config.i_HStream, 0);
    EXPECT_EQ(std::to_string(config.i_ModelWidth), expected["ModelWidth"]);
    EXPECT_EQ(std::to_string(config.i_ModelHeight), expected["ModelHeight"]);
    EXPECT_EQ(std::to_string(config.i_MainLoopTime), expected["MainLoopTime"]);
    EXPECT_EQ(config.f_Sensitivity, 0.25F);
    const auto expectCorners = [&](const std::string& area, const auto& points) {
        for (size_t i = 0; i < points.size(); ++i) {
            const std::string name = area + std::to_string(i / 2) + (i % 2 == 0 ? "x" : "y");
            EXPECT_EQ(std::to_string(points[i]), expected[name]) << name;
        }
    };
    expectCorners("Detection1", config.i_Detection1);
    expectCorners("Detection2", config.i_Detection2);
    expectCorners("Detection3", config.i_Detection3);
    expectCorners("Exclusion1", config.i_Exclusion1);
    expectCorners("Exclusion2", config.i_Exclusion2);
    expectCorners("Exclusion3", config.i_Exclusion3);
    expectCorners("Occupancy1", config.i_Occupancy1);
    expectCorners("Occupancy2", config.i_Occupancy2);
    expectCorners("Occupancy3", config.i_Occupancy3);
    const std::map<std::string, int32_t> integers = {
        {"Detection1ThreshSeconds", config.i_Detection1ThreshSeconds},
        {"Detection2ThreshSeconds", config.i_Detection2ThreshSeconds},
        {"Detection3ThreshSeconds", config.i_Detection3ThreshSeconds},
        {"DetectionControlPoints", config.i_DetectionControlPoints},
        {"EntrancesControlPoints", config.i_EntrancesControlPoints},
        {"MinNumberOfPeopleForTrigger", config.i_MinNumberOfPeopleForTrigger},
        {"MinOccupantsForTrigger", config.i_MinOccupantsForTrigger},
        {"MaxDisappeared", config.i_MaxDisappeared},
        {"AoiLogicComparison", static_cast<int32_t>(config.e_AoiLogicComparison)}};
    for (const auto& [name, value] : integers) {
        EXPECT_EQ(std::to_string(value), expected[name]) << name;
    }
    EXPECT_EQ(config.str_DetectionOverlay, expected["SelectedDetectionOverlay"]);
    EXPECT_EQ(config.str_AnonOverlay, expected["SelectedAnonOverlay"]);
    EXPECT_EQ(config.str_OccupancyAutoResetTime, expected["OccupancyAutoResetTime"]);
    for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
        const std::string follower = "Follower" + std::to_string(i + 1);
        EXPECT_EQ(config.cameraInfo.followerIPAddress[i], expected[follower + "IP"]);
        EXPECT_EQ(config.cameraInfo.followerLogin[i], expected[follower + "login"]);
        EXPECT_EQ(config.cameraInfo.followerPassword[i], expected[follower + "PWD"]);
        EXPECT_EQ(config.cameraInfo.followerCameraName[i], expected[follower + "CameraName"]);
    }
    EXPECT_EQ(config.cameraInfo.thisCameraName, expected["ThisDeviceCameraName"]);
    EXPECT_EQ(std::to_string(config.cameraInfo.i_PeriodTime), expected["PeriodTime"]);

    for (auto& [name, value] : scripted::parameters()) {
        value = "not written";
    }
    expected["HStream"] = expected["WStream"] = "0";
    expected["ModelWidth"] = expected["ModelHeight"] = expected["MainLoopTime"] = "not written";
    m_store.save_config_params(config);
    for (const auto& [name, value] : expected) {
        EXPECT_EQ(scripted::parameters().at(name), value) << name;
    }

    // The record as texts is what the store holds, but for what the package fixes and what is only published.
    for (const char* const name : {"ModelWidth", "ModelHeight", "MainLoopTime", "HStream", "WStream"}) {
        expected.erase(name);
    }
    EXPECT_EQ(parameter_controller::stored_texts(config), expected);
}

struct FieldCase {
    const char* parameter;
    bool ConfigParams::*field;
};

class Flag : public Store, public testing::WithParamInterface<FieldCase> {};

TEST_P(Flag, FeedsItsFieldAndNoOther) {
    open();
    for (const FieldCase& other :
         {FieldCase{"DetectPersons", &ConfigParams::b_DetectPersons}, FieldCase{"IsSnap", &ConfigParams::b_IsSnap}}) {
        scripted::parameters()[other.parameter] = "false";
    }
    scripted::parameters()[GetParam().parameter] = "true";
    const ConfigParams config = m_store.load_config_params();
    EXPECT_TRUE(config.*(GetParam().field)) << GetParam().parameter;
    m_store.save_config_params({});
    EXPECT_EQ(scripted::parameters().at(GetParam().parameter), "false");
    ConfigParams one;
    one.*(GetParam().field) = true;
    m_store.save_config_params(one);
    for (const ParameterDeclaration& parameter : parameterTable()) {
        if (parameter.type == ParameterType::Bool) {
            EXPECT_EQ(scripted::parameters().at(parameter.name),
                      parameter.name == GetParam().parameter ? "true" : "false")
                << parameter.name;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Table, Flag,
                         testing::Values(FieldCase{"Exclusion1Active", &ConfigParams::b_Exclusion1Active},
                                         FieldCase{"Exclusion2Active", &ConfigParams::b_Exclusion2Active},
                                         FieldCase{"Exclusion3Active", &ConfigParams::b_Exclusion3Active},
                                         FieldCase{"Detection1Active", &ConfigParams::b_Detection1Active},
                                         FieldCase{"Detection2Active", &ConfigParams::b_Detection2Active},
                                         FieldCase{"Detection3Active", &ConfigParams::b_Detection3Active},
                                         FieldCase{"DetectionOverlaysOn", &ConfigParams::b_DetectionOverlaysOn},
                                         FieldCase{"AnonOverlaysOn", &ConfigParams::b_AnonOverlaysOn},
                                         FieldCase{"DetectPersons", &ConfigParams::b_DetectPersons},
                                         FieldCase{"DetectCars", &ConfigParams::b_DetectCars},
                                         FieldCase{"DetectMotorcycles", &ConfigParams::b_DetectMotorcycles},
                                         FieldCase{"DetectBicycles", &ConfigParams::b_DetectBicycles},
                                         FieldCase{"DetectAirplanes", &ConfigParams::b_DetectAirplanes},
                                         FieldCase{"DetectBuses", &ConfigParams::b_DetectBuses},
                                         FieldCase{"DetectTrains", &ConfigParams::b_DetectTrains},
                                         FieldCase{"DetectTrucks", &ConfigParams::b_DetectTrucks},
                                         FieldCase{"DetectBoats", &ConfigParams::b_DetectBoats},
                                         FieldCase{"VerboseLog", &ConfigParams::b_VerboseLog},
                                         FieldCase{"ResetByOccupanyCount", &ConfigParams::b_ResetByOccupanyCount},
                                         FieldCase{"LocatorAtBottom", &ConfigParams::b_LocatorAtBottom},
                                         FieldCase{"IsSnap", &ConfigParams::b_IsSnap},
                                         FieldCase{"Occupancy1Active", &ConfigParams::b_Occupancy1Active},
                                         FieldCase{"Occupancy2Active", &ConfigParams::b_Occupancy2Active},
                                         FieldCase{"Occupancy3Active", &ConfigParams::b_Occupancy3Active},
                                         FieldCase{"IsCameraInside", &ConfigParams::b_IsCameraInside},
                                         FieldCase{"OccupancyAutoResetActive",
                                                   &ConfigParams::b_OccupancyAutoResetActive}),
                         [](const auto& instance) { return std::string(instance.param.parameter); });

TEST_F(Store, AFollowersFlagIsThatOfNoOther) {
    open();
    for (size_t set = 0; set < CameraInfo::kFollowers; ++set) {
        for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
            scripted::parameters()["isFollower" + std::to_string(i + 1) + "Active"] = i == set ? "true" : "false";
        }
        const CameraInfo cameras = m_store.load_cameraInfo();
        for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
            EXPECT_EQ(cameras.followerActive[i], i == set) << i;
        }
    }
}

TEST(Records, AreZeroWhenMade) {
    const MetricsParams metrics;
    EXPECT_EQ(metrics.occupancyCount, 0);
    EXPECT_EQ(metrics.crowdCount1, 0);
    EXPECT_EQ(metrics.crowdCount2, 0);
    EXPECT_EQ(metrics.crowdCount3, 0);
    const LeaderMetricsParams leader;
    EXPECT_EQ(leader.totalOccupancy, 0);
    EXPECT_EQ(leader.totalCrowdCount, 0);
    for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
        EXPECT_EQ(leader.followerCrowdCount[i], 0);
        EXPECT_EQ(leader.followerStatus[i], 0);
    }
}

TEST_F(Store, NegativeNumbersAreWrittenUnsignedAndReadBack) {
    open();
    ConfigParams config;
    config.i_Detection1[0] = -1;
    config.e_AoiLogicComparison = logicComparison::atLeast;
    m_store.save_config_params(config);
    EXPECT_EQ(scripted::parameters().at("Detection10x"), "4294967295");
    EXPECT_EQ(scripted::parameters().at("AoiLogicComparison"), "2");
    const ConfigParams loaded = m_store.load_config_params();
    EXPECT_EQ(loaded.i_Detection1[0], -1);
    EXPECT_EQ(loaded.e_AoiLogicComparison, logicComparison::atLeast);
}

TEST_F(Store, TheModelFilesAreAlwaysTheSame) {
    open();
    for (const char* held : {"0", "other.tflite"}) {
        for (auto& [name, value] : scripted::parameters()) {
            value = held;
        }
        const ConfigParams config = m_store.load_config_params();
        EXPECT_EQ(config.s_LandscapeModelFileName, "detect_960_540_tpu.tflite");
        EXPECT_EQ(config.s_PortraitModelFileName, "detect_540_960_tpu.tflite");
    }
}

TEST_F(Store, AFailedReadGoesOnWithTheNext) {
    open();
    scripted::parameters()["ModelWidth"] = "960";
    scripted::failAt("ax_parameter_get", 2, {});
    EXPECT_EQ(m_store.load_config_params().i_ModelWidth, 960U);
    const Lines errors = LogCapture::ofLevel("error");
    EXPECT_EQ(errors.size(), 216U - 1 - 2) << "all but ModelWidth and the two that are never read";
    EXPECT_EQ(errors.front(), "get_gint_parameter: Failed to get ModelHeight");
    EXPECT_EQ(errors.back(), "get_boolean_parameter: Failed to get isFollower10Active");
}

TEST_F(Store, AFailedWriteGoesOnWithTheNext) {
    open();
    scripted::failAt("ax_parameter_set", 1, {});
    m_store.save_config_params({});
    const Lines errors = LogCapture::ofLevel("error");
    EXPECT_EQ(errors.size(), 216U - 3) << "all but the three that are never written";
    EXPECT_EQ(errors.front(), "set_guint_parameter: Failed to save Exclusion10x");
    EXPECT_EQ(errors.back(), "set_boolean_parameter: Failed to save isFollower10Active");
}

}  // namespace

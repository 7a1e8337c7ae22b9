#include <map>

#include "settings_fixture.h"

/* Every element of the settings document has a field of its own, on the way in and on the way out, and every area. */

namespace {

using Tags = std::map<std::string, std::string>;
using Points8 = PointArray<4> ConfigParams::*;
using Points16 = PointArray<8> ConfigParams::*;
using Number = int32_t ConfigParams::*;
using Flag = bool ConfigParams::*;

const std::map<std::string, Points16> kOutlines = {
    {"Detection1", &ConfigParams::i_Detection1}, {"Detection2", &ConfigParams::i_Detection2},
    {"Detection3", &ConfigParams::i_Detection3}, {"Entrance1", &ConfigParams::i_Occupancy1},
    {"Entrance2", &ConfigParams::i_Occupancy2},  {"Entrance3", &ConfigParams::i_Occupancy3}};

const std::map<std::string, Points8> kExclusions = {{"Exclusion1", &ConfigParams::i_Exclusion1},
                                                    {"Exclusion2", &ConfigParams::i_Exclusion2},
                                                    {"Exclusion3", &ConfigParams::i_Exclusion3}};

const std::map<std::string, Number> kNumbers = {
    {"MinNumberOfPeopleForTrigger", &ConfigParams::i_MinNumberOfPeopleForTrigger},
    {"DetectionControlPoints", &ConfigParams::i_DetectionControlPoints},
    {"EntrancesControlPoints", &ConfigParams::i_EntrancesControlPoints},
    {"Detection1ThreshSeconds", &ConfigParams::i_Detection1ThreshSeconds},
    {"Detection2ThreshSeconds", &ConfigParams::i_Detection2ThreshSeconds},
    {"Detection3ThreshSeconds", &ConfigParams::i_Detection3ThreshSeconds},
    {"Occupants", &ConfigParams::i_MinOccupantsForTrigger}};

const std::map<std::string, Flag> kFlags = {{"DetectPersons", &ConfigParams::b_DetectPersons},
                                            {"DetectCars", &ConfigParams::b_DetectCars},
                                            {"DetectMotorcycles", &ConfigParams::b_DetectMotorcycles},
                                            {"DetectBicycles", &ConfigParams::b_DetectBicycles},
                                            {"DetectAirplanes", &ConfigParams::b_DetectAirplanes},
                                            {"DetectBuses", &ConfigParams::b_DetectBuses},
                                            {"DetectTrains", &ConfigParams::b_DetectTrains},
                                            {"DetectTrucks", &ConfigParams::b_DetectTrucks},
                                            {"DetectBoats", &ConfigParams::b_DetectBoats},
                                            {"VerboseLog", &ConfigParams::b_VerboseLog},
                                            {"ResetByOccupanyCount", &ConfigParams::b_ResetByOccupanyCount},
                                            {"LocatorAtBottom", &ConfigParams::b_LocatorAtBottom},
                                            {"IsSnap", &ConfigParams::b_IsSnap},
                                            {"DetectionOverlaysOn", &ConfigParams::b_DetectionOverlaysOn},
                                            {"AnonOverlaysOn", &ConfigParams::b_AnonOverlaysOn},
                                            {"Detection1_Active", &ConfigParams::b_Detection1Active},
                                            {"Detection2_Active", &ConfigParams::b_Detection2Active},
                                            {"Detection3_Active", &ConfigParams::b_Detection3Active},
                                            {"Exclusion1_Active", &ConfigParams::b_Exclusion1Active},
                                            {"Exclusion2_Active", &ConfigParams::b_Exclusion2Active},
                                            {"Exclusion3_Active", &ConfigParams::b_Exclusion3Active},
                                            {"Entrance1_Active", &ConfigParams::b_Occupancy1Active},
                                            {"Entrance2_Active", &ConfigParams::b_Occupancy2Active},
                                            {"Entrance3_Active", &ConfigParams::b_Occupancy3Active},
                                            {"IsCameraInside", &ConfigParams::b_IsCameraInside},
                                            {"IsOccResOn", &ConfigParams::b_OccupancyAutoResetActive}};

class Fields : public SettingsFixture {
protected:
    /** A whole upload in which no two elements of a kind are equal. */
    static Tags distinct() {
        Tags tags = everything();
        int number = 0;
        const auto points = [&](const std::string& area, int count) {
            for (int i = 0; i < count; ++i) {
                // The middle of a pixel of 960 or 540.
                tags[area + "_" + std::to_string(i)] = std::to_string((++number + 0.5) / (i % 2 == 0 ? 960 : 540));
            }
        };
        for (const auto& [area, field] : kOutlines) {
            points(area, 16);
        }
        for (const auto& [area, field] : kExclusions) {
            points(area, 8);
        }
        for (const auto& [tag, field] : kNumbers) {
            tags[tag] = std::to_string(++number);
        }
        tags["RepInt"] = std::to_string(++number);
        for (int follower = 1; follower <= 10; ++follower) {
            for (const char* what : {"Name", "Login", "Pwd", "IP"}) {
                const std::string tag = "FO" + std::to_string(follower) + "_" + what;
                tags[tag] = "text of " + tag;
            }
        }
        return tags;
    }

    static int pixel(const Tags& tags, const std::string& area, size_t i) {
        return static_cast<int>(std::stod(tags.at(area + "_" + std::to_string(i))) * (i % 2 == 0 ? 960 : 540));
    }
};

TEST_F(Fields, TakeTheirOwnElementAndGiveItBack) {
    const Tags sent = distinct();
    upload(sent);
    for (const auto& [area, field] : kOutlines) {
        for (size_t i = 0; i < 16; ++i) {
            EXPECT_EQ((m_config.*field)[i], pixel(sent, area, i)) << area << "_" << i;
        }
    }
    for (const auto& [area, field] : kExclusions) {
        for (size_t i = 0; i < 8; ++i) {
            EXPECT_EQ((m_config.*field)[i], pixel(sent, area, i)) << area << "_" << i;
        }
    }
    for (const auto& [tag, field] : kNumbers) {
        EXPECT_EQ(std::to_string(m_config.*field), sent.at(tag)) << tag;
    }
    const CameraInfo& cameras = m_config.cameraInfo;
    EXPECT_EQ(std::to_string(cameras.i_PeriodTime), sent.at("RepInt"));
    for (size_t i = 0; i < 10; ++i) {
        const std::string follower = "text of FO" + std::to_string(i + 1) + "_";
        EXPECT_EQ(cameras.followerCameraName[i], follower + "Name");
        EXPECT_EQ(cameras.followerLogin[i], follower + "Login");
        EXPECT_EQ(cameras.followerPassword[i], follower + "Pwd");
        EXPECT_EQ(cameras.followerIPAddress[i], follower + "IP");
    }

    const Tags came = document();
    for (const auto& [tag, value] : sent) {
        if (tag.find_first_of('_') != std::string::npos && std::isdigit(tag.back()) != 0) {
            const std::string area = tag.substr(0, tag.find('_'));
            const auto i = static_cast<size_t>(std::stoi(tag.substr(area.size() + 1)));
            EXPECT_EQ(pixel(came, area, i), pixel(sent, area, i)) << tag;
        } else if (tag != "Sensitivity") {
            EXPECT_EQ(came.at(tag), value) << tag;
        }
    }
}

TEST_F(Fields, OfAFlagAreThoseOfNoOther) {
    for (const auto& [set, field] : kFlags) {
        Tags tags = everything();
        for (const auto& [tag, other] : kFlags) {
            tags[tag] = tag == set ? "1" : "0";
        }
        upload(tags);
        for (const auto& [tag, other] : kFlags) {
            EXPECT_EQ(m_config.*other, tag == set) << tag << " after " << set;
            EXPECT_EQ(document().at(tag), tag == set ? "1" : "0") << tag << " after " << set;
        }
    }
    for (size_t set = 0; set < 10; ++set) {
        Tags tags = everything();
        for (size_t i = 0; i < 10; ++i) {
            tags["FO" + std::to_string(i + 1) + "_Active"] = i == set ? "1" : "0";
        }
        upload(tags);
        for (size_t i = 0; i < 10; ++i) {
            EXPECT_EQ(m_config.cameraInfo.followerActive[i], i == set);
            EXPECT_EQ(document().at("FO" + std::to_string(i + 1) + "_Active"), i == set ? "1" : "0");
        }
    }
}

TEST_F(Fields, OfOutlinesReachTheirArea) {
    upload(distinct());
    area_of_interest areas(m_config);
    parameter_io::store_points_into_AOI(m_config, areas);
    parameter_io::store_points_into_exclusions(m_config, areas);
    parameter_io::store_points_into_occupancies(m_config, areas);
    const auto expectPoints = [](const t_Polygon& polygon, const auto& points, const std::string& name) {
        ASSERT_EQ(polygon.size(), points.size() / 2) << name;
        for (size_t i = 0; i < polygon.size(); ++i) {
            EXPECT_EQ(polygon[i], t_one_locator(points[2 * i], points[2 * i + 1])) << name << ", corner " << i;
        }
    };
    for (int n = 1; n <= 3; ++n) {
        const std::string number = std::to_string(n);
        expectPoints(areas.get_detection(n), m_config.*kOutlines.at("Detection" + number), "detection area " + number);
        expectPoints(areas.get_exclusion(n), m_config.*kExclusions.at("Exclusion" + number), "exclusion " + number);
    }
}

/** A square of 100 pixels for each of three areas, one beside the other, and a point in the middle of each. */
template <size_t points>
PointArray<points> square(int n) {
    PointArray<points> corners = {};
    const int left = 100 * n;
    const int sides[4][2] = {{left, 0}, {left + 100, 0}, {left + 100, 100}, {left, 100}};
    for (size_t i = 0; i < points; ++i) {
        corners[2 * i] = sides[std::min<size_t>(i, 3)][0];
        corners[2 * i + 1] = sides[std::min<size_t>(i, 3)][1];
    }
    return corners;
}

TEST_F(Fields, OfAreasSwitchOnTheirOwn) {
    for (int on = 1; on <= 3; ++on) {
        ConfigParams config;
        config.i_DetectionControlPoints = config.i_EntrancesControlPoints = 4;
        for (int n = 1; n <= 3; ++n) {
            const std::string number = std::to_string(n);
            config.*kOutlines.at("Detection" + number) = square<8>(n);
            config.*kOutlines.at("Entrance" + number) = square<8>(n);
            config.*kExclusions.at("Exclusion" + number) = square<4>(n);
            config.*kFlags.at("Detection" + number + "_Active") = n == on;
            config.*kFlags.at("Entrance" + number + "_Active") = n == on;
            config.*kFlags.at("Exclusion" + number + "_Active") = n == on;
        }
        area_of_interest areas(config);
        parameter_io::store_points_into_AOI(config, areas);
        parameter_io::store_points_into_exclusions(config, areas);
        parameter_io::store_points_into_occupancies(config, areas);
        for (int n = 1; n <= 3; ++n) {
            const t_one_locator inside(100 * n + 50, 50);
            EXPECT_EQ(areas.is_detected(n, inside), n == on) << n << " while " << on << " is on";
            EXPECT_EQ(areas.is_in_entrance(n, inside), n == on) << n << " while " << on << " is on";
            EXPECT_EQ(areas.is_excluded(inside), n == on) << n << " while " << on << " is on";
        }
    }
}

}  // namespace

#include "config/config_params.h"

namespace {

constexpr int32_t kFollowerStopped = 300;
constexpr int32_t kFollowerWithoutAnswer = 700;

using Table = std::vector<ParameterDeclaration>;

void add(Table& table, ParameterType type, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        table.push_back({name, type});
    }
}

/** The points of three areas: family, area 1..3, point 0.., then x and y. */
void addPoints(Table& table, const std::string& family, int points) {
    for (int area = 1; area <= 3; ++area) {
        for (int point = 0; point < points; ++point) {
            const std::string name = family + std::to_string(area) + std::to_string(point);
            table.push_back({name + "x", ParameterType::Integer});
            table.push_back({name + "y", ParameterType::Integer});
        }
    }
}

void addFollowers(Table& table, ParameterType type, const std::string& before, const std::string& after) {
    for (size_t number = 1; number <= CameraInfo::kFollowers; ++number) {
        table.push_back({before + std::to_string(number) + after, type});
    }
}

Table makeTable() {
    using enum ParameterType;
    Table table;
    add(table, Integer, {"HStream", "WStream", "MinNumberOfPeopleForTrigger"});
    add(table, Float, {"Sensitivity"});
    add(table, Integer, {"ModelWidth", "ModelHeight", "MaxDisappeared", "MainLoopTime"});
    add(table, Bool, {"IsCameraInside"});
    add(table, Integer, {"DetectionControlPoints"});
    addPoints(table, "Detection", 8);
    add(table, Bool, {"Detection1Active", "Detection2Active", "Detection3Active"});
    add(table, Integer, {"Detection1ThreshSeconds", "Detection2ThreshSeconds", "Detection3ThreshSeconds"});
    addPoints(table, "Exclusion", 4);
    add(table, Bool, {"Exclusion1Active", "Exclusion2Active", "Exclusion3Active"});
    add(table, Bool, {"DetectionOverlaysOn", "AnonOverlaysOn"});
    add(table, String, {"SelectedDetectionOverlay", "SelectedAnonOverlay"});
    add(table, Integer, {"PeriodTime"});
    addFollowers(table, String, "Follower", "IP");
    addFollowers(table, String, "Follower", "login");
    addFollowers(table, String, "Follower", "PWD");
    addFollowers(table, String, "Follower", "CameraName");
    add(table, String, {"ThisDeviceCameraName"});
    addFollowers(table, Bool, "isFollower", "Active");
    add(table, Integer, {"EntrancesControlPoints"});
    addPoints(table, "Occupancy", 8);
    add(table, Bool, {"Occupancy1Active", "Occupancy2Active", "Occupancy3Active", "OccupancyAutoResetActive"});
    add(table, String, {"OccupancyAutoResetTime"});
    add(table, Integer, {"MinOccupantsForTrigger"});
    add(table, Bool,
        {"DetectPersons", "DetectCars", "DetectMotorcycles", "DetectBicycles", "DetectAirplanes", "DetectBuses",
         "DetectTrains", "DetectTrucks", "DetectBoats", "VerboseLog"});
    add(table, Integer, {"AoiLogicComparison"});
    add(table, Bool, {"ResetByOccupanyCount", "LocatorAtBottom", "IsSnap"});
    return table;
}

}  // namespace

const std::vector<ParameterDeclaration>& parameterTable() {
    static const Table table = makeTable();
    return table;
}

bool isObjectClassMonitored(const ConfigParams& config, int object) {
    const std::array<bool, 9> monitored = {config.b_DetectPersons,     config.b_DetectBicycles,  config.b_DetectCars,
                                           config.b_DetectMotorcycles, config.b_DetectAirplanes, config.b_DetectBuses,
                                           config.b_DetectTrains,      config.b_DetectTrucks,    config.b_DetectBoats};
    return object >= 0 && object < static_cast<int>(monitored.size()) && monitored[static_cast<size_t>(object)];
}

bool isAreaMonitored(const ConfigParams& config, int area) {
    const std::array<bool, 3> monitored = {config.b_Detection1Active, config.b_Detection2Active,
                                           config.b_Detection3Active};
    return area >= 0 && area < static_cast<int>(monitored.size()) && monitored[static_cast<size_t>(area)];
}

bool isEntranceMonitored(const ConfigParams& config, int entrance) {
    const std::array<bool, 3> monitored = {config.b_Occupancy1Active, config.b_Occupancy2Active,
                                           config.b_Occupancy3Active};
    return entrance >= 0 && entrance < static_cast<int>(monitored.size()) && monitored[static_cast<size_t>(entrance)];
}

bool isCameraCallable(const LeaderMetricsParams& leader, int follower) {
    const int32_t status = leader.followerStatus.at(static_cast<size_t>(follower));
    return status != kFollowerStopped && status != kFollowerWithoutAnswer;
}

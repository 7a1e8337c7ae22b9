#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "finding/finding.h"

/** The leader's table of followers; index i is follower i+1. */
struct CameraInfo {
    static constexpr size_t kFollowers = 10;

    std::string thisCameraName;
    std::array<bool, kFollowers> followerActive = {};
    std::array<std::string, kFollowers> followerCameraName;
    std::array<std::string, kFollowers> followerIPAddress;
    std::array<std::string, kFollowers> followerLogin;
    std::array<std::string, kFollowers> followerPassword; /**< in clear: the follower client needs it to log in */
    int32_t i_PeriodTime = 0;                             /**< statistics period in minutes */
};

/** Corner points of an area: element 2p is the x and 2p+1 the y of point p, in analysis-stream pixels. */
template <size_t points>
using PointArray = std::array<int32_t, 2 * points>;

/** All settings, as last loaded from the parameter store or uploaded. A plain value, copied and moved whole. */
struct ConfigParams {
    uint32_t i_ModelWidth = 0;
    uint32_t i_ModelHeight = 0;
    int32_t i_MainLoopTime = 0; /**< analysis period in milliseconds; 0 or less means the detector's default */
    std::string s_LandscapeModelFileName;
    std::string s_PortraitModelFileName;

    PointArray<4> i_Exclusion1 = {};
    PointArray<4> i_Exclusion2 = {};
    PointArray<4> i_Exclusion3 = {};
    bool b_Exclusion1Active = false;
    bool b_Exclusion2Active = false;
    bool b_Exclusion3Active = false;

    PointArray<8> i_Detection1 = {};
    PointArray<8> i_Detection2 = {};
    PointArray<8> i_Detection3 = {};
    bool b_Detection1Active = false;
    bool b_Detection2Active = false;
    bool b_Detection3Active = false;
    int32_t i_Detection1ThreshSeconds = 0; /**< an object that stays longer triggers the area */
    int32_t i_Detection2ThreshSeconds = 0;
    int32_t i_Detection3ThreshSeconds = 0;
    int32_t i_DetectionControlPoints = 0; /**< points in use per detection area, 3..8 */

    int32_t i_WStream = 0; /**< analysis stream size, published in the store but never read back */
    int32_t i_HStream = 0;
    int32_t i_MinNumberOfPeopleForTrigger = 0;
    float f_Sensitivity = 0.0F; /**< detector score threshold, 0..1 */
    bool b_DetectionOverlaysOn = false;
    bool b_AnonOverlaysOn = false;
    std::string str_DetectionOverlay; /**< "WxH" of the stream that shows the findings */
    std::string str_AnonOverlay;      /**< "WxH" of the stream that hides people */
    int32_t i_MaxDisappeared = 0;     /**< analysis cycles that an object may be missing */
    bool b_DetectPersons = false;
    bool b_DetectCars = false;
    bool b_DetectMotorcycles = false;
    bool b_DetectBicycles = false;
    bool b_DetectAirplanes = false;
    bool b_DetectBuses = false;
    bool b_DetectTrains = false;
    bool b_DetectTrucks = false;
    bool b_DetectBoats = false;
    bool b_VerboseLog = false;
    logicComparison e_AoiLogicComparison = logicComparison::lessThan;
    bool b_ResetByOccupanyCount = false;
    bool b_LocatorAtBottom = false;
    bool b_IsSnap = false;

    int32_t i_EntrancesControlPoints = 0; /**< points in use per entrance, 3..8 */
    PointArray<8> i_Occupancy1 = {};
    PointArray<8> i_Occupancy2 = {};
    PointArray<8> i_Occupancy3 = {};
    bool b_Occupancy1Active = false;
    bool b_Occupancy2Active = false;
    bool b_Occupancy3Active = false;
    bool b_IsCameraInside = false;
    bool b_OccupancyAutoResetActive = false;
    std::string str_OccupancyAutoResetTime; /**< "hh:mm", local time */
    int32_t i_MinOccupantsForTrigger = 0;

    CameraInfo cameraInfo;
};

/** This camera's published counts: written by the analysis, read and reset by the web service. */
struct MetricsParams {
    std::atomic<int32_t> occupancyCount = 0;
    std::atomic<int32_t> crowdCount1 = 0;
    std::atomic<int32_t> crowdCount2 = 0;
    std::atomic<int32_t> crowdCount3 = 0;
    std::array<std::atomic<int32_t>, 6> passages = {}; /**< since the start, by the values of entranceActivity */
};

/** A leader's totals over itself and its followers: written by the analysis, read by the web service. */
struct LeaderMetricsParams {
    std::atomic<int32_t> totalOccupancy = 0;
    std::atomic<int32_t> totalCrowdCount = 0;
    std::array<std::atomic<int32_t>, CameraInfo::kFollowers> followerCrowdCount = {};
    std::array<std::atomic<int32_t>, CameraInfo::kFollowers> followerStatus = {}; /**< status codes */
    /** When each follower last told its counts, by the steady clock; 0 when its slot's camera has not. */
    std::array<std::atomic<int64_t>, CameraInfo::kFollowers> followerAnswered = {};
};

// What the settings switch on; false for a number outside the range (classes 0..8, areas and entrances 0..2).
bool isObjectClassMonitored(const ConfigParams& config, int object);
bool isAreaMonitored(const ConfigParams& config, int area);
bool isEntranceMonitored(const ConfigParams& config, int entrance);

/** Whether a follower, 0..9, was last known to run: it is neither stopped nor without answer. */
bool isCameraCallable(const LeaderMetricsParams& leader, int follower);

enum class ParameterType {
    Integer,
    Bool,
    Float,
    String
};

struct ParameterDeclaration {
    std::string name;
    ParameterType type;
};

/** Every parameter of the application, in the order in which the store learns of them. */
const std::vector<ParameterDeclaration>& parameterTable();

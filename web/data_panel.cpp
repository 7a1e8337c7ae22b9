#include <algorithm>
#include <array>

#include "web/parameter_io.h"

namespace {

struct StatusText {
    int code;
    const char* text;
};

constexpr std::array<StatusText, 17> kStatusTexts = {{
    {50, "Unknown status"},
    {100, "Starting"},
    {200, "Running"},
    {300, "Stopped"},
    {400, "Data error"},
    {401, "AI error"},
    {402, "Locations error"},
    {403, "AOI error"},
    {405, "Findings error"},
    {406, "Events error"},
    {500, "Area event active"},
    {501, "Occupancy event active"},
    {502, "Area 1 event active"},
    {503, "Area 2 event active"},
    {504, "Area 3 event active"},
    {600, "Slow"},
    {700, "No connection error"},
}};

std::string element(const std::string& tag, const std::string& value) {
    return "<" + tag + ">" + value + "</" + tag + ">";
}

/** The elements of this camera and of the followers, "Tag_0" to "Tag_10". */
std::string cameraElements(const std::string& tag, const std::string& own,
                           const std::function<std::string(size_t)>& ofFollower) {
    std::string elements = element(tag + "_0", own);
    for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
        elements += element(tag + "_" + std::to_string(i + 1), ofFollower(i));
    }
    return elements;
}

}  // namespace

std::string parameter_io::status_to_string(int code) {
    const auto* const known = std::find_if(kStatusTexts.begin(), kStatusTexts.end(),
                                           [code](const StatusText& entry) { return entry.code == code; });
    return known == kStatusTexts.end() ? "Unknown default status" : known->text;
}

std::string parameter_io::get_data_panel_info() const {
    const ConfigParams& config = m_parts.config;
    const CameraInfo& cameras = config.cameraInfo;
    const MetricsParams& metrics = m_parts.metrics;
    const LeaderMetricsParams& leader = m_parts.leaderMetrics;
    const bool anyArea = config.b_Detection1Active || config.b_Detection2Active || config.b_Detection3Active;
    std::string panel = element("TotalOcc", std::to_string(leader.totalOccupancy)) +
                        element("Occupants", std::to_string(config.i_MinOccupantsForTrigger));
    panel += cameraElements("NameCam", cameras.thisCameraName, [&](size_t i) { return cameras.followerCameraName[i]; });
    panel += cameraElements("AOICam", std::to_string(metrics.crowdCount1 + metrics.crowdCount2 + metrics.crowdCount3),
                            [&](size_t i) { return std::to_string(leader.followerCrowdCount[i]); });
    panel += cameraElements("ActiveCam", anyArea ? "1" : "0",
                            [&](size_t i) { return std::string(cameras.followerActive[i] ? "1" : "0"); });
    panel += cameraElements("StatusCam", status_to_string(m_parts.status),
                            [&](size_t i) { return status_to_string(leader.followerStatus[i]); });
    return element("app", panel);
}

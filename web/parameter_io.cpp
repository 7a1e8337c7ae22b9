#include "web/parameter_io.h"

#include <stdexcept>
#include <utility>

#include "log/Logger.h"
#include "web/settings_text.h"

/*
 * One walk over a group of settings serves both directions: a Download writes each value between its tags, an Upload
 * reads it from the tags that came.
 */

namespace {

class Download {
public:
    Download(int32_t width, int32_t height) : m_width(width), m_height(height) {}

    void text(const std::string& tag, const std::string& value) {
        m_document += "<" + tag + ">" + value + "</" + tag + ">";
    }
    void flag(const std::string& tag, bool value) { text(tag, value ? "1" : "0"); }
    void integer(const std::string& tag, int32_t value) { text(tag, std::to_string(value)); }
    template <size_t size>
    void points(const std::string& area, const std::array<int32_t, size>& points) {
        for (size_t i = 0; i < size; ++i) {
            text(area + "_" + std::to_string(i), settings_text::coordinate(points[i], i % 2 == 0 ? m_width : m_height));
        }
    }

    std::string document() { return "<app>" + m_document + "</app>"; }

private:
    int32_t m_width;
    int32_t m_height;
    std::string m_document;
};

class Upload {
public:
    Upload(std::map<std::string, std::string> values, int32_t width, int32_t height)
        : m_values(std::move(values)), m_width(width), m_height(height) {}

    /** What read makes of a tag's value; the log tells which value it was that made it throw. */
    auto number(const std::string& tag, const auto& read) {
        // A tag that did not come has an empty value.
        const std::string& text = m_values[tag];
        try {
            return read(text);
        } catch (const std::exception&) {
            applicationLog().error("set_post_parameters: Expected a number that can be stored in " + tag + ", got \"" +
                                   text.substr(0, kMostLogged) + "\"");
            throw;
        }
    }

    void text(const std::string& tag, std::string& value) { value = m_values[tag]; }
    void flag(const std::string& tag, bool& value) { value = m_values[tag] == "1"; }
    void integer(const std::string& tag, int32_t& value) {
        value = number(tag, [](const std::string& text) { return std::stoi(text); });
    }
    template <size_t size>
    void points(const std::string& area, std::array<int32_t, size>& points) {
        std::array<int32_t, size> read = {};
        for (size_t i = 0; i < size; ++i) {
            read[i] = number(area + "_" + std::to_string(i), [&](const std::string& text) {
                return settings_text::pixel(text, i % 2 == 0 ? m_width : m_height);
            });
        }
        points = read;
    }

private:
    static constexpr size_t kMostLogged = 40;

    std::map<std::string, std::string> m_values;
    int32_t m_width;
    int32_t m_height;
};

void walkClasses(auto& direction, auto& config) {
    direction.flag("DetectPersons", config.b_DetectPersons);
    direction.flag("DetectCars", config.b_DetectCars);
    direction.flag("DetectMotorcycles", config.b_DetectMotorcycles);
    direction.flag("DetectBicycles", config.b_DetectBicycles);
    direction.flag("DetectAirplanes", config.b_DetectAirplanes);
    direction.flag("DetectBuses", config.b_DetectBuses);
    direction.flag("DetectTrains", config.b_DetectTrains);
    direction.flag("DetectTrucks", config.b_DetectTrucks);
    direction.flag("DetectBoats", config.b_DetectBoats);
}

void walkRules(auto& direction, auto& config) {
    direction.flag("VerboseLog", config.b_VerboseLog);
    auto comparison = static_cast<int32_t>(config.e_AoiLogicComparison);
    direction.integer("AoiLogicComparison", comparison);
    if constexpr (std::is_same_v<std::remove_reference_t<decltype(direction)>, Upload>) {
        config.e_AoiLogicComparison = static_cast<logicComparison>(comparison);
    }
    direction.flag("ResetByOccupanyCount", config.b_ResetByOccupanyCount);
    direction.flag("LocatorAtBottom", config.b_LocatorAtBottom);
    direction.flag("IsSnap", config.b_IsSnap);
}

void walkOverlays(auto& direction, auto& config) {
    direction.flag("DetectionOverlaysOn", config.b_DetectionOverlaysOn);
    direction.flag("AnonOverlaysOn", config.b_AnonOverlaysOn);
    direction.text("SelectedDetectionOverlay", config.str_DetectionOverlay);
    direction.text("SelectedAnonOverlay", config.str_AnonOverlay);
}

void walkDetectionAreas(auto& direction, auto& config) {
    direction.integer("DetectionControlPoints", config.i_DetectionControlPoints);
    direction.points("Detection1", config.i_Detection1);
    direction.flag("Detection1_Active", config.b_Detection1Active);
    direction.integer("Detection1ThreshSeconds", config.i_Detection1ThreshSeconds);
    direction.points("Detection2", config.i_Detection2);
    direction.flag("Detection2_Active", config.b_Detection2Active);
    direction.integer("Detection2ThreshSeconds", config.i_Detection2ThreshSeconds);
    direction.points("Detection3", config.i_Detection3);
    direction.flag("Detection3_Active", config.b_Detection3Active);
    direction.integer("Detection3ThreshSeconds", config.i_Detection3ThreshSeconds);
}

void walkExclusions(auto& direction, auto& config) {
    direction.points("Exclusion1", config.i_Exclusion1);
    direction.flag("Exclusion1_Active", config.b_Exclusion1Active);
    direction.points("Exclusion2", config.i_Exclusion2);
    direction.flag("Exclusion2_Active", config.b_Exclusion2Active);
    direction.points("Exclusion3", config.i_Exclusion3);
    direction.flag("Exclusion3_Active", config.b_Exclusion3Active);
}

void walkEntrances(auto& direction, auto& config) {
    direction.integer("EntrancesControlPoints", config.i_EntrancesControlPoints);
    direction.points("Entrance1", config.i_Occupancy1);
    direction.flag("Entrance1_Active", config.b_Occupancy1Active);
    direction.points("Entrance2", config.i_Occupancy2);
    direction.flag("Entrance2_Active", config.b_Occupancy2Active);
    direction.points("Entrance3", config.i_Occupancy3);
    direction.flag("Entrance3_Active", config.b_Occupancy3Active);
}

void walkOccupancyAndCameras(auto& direction, auto& config) {
    direction.flag("IsCameraInside", config.b_IsCameraInside);
    direction.flag("IsOccResOn", config.b_OccupancyAutoResetActive);
    direction.text("OccAutoResTime", config.str_OccupancyAutoResetTime);
    direction.integer("Occupants", config.i_MinOccupantsForTrigger);
    auto& cameras = config.cameraInfo;
    for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
        const std::string follower = "FO" + std::to_string(i + 1) + "_";
        direction.flag(follower + "Active", cameras.followerActive[i]);
        direction.text(follower + "Name", cameras.followerCameraName[i]);
        direction.text(follower + "Login", cameras.followerLogin[i]);
        direction.text(follower + "Pwd", cameras.followerPassword[i]);
        direction.text(follower + "IP", cameras.followerIPAddress[i]);
    }
    direction.integer("RepInt", cameras.i_PeriodTime);
    direction.text("CamName", cameras.thisCameraName);
}

constexpr size_t kSensitivityCharacters = 8;

}  // namespace

parameter_io::parameter_io(ParameterIoParts parts) : m_parts(std::move(parts)) {}

std::string parameter_io::get_parameters() const {
    const ConfigParams& config = m_parts.config;
    Download document(static_cast<int32_t>(m_parts.detector.get_stream_width()),
                      static_cast<int32_t>(m_parts.detector.get_stream_height()));
    document.integer("MinNumberOfPeopleForTrigger", config.i_MinNumberOfPeopleForTrigger);
    document.text("Sensitivity", std::to_string(config.f_Sensitivity).substr(0, kSensitivityCharacters));
    document.text("MaxDisappear", settings_text::seconds(config.i_MaxDisappeared, config.i_MainLoopTime));
    walkClasses(document, config);
    walkRules(document, config);
    walkOverlays(document, config);
    document.text("CamsResAsCsv", CameraResolutionsAsCsv);
    walkDetectionAreas(document, config);
    walkExclusions(document, config);
    walkEntrances(document, config);
    walkOccupancyAndCameras(document, config);
    return document.document();
}

std::map<std::string, std::string> parameter_io::parseXMLData_no_dependency(const std::string& body) {
    static const std::string kOpening = "<root>";
    // Without an opening tag npos + 6 is 5: some clients rely on the sixth character being where reading starts.
    const size_t start = body.find(kOpening) + kOpening.size();
    if (start > body.size()) {
        return {};
    }
    const std::string text = body.substr(start, body.find("</root>", start) - start);
    std::map<std::string, std::string> values;
    for (size_t open = text.find('<'); open != std::string::npos;) {
        const size_t close = text.find('>', open);
        if (close == std::string::npos) {
            break;
        }
        const size_t next = text.find('<', close);
        const std::string tag = text.substr(open + 1, close - open - 1);
        if (tag.rfind('/', 0) != 0) {
            values[tag] = text.substr(close + 1, next == std::string::npos ? next : next - close - 1);
        }
        open = next;
    }
    return values;
}

int parameter_io::set_post_parameters(const std::string& body, const std::string& user) {
    std::map<std::string, std::string> values = parseXMLData_no_dependency(body);
    if (values.empty()) {
        applicationLog().error("set_post_parameters: Failed to parse XML payload");
        return -1;
    }
    SettingsUpdate update;
    update.user = user;
    try {
        upload(std::move(values), update);
    } catch (...) {
        update.settings = m_parts.config;
        m_parts.publish(update);
        throw;
    }
    // Before it is stored, which may take seconds: the analysis does not wait for the disk.
    update.settings = m_parts.config;
    m_parts.publish(update);
    m_parts.store.save_config_params(m_parts.config);
    return 0;
}

void parameter_io::upload(std::map<std::string, std::string> tags, SettingsUpdate& update) {
    ConfigParams& config = m_parts.config;
    config.i_HStream = static_cast<int32_t>(m_parts.detector.get_stream_height());
    config.i_WStream = static_cast<int32_t>(m_parts.detector.get_stream_width());
    Upload values(std::move(tags), config.i_WStream, config.i_HStream);
    values.integer("MinNumberOfPeopleForTrigger", config.i_MinNumberOfPeopleForTrigger);
    config.f_Sensitivity = values.number("Sensitivity", [](const std::string& text) { return std::stof(text); });
    walkOverlays(values, config);
    walkClasses(values, config);
    walkRules(values, config);
    update.overlays = true;
    config.i_MaxDisappeared = values.number(
        "MaxDisappear", [&](const std::string& text) { return settings_text::cycles(text, config.i_MainLoopTime); });
    m_parts.detector.set_sensitivity(config.f_Sensitivity);
    update.maxDisappeared = true;
    walkDetectionAreas(values, config);
    update.detectionAreas = true;
    walkExclusions(values, config);
    update.exclusions = true;
    walkEntrances(values, config);
    update.entrances = true;
    walkOccupancyAndCameras(values, config);
    store_data_into_http_request_controller();
}

void parameter_io::store_data_into_http_request_controller() {
    const CameraInfo& cameras = m_parts.config.cameraInfo;
    for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
        m_parts.followers.set_followerip(cameras.followerIPAddress[i], cameras.followerLogin[i],
                                         cameras.followerPassword[i]);
    }
}

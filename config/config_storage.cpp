#include <utility>

#include "config/parameter_controller.h"

/*
 * The record's trip to and from the store. One walk over the record serves both directions, in the one order that both
 * share; a Direction says what a step does and carries the few fields that travel one way only.
 */

namespace {

class Loading {
public:
    explicit Loading(parameter_controller& store) : m_store(store) {}

    void fixedByPackage(ConfigParams& config) {
        config.i_ModelWidth = static_cast<uint32_t>(m_store.get_gint_parameter("ModelWidth"));
        config.i_ModelHeight = static_cast<uint32_t>(m_store.get_gint_parameter("ModelHeight"));
        integer("MainLoopTime", config.i_MainLoopTime);
    }
    void publishedOnly(const char*, int32_t&) {}
    void integer(const std::string& name, int32_t& value) { value = m_store.get_gint_parameter(name); }
    void real(const char* name, float& value) { value = m_store.get_gfloat_parameter(name); }
    void flag(const std::string& name, bool& value) { value = m_store.get_boolean_parameter(name); }
    void text(const char* name, std::string& value) { value = m_store.get_string_parameter(name); }
    void cameras(CameraInfo& info) { info = m_store.load_cameraInfo(); }

private:
    parameter_controller& m_store;
};

class Saving {
public:
    explicit Saving(parameter_controller& store) : m_store(store) {}

    void fixedByPackage(const ConfigParams&) {}
    void publishedOnly(const char* name, int32_t& value) { integer(name, value); }
    void integer(const std::string& name, int32_t value) {
        m_store.set_guint_parameter(name, static_cast<uint32_t>(value));
    }
    void real(const char* name, float value) { m_store.set_gfloat_parameter(name, value); }
    void flag(const std::string& name, bool value) { m_store.set_boolean_parameter(name, value); }
    void text(const char* name, const std::string& value) { m_store.set_string_parameter(name, value); }
    void cameras(const CameraInfo& info) { m_store.save_cameraInfo(info); }

private:
    parameter_controller& m_store;
};

/** Saving into a map. */
class Listing {
public:
    explicit Listing(std::map<std::string, std::string>& texts) : m_texts(texts) {}

    void fixedByPackage(const ConfigParams&) {}
    void publishedOnly(const char*, int32_t) {}
    void integer(const std::string& name, int32_t value) { m_texts[name] = std::to_string(value); }
    void real(const char* name, float value) { m_texts[name] = std::to_string(value); }
    void flag(const std::string& name, bool value) { m_texts[name] = value ? "true" : "false"; }
    void text(const char* name, const std::string& value) { m_texts[name] = value; }
    void cameras(const CameraInfo& info);

private:
    std::map<std::string, std::string>& m_texts;
};

template <typename Direction, size_t size>
void walkPoints(Direction& direction, const std::string& area, std::array<int32_t, size>& points) {
    for (size_t i = 0; i < size; ++i) {
        direction.integer(area + std::to_string(i / 2) + (i % 2 == 0 ? "x" : "y"), points[i]);
    }
}

template <typename Direction>
void walkExclusions(Direction& direction, ConfigParams& config) {
    walkPoints(direction, "Exclusion1", config.i_Exclusion1);
    walkPoints(direction, "Exclusion2", config.i_Exclusion2);
    walkPoints(direction, "Exclusion3", config.i_Exclusion3);
    direction.flag("Exclusion1Active", config.b_Exclusion1Active);
    direction.flag("Exclusion2Active", config.b_Exclusion2Active);
    direction.flag("Exclusion3Active", config.b_Exclusion3Active);
}

template <typename Direction>
void walkDetectionAreas(Direction& direction, ConfigParams& config) {
    direction.integer("DetectionControlPoints", config.i_DetectionControlPoints);
    walkPoints(direction, "Detection1", config.i_Detection1);
    walkPoints(direction, "Detection2", config.i_Detection2);
    walkPoints(direction, "Detection3", config.i_Detection3);
    direction.flag("Detection1Active", config.b_Detection1Active);
    direction.flag("Detection2Active", config.b_Detection2Active);
    direction.flag("Detection3Active", config.b_Detection3Active);
    direction.integer("Detection1ThreshSeconds", config.i_Detection1ThreshSeconds);
    direction.integer("Detection2ThreshSeconds", config.i_Detection2ThreshSeconds);
    direction.integer("Detection3ThreshSeconds", config.i_Detection3ThreshSeconds);
}

template <typename Direction>
void walkClasses(Direction& direction, ConfigParams& config) {
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

template <typename Direction>
void walkEntrances(Direction& direction, ConfigParams& config) {
    direction.integer("EntrancesControlPoints", config.i_EntrancesControlPoints);
    walkPoints(direction, "Occupancy1", config.i_Occupancy1);
    walkPoints(direction, "Occupancy2", config.i_Occupancy2);
    walkPoints(direction, "Occupancy3", config.i_Occupancy3);
    direction.flag("Occupancy1Active", config.b_Occupancy1Active);
    direction.flag("Occupancy2Active", config.b_Occupancy2Active);
    direction.flag("Occupancy3Active", config.b_Occupancy3Active);
}

template <typename Direction>
void walk(Direction direction, ConfigParams& config) {
    direction.fixedByPackage(config);
    walkExclusions(direction, config);
    walkDetectionAreas(direction, config);
    direction.publishedOnly("HStream", config.i_HStream);
    direction.publishedOnly("WStream", config.i_WStream);
    direction.integer("MinNumberOfPeopleForTrigger", config.i_MinNumberOfPeopleForTrigger);
    direction.real("Sensitivity", config.f_Sensitivity);
    direction.flag("DetectionOverlaysOn", config.b_DetectionOverlaysOn);
    direction.flag("AnonOverlaysOn", config.b_AnonOverlaysOn);
    direction.text("SelectedDetectionOverlay", config.str_DetectionOverlay);
    direction.text("SelectedAnonOverlay", config.str_AnonOverlay);
    direction.integer("MaxDisappeared", config.i_MaxDisappeared);
    walkClasses(direction, config);
    direction.flag("VerboseLog", config.b_VerboseLog);
    auto comparison = static_cast<int32_t>(config.e_AoiLogicComparison);
    direction.integer("AoiLogicComparison", comparison);
    config.e_AoiLogicComparison = static_cast<logicComparison>(comparison);
    direction.flag("ResetByOccupanyCount", config.b_ResetByOccupanyCount);
    direction.flag("LocatorAtBottom", config.b_LocatorAtBottom);
    direction.flag("IsSnap", config.b_IsSnap);
    walkEntrances(direction, config);
    direction.flag("IsCameraInside", config.b_IsCameraInside);
    direction.flag("OccupancyAutoResetActive", config.b_OccupancyAutoResetActive);
    direction.text("OccupancyAutoResetTime", config.str_OccupancyAutoResetTime);
    direction.integer("MinOccupantsForTrigger", config.i_MinOccupantsForTrigger);
    direction.cameras(config.cameraInfo);
}

std::string followerParameter(size_t index, const char* what) {
    return "Follower" + std::to_string(index + 1) + what;
}

void Listing::cameras(const CameraInfo& info) {
    integer("PeriodTime", info.i_PeriodTime);
    text("ThisDeviceCameraName", info.thisCameraName);
    for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
        m_texts[followerParameter(i, "IP")] = info.followerIPAddress[i];
        m_texts[followerParameter(i, "login")] = info.followerLogin[i];
        m_texts[followerParameter(i, "PWD")] = info.followerPassword[i];
        m_texts[followerParameter(i, "CameraName")] = info.followerCameraName[i];
        flag("is" + followerParameter(i, "Active"), info.followerActive[i]);
    }
}

}  // namespace

ConfigParams parameter_controller::load_config_params() {
    ConfigParams config;
    config.s_LandscapeModelFileName = "detect_960_540_tpu.tflite";
    config.s_PortraitModelFileName = "detect_540_960_tpu.tflite";
    walk(Loading(*this), config);
    return config;
}

void parameter_controller::save_config_params(ConfigParams config) {
    walk(Saving(*this), config);
}

std::map<std::string, std::string> parameter_controller::stored_texts(ConfigParams config) {
    std::map<std::string, std::string> texts;
    walk(Listing(texts), config);
    return texts;
}

CameraInfo parameter_controller::load_cameraInfo() {
    CameraInfo info;
    info.i_PeriodTime = get_gint_parameter("PeriodTime");
    const auto loadTexts = [this](std::array<std::string, CameraInfo::kFollowers>& texts, const char* what) {
        for (size_t i = 0; i < texts.size(); ++i) {
            texts[i] = get_string_parameter(followerParameter(i, what));
        }
    };
    loadTexts(info.followerIPAddress, "IP");
    loadTexts(info.followerLogin, "login");
    loadTexts(info.followerPassword, "PWD");
    loadTexts(info.followerCameraName, "CameraName");
    info.thisCameraName = get_string_parameter("ThisDeviceCameraName");
    for (size_t i = 0; i < info.followerActive.size(); ++i) {
        info.followerActive[i] = get_boolean_parameter("is" + followerParameter(i, "Active"));
    }
    return info;
}

void parameter_controller::save_cameraInfo(const CameraInfo& info) {
    set_guint_parameter("PeriodTime", static_cast<uint32_t>(info.i_PeriodTime));
    const auto saveTexts = [this](const std::array<std::string, CameraInfo::kFollowers>& texts, const char* what) {
        for (size_t i = 0; i < texts.size(); ++i) {
            set_string_parameter(followerParameter(i, what), texts[i]);
        }
    };
    saveTexts(info.followerIPAddress, "IP");
    saveTexts(info.followerLogin, "login");
    saveTexts(info.followerPassword, "PWD");
    set_string_parameter("ThisDeviceCameraName", info.thisCameraName);
    saveTexts(info.followerCameraName, "CameraName");
    for (size_t i = 0; i < info.followerActive.size(); ++i) {
        set_boolean_parameter("is" + followerParameter(i, "Active"), info.followerActive[i]);
    }
}

#include "config/settings_file.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace {

constexpr size_t kMostCorners = 8;
constexpr size_t kExclusionCorners = 4;

[[noreturn]] void fail(const std::string& key, const std::string& expected, const nlohmann::json& got) {
    throw std::runtime_error("\"" + key + "\": expected " + expected + ", got " + got.dump());
}

double fractionOf(const std::string& key, const nlohmann::json& value) {
    if (!value.is_number() || value.get<double>() < 0.0 || value.get<double>() > 1.0) {
        fail(key, "a number from 0 to 1", value);
    }
    return value.get<double>();
}

bool flagOf(const std::string& key, const nlohmann::json& value) {
    if (!value.is_boolean()) {
        fail(key, "true or false", value);
    }
    return value.get<bool>();
}

int countOf(const std::string& key, const nlohmann::json& value) {
    if (!value.is_number_integer() || value.get<int64_t>() < 0 || value.get<int64_t>() > 1000000) {
        fail(key, "a whole number from 0 to 1000000", value);
    }
    return value.get<int>();
}

double secondsOf(const std::string& key, const nlohmann::json& value) {
    if (!value.is_number() || value.get<double>() < 0.0 || value.get<double>() > 86400.0) {
        fail(key, "seconds from 0 to 86400", value);
    }
    return value.get<double>();
}

Settings::Polygon polygonOf(const std::string& key, const nlohmann::json& value, size_t fewest, size_t most) {
    if (!value.is_array() || value.size() < fewest || value.size() > most) {
        const std::string number =
            fewest == most ? std::to_string(most) : std::to_string(fewest) + " to " + std::to_string(most);
        fail(key, number + " corners [x, y]", value);
    }
    Settings::Polygon polygon;
    for (const nlohmann::json& corner : value) {
        if (!corner.is_array() || corner.size() != 2) {
            fail(key, "corners [x, y]", corner);
        }
        polygon.emplace_back(fractionOf(key, corner[0]), fractionOf(key, corner[1]));
    }
    return polygon;
}

std::vector<std::string> classesOf(const std::string& key, const nlohmann::json& value) {
    std::vector<std::string> known;
    std::string listed;
    for (int index = 0; index <= static_cast<int>(objects::boat); ++index) {
        known.emplace_back(class_index_to_label(index));
        listed += (index == 0 ? "" : ", ") + known.back();
    }
    if (!value.is_array()) {
        fail(key, "a list of " + listed, value);
    }
    std::vector<std::string> classes;
    for (const nlohmann::json& name : value) {
        if (!name.is_string() || std::find(known.begin(), known.end(), name.get<std::string>()) == known.end()) {
            fail(key, "one of " + listed, name);
        }
        classes.push_back(name.get<std::string>());
    }
    return classes;
}

logicComparison comparisonOf(const std::string& key, const nlohmann::json& value) {
    static const std::map<std::string, logicComparison> kNames = {{"lessThan", logicComparison::lessThan},
                                                                  {"exactly", logicComparison::exactly},
                                                                  {"atLeast", logicComparison::atLeast}};
    const auto found = value.is_string() ? kNames.find(value.get<std::string>()) : kNames.end();
    if (found == kNames.end()) {
        fail(key, "lessThan, exactly or atLeast", value);
    }
    return found->second;
}

/** The area of a key such as "entrance2", 0..2; nothing when the key is not of that family. */
std::optional<size_t> areaOf(const std::string& key, const std::string& before, const std::string& after = "") {
    for (size_t area = 0; area < 3; ++area) {
        if (key == before + std::to_string(area + 1) + after) {
            return area;
        }
    }
    return std::nullopt;
}

template <size_t size>
void storePolygon(const std::optional<Settings::Polygon>& polygon, unsigned width, unsigned height, size_t corners,
                  std::array<int32_t, size>& points, bool& active) {
    active = polygon.has_value();
    if (!polygon) {
        return;
    }
    for (size_t i = 0; i < size / 2; ++i) {
        // All areas of a kind share one number of corners: missing ones stand on the last, where they change nothing.
        const auto& [x, y] = (*polygon)[std::min({i, corners - 1, polygon->size() - 1})];
        points[2 * i] = static_cast<int32_t>(x * width);
        points[2 * i + 1] = static_cast<int32_t>(y * height);
    }
}

size_t cornersInUse(const std::array<std::optional<Settings::Polygon>, 3>& areas) {
    size_t corners = 3;
    for (const auto& polygon : areas) {
        corners = std::max(corners, polygon ? polygon->size() : 0);
    }
    return corners;
}

}  // namespace

Settings parseSettings(const nlohmann::json& document) {
    if (!document.is_object()) {
        throw std::runtime_error("expected settings as a JSON object, got " + document.dump());
    }
    Settings settings;
    for (const auto& [key, value] : document.items()) {
        if (key == "classes") {
            settings.classes = classesOf(key, value);
        } else if (key == "sensitivity") {
            settings.sensitivity = fractionOf(key, value);
        } else if (key == "locator_at_bottom") {
            settings.locatorAtBottom = flagOf(key, value);
        } else if (key == "camera_inside") {
            settings.cameraInside = flagOf(key, value);
        } else if (key == "min_number_for_trigger") {
            settings.minNumberForTrigger = countOf(key, value);
        } else if (key == "min_occupants_for_trigger") {
            settings.minOccupantsForTrigger = countOf(key, value);
        } else if (key == "comparison") {
            settings.comparison = comparisonOf(key, value);
        } else if (key == "max_disappear_seconds") {
            settings.maxDisappearSeconds = secondsOf(key, value);
        } else if (const auto detection = areaOf(key, "detection")) {
            settings.detectionAreas[*detection] = polygonOf(key, value, 3, kMostCorners);
        } else if (const auto threshold = areaOf(key, "detection", "_threshold_seconds")) {
            settings.detectionThresholdSeconds[*threshold] = countOf(key, value);
        } else if (const auto entrance = areaOf(key, "entrance")) {
            settings.entranceZones[*entrance] = polygonOf(key, value, 3, kMostCorners);
        } else if (const auto exclusion = areaOf(key, "exclusion")) {
            settings.exclusions[*exclusion] = polygonOf(key, value, kExclusionCorners, kExclusionCorners);
        } else {
            throw std::runtime_error(
                "unknown setting \"" + key +
                "\"; known: classes, sensitivity, locator_at_bottom, camera_inside, detection1..3, "
                "detection1..3_threshold_seconds, entrance1..3, exclusion1..3, min_number_for_trigger, "
                "min_occupants_for_trigger, comparison, max_disappear_seconds");
        }
    }
    return settings;
}

Settings readSettingsFile(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read the settings file " + path);
    }
    const nlohmann::json document = nlohmann::json::parse(file, nullptr, false);
    try {
        if (document.is_discarded()) {
            throw std::runtime_error("expected JSON");
        }
        return parseSettings(document);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
}

void applySettings(const Settings& settings, unsigned streamWidth, unsigned streamHeight, int iterationMilliseconds,
                   ConfigParams& config) {
    const auto selected = [&](objects object) {
        const std::string label = class_index_to_label(static_cast<int32_t>(object));
        return std::find(settings.classes.begin(), settings.classes.end(), label) != settings.classes.end();
    };
    config.b_DetectPersons = selected(objects::person);
    config.b_DetectBicycles = selected(objects::bicycle);
    config.b_DetectCars = selected(objects::car);
    config.b_DetectMotorcycles = selected(objects::motorcycle);
    config.b_DetectAirplanes = selected(objects::airplane);
    config.b_DetectBuses = selected(objects::bus);
    config.b_DetectTrains = selected(objects::train);
    config.b_DetectTrucks = selected(objects::truck);
    config.b_DetectBoats = selected(objects::boat);
    config.f_Sensitivity = static_cast<float>(settings.sensitivity);
    config.b_LocatorAtBottom = settings.locatorAtBottom;
    config.b_IsCameraInside = settings.cameraInside;
    config.i_MinNumberOfPeopleForTrigger = settings.minNumberForTrigger;
    config.i_MinOccupantsForTrigger = settings.minOccupantsForTrigger;
    config.e_AoiLogicComparison = settings.comparison;
    if (settings.maxDisappearSeconds) {
        config.i_MaxDisappeared = static_cast<int32_t>(*settings.maxDisappearSeconds * 1000.0 / iterationMilliseconds);
    }
    const size_t detectionCorners = cornersInUse(settings.detectionAreas);
    const size_t entranceCorners = cornersInUse(settings.entranceZones);
    config.i_DetectionControlPoints = static_cast<int32_t>(detectionCorners);
    config.i_EntrancesControlPoints = static_cast<int32_t>(entranceCorners);
    const auto store = [&](const auto& polygon, size_t corners, auto& points, bool& active) {
        storePolygon(polygon, streamWidth, streamHeight, corners, points, active);
    };
    store(settings.detectionAreas[0], detectionCorners, config.i_Detection1, config.b_Detection1Active);
    store(settings.detectionAreas[1], detectionCorners, config.i_Detection2, config.b_Detection2Active);
    store(settings.detectionAreas[2], detectionCorners, config.i_Detection3, config.b_Detection3Active);
    store(settings.entranceZones[0], entranceCorners, config.i_Occupancy1, config.b_Occupancy1Active);
    store(settings.entranceZones[1], entranceCorners, config.i_Occupancy2, config.b_Occupancy2Active);
    store(settings.entranceZones[2], entranceCorners, config.i_Occupancy3, config.b_Occupancy3Active);
    store(settings.exclusions[0], kExclusionCorners, config.i_Exclusion1, config.b_Exclusion1Active);
    store(settings.exclusions[1], kExclusionCorners, config.i_Exclusion2, config.b_Exclusion2Active);
    store(settings.exclusions[2], kExclusionCorners, config.i_Exclusion3, config.b_Exclusion3Active);
    config.i_Detection1ThreshSeconds = settings.detectionThresholdSeconds[0];
    config.i_Detection2ThreshSeconds = settings.detectionThresholdSeconds[1];
    config.i_Detection3ThreshSeconds = settings.detectionThresholdSeconds[2];
}

#include "evaluate/settings_upload.h"

#include <algorithm>

namespace {

constexpr int kCorners = 8;
constexpr int kExclusionCorners = 4;

std::string flag(bool on) {
    return on ? "1" : "0";
}

/** Corners beyond those in use lie on the last one. */
void putPolygon(const std::string& area, const std::optional<Settings::Polygon>& polygon, int corners,
                SettingsTags& tags) {
    tags[area + "_Active"] = flag(polygon.has_value());
    for (int i = 0; polygon && i < corners; ++i) {
        const auto& [x, y] = polygon->at(std::min(static_cast<size_t>(i), polygon->size() - 1));
        tags[area + "_" + std::to_string(2 * i)] = std::to_string(x);
        tags[area + "_" + std::to_string(2 * i + 1)] = std::to_string(y);
    }
}

size_t mostCorners(const std::array<std::optional<Settings::Polygon>, 3>& areas) {
    size_t most = 3;
    for (const auto& area : areas) {
        most = std::max(most, area ? area->size() : 0);
    }
    return most;
}

}  // namespace

void applySettings(const Settings& settings, SettingsTags& tags) {
    static constexpr std::pair<const char*, const char*> kClasses[] = {
        {"Person", "DetectPersons"},   {"Car", "DetectCars"},           {"Motorcycle", "DetectMotorcycles"},
        {"Bicycle", "DetectBicycles"}, {"Airplane", "DetectAirplanes"}, {"Bus", "DetectBuses"},
        {"Train", "DetectTrains"},     {"Truck", "DetectTrucks"},       {"Boat", "DetectBoats"}};
    for (const auto& [name, tag] : kClasses) {
        tags[tag] = flag(std::find(settings.classes.begin(), settings.classes.end(), name) != settings.classes.end());
    }
    tags["Sensitivity"] = std::to_string(settings.sensitivity);
    tags["LocatorAtBottom"] = flag(settings.locatorAtBottom);
    tags["IsCameraInside"] = flag(settings.cameraInside);
    tags["DetectionControlPoints"] = std::to_string(mostCorners(settings.detectionAreas));
    tags["EntrancesControlPoints"] = std::to_string(mostCorners(settings.entranceZones));
    for (size_t i = 0; i < 3; ++i) {
        const std::string number = std::to_string(i + 1);
        putPolygon("Detection" + number, settings.detectionAreas[i], kCorners, tags);
        putPolygon("Entrance" + number, settings.entranceZones[i], kCorners, tags);
        putPolygon("Exclusion" + number, settings.exclusions[i], kExclusionCorners, tags);
        tags["Detection" + number + "ThreshSeconds"] = std::to_string(settings.detectionThresholdSeconds[i]);
    }
    tags["MinNumberOfPeopleForTrigger"] = std::to_string(settings.minNumberForTrigger);
    tags["Occupants"] = std::to_string(settings.minOccupantsForTrigger);
    tags["AoiLogicComparison"] = std::to_string(static_cast<int>(settings.comparison));
    if (settings.maxDisappearSeconds) {
        tags["MaxDisappear"] = std::to_string(*settings.maxDisappearSeconds);
    }
}

std::string uploadBody(const SettingsTags& tags) {
    std::string body = "<root>";
    for (const auto& [tag, value] : tags) {
        body += "<" + tag + ">" + value + "</" + tag + ">";
    }
    return body + "</root>";
}

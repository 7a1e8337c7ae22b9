#pragma once

#include <array>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/config_params.h"

/** Settings as a file carries them: areas as fractions of the picture, times in seconds, classes by name. */
struct Settings {
    /** Corners, x then y, 0..1. */
    using Polygon = std::vector<std::pair<double, double>>;

    std::vector<std::string> classes = {"Person"};
    double sensitivity = 0.35;
    bool locatorAtBottom = false;
    bool cameraInside = false;
    std::array<std::optional<Polygon>, 3> detectionAreas;
    std::array<std::optional<Polygon>, 3> entranceZones;
    std::array<std::optional<Polygon>, 3> exclusions;
    std::array<int, 3> detectionThresholdSeconds = {10, 10, 10};
    int minNumberForTrigger = 1;
    int minOccupantsForTrigger = 50;
    logicComparison comparison = logicComparison::atLeast;
    std::optional<double> maxDisappearSeconds; /**< how long an object may be missing; the store's value when unset */
};

/**
 * Reads settings. Throws std::runtime_error that names the key, what was expected and what came, for unknown keys,
 * wrong types, coordinates outside 0..1 and polygons with too few or too many corners.
 */
Settings parseSettings(const nlohmann::json& document);

/** Reads settings from a file; errors name the file, too. */
Settings readSettingsFile(const std::string& path);

/**
 * Puts settings into a configuration record for an analysis stream of the given size in pixels. Areas that the
 * settings do not name are switched off; what settings cannot say stays as it is.
 */
void applySettings(const Settings& settings, unsigned streamWidth, unsigned streamHeight, int iterationMilliseconds,
                   ConfigParams& config);

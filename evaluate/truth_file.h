#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>

#include "config/settings_file.h"
#include "evaluate/results.h"

/** A clip's hand-counted answers and the settings that they were counted with. */
struct Truth {
    std::string clip;
    std::string sha256; /**< of the clip, lower-case hexadecimal; empty for drawn scenes */
    Settings settings;
    std::array<EntranceCounts, 3> entrances;
    std::optional<int> occupancyAtEnd;
    std::map<std::string, int> alertStarts; /**< by alert: area1, ... */
    std::map<std::string, int> alertStops;
};

/** Reads a truth file. Throws std::runtime_error that names the file, what was expected and what came. */
Truth readTruthFile(const std::string& path);

/**
 * Checks that a truth file is about a clip: throws std::runtime_error with both checksums, or both names for a scene,
 * when it is about another.
 */
void checkTruthIsOf(const Truth& truth, const std::string& clip);

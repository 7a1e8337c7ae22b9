#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/** What an evaluation of a clip found. */
struct Counts {
    int enter = 0;
    int exit = 0;
    bool operator==(const Counts&) const = default;
};

/** Entries and exits of one entrance by class label; only classes that moved are listed. */
using EntranceCounts = std::map<std::string, Counts>;

/** One change of an alert. */
struct AlertChange {
    double seconds = 0.0; /**< since the clip's first frame */
    std::string alert;    /**< breached, area1, area2, area3 or occupancy */
    bool started = false;
};

struct Results {
    std::array<EntranceCounts, 3> entrances;
    int occupancyAtEnd = 0;
    std::array<int, 3> crowdMaximum = {}; /**< most objects at once in each detection area */
    std::vector<AlertChange> alertChanges;
    unsigned cycles = 0;
    double clipSeconds = 0.0; /**< time of the last cycle */

    int alertStarts(const std::string& alert) const;
    int alertStops(const std::string& alert) const;
};

#include "evaluate/comparison.h"

#include <set>

namespace {

void compareNumber(const std::string& what, int found, int expected, std::vector<std::string>& differences) {
    if (found != expected) {
        differences.push_back(what + ": expected " + std::to_string(expected) + ", found " + std::to_string(found));
    }
}

Counts countsFor(const EntranceCounts& counts, const std::string& label) {
    const auto entry = counts.find(label);
    return entry == counts.end() ? Counts{} : entry->second;
}

}  // namespace

int Results::alertStarts(const std::string& alert) const {
    int starts = 0;
    for (const AlertChange& change : alertChanges) {
        starts += change.alert == alert && change.started ? 1 : 0;
    }
    return starts;
}

int Results::alertStops(const std::string& alert) const {
    int stops = 0;
    for (const AlertChange& change : alertChanges) {
        stops += change.alert == alert && !change.started ? 1 : 0;
    }
    return stops;
}

std::vector<std::string> compare(const Results& found, const Truth& truth) {
    std::vector<std::string> differences;
    for (size_t i = 0; i < truth.entrances.size(); ++i) {
        // A class that the truth does not list must not have moved.
        std::set<std::string> labels;
        for (const auto& [label, counts] : truth.entrances[i]) {
            labels.insert(label);
        }
        for (const auto& [label, counts] : found.entrances[i]) {
            labels.insert(label);
        }
        for (const std::string& label : labels) {
            const std::string what = "entrance " + std::to_string(i + 1) + " " + label;
            const Counts expected = countsFor(truth.entrances[i], label);
            const Counts got = countsFor(found.entrances[i], label);
            compareNumber(what + " enter", got.enter, expected.enter, differences);
            compareNumber(what + " exit", got.exit, expected.exit, differences);
        }
    }
    if (truth.occupancyAtEnd) {
        compareNumber("occupancy at end", found.occupancyAtEnd, *truth.occupancyAtEnd, differences);
    }
    for (const auto& [alert, starts] : truth.alertStarts) {
        compareNumber(alert + " alert starts", found.alertStarts(alert), starts, differences);
    }
    for (const auto& [alert, stops] : truth.alertStops) {
        compareNumber(alert + " alert stops", found.alertStops(alert), stops, differences);
    }
    return differences;
}

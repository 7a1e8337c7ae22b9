#include "evaluate/report.h"

#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

std::string textReport(const Results& results) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1);
    for (size_t i = 0; i < results.entrances.size(); ++i) {
        for (const auto& [label, counts] : results.entrances[i]) {
            text << "entrance " << i + 1 << "   " << std::left << std::setw(12) << label << std::right << "in "
                 << std::setw(4) << counts.enter << "   out " << std::setw(4) << counts.exit << '\n';
        }
    }
    text << "occupancy    " << results.occupancyAtEnd << " at the end\n";
    text << "crowd        at most " << results.crowdMaximum[0] << " in area 1, " << results.crowdMaximum[1]
         << " in area 2, " << results.crowdMaximum[2] << " in area 3\n";
    for (const AlertChange& change : results.alertChanges) {
        text << "alert        " << std::setw(7) << change.seconds << " s  " << change.alert << ' '
             << (change.started ? "starts" : "stops") << '\n';
    }
    text << "cycles       " << results.cycles << " over " << results.clipSeconds << " s\n";
    return text.str();
}

std::string jsonReport(const Results& results, const std::vector<std::string>* differences) {
    nlohmann::ordered_json document;
    for (size_t i = 0; i < results.entrances.size(); ++i) {
        nlohmann::ordered_json& entrance = document["entrance" + std::to_string(i + 1)];
        entrance = nlohmann::ordered_json::object();
        for (const auto& [label, counts] : results.entrances[i]) {
            entrance[label] = {{"enter", counts.enter}, {"exit", counts.exit}};
        }
    }
    document["occupancy_at_end"] = results.occupancyAtEnd;
    document["crowd_maximum"] = results.crowdMaximum;
    document["alerts"] = nlohmann::ordered_json::array();
    for (const AlertChange& change : results.alertChanges) {
        document["alerts"].push_back(
            {{"seconds", change.seconds}, {"alert", change.alert}, {"change", change.started ? "start" : "stop"}});
    }
    document["cycles"] = results.cycles;
    document["clip_seconds"] = results.clipSeconds;
    if (differences != nullptr) {
        document["equal_to_truth"] = differences->empty();
        document["differences"] = *differences;
    }
    return document.dump(2) + "\n";
}

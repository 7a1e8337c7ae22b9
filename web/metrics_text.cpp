#include "web/metrics_text.h"

#include <array>
#include <cstdio>
#include <utility>

#include "finding/finding.h"

namespace {

constexpr int kEntrances = 3;
constexpr int kAreas = 3;
constexpr std::array<const char*, 2> kDirections = {"in", "out"};

/** A number as it is read again, without needless digits. */
std::string numberText(double number) {
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), "%.15g", number);
    return text.data();
}

/** The head of a metric's lines. */
std::string head(const std::string& name, const std::string& type, const std::string& help) {
    return "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string gauge(const std::string& name, const std::string& help, double value) {
    return head(name, "gauge", help) + name + " " + numberText(value) + "\n";
}

std::string classLabel(size_t classId) {
    return "class=\"" + std::string(class_index_to_label(static_cast<int32_t>(classId))) + "\"";
}

std::string crossings(const MeasuredState& state) {
    std::string text =
        head("senvo_crossings_total", "counter", "Objects that went through an entrance since the start.");
    for (int entrance = 0; entrance < kEntrances; ++entrance) {
        for (size_t direction = 0; direction < kDirections.size(); ++direction) {
            const auto& byClass = state.totals.crossings.at(2 * static_cast<size_t>(entrance) + direction);
            for (size_t classId = 0; classId < byClass.size(); ++classId) {
                const bool isCounted = isEntranceMonitored(state.settings, entrance) &&
                                       isObjectClassMonitored(state.settings, static_cast<int>(classId));
                if (isCounted || byClass.at(classId) > 0) {
                    text += "senvo_crossings_total{entrance=\"" + std::to_string(entrance + 1) + "\",direction=\"" +
                            kDirections.at(direction) + "\"," + classLabel(classId) + "} " +
                            std::to_string(byClass.at(classId)) + "\n";
                }
            }
        }
    }
    return text;
}

std::string inAreas(const MeasuredState& state) {
    std::string text = head("senvo_area_objects", "gauge", "Objects in a detection area in the last picture.");
    for (int area = 0; area < kAreas; ++area) {
        const auto& byClass = state.totals.inAreas.at(static_cast<size_t>(area));
        for (size_t classId = 0; classId < byClass.size(); ++classId) {
            const bool isWatched = isAreaMonitored(state.settings, area) &&
                                   isObjectClassMonitored(state.settings, static_cast<int>(classId));
            if (isWatched || byClass.at(classId) > 0) {
                text += "senvo_area_objects{area=\"" + std::to_string(area + 1) + "\"," + classLabel(classId) + "} " +
                        std::to_string(byClass.at(classId)) + "\n";
            }
        }
    }
    return text;
}

}  // namespace

std::string metricsText(const MeasuredState& state) {
    const ledger::RunTotals& totals = state.totals;
    std::string text = head("senvo_build_info", "gauge", "The application that runs.") +
                       "senvo_build_info{version=\"" SENVO_VERSION "\"} 1\n" + crossings(state) +
                       gauge("senvo_occupancy", "People and vehicles inside, by this camera.", state.occupancy) +
                       inAreas(state);
    text += head("senvo_watched_seconds_total", "counter", "Time that was watched since the start.") +
            "senvo_watched_seconds_total " + numberText(static_cast<double>(totals.watchedMillis) / 1000) + "\n";
    if (totals.watchedRatio) {
        text += gauge("senvo_watched_ratio", "How much of the last minute was watched, 0 to 1.", *totals.watchedRatio);
    }
    text += gauge("senvo_cycle_duration_seconds", "How long the last analysis took.", state.executionMillis / 1000.0);
    if (totals.lastCycle) {
        text += gauge("senvo_last_frame_timestamp_seconds", "When the last picture was analysed, in Unix time.",
                      static_cast<double>(*totals.lastCycle) / 1000);
    }
    return text;
}

#include "inquiry/stays.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "ledger/counts.h"

namespace inquiry {

namespace {

using nlohmann::ordered_json;

// A longer time between two cycles was not watched: of so long, and of so many cycles as there were in a minute.
constexpr int64_t kLongestSilence = 2'000;
constexpr int64_t kSilentCycles = 3;
constexpr int64_t kRarestCycles = 10'000;

/** Calls visit with every path of the time, and visitOther with every other line that may matter to it. */
void visitPaths(const Chunks& chunks, const Span& span, const std::function<void(const KeptPath&)>& visit,
                const std::function<void(const ledger::LineHead&, std::string_view)>& visitOther) {
    visitLinesFor(chunks, span, [&](const ledger::LineHead& head, std::string_view line) {
        if (head.kind != "object") {
            visitOther(head, line);
        } else if (timeOf(head) >= span.from) {
            if (const std::optional<KeptPath> path = pathOf(ledger::parseLine(line), head.moment)) {
                visit(*path);
            }
        }
    });
}

/** An object's stay that the next part of its path may go on with. */
struct OpenStay {
    KeptStay stay;
    int32_t classId = 0;
    bool isThere = false; /**< at the end of the part */
};

/** The longest time between two cycles that was watched, after a minute like that of a line "watched". */
int64_t longestStepAfter(const nlohmann::json& watched) {
    const auto seconds = watched.find("seconds");
    const int64_t cycles = ledger::numberIn(watched, "cycles");
    if (seconds == watched.end() || !seconds->is_number() || cycles <= 0) {
        return kLongestSilence;
    }
    const double millis = std::clamp(seconds->get<double>(), 0.0, 60.0) * 1000;
    const int64_t meant = static_cast<int64_t>(millis) / cycles;
    return std::max(kLongestSilence, meant <= kRarestCycles ? kSilentCycles * meant : 0);
}

}  // namespace

StaysByArea staysOf(const Chunks& chunks, const Span& span) {
    StaysByArea stays;
    std::map<int64_t, OpenStay> open;
    const auto close = [&](const OpenStay& ended) {
        if (span.holds(ended.stay.leave)) {
            stays[{ended.stay.area, ended.classId}].push_back(ended.stay.leave - ended.stay.enter);
        }
    };
    const auto add = [&](const KeptPath& path) {
        for (const KeptStay& stay : path.stays) {
            const auto before = open.find(path.object);
            // It began in a part before, whose line may not have been read; old ledgers do not say so.
            const bool beganBefore = !path.points.empty() && stay.enter < path.points.front().utcMillis;
            const bool goesOn = before != open.end() && before->second.stay.area == stay.area &&
                                (beganBefore || before->second.stay.leave == stay.enter);
            const int64_t enter = goesOn && !beganBefore ? before->second.stay.enter : stay.enter;
            if (before != open.end() && !goesOn) {
                close(before->second);
            }
            const bool isThere = !path.ended && !path.points.empty() && stay.leave >= path.points.back().utcMillis;
            open[path.object] = {{stay.area, enter, stay.leave}, path.classId, isThere};
        }
        if (const auto last = open.find(path.object); path.ended && last != open.end()) {
            close(last->second);
            open.erase(last);
        }
    };
    visitPaths(chunks, span, add, [&](const ledger::LineHead& head, std::string_view) {
        if (head.kind == "start") {
            std::for_each(open.begin(), open.end(), [&](const auto& entry) { close(entry.second); });
            open.clear();
        }
    });
    std::for_each(open.begin(), open.end(), [&](const auto& entry) {
        if (!entry.second.isThere) {
            close(entry.second);
        }
    });
    return stays;
}

Heat heatOf(const Chunks& chunks, const Span& span, const std::string& zone) {
    Heat heat;
    const ledger::HourOfDay hourOf(zone);
    int64_t longestStep = kLongestSilence;
    const auto add = [&](const KeptPath& path) {
        if (path.size.width <= 0 || path.size.height <= 0) {
            return;
        }
        if (heat.rows == 0) {
            heat.rows = std::clamp(Heat::kColumns * path.size.height / path.size.width, 1, 2 * Heat::kColumns);
        }
        for (size_t i = 1; i < path.points.size(); ++i) {
            const PlacedPoint& point = path.points[i - 1];
            if (!span.holds(point.utcMillis)) {
                continue;
            }
            const int32_t column = std::clamp(Heat::kColumns * point.at.first / path.size.width, 0, Heat::kColumns - 1);
            const int32_t row = std::clamp(heat.rows * point.at.second / path.size.height, 0, heat.rows - 1);
            std::vector<int64_t>& cells = heat.cells[{path.classId, hourOf(point.utcMillis)}];
            cells.resize(static_cast<size_t>(heat.rows) * Heat::kColumns);
            cells[static_cast<size_t>(row) * Heat::kColumns + static_cast<size_t>(column)] +=
                std::clamp<int64_t>(path.points[i].utcMillis - point.utcMillis, 0, longestStep);
        }
    };
    visitPaths(chunks, span, add, [&](const ledger::LineHead& head, std::string_view line) {
        if (head.kind == "watched") {
            longestStep = longestStepAfter(ledger::parseLine(line));
        }
    });
    return heat;
}

ordered_json jsonOf(const Heat& heat) {
    ordered_json cells = ordered_json::array();
    for (const auto& [key, millis] : heat.cells) {
        ordered_json seconds = ordered_json::array();
        for (const int64_t each : millis) {
            seconds.push_back(static_cast<double>(each - each % 100) / 1000);
        }
        cells.push_back(
            {{"class", class_index_to_label(key.first)}, {"hour", key.second}, {"seconds", std::move(seconds)}});
    }
    return {{"columns", Heat::kColumns}, {"rows", heat.rows}, {"cells", std::move(cells)}};
}

}  // namespace inquiry

#include "stays.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "counts.h"

namespace inquiry {

namespace {

using nlohmann::ordered_json;

// A longer time between two points of a path was not watched.
constexpr int64_t kLongestStep = 2'000;

/** Calls visit with every path of the time, and with nothing where a run of the application begins. */
void visitPaths(const Chunks& chunks, const Span& span, const std::function<void(const KeptPath*)>& visit) {
    visitLinesFor(chunks, span, [&](const ledger::LineHead& head, std::string_view line) {
        if (head.kind == "start") {
            visit(nullptr);
        } else if (head.kind == "object" && timeOf(head) >= span.from) {
            if (const std::optional<KeptPath> path = pathOf(ledger::parseLine(line), head.moment)) {
                visit(&*path);
            }
        }
    });
}

/** An object's stay that the next part of its path may go on with. */
struct OpenStay {
    KeptStay stay;
    int32_t classId = 0;
};

}  // namespace

StaysByArea staysOf(const Chunks& chunks, const Span& span) {
    StaysByArea stays;
    std::map<int64_t, OpenStay> open;
    const auto close = [&](const OpenStay& ended) {
        if (span.holds(ended.stay.leave)) {
            stays[{ended.stay.area, ended.classId}].push_back(ended.stay.leave - ended.stay.enter);
        }
    };
    visitPaths(chunks, span, [&](const KeptPath* path) {
        if (path == nullptr) {
            std::for_each(open.begin(), open.end(), [&](const auto& entry) { close(entry.second); });
            open.clear();
            return;
        }
        for (const KeptStay& stay : path->stays) {
            const auto before = open.find(path->object);
            const bool goesOn = before != open.end() && before->second.stay.area == stay.area &&
                                before->second.stay.leave == stay.enter;
            const int64_t enter = goesOn ? before->second.stay.enter : stay.enter;
            if (before != open.end() && !goesOn) {
                close(before->second);
            }
            open[path->object] = {{stay.area, enter, stay.leave}, path->classId};
        }
        if (const auto last = open.find(path->object); path->ended && last != open.end()) {
            close(last->second);
            open.erase(last);
        }
    });
    std::for_each(open.begin(), open.end(), [&](const auto& entry) { close(entry.second); });
    return stays;
}

Heat heatOf(const Chunks& chunks, const Span& span, const std::string& zone) {
    Heat heat;
    const ledger::HourOfDay hourOf(zone);
    visitPaths(chunks, span, [&](const KeptPath* path) {
        if (path == nullptr || path->size.width <= 0 || path->size.height <= 0) {
            return;
        }
        if (heat.rows == 0) {
            heat.rows = std::clamp(Heat::kColumns * path->size.height / path->size.width, 1, 2 * Heat::kColumns);
        }
        for (size_t i = 1; i < path->points.size(); ++i) {
            const PlacedPoint& point = path->points[i - 1];
            if (!span.holds(point.utcMillis)) {
                continue;
            }
            const int32_t column =
                std::clamp(Heat::kColumns * point.at.first / path->size.width, 0, Heat::kColumns - 1);
            const int32_t row = std::clamp(heat.rows * point.at.second / path->size.height, 0, heat.rows - 1);
            std::vector<int64_t>& cells = heat.cells[{path->classId, hourOf(point.utcMillis)}];
            cells.resize(static_cast<size_t>(heat.rows) * Heat::kColumns);
            cells[static_cast<size_t>(row) * Heat::kColumns + static_cast<size_t>(column)] +=
                std::clamp<int64_t>(path->points[i].utcMillis - point.utcMillis, 0, kLongestStep);
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

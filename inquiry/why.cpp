#include "why.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "counting_rules.h"

namespace inquiry {

namespace {

using nlohmann::ordered_json;

constexpr size_t kMostTold = 500;
constexpr double kNear = 0.03;          // of the picture's width and height
constexpr int64_t kAround = 5'000;      // milliseconds of the path before and after a crossing
constexpr int64_t kSameMoment = 1'000;  // in which others count as there

struct SeenCrossing {
    int64_t utcMillis = 0;
    int64_t seq = 0;
    int run = 0;
    KeptCrossing crossing;
};

/** The whole way of an object. */
struct Way {
    int32_t classId = 0;
    ledger::PictureSize size;
    std::vector<PlacedPoint> points;
};

using ObjectOfRun = std::pair<int, int64_t>;

struct Seen {
    std::vector<SeenCrossing> crossings;
    std::map<ObjectOfRun, Way> ways;
};

Seen seenIn(const Chunks& chunks, const Span& span) {
    Seen seen;
    int run = 0;
    visitLinesFor(chunks, span, [&](const ledger::LineHead& head, std::string_view line) {
        if (head.kind == "start") {
            ++run;
        } else if (head.kind == "crossing" && span.holds(timeOf(head))) {
            if (const std::optional<KeptCrossing> crossing = crossingOf(ledger::parseLine(line))) {
                seen.crossings.push_back({timeOf(head), head.seq, run, *crossing});
            }
        } else if (head.kind == "object" && timeOf(head) >= span.from) {
            if (const std::optional<KeptPath> path = pathOf(ledger::parseLine(line))) {
                Way& way = seen.ways[{run, path->object}];
                way.classId = path->classId;
                way.size = path->size;
                way.points.insert(way.points.end(), path->points.begin(), path->points.end());
            }
        }
    });
    return seen;
}

ordered_json pointJson(t_one_locator at) {
    return ordered_json::array({at.first, at.second});
}

std::string whereText(entrances state) {
    return state == entrances::not_in_entrance
               ? "outside every entrance"
               : "in entrance " +
                     std::to_string(static_cast<int>(state) - static_cast<int>(entrances::in_entrance1) + 1);
}

std::string ruleText(const RulesBySize::Rules& rules, const KeptCrossing& crossing) {
    const entrances before = entranceAt(rules.areas, crossing.before);
    const entrances after = entranceAt(rules.areas, crossing.after);
    const entranceActivity activity = entranceActivityOf(before, after, rules.config.b_IsCameraInside);
    const auto counted = static_cast<entranceActivity>(2 * (crossing.entrance - 1) + (crossing.isIn ? 0 : 1));
    if (activity != counted) {
        return "by other settings than those in force now";
    }
    return "was " + whereText(before) + ", then " + whereText(after) + ": " + (crossing.isIn ? "in" : "out") +
           (rules.config.b_IsCameraInside ? ", since the camera is inside" : "");
}

/** The path around a moment: milliseconds after it, negative before, x, y. */
ordered_json pathJson(const Way& way, int64_t moment) {
    ordered_json points = ordered_json::array();
    for (const PlacedPoint& point : way.points) {
        if (std::abs(point.utcMillis - moment) <= kAround) {
            points.push_back({point.utcMillis - moment, point.at.first, point.at.second});
        }
    }
    return points;
}

/** The point of a way that is nearest to a moment in time; nothing when it was not there then. */
const PlacedPoint* at(const Way& way, int64_t moment) {
    if (way.points.empty() || way.points.front().utcMillis > moment + kSameMoment ||
        way.points.back().utcMillis < moment - kSameMoment) {
        return nullptr;
    }
    const auto nearest = std::min_element(way.points.begin(), way.points.end(), [&](const auto& a, const auto& b) {
        return std::abs(a.utcMillis - moment) < std::abs(b.utcMillis - moment);
    });
    return std::abs(nearest->utcMillis - moment) <= kSameMoment ? &*nearest : nullptr;
}

ordered_json neighboursJson(const Seen& seen, const SeenCrossing& crossing) {
    ordered_json neighbours = ordered_json::array();
    for (const auto& [key, way] : seen.ways) {
        if (key.first != crossing.run || key.second == crossing.crossing.object) {
            continue;
        }
        if (const PlacedPoint* const there = at(way, crossing.utcMillis)) {
            neighbours.push_back(
                {{"object", key.second}, {"class", class_index_to_label(way.classId)}, {"at", pointJson(there->at)}});
        }
    }
    return neighbours;
}

/** How far a point is from the way between two corners, all as shares of the picture. */
double distance(double x, double y, double ax, double ay, double bx, double by) {
    const double length = (bx - ax) * (bx - ax) + (by - ay) * (by - ay);
    const double along = length > 0 ? std::clamp(((x - ax) * (bx - ax) + (y - ay) * (by - ay)) / length, 0.0, 1.0) : 0;
    return std::hypot(x - ax - along * (bx - ax), y - ay - along * (by - ay));
}

/** How far a point is from an entrance's outline, as a share of the picture; infinite for one that is not active. */
double distanceTo(const ConfigParams& config, int entrance, t_one_locator at, ledger::PictureSize size) {
    const bool isActive[] = {config.b_Occupancy1Active, config.b_Occupancy2Active, config.b_Occupancy3Active};
    const PointArray<8>* const outlines[] = {&config.i_Occupancy1, &config.i_Occupancy2, &config.i_Occupancy3};
    double least = std::numeric_limits<double>::infinity();
    if (!isActive[entrance - 1]) {
        return least;
    }
    const auto corners = static_cast<size_t>(std::clamp(config.i_EntrancesControlPoints, 1, 8));
    const PointArray<8>& outline = *outlines[entrance - 1];
    const double width = size.width;
    const double height = size.height;
    for (size_t i = 0; i < corners; ++i) {
        const size_t next = (i + 1) % corners;
        least = std::min(
            least, distance(at.first / width, at.second / height, outline[2 * i] / width, outline[2 * i + 1] / height,
                            outline[2 * next] / width, outline[2 * next + 1] / height));
    }
    return least;
}

}  // namespace

ordered_json whyOf(const Chunks& chunks, const SettingsFor& settings, const Span& span, int entrance) {
    const Seen seen = seenIn(chunks, span);
    RulesBySize rules(settings);
    bool isMore = false;
    ordered_json crossings = ordered_json::array();
    std::map<ObjectOfRun, std::set<int>> crossed;
    for (const SeenCrossing& each : seen.crossings) {
        crossed[{each.run, each.crossing.object}].insert(each.crossing.entrance);
        if (entrance != 0 && each.crossing.entrance != entrance) {
            continue;
        }
        if (crossings.size() == kMostTold) {
            isMore = true;
            continue;
        }
        const auto way = seen.ways.find({each.run, each.crossing.object});
        crossings.push_back({{"t", ledger::utcText(each.utcMillis)},
                             {"seq", each.seq},
                             {"entrance", each.crossing.entrance},
                             {"direction", each.crossing.isIn ? "in" : "out"},
                             {"class", class_index_to_label(each.crossing.classId)},
                             {"object", each.crossing.object},
                             {"before", pointJson(each.crossing.before)},
                             {"after", pointJson(each.crossing.after)},
                             {"rule", ruleText(rules.of(each.crossing.size), each.crossing)},
                             {"path", way == seen.ways.end() ? ordered_json() : pathJson(way->second, each.utcMillis)},
                             {"neighbours", neighboursJson(seen, each)}});
    }
    ordered_json near = ordered_json::array();
    for (const auto& [key, way] : seen.ways) {
        for (int zone = 1; zone <= 3; ++zone) {
            if ((entrance != 0 && zone != entrance) || crossed[key].contains(zone)) {
                continue;
            }
            const PlacedPoint* nearest = nullptr;
            double least = kNear;
            for (const PlacedPoint& point : way.points) {
                const double far = span.holds(point.utcMillis)
                                       ? distanceTo(rules.of(way.size).config, zone, point.at, way.size)
                                       : std::numeric_limits<double>::infinity();
                if (far <= least) {
                    least = far;
                    nearest = &point;
                }
            }
            if (nearest == nullptr) {
                continue;
            }
            if (near.size() == kMostTold) {
                isMore = true;
                continue;
            }
            near.push_back({{"t", ledger::utcText(nearest->utcMillis)},
                            {"entrance", zone},
                            {"class", class_index_to_label(way.classId)},
                            {"object", key.second},
                            {"at", pointJson(nearest->at)},
                            {"distance", std::round(least * 1000) / 1000}});
        }
    }
    return {{"crossings", std::move(crossings)}, {"near", std::move(near)}, {"more", isMore}};
}

}  // namespace inquiry

#include "inquiry/why.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "tracking/counting_rules.h"

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

/** Where an object was around the crossings that are told. */
struct Way {
    int32_t classId = 0;
    std::vector<PlacedPoint> points;
};

using ObjectOfRun = std::pair<int, int64_t>;

/** Where an object came nearest to an entrance. */
struct Approach {
    int32_t classId = 0;
    PlacedPoint point;
    double distance = 0; /**< of the picture */
};

struct Seen {
    std::vector<SeenCrossing> crossings;
    std::map<ObjectOfRun, std::set<int>> crossed; /**< entrances */
    std::map<ObjectOfRun, Way> ways;
    std::map<std::pair<ObjectOfRun, int>, Approach> approaches;
    bool isMore = false;
};

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
    const auto behind = std::lower_bound(way.points.begin(), way.points.end(), moment,
                                         [](const auto& point, int64_t time) { return point.utcMillis < time; });
    const PlacedPoint* nearest = nullptr;
    for (const auto& point : {behind, behind == way.points.begin() ? behind : std::prev(behind)}) {
        if (point != way.points.end() && std::abs(point->utcMillis - moment) <= kSameMoment &&
            (nearest == nullptr || std::abs(point->utcMillis - moment) < std::abs(nearest->utcMillis - moment))) {
            nearest = &*point;
        }
    }
    return nearest;
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

/**
 * Reads what is to be told. An object's way comes behind its crossings, so that of most ways little has to be kept: the
 * points around crossings, and those right before the line, for crossings that may follow.
 */
class Reading {
public:
    Reading(RulesBySize& rules, const Span& span, int entrance) : m_rules(rules), m_span(span), m_entrance(entrance) {}

    void add(const ledger::LineHead& head, std::string_view line) {
        if (head.kind == "start") {
            ++m_run;
        } else if (head.kind == "crossing") {
            if (const std::optional<KeptCrossing> crossing = crossingOf(ledger::parseLine(line))) {
                // Who crossed just before or behind the time did not merely come near.
                seen.crossed[{m_run, crossing->object}].insert(crossing->entrance);
                if (m_span.holds(timeOf(head))) {
                    addCrossing(head, *crossing);
                }
            }
        } else if (head.kind == "object" && timeOf(head) >= m_span.from) {
            if (const std::optional<KeptPath> path = pathOf(ledger::parseLine(line), head.moment)) {
                addPath(*path, timeOf(head));
            }
        }
    }

    Seen seen;

private:
    void addCrossing(const ledger::LineHead& head, const KeptCrossing& crossing) {
        if (m_entrance != 0 && crossing.entrance != m_entrance) {
            return;
        }
        if (seen.crossings.size() == kMostTold) {
            seen.isMore = true;
            return;
        }
        seen.crossings.push_back({timeOf(head), head.seq, m_run, crossing});
        m_moments.insert(timeOf(head));
    }

    bool isTold(int64_t utcMillis) const {
        const auto moment = m_moments.lower_bound(utcMillis - kAround);
        return moment != m_moments.end() && *moment <= utcMillis + kAround;
    }

    void addPath(const KeptPath& path, int64_t lineTime) {
        const ObjectOfRun key = {m_run, path.object};
        std::vector<PlacedPoint> kept;
        for (const PlacedPoint& point : path.points) {
            if (isTold(point.utcMillis) || point.utcMillis > lineTime - 2 * kAround) {
                kept.push_back(point);
            }
            if (m_span.holds(point.utcMillis)) {
                approach(key, path, point);
            }
        }
        if (!kept.empty()) {
            Way& way = seen.ways[key];
            way.classId = path.classId;
            way.points.insert(way.points.end(), kept.begin(), kept.end());
        }
    }

    void approach(const ObjectOfRun& key, const KeptPath& path, const PlacedPoint& point) {
        for (int zone = 1; zone <= 3; ++zone) {
            if (m_entrance != 0 && zone != m_entrance) {
                continue;
            }
            const double distance = distanceTo(m_rules.of(path.size).config, zone, point.at, path.size);
            if (distance > kNear) {
                continue;
            }
            Approach& nearest = seen.approaches.try_emplace({key, zone}, Approach{0, {}, kNear}).first->second;
            if (distance <= nearest.distance) {
                nearest = {path.classId, point, distance};
            }
        }
    }

    RulesBySize& m_rules;
    const Span m_span;
    const int m_entrance;
    int m_run = 0;
    std::set<int64_t> m_moments; /**< of the crossings that are told */
};

}  // namespace

ordered_json whyOf(const Chunks& chunks, const SettingsFor& settings, const Span& span, int entrance) {
    RulesBySize rules(settings);
    Reading reading(rules, span, entrance);
    visitLinesFor(chunks, span, [&](const auto& head, std::string_view line) { reading.add(head, line); });
    const Seen& seen = reading.seen;
    ordered_json crossings = ordered_json::array();
    for (const SeenCrossing& each : seen.crossings) {
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
    bool isMore = seen.isMore;
    ordered_json near = ordered_json::array();
    for (const auto& [key, nearest] : seen.approaches) {
        const auto& [object, zone] = key;
        const auto crossed = seen.crossed.find(object);
        if (crossed != seen.crossed.end() && crossed->second.contains(zone)) {
            continue;
        }
        if (near.size() == kMostTold) {
            isMore = true;
            break;
        }
        near.push_back({{"t", ledger::utcText(nearest.point.utcMillis)},
                        {"entrance", zone},
                        {"class", class_index_to_label(nearest.classId)},
                        {"object", object.second},
                        {"at", pointJson(nearest.point.at)},
                        {"distance", std::round(nearest.distance * 1000) / 1000}});
    }
    return {{"crossings", std::move(crossings)}, {"near", std::move(near)}, {"more", isMore}};
}

}  // namespace inquiry

#include "inquiry/recount.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "tracking/counting_rules.h"

namespace inquiry {

using nlohmann::json;
using nlohmann::ordered_json;

namespace {

// A path's part is written before that; what is missing later is gone. A minute less than lines are read behind a time,
// since one may pass without a line.
constexpr int64_t kLongestUntold = kLatestLine - 60'000;
constexpr int64_t kReadBefore = int64_t{60} * 60 * 1000;

}  // namespace

SettingsFor settingsInForce(const ConfigParams& settings, ledger::PictureSize picture) {
    return [settings, picture](ledger::PictureSize size) {
        ConfigParams config = settings;
        if (picture.width <= 0 || picture.height <= 0) {
            return config;
        }
        const auto scale = [&](PointArray<8>& points) {
            for (size_t i = 0; i < points.size(); i += 2) {
                points[i] = static_cast<int32_t>(int64_t{points[i]} * size.width / picture.width);
                points[i + 1] = static_cast<int32_t>(int64_t{points[i + 1]} * size.height / picture.height);
            }
        };
        for (PointArray<8>* const points : {&config.i_Detection1, &config.i_Detection2, &config.i_Detection3,
                                            &config.i_Occupancy1, &config.i_Occupancy2, &config.i_Occupancy3}) {
            scale(*points);
        }
        return config;
    };
}

RulesBySize::Rules::Rules(ConfigParams settings) : config(std::move(settings)), areas(config) {
    storeEntrances(config, areas);
    storeDetectionAreas(config, areas);
}

const RulesBySize::Rules& RulesBySize::of(ledger::PictureSize size) {
    std::unique_ptr<Rules>& rules = m_rules[{size.width, size.height}];
    if (!rules) {
        rules = std::make_unique<Rules>(m_settings(size));
    }
    return *rules;
}

void Recount::add(const ledger::LineHead& head, std::string_view line) {
    m_isOfLedger = true;
    if (head.moment.isDated()) {
        m_last = head.moment.utcMillis;
    }
    if (std::abs(m_last - m_givenUp) > kLatestLine) {
        giveUpOn(m_last - kLatestLine);
        m_givenUp = m_last;
    }
    if (head.kind == "start" || head.kind == "stop") {
        endRun();
        return;
    }
    if (head.kind == "clock") {
        setClock(ledger::parseLine(line));
        return;
    }
    if (head.kind == "crossing") {
        if (const std::optional<KeptCrossing> crossing = crossingOf(ledger::parseLine(line))) {
            const bool isAsked = m_span.holds(timeOf(head));
            m_open[crossing->object].push_back({*crossing, isAsked, timeOf(head), m_last});
            if (isAsked && isObjectClassMonitored(m_rules.of(crossing->size).config, crossing->classId)) {
                ++m_result.recorded[{crossing->entrance, crossing->isIn, crossing->classId}];
            }
        }
        return;
    }
    if (head.kind == "object") {
        if (const std::optional<KeptPath> path = pathOf(ledger::parseLine(line), head.moment)) {
            for (const PlacedPoint& point : path->points) {
                step(path->object, path->classId, path->size, point);
            }
            if (path->ended) {
                m_result.objects += timeOf(head) >= m_span.from ? 1 : 0;
                endObject(path->object);
            }
        }
    }
}

/** Paths of crossings that were told before a time do not come any more: retention took them. */
void Recount::giveUpOn(int64_t earliest) {
    for (auto open = m_open.begin(); open != m_open.end();) {
        std::erase_if(open->second, [&](const Recorded& recorded) {
            const bool isLate = recorded.told < earliest;
            m_result.withoutPath += isLate && recorded.isAsked ? 1 : 0;
            return isLate;
        });
        open = open->second.empty() ? m_open.erase(open) : std::next(open);
    }
}

/** Who is in an area has been there as long as before. */
void Recount::setClock(const json& line) {
    const std::optional<int64_t> before = ledger::utcOf(ledger::textIn(line, "before"));
    const std::optional<int64_t> after = ledger::utcOf(ledger::textIn(line, "after"));
    if (before && after) {
        for (auto& [object, track] : m_tracks) {
            track.entered += *after - *before;
            track.last += *after - *before;
        }
    }
}

void Recount::addCycle(const json& cycle) {
    if (!cycle.is_object()) {
        throw std::runtime_error("expected a cycle of tracks.jsonl, got a line that is no JSON object");
    }
    try {
        const auto time = static_cast<int64_t>(cycle.at("seconds").get<double>() * 1000);
        const ledger::PictureSize size = {cycle.at("picture").at(0).get<int32_t>(),
                                          cycle.at("picture").at(1).get<int32_t>()};
        std::set<int64_t> seen;
        for (const json& object : cycle.at("objects")) {
            const auto id = object.at("id").get<int64_t>();
            const int32_t classId = label_to_class_index(object.at("class").get<std::string>()).value_or(-1);
            const t_one_locator at = {object.at("locator").at(0).get<int32_t>(),
                                      object.at("locator").at(1).get<int32_t>()};
            const auto activity = object.at("activity").get<int>();
            if (m_span.holds(time) && activity >= 0 && activity <= static_cast<int>(entranceActivity::exitEntrance3) &&
                isObjectClassMonitored(m_rules.of(size).config, classId)) {
                ++m_result.recorded[{activity / 2 + 1, activity % 2 == 0, classId}];
            }
            step(id, classId, size, {time, at});
            seen.insert(id);
        }
        for (auto track = m_tracks.begin(); track != m_tracks.end();) {
            const int64_t id = (track++)->first;
            if (!seen.contains(id)) {
                ++m_result.objects;
                endObject(id);
            }
        }
    } catch (const json::exception& error) {
        throw std::runtime_error(std::string("expected a cycle of tracks.jsonl, got another line (") + error.what() +
                                 ")");
    }
}

void Recount::step(int64_t object, int32_t classId, ledger::PictureSize size, const PlacedPoint& point) {
    const RulesBySize::Rules& rules = m_rules.of(size);
    const entrances state = entranceAt(rules.areas, point.at);
    const auto [known, isNew] = m_tracks.try_emplace(object);
    Track& track = known->second;
    if (!isNew) {
        const int32_t classNow = classAt(object, classId, track.at, point.at);
        const entranceActivity activity = entranceActivityOf(track.state, state, rules.config.b_IsCameraInside);
        if (activity != entranceActivity::unknown && m_span.holds(point.utcMillis) &&
            isObjectClassMonitored(rules.config, classNow)) {
            ++m_result.counts[{static_cast<int>(activity) / 2 + 1, static_cast<int>(activity) % 2 == 0, classNow}];
        }
    }
    track.state = state;
    track.at = point.at;
    const int area = isObjectClassMonitored(rules.config, classId) ? detectionAreaAt(rules.areas, point.at) : 0;
    track.last = point.utcMillis;
    if (area != track.area) {
        leave(track);
        track.area = area;
        track.entered = point.utcMillis;
    }
    track.classId = classId;
}

/** An object's class may waver: where a recorded crossing was the same step, it has the class that was counted. */
int32_t Recount::classAt(int64_t object, int32_t voted, t_one_locator before, t_one_locator after) {
    const auto open = m_open.find(object);
    if (open == m_open.end()) {
        return voted;
    }
    std::vector<Recorded>& crossings = open->second;
    const auto same = std::find_if(crossings.begin(), crossings.end(), [&](const Recorded& recorded) {
        return recorded.crossing.before == before && recorded.crossing.after == after;
    });
    if (same == crossings.end()) {
        return voted;
    }
    const int32_t counted = same->crossing.classId;
    crossings.erase(same);
    return counted;
}

void Recount::leave(Track& track) {
    if (track.area != 0 && m_span.holds(track.last)) {
        m_result.stays[{track.area, track.classId}].push_back(track.last - track.entered);
    }
    track.area = 0;
}

void Recount::endObject(int64_t object) {
    if (const auto track = m_tracks.find(object); track != m_tracks.end()) {
        leave(track->second);
        m_tracks.erase(track);
    }
    if (const auto open = m_open.find(object); open != m_open.end()) {
        m_result.withoutPath += std::count_if(open->second.begin(), open->second.end(),
                                              [](const Recorded& recorded) { return recorded.isAsked; });
        m_open.erase(open);
    }
}

void Recount::endRun() {
    while (!m_tracks.empty()) {
        m_result.objects += m_tracks.begin()->second.last >= m_span.from ? 1 : 0;
        endObject(m_tracks.begin()->first);
    }
    while (!m_open.empty()) {
        endObject(m_open.begin()->first);
    }
}

Recounted Recount::finish() {
    for (auto& [object, crossings] : m_open) {
        m_result.inView += static_cast<int64_t>(std::erase_if(crossings, [&](const Recorded& recorded) {
            return recorded.isAsked && recorded.utcMillis > m_last - kLongestUntold;
        }));
    }
    for (auto& [object, track] : m_tracks) {
        track.area = m_isOfLedger ? 0 : track.area;  // who is there still has not ended a stay
    }
    endRun();
    return std::move(m_result);
}

Span readToRecount(const Span& span) {
    return {std::max(span.from, std::numeric_limits<int64_t>::min() + kReadBefore) - kReadBefore, span.until};
}

Recounted recountOf(const Chunks& chunks, const SettingsFor& settings, const Span& span) {
    Recount recount(settings, span);
    visitLinesFor(chunks, span, [&](const ledger::LineHead& head, std::string_view line) {
        if (timeOf(head) >= readToRecount(span).from || head.kind == "start") {
            recount.add(head, line);
        }
    });
    return recount.finish();
}

namespace {

ordered_json jsonOf(const Counts& counts) {
    ordered_json entries = ordered_json::array();
    for (const auto& [key, count] : counts) {
        entries.push_back({{"entrance", key.entrance},
                           {"direction", key.isIn ? "in" : "out"},
                           {"class", class_index_to_label(key.classId)},
                           {"count", count}});
    }
    return entries;
}

double secondsOf(int64_t millis) {
    return static_cast<double>(millis - millis % 100) / 1000;
}

}  // namespace

ordered_json jsonOf(const StaysByArea& stays) {
    ordered_json entries = ordered_json::array();
    for (const auto& [key, unsorted] : stays) {
        std::vector<int64_t> lengths = unsorted;
        std::sort(lengths.begin(), lengths.end());
        int64_t sum = 0;
        for (const int64_t length : lengths) {
            sum += length;
        }
        const size_t half = lengths.size() / 2;
        const int64_t median = lengths.size() % 2 == 1 ? lengths[half] : (lengths[half - 1] + lengths[half]) / 2;
        entries.push_back({{"area", key.first},
                           {"class", class_index_to_label(key.second)},
                           {"visits", lengths.size()},
                           {"average", secondsOf(sum / static_cast<int64_t>(lengths.size()))},
                           {"median", secondsOf(median)},
                           {"longest", secondsOf(lengths.back())}});
    }
    return entries;
}

ordered_json jsonOf(const Recounted& recounted) {
    return {{"counts", jsonOf(recounted.counts)}, {"recorded", jsonOf(recounted.recorded)},
            {"objects", recounted.objects},       {"without_path", recounted.withoutPath},
            {"in_view", recounted.inView},        {"stays", jsonOf(recounted.stays)}};
}

}  // namespace inquiry

#include "ledger/recorder.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "ledger/line.h"

namespace ledger {

namespace {

using nlohmann::ordered_json;

constexpr int64_t kMillisPerMinute = 60'000;
constexpr size_t kMostPoints = 60;
// Readers look no more than a quarter of an hour behind a time for the lines that tell of it.
constexpr int64_t kLongestPart = 10 * kMillisPerMinute;
// A longer silence between two cycles was not watched: of so long, and of so many cycles as they are meant to follow.
constexpr int64_t kLongestSilence = 2'000;
constexpr int64_t kSilentCycles = 3;
constexpr int64_t kRarestCycles = 10'000;  // milliseconds; what is set to more than can be set looks when it is told to

ordered_json pointJson(t_one_locator at) {
    return ordered_json::array({at.first, at.second});
}

ordered_json sizeJson(PictureSize picture) {
    return ordered_json::array({picture.width, picture.height});
}

double seconds(int64_t millis) {
    return static_cast<double>(millis - millis % 100) / 1000;
}

/** A time of the machine: in UTC, or as it is before UTC is known. */
ordered_json timeJson(int64_t monoMillis, const Instant& now) {
    return now.isDated ? ordered_json(utcText(monoMillis + now.utcOffset)) : ordered_json(monoMillis);
}

int areaOf(footings footing) {
    return (static_cast<int>(footing) + 1) / 2;
}

bool isClass(int32_t number) {
    return number >= 0 && number < static_cast<int32_t>(RunTotals::kClasses);
}

}  // namespace

Recorder::Recorder(Append append, ObjectPath::SideOf sideOf)
    : m_append(std::move(append)), m_sideOf(std::move(sideOf)) {}

void Recorder::add(const SeenCycle& cycle) {
    m_picture = cycle.picture;
    ++m_cycleNumber;
    for (const one_find& finding : cycle.findings) {
        follow(finding, cycle);
    }
    for (auto object = m_objects.begin(); object != m_objects.end();) {
        if (object->second.lastCycle == m_cycleNumber) {
            ++object;
        } else {
            writePath(object->first, object->second, true, cycle.now);
            object = m_objects.erase(object);
        }
    }
    watch(cycle.now, cycle.occupancy);
    ++m_cycles;
    m_slow += cycle.isSlow ? 1 : 0;
    const int64_t since = cycle.now.monoMillis - m_lastCycle.value_or(cycle.now.monoMillis);
    const int64_t meant = cycle.meantMillis <= kRarestCycles ? cycle.meantMillis : 0;
    if (since <= std::max(kLongestSilence, kSilentCycles * meant)) {
        m_watchedMillis += since;
        m_totals.watchedMillis += since;
    }
    m_lastCycle = cycle.now.monoMillis;
    countInAreas(cycle.findings);
    m_totals.lastCycle = cycle.now.isDated ? std::optional(cycle.now.monoMillis + cycle.now.utcOffset) : std::nullopt;
}

void Recorder::countInAreas(const std::vector<one_find>& findings) {
    m_totals.inAreas = {};
    for (const one_find& finding : findings) {
        const int area = areaOf(finding.footing);
        if (area != 0 && isClass(finding.detect.ClassId)) {
            ++m_totals.inAreas.at(static_cast<size_t>(area) - 1).at(static_cast<size_t>(finding.detect.ClassId));
        }
    }
}

void Recorder::follow(const one_find& finding, const SeenCycle& cycle) {
    const int64_t now = cycle.now.monoMillis;
    Followed& object =
        m_objects.try_emplace(finding.id, Followed{ObjectPath(cycle.picture, m_sideOf), now, now, finding.locator})
            .first->second;
    if (finding.entranceAct != entranceActivity::unknown) {
        writeCrossing(finding, object, cycle);
    }
    object.path.add(finding.locator, now);
    object.last = now;
    object.at = finding.locator;
    object.lastCycle = m_cycleNumber;
    ++object.cycles;
    if (isClass(finding.detect.ClassId)) {
        ++object.votes.at(static_cast<size_t>(finding.detect.ClassId));
    }
    const int area = areaOf(finding.footing);
    if (object.area != 0) {
        object.stays.back().leave = now;
    }
    if (area != 0 && area != object.area) {
        object.stays.push_back({area, now, now});
    }
    object.area = area;
    if (object.path.mostPoints() >= kMostPoints || now - object.path.begin() >= kLongestPart) {
        writePath(finding.id, object, false, cycle.now);
    }
}

void Recorder::writeCrossing(const one_find& finding, const Followed& object, const SeenCycle& cycle) {
    const int activity = static_cast<int>(finding.entranceAct);
    if (isClass(finding.detect.ClassId)) {
        ++m_totals.crossings.at(static_cast<size_t>(activity)).at(static_cast<size_t>(finding.detect.ClassId));
    }
    m_append("crossing", {{"entrance", activity / 2 + 1},
                          {"direction", activity % 2 == 0 ? "in" : "out"},
                          {"class", class_index_to_label(finding.detect.ClassId)},
                          {"object", finding.id},
                          {"before", pointJson(object.at)},
                          {"after", pointJson(finding.locator)},
                          {"size", sizeJson(cycle.picture)},
                          {"followed", seconds(cycle.now.monoMillis - object.first)},
                          {"occupancy", cycle.occupancy}});
}

void Recorder::writePath(int32_t id, Followed& object, bool ended, const Instant& now) {
    // What flickered up for one cycle crossed nothing and went nowhere.
    if (ended && object.cycles < 2) {
        return;
    }
    const int64_t begin = object.path.begin();
    ordered_json points = ordered_json::array();
    for (const PathPoint& point : object.path.take()) {
        ordered_json entry = ordered_json::array({point.millis, point.at.first, point.at.second});
        if (point.between > 0) {
            entry.push_back(point.between);
        }
        points.push_back(std::move(entry));
    }
    ordered_json areas = ordered_json::array();
    for (const AreaStay& stay : object.stays) {
        areas.push_back(
            {{"area", stay.area}, {"enter", timeJson(stay.enter, now)}, {"leave", timeJson(stay.leave, now)}});
    }
    const auto votes = std::max_element(object.votes.begin(), object.votes.end());
    ordered_json body = {{"object", id},
                         {"class", class_index_to_label(static_cast<int32_t>(votes - object.votes.begin()))},
                         {"first", timeJson(object.first, now)},
                         {"last", timeJson(object.last, now)},
                         {"size", sizeJson(m_picture)}};
    // Of most there is one line, and the shorter it is, the longer does a camera's flash last.
    if (++object.parts > 1) {
        body["part"] = object.parts;
    }
    if (!ended) {
        body["ended"] = false;
    }
    if (begin != object.first) {
        body["begin"] = timeJson(begin, now);
    }
    body["path"] = std::move(points);
    body["areas"] = std::move(areas);
    m_append("object", body);
    // The next part tells of a stay that goes on from its begin, so that it needs no other part.
    if (object.area != 0) {
        object.stays.erase(object.stays.begin(), object.stays.end() - 1);
    } else {
        object.stays.clear();
    }
}

void Recorder::addFailure(const Instant& now, int32_t occupancy) {
    watch(now, occupancy);
    ++m_failed;
}

void Recorder::watch(const Instant& now, int32_t occupancy) {
    const int64_t minute = (now.isDated ? now.monoMillis + now.utcOffset : now.monoMillis) / kMillisPerMinute;
    if (m_minute && *m_minute != minute) {
        writeWatched(now, occupancy);
    }
    m_minuteBegin = m_minute == minute ? m_minuteBegin : now.monoMillis;
    m_minute = minute;
    m_isMinuteDated = now.isDated;
}

void Recorder::writeWatched(const Instant& now, int32_t occupancy) {
    const int64_t begin = *m_minute * kMillisPerMinute;
    // A minute that began before the time was known began so long after the start.
    const int64_t utcBegin = m_isMinuteDated ? begin : begin + now.utcOffset;
    m_append("watched", {{"minute", now.isDated ? ordered_json(utcText(utcBegin)) : ordered_json(begin)},
                         {"seconds", seconds(std::min(m_watchedMillis, kMillisPerMinute))},
                         {"cycles", m_cycles},
                         {"slow", m_slow},
                         {"failed", m_failed},
                         {"occupancy", occupancy}});
    const int64_t length = now.monoMillis - m_minuteBegin;
    if (length > 0) {
        m_totals.watchedRatio = std::min(1.0, static_cast<double>(m_watchedMillis) / static_cast<double>(length));
    }
    m_watchedMillis = 0;
    m_cycles = m_slow = m_failed = 0;
}

void Recorder::beginParts(const Instant& now) {
    for (auto& [id, object] : m_objects) {
        // Who was there for a single cycle has not crossed anything, and may be gone.
        if (object.cycles > 1) {
            writePath(id, object, false, now);
        }
    }
}

void Recorder::finish(const Instant& now, int32_t occupancy) {
    for (auto& [id, object] : m_objects) {
        writePath(id, object, true, now);
    }
    m_objects.clear();
    if (m_minute) {
        watch(now, occupancy);
        writeWatched(now, occupancy);
    }
    m_minute.reset();
}

}  // namespace ledger

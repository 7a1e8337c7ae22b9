#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "config/config_params.h"
#include "finding/finding.h"
#include "inquiry/kept_path.h"
#include "inquiry/lines.h"
#include "ledger/index.h"
#include "tracking/area_of_interest.h"

namespace inquiry {

/** The settings to count by, with areas in pixels of a picture of that size. */
using SettingsFor = std::function<ConfigParams(ledger::PictureSize)>;

/** The settings in force, whose areas are drawn in a picture of a size; another size has them in proportion. */
SettingsFor settingsInForce(const ConfigParams& settings, ledger::PictureSize picture);

/** Settings, ready to be asked, for pictures of every size that turns up. */
class RulesBySize {
public:
    struct Rules {
        explicit Rules(ConfigParams settings);
        const ConfigParams config;
        area_of_interest areas;
    };

    explicit RulesBySize(SettingsFor settings) : m_settings(std::move(settings)) {}
    const Rules& of(ledger::PictureSize size);

private:
    const SettingsFor m_settings;
    std::map<std::pair<int32_t, int32_t>, std::unique_ptr<Rules>> m_rules;
};

using Counts = std::map<ledger::CountKey, int64_t>;

/** Milliseconds of every stay, by area, 1..3, and class. */
using StaysByArea = std::map<std::pair<int, int32_t>, std::vector<int64_t>>;

/** What would have been counted. */
struct Recounted {
    Counts counts;           /**< by the settings asked for */
    Counts recorded;         /**< as it was counted; of the classes that the settings count */
    int64_t objects = 0;     /**< whose ways were replayed */
    int64_t withoutPath = 0; /**< recorded crossings whose object left no path: a kill took it, or retention */
    int64_t inView = 0;      /**< recorded crossings whose object may still be there: its path comes later */
    StaysByArea stays;       /**< by the areas asked for; those that ended in the time */
};

/**
 * Counts again: replays the ways that objects took through the entrance and area code with other settings. With the
 * settings of that time it gives what was recorded; with others it is as exact as the kept paths. Boxes are not kept:
 * exclusions and the choice of the locator cannot be changed afterwards, classes only narrowed, and how long the
 * tracker held on to an object near the old lines stays as it was.
 */
class Recount {
public:
    Recount(SettingsFor settings, const Span& span) : m_rules(std::move(settings)), m_span(span) {}

    /** A line of a ledger, in order; kinds that tell nothing of objects are passed over. */
    void add(const ledger::LineHead& head, std::string_view line);

    /** A line of a file "tracks.jsonl"; throws std::runtime_error when it is none. */
    void addCycle(const nlohmann::json& cycle);

    /** What was counted in all lines. */
    Recounted finish();

private:
    /** An object on its way. */
    struct Track {
        entrances state = entrances::unknown;
        t_one_locator at;
        int32_t classId = 0;
        int area = 0; /**< that it is in; 0 for none */
        int64_t entered = 0;
        int64_t last = 0;
    };
    struct Recorded {
        KeptCrossing crossing;
        bool isAsked = false; /**< in the time asked for */
        int64_t utcMillis = 0;
        int64_t told = 0; /**< when the last dated line until then was */
    };

    void step(int64_t object, int32_t classId, ledger::PictureSize size, const PlacedPoint& point);
    int32_t classAt(int64_t object, int32_t voted, t_one_locator before, t_one_locator after);
    void setClock(const nlohmann::json& line);
    void giveUpOn(int64_t earliest);
    void leave(Track& track);
    void endObject(int64_t object);
    void endRun();

    RulesBySize m_rules;
    const Span m_span;
    std::map<int64_t, Track> m_tracks;               /**< of this run of the application */
    std::map<int64_t, std::vector<Recorded>> m_open; /**< recorded crossings whose path has not come yet */
    int64_t m_last = 0;                              /**< when the last dated line was */
    int64_t m_givenUp = 0;                           /**< and when paths were last given up on */
    bool m_isOfLedger = false;                       /**< else cycles, of all there is */
    Recounted m_result;
};

/** What has to be read to recount a time: an hour before it, too, in which who was there then may have come. */
Span readToRecount(const Span& span);

/** Replays a ledger's lines, chunks of readToRecount's time. */
Recounted recountOf(const Chunks& chunks, const SettingsFor& settings, const Span& span);

/** The answer as JSON: counts, recorded, objects, without_path, in_view, stays. */
nlohmann::ordered_json jsonOf(const Recounted& recounted);

/** Visits, average, median and longest seconds, by area and class. */
nlohmann::ordered_json jsonOf(const StaysByArea& stays);

}  // namespace inquiry

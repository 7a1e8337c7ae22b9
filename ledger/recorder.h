#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "finding/finding.h"
#include "ledger/machine_clock.h"
#include "ledger/object_path.h"
#include "ledger/run_totals.h"

namespace ledger {

/** What one analysis cycle saw. */
struct SeenCycle {
    const std::vector<one_find>& findings; /**< the tracked objects, in ascending id order */
    PictureSize picture;
    Instant now;
    int32_t occupancy = 0; /**< after the cycle */
    bool isSlow = false;
    int64_t meantMillis = 0; /**< from one cycle to the next, as it is set; 0: no matter */
};

/**
 * Turns what the analysis sees into lines: crossings in the cycle in which they happen, objects when they have ended,
 * and once a minute how much of it was watched. The analysis thread.
 */
class Recorder {
public:
    using Append = std::function<void(const std::string& kind, const nlohmann::ordered_json& body)>;

    /** sideOf: which areas and entrances a point is in, with the areas in force. */
    Recorder(Append append, ObjectPath::SideOf sideOf);

    /** A cycle that succeeded. */
    void add(const SeenCycle& cycle);

    /** A cycle whose model failed. */
    void addFailure(const Instant& now, int32_t occupancy);

    /** The clock was set: tells the ways until now by the one that their crossings were told by. */
    void beginParts(const Instant& now);

    /** Ends all objects, and the minute: for an orderly stop. */
    void finish(const Instant& now, int32_t occupancy);

    /** Since the start. */
    [[nodiscard]] const RunTotals& totals() const { return m_totals; }

private:
    // Times are milliseconds since the machine's start, which nobody sets.
    struct AreaStay {
        int area; /**< 1..3 */
        int64_t enter;
        int64_t leave; /**< as far as is known */
    };
    struct Followed {
        ObjectPath path;
        int64_t first = 0;
        int64_t last = 0;
        t_one_locator at;                       /**< in the last cycle */
        RunTotals::ByClass<int32_t> votes = {}; /**< cycles as each class */
        int area = 0;                           /**< that it is in; 0 for none */
        std::vector<AreaStay> stays = {};
        int parts = 0; /**< lines written so far */
        int64_t cycles = 0;
        int64_t lastCycle = 0; /**< the number of the last cycle that it was in */
    };

    void follow(const one_find& finding, const SeenCycle& cycle);
    void writeCrossing(const one_find& finding, const Followed& object, const SeenCycle& cycle);
    void writePath(int32_t id, Followed& object, bool ended, const Instant& now);
    void countInAreas(const std::vector<one_find>& findings);
    void watch(const Instant& now, int32_t occupancy);
    void writeWatched(const Instant& now, int32_t occupancy);

    Append m_append;
    ObjectPath::SideOf m_sideOf;
    PictureSize m_picture;
    std::map<int32_t, Followed> m_objects;
    int64_t m_cycleNumber = 0;
    std::optional<int64_t> m_minute;    /**< of UTC, or of the machine's time; the one being watched */
    bool m_isMinuteDated = false;       /**< else m_minute is since the machine's start */
    std::optional<int64_t> m_lastCycle; /**< when */
    int64_t m_minuteBegin = 0;          /**< of the machine's time, or of the run if that is later */
    int64_t m_watchedMillis = 0;        /**< of the minute */
    RunTotals m_totals;
    int32_t m_cycles = 0;
    int32_t m_slow = 0;
    int32_t m_failed = 0;
};

}  // namespace ledger

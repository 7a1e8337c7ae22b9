#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "base/mutex.h"
#include "ledger/line.h"

namespace ledger {

/** A moment by the machine's own time, and what that is in UTC. */
struct Instant {
    int64_t monoMillis = 0; /**< since the machine's start, sleep included */
    int64_t utcOffset = 0;  /**< milliseconds; monoMillis + utcOffset is UTC. Meaningless while not dated */
    bool isDated = true;
};

/** Where a MachineClock has its times from; by default the application's one clock. */
struct ClockSources {
    ClockSources();
    std::function<int64_t()> wallMicros;  /**< since 1970 */
    std::function<int64_t()> monoMillis;  /**< since the machine's start */
    std::function<bool()> isSynchronised; /**< whether the machine knows that its wall clock is right */
    std::string boot;                     /**< this start of the machine */
};

/**
 * When a line is. Right after the machine's start its wall clock may be anywhere: until it is synchronised, and for ten
 * minutes at most, moments are told in time since the start. Also notices when the wall clock is set.
 *
 * now from any thread, look from one.
 */
class MachineClock {
public:
    explicit MachineClock(ClockSources sources = {});

    /** By the wall clock as it was when last looked at: between two looks, and lines "clock", all times are by one. */
    [[nodiscard]] Instant now() const EXCLUDES(m_mutex);

    /** The same for the head of a line. */
    [[nodiscard]] Moment moment() const EXCLUDES(m_mutex);

    /**
     * Looks whether the wall clock was set by more than a second, all in all, or became known; call it in every cycle.
     * Returns what a line of kind "clock" has to say, nothing when nothing happened. beforeSet: called before times are
     * told by a clock that was set.
     */
    std::optional<nlohmann::ordered_json> look(const std::function<void()>& beforeSet = [] {}) EXCLUDES(m_mutex);

    /** What a line of kind "clock" has to say of the time that this run is dated by. */
    [[nodiscard]] nlohmann::ordered_json known() const;

    [[nodiscard]] const std::string& boot() const { return m_sources.boot; }

private:
    [[nodiscard]] int64_t offset() const;

    const ClockSources m_sources;
    mutable Mutex m_mutex; /**< guards what follows */
    bool m_isDated GUARDED_BY(m_mutex) = true;
    int64_t m_offset GUARDED_BY(m_mutex) = 0; /**< of the wall clock, by which times are told */
};

}  // namespace ledger

#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "finding/finding.h"

namespace ledger {

/** The size in pixels of the picture that points are in. */
struct PictureSize {
    int32_t width = 0;
    int32_t height = 0;
};

/** A point of a simplified path. */
struct PathPoint {
    int64_t millis = 0; /**< since the path's begin */
    t_one_locator at;
    int32_t between = 0; /**< cycles left out since the point before; pointBetween tells where the object was in them */

    bool operator==(const PathPoint&) const = default;
};

/** Where an object was in the left-out cycle i, 1..between, on its way to a point that left out so many. */
t_one_locator pointBetween(t_one_locator from, t_one_locator to, int32_t i, int32_t between);

/**
 * The path of one object, a point a cycle, simplified while it grows: straight parts are kept as their ends, so that
 * every point left out lies at most 1 % of the picture's width and height from where pointBetween puts it, on the same
 * side of every line that is drawn, and at most half a second from its place in time. The points on both sides of a
 * line are kept as they are.
 *
 * The longest straight part has 64 points, so that a cycle costs little and memory is bounded. A point that sways does
 * not end it: the part ends when sixteen in a row do not continue it.
 */
class ObjectPath {
public:
    /** Which areas and entrances a point is in, as some number; called with points of the path and between them. */
    using SideOf = std::function<int(t_one_locator)>;

    /** sideOf: outlives the path. */
    ObjectPath(PictureSize picture, const SideOf& sideOf) : m_picture(picture), m_sideOf(&sideOf) {}

    /** Adds the next cycle's point. millis: of any clock; a step backwards counts as no time. */
    void add(t_one_locator at, int64_t millis);

    /** How many points take would give at most; one more with each point that is added, or fewer. */
    [[nodiscard]] size_t mostPoints() const {
        return m_kept.size() + (m_waiting.empty() ? 0 : m_waiting.size() - m_straight + 1);
    }

    /**
     * The path up to the newest point; what is added from here on continues from that point with a path of its own.
     */
    std::vector<PathPoint> take();

    /** Milliseconds of the clock at the path's first point and its newest. */
    [[nodiscard]] int64_t begin() const { return m_begin; }
    [[nodiscard]] int64_t end() const { return m_begin + m_newestMillis; }

private:
    struct Sample {
        int64_t millis;
        t_one_locator at;
        int side;
    };

    void keep(const Sample& sample, size_t leftOut);
    void keepStraight();
    [[nodiscard]] bool isStraight(size_t count) const;

    PictureSize m_picture;
    const SideOf* m_sideOf;
    int64_t m_begin = 0;
    int64_t m_newestMillis = 0;
    std::vector<PathPoint> m_kept;
    int m_keptSide = 0;            /**< of the last point kept */
    std::vector<Sample> m_waiting; /**< since the last point kept, the newest last, all on one side */
    size_t m_straight = 0;         /**< so many of them lie on the straight way to the last of these */
};

}  // namespace ledger

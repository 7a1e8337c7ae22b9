#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/**
 * A building of three cameras, and who walks through it: everything follows from a seed, so that a camera that was
 * killed goes on where it was, and who watches knows what all of them should have counted.
 *
 * Times are milliseconds since the building's beginning, by a clock that nobody sets, unless they are said to be UTC.
 */
namespace building {

inline constexpr size_t kCameras = 3;
inline constexpr int64_t kCycle = 1'000; /**< between two looks of a camera */
inline constexpr int64_t kMinute = 60'000;
inline constexpr int32_t kWidth = 640; /**< of the pictures */
inline constexpr int32_t kHeight = 360;
inline constexpr int32_t kDoor1 = 400; /**< entrance 1 is all that lies right of it */
inline constexpr int32_t kDoor2 = 160; /**< entrance 2 is all that lies left of it */

struct Span {
    int64_t from = 0;
    int64_t until = 0; /**< not included */

    [[nodiscard]] bool holds(int64_t time) const { return time >= from && time < until; }
};

/** What is to be lived through. */
struct Day {
    uint32_t seed = 1;
    int64_t begin = 0;   /**< UTC */
    int64_t length = 0;  /**< milliseconds */
    std::string zone;    /**< "Europe/Berlin" */
    std::string resetAt; /**< "hh:mm" there, of the daily reset */

    /** When the wall clock is set, and by how much from then on. */
    struct Step {
        int64_t at = 0;
        int64_t by = 0;
    };
    [[nodiscard]] std::array<Step, 2> steps() const;

    /** When the disk is full: while nobody is killed, and while the killing goes on. */
    [[nodiscard]] std::array<Span, 2> fullDisks() const;

    /** When nobody is killed: until what waited for the first full disk has been written. */
    [[nodiscard]] Span quiet() const;

    /** UTC by the machines' clock, as it is set then. */
    [[nodiscard]] int64_t wallAt(int64_t time) const;
};

/** A step over a threshold. */
struct Passage {
    int64_t at = 0;
    int entrance = 1; /**< 1 or 2 */
    bool isIn = true;
};

/** Somebody who is seen from begin to end, and walks evenly from place to place. */
struct Walker {
    int64_t begin = 0;
    int64_t end = 0;
    std::vector<int32_t> stops; /**< x of where the way begins, turns and ends */
    double speed = 0;           /**< pixels in a second */
    int32_t y = 0;
    int32_t classId = 0;

    /** Where this one is; nothing while not to be seen. */
    [[nodiscard]] std::optional<double> xAt(int64_t time) const;
    [[nodiscard]] std::vector<Passage> passages() const;
};

/** Everybody who walks before a camera, 0.., in the order in which they come. */
std::vector<Walker> walkersOf(const Day& day, size_t camera);

/** How far each camera has come; in memory that outlives it. */
struct Times {
    std::array<std::atomic<int64_t>, kCameras> passed = {};
};

/** Those of a file, made when it is missing; shared with whoever maps it, too. */
class SharedTimes {
public:
    explicit SharedTimes(const std::string& path);
    ~SharedTimes();
    SharedTimes(const SharedTimes&) = delete;
    SharedTimes& operator=(const SharedTimes&) = delete;

    std::atomic<int64_t>& of(size_t camera) { return m_times->passed.at(camera); }

    /** How far the one has come that is behind the others. */
    [[nodiscard]] int64_t slowest() const;

private:
    Times* m_times;
};

/** A day as words of a command, and back. */
std::vector<std::string> wordsOf(const Day& day);
Day dayOf(const std::vector<std::string>& words);

}  // namespace building

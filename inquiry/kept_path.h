#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <vector>

#include "finding/finding.h"
#include "ledger/line.h"
#include "ledger/object_path.h"

namespace inquiry {

/** Where an object was in one cycle. */
struct PlacedPoint {
    int64_t utcMillis = 0;
    t_one_locator at;
};

/**
 * An area that an object was in, from its first cycle there to the first elsewhere, or its last of all or of the path's
 * part. One that began in a part before has the begin it had there; in old ledgers, where its own part begins.
 */
struct KeptStay {
    int area = 0; /**< 1..3 */
    int64_t enter = 0;
    int64_t leave = 0; /**< UTC, milliseconds */
};

/** What a line of kind "object" tells: a part of an object's way through the picture. */
struct KeptPath {
    int64_t object = 0; /**< its number since the application's start */
    int32_t classId = 0;
    ledger::PictureSize size;
    bool ended = false;
    std::vector<PlacedPoint> points; /**< a point a cycle; those left out are put back on the straight way */
    std::vector<KeptStay> stays;
};

/** What a line of kind "crossing" tells. */
struct KeptCrossing {
    int64_t object = 0;
    int entrance = 1; /**< 1..3 */
    bool isIn = true;
    int32_t classId = 0;
    ledger::PictureSize size;
    t_one_locator before;
    t_one_locator after;
};

/**
 * Reads a whole line of its kind; nothing for what is none.
 *
 * moment: when the line was. What it tells in milliseconds since the machine's start is dated with it; where nobody
 * knows when that was, such times are the earliest there are.
 */
std::optional<KeptPath> pathOf(const nlohmann::json& line, const ledger::Moment& moment);
std::optional<KeptCrossing> crossingOf(const nlohmann::json& line);

}  // namespace inquiry

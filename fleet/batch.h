#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ledger/line.h"

namespace fleet {

/** A line as it came. */
struct StagedLine {
    ledger::LineHead head;
    std::string text; /**< without its end */
};

/** What a camera sends at once: all that it has behind a number, up to the last line. */
struct Batch {
    std::string prefix; /**< the camera's */
    std::string epoch;
    int64_t after = 0;
    int64_t through = 0;   /**< the last line's number */
    bool isInOrder = true; /**< false: newest lines for who looks on, which confirm nothing */
    std::vector<StagedLine> lines;
};

/** A longer payload is refused, in bytes. */
inline constexpr size_t kLongestBatch = size_t{2} << 20;

/**
 * Reads a batch from a topic, PREFIX/ledger or PREFIX/recent. Throws std::runtime_error that says what was expected and
 * what came.
 */
Batch readBatch(std::string_view topic, std::string_view payload);

}  // namespace fleet

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "inquiry/lines.h"
#include "ledger/disk.h"

namespace inquiry {

/** What a look at a whole ledger found. */
struct Checked {
    int64_t lines = 0;
    int64_t crossings = 0;
    int64_t periods = 0;   /**< whose tallies its crossings gave */
    int64_t explained = 0; /**< periods without that: a run ended in them, a count was reset, or lines were cut */
    int64_t archived = 0;  /**< periods of the archive that were compared */
    std::vector<std::string> faults; /**< each a sentence; none when all is well */
};

/**
 * Looks whether a ledger is whole: lines that are none, numbers that are missing, double or out of order without a line
 * "cut" that says why, another epoch, and periods whose tallies are not the sum of their crossings.
 *
 * archive: the path of "EntranceActivityTidy.csv", whose periods are compared, too, and have to be there; empty for
 * none.
 */
Checked check(ledger::Disk& disk, const std::string& archive);

}  // namespace inquiry

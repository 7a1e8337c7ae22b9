#pragma once

#include <string>
#include <vector>

#include "building_script.h"

namespace building {

/** What came of a day. */
struct Watched {
    std::vector<std::string> said;   /**< what was seen, in sentences */
    std::vector<std::string> faults; /**< what must not be; none when all is well */
};

/** How a day is lived through. */
struct Watching {
    int64_t killEvery =
        420'000; /**< milliseconds of the building's time from one kill of a camera to its next, on average */
    std::string checkProgram; /**< "senvo-ledger", which then has to be silent, too; empty for none */
};

/**
 * Lives through a day: a leader with two followers, each a process that is killed at random and started again; then
 * compares what their ledgers tell with what there was to be seen.
 */
Watched liveThrough(const Day& day, const Watching& watching);

}  // namespace building

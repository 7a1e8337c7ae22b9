#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "ledger/disk.h"
#include "ledger/ledger_file.h"
#include "ledger/line.h"
#include "ledger/machine_clock.h"

namespace ledger {

/** What the ledger tells of the run of the application before this one. */
struct LastRun {
    std::string ending = "none"; /**< a stop's reason, or in words how it ended without; "none": no run before */
    /** At its end, as far as is known; with those of before it, where it began with nobody and had no whole period. */
    std::optional<int64_t> occupancy;
    std::optional<Moment> lastLine;   /**< when it is known to have run */
    std::optional<int64_t> gapMillis; /**< from then until now; nothing where the clocks do not tell */
    /** Crossings by entrance, "in" or "out", and class that came after the last period: no sum of one has them. */
    std::map<std::tuple<int64_t, std::string, std::string>, int64_t> openPeriod;
};

/**
 * Reads the newest of a ledger's files, back to where the last period ended; before this run's first line is written.
 * now and boot: this run's.
 */
LastRun lastRunOf(Disk& disk, const std::vector<LedgerFile>& files, const Instant& now, const std::string& boot);

}  // namespace ledger

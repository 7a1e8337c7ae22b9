#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "inquiry/check.h"

namespace inquiry {

/** Tallies of a period by the data map's names, such as "Entrance1_Entrances_Person". */
using Tallies = std::map<std::string, int64_t>;

/** A period as the ledger has it. */
struct Period {
    int64_t seq = 0;
    std::string camera;
    std::string archived; /**< its date in the archives */
    int64_t offset = 0;   /**< of local time then, seconds */
    Tallies tallies;
};

/** What a ledger tells of its periods. */
struct KeptPeriods {
    std::vector<Period> periods;  /**< in order */
    std::vector<int64_t> breaks;  /**< lines before which a run ended, or lines of every kind are gone */
    std::optional<int64_t> first; /**< when the first dated line was, UTC, milliseconds */
    std::optional<int64_t> last;  /**< likewise the last */
};

/**
 * Compares the periods of an archive "EntranceActivityTidy.csv" with those of the ledger: of each second of local time
 * the numbers; and that there is one for each of this camera's, but for those from before the ledger's first line,
 * behind its last, where a run ended or lines are gone, and where the clock was set.
 */
void compareArchive(const std::string& archive, const KeptPeriods& kept, Checked& checked);

}  // namespace inquiry

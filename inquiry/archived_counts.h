#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "ledger/index.h"
#include "ledger/ledger.h"

namespace inquiry {

/**
 * The crossings of a camera from before its ledger's first line, as its archive "EntranceActivityTidy.csv" has them:
 * each period's in the quarter of an hour in which it ended. Of the period in which the ledger begins, where lines
 * before it were cut, what the ledger does not have, in the last quarter before it. Nothing of periods from before the
 * clock was known with which the ledger begins.
 *
 * knownFrom: when the ledger's first line was; UTC, milliseconds. stop: gives up, with any answer, once it is true.
 */
ledger::Quarters countsBefore(const ledger::Ledger& book, int64_t knownFrom, const std::string& archive,
                              const std::string& camera, const std::atomic<bool>& stop);

}  // namespace inquiry

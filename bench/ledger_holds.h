#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <vector>

#include "figures.h"

/**
 * Registers how long each action of the ledger holds the thread that serves requests at the longest: the first question
 * after a start, and later ones. folder: a ledger with its index, until a moment (UTC, milliseconds); asked for when
 * the benchmarks run.
 */
std::vector<Limit> registerLedgerHolds(const std::function<std::filesystem::path()>& folder, int64_t until);

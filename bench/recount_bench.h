#pragma once

#include <vector>

#include "figures.h"

/**
 * Counting a day of 5,000 objects again, read from a ledger and from the same lines in SQLite. Registers the benchmarks
 * and says what their figures should be.
 */
std::vector<Limit> registerRecount();

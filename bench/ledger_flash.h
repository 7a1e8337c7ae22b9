#pragma once

#include <vector>

/**
 * Megabytes, in whole pages of 4 KiB, that a camera's ledger writes to the flash on each of several days of 5,000
 * people who walk through for ten seconds. The days come after the first one that the ledger's size did not hold, so
 * that what retention writes is in them. Runs on a clock of its own, in a folder of its own. Throws std::runtime_error
 * when the ledger does not count the people of those days.
 */
std::vector<double> ledgerOnTheFlash();

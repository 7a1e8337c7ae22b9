#pragma once

#include <vector>

#include "figures.h"

// Each registers its benchmarks and says what their figures should be.
std::vector<Limit> registerConversion();
std::vector<Limit> registerCycle();
std::vector<Limit> registerStore();
std::vector<Limit> registerOverlay();

// Asked for by name only: their archives take minutes to write and read.
std::vector<Limit> registerReport();
std::vector<Limit> registerArchive();
std::vector<Limit> registerLedger();

// Watches the live picture for a minute.
std::vector<Limit> registerLive();

// Start web servers or the whole application and load them.
std::vector<Limit> registerWeb();
std::vector<Limit> registerDelay();

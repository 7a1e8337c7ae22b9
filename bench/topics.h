#pragma once

#include <vector>

#include "figures.h"

// Each registers its benchmarks and says what their figures should be.
std::vector<Limit> registerConversion();
std::vector<Limit> registerCycle();
std::vector<Limit> registerStore();

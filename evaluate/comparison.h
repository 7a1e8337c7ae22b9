#pragma once

#include <string>
#include <vector>

#include "evaluate/results.h"
#include "evaluate/truth_file.h"

/** Compares what was found with what is true; one line per difference, none when they are equal. */
std::vector<std::string> compare(const Results& found, const Truth& truth);

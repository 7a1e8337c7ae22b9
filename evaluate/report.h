#pragma once

#include <string>
#include <vector>

#include "evaluate/results.h"

/** The results for people, without anything that differs from run to run. */
std::string textReport(const Results& results);

/**
 * The results as a JSON document. differences: the comparison with a truth file, null when there was none to compare
 * with.
 */
std::string jsonReport(const Results& results, const std::vector<std::string>* differences);

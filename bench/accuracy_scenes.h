#pragma once

#include <string>
#include <vector>

/**
 * Counts drawn trials or recorded clips with whole engines and prints, for each, what was missed and what was invented.
 * words: "scenes" or "clips", then options; "--help" lists them. Returns the program's exit status: 2 for bad usage or
 * a count that failed.
 */
int measureEngines(const std::vector<std::string>& words);

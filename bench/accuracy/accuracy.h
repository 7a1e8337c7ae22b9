#pragma once

#include <string>
#include <vector>

#include "counting.h"
#include "noisy_eye.h"

/** How well crossings are counted. */
namespace accuracy {

/** A scene's crossings as three count them who get the same boxes. */
struct Comparison {
    Errors steadied; /**< the application behind the steadying stage */
    Errors bare;     /**< the application alone */
    Errors plain;    /**< a plain tracker with a line */
};

/** Counts a scene as a noisy detector sees it. */
Comparison countScene(const Scene& scene, const Noise& noise, uint64_t seed);

/**
 * A person stands 3 % of the height beside the line, seen with 4 % of jitter; how often that is counted, behind the
 * stage, in the way in which it is counted more often.
 */
int countStander(uint64_t seed, double seconds);

/** The topic's command line; returns 0, or 1 when a figure misses its limit. Throws std::exception. */
int measureAccuracy(const std::vector<std::string>& words);

}  // namespace accuracy

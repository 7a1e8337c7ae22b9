#pragma once

#include <vector>

#include "config/config_params.h"
#include "finding/finding.h"

/** A model's candidates as its output tensors have them, in descending order of score. */
struct Candidates {
    const float* locations = nullptr; /**< ymin, xmin, ymax, xmax per candidate, as fractions of the frame */
    const float* classes = nullptr;
    float* scores = nullptr; /**< rewritten in place: a rejected candidate gets the score 0.01 */
};

/** A frame in pixels, and the score that a candidate has to exceed. */
struct FilterLimits {
    unsigned width = 0;
    unsigned height = 0;
    float threshold = 0.0F;
};

/** Candidate slots that are looked at. */
constexpr int kMostCandidates = 12;

/** Whether two class indices may be the same object: equal ones, and a car and a truck. */
bool shouldCompareClasses(int a, int b);

/** Whether the smaller of two boxes lies mostly in the other one; each is ymin, xmin, ymax, xmax. */
bool doOverlap(const float* box1, const float* box2, const FilterLimits& limits);

/** Rejects candidates that are too small or too large for an object. */
void rejectAnomalies(const Candidates& candidates, const FilterLimits& limits);

/** Rejects what overlaps a better candidate, 0..11, and may be the same object. */
void rejectSameObjectsAs(int index, const Candidates& candidates, const FilterLimits& limits);

/** The same for every candidate, the best first. */
void suppressNonMaxima(const Candidates& candidates, const FilterLimits& limits);

/** What is left, of the classes that the settings select, in pixels of the frame and in the model's order. */
std::vector<detection> detectionsOf(const Candidates& candidates, const FilterLimits& limits,
                                    const ConfigParams& config);

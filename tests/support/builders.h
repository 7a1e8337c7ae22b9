#pragma once

#include "config/config_params.h"
#include "finding/finding.h"
#include "scripted_platform.h"

/** A box of a class, by its left top corner and its size. */
inline detection boxAt(int x, int y, int w, int h, objects object = objects::person, float score = 0.9F) {
    detection box;
    box.X = x;
    box.Y = y;
    box.W = w;
    box.H = h;
    box.ClassId = static_cast<int32_t>(object);
    box.Confidence = score;
    return box;
}

/** A box of 20 by 20 pixels around a point. */
inline detection around(int x, int y, objects object = objects::person) {
    return boxAt(x - 10, y - 10, 20, 20, object);
}

/** What a detector would have to say for a box to come out of a stream of the given size. */
inline scripted::Candidate candidateFor(const detection& box, float width, float height) {
    // Half a pixel more keeps the corner in its pixel when it is scaled back.
    return {.classId = box.ClassId,
            .score = box.Confidence,
            .ymin = (static_cast<float>(box.Y) + 0.5F) / height,
            .xmin = (static_cast<float>(box.X) + 0.5F) / width,
            .ymax = (static_cast<float>(box.Y + box.H) + 0.5F) / height,
            .xmax = (static_cast<float>(box.X + box.W) + 0.5F) / width};
}

/** Settings with every class selected and four corners an area. */
inline ConfigParams everyClass() {
    ConfigParams config;
    config.b_DetectPersons = config.b_DetectCars = config.b_DetectMotorcycles = config.b_DetectBicycles = true;
    config.b_DetectAirplanes = config.b_DetectBuses = config.b_DetectTrains = true;
    config.b_DetectTrucks = config.b_DetectBoats = true;
    config.i_DetectionControlPoints = 4;
    config.i_EntrancesControlPoints = 4;
    config.i_MinNumberOfPeopleForTrigger = 1;
    config.e_AoiLogicComparison = logicComparison::atLeast;
    config.i_MinOccupantsForTrigger = 1000;
    return config;
}

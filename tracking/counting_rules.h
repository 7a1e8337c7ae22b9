#pragma once

#include "config/config_params.h"
#include "finding/finding.h"
#include "tracking/area_of_interest.h"

/** Puts the settings' detection areas where they are tested; likewise the exclusions and the entrances. */
void storeDetectionAreas(const ConfigParams& config, area_of_interest& areas);
void storeExclusions(const ConfigParams& config, area_of_interest& areas);
void storeEntrances(const ConfigParams& config, area_of_interest& areas);

/** The entrance zone that a point is in, the one of the lowest number; not_in_entrance in none. */
entrances entranceAt(const area_of_interest& areas, t_one_locator at);

/** Whether an entrance state is in one of the zones. */
bool isInZone(entrances state);

/** The detection area that a point is in, the lowest of 1..3; 0 in none. */
int detectionAreaAt(const area_of_interest& areas, t_one_locator at);

/** The entry or exit that a step from one entrance state to another is. */
entranceActivity entranceActivityOf(entrances previous, entrances current, bool cameraInside);

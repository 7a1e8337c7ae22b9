#pragma once

#include "area_of_interest.h"
#include "config_params.h"

/** The exchange of settings between the record and the running components. */
class parameter_io {
public:
    // Push the record's polygons and flags into the areas: detection areas, exclusions and entrances.
    static void store_points_into_AOI(const ConfigParams& config, area_of_interest& areas);
    static void store_points_into_exclusions(const ConfigParams& config, area_of_interest& areas);
    static void store_points_into_occupancies(const ConfigParams& config, area_of_interest& areas);
};

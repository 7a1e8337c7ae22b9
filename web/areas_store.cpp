#include "tracking/counting_rules.h"
#include "web/parameter_io.h"

void parameter_io::store_points_into_AOI(const ConfigParams& config, area_of_interest& areas) {
    storeDetectionAreas(config, areas);
}

void parameter_io::store_points_into_exclusions(const ConfigParams& config, area_of_interest& areas) {
    storeExclusions(config, areas);
}

void parameter_io::store_points_into_occupancies(const ConfigParams& config, area_of_interest& areas) {
    storeEntrances(config, areas);
}

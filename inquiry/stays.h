#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>

#include "inquiry/lines.h"
#include "inquiry/recount.h"

namespace inquiry {

/**
 * How long objects stayed in the detection areas, as the areas were then: stays that ended in the time, whenever they
 * began. Who is there still is not counted yet.
 */
StaysByArea staysOf(const Chunks& chunks, const Span& span);

/** A grid over the picture, and how long objects were in its cells. */
struct Heat {
    static constexpr int32_t kColumns = 32;
    int32_t rows = 0; /**< so many that cells are squares in the first picture; 0 while nothing was seen */
    /** Milliseconds per cell, row by row, by class and hour of the day, 0..23. */
    std::map<std::pair<int32_t, int>, std::vector<int64_t>> cells;
};

/** Where objects were. zone: for the hours; such as "Europe/Berlin", empty for the machine's. */
Heat heatOf(const Chunks& chunks, const Span& span, const std::string& zone);

/** columns, rows, and cells as entries of class, hour and seconds, row by row. */
nlohmann::ordered_json jsonOf(const Heat& heat);

}  // namespace inquiry

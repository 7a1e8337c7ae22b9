#pragma once

#include <nlohmann/json_fwd.hpp>

#include "inquiry/lines.h"
#include "inquiry/recount.h"

namespace inquiry {

/**
 * Why a count is what it is: every crossing of an entrance, 1..3, or of all, 0, with the rule that fired, the object's
 * path and who else was there at that moment; and objects that came within 3 % of an entrance's outline without
 * crossing it. settings: those in force, by which rule and distance are told.
 *
 * At most 500 crossings, the earliest, and 500 near ones are told; "more" says whether there were more. Of the objects
 * only what was around those crossings is held in memory.
 */
nlohmann::ordered_json whyOf(const Chunks& chunks, const SettingsFor& settings, const Span& span, int entrance);

}  // namespace inquiry

#pragma once

#include <filesystem>
#include <vector>

#include "building_day.h"

namespace building {

/** Where a camera keeps its archives and its ledger, below its folder. */
inline constexpr const char* kArchives = "usr/local/packages/ostrel_senvo/localdata";

/** A time in which a camera did not run. */
struct Interruption {
    Span time;
    bool isKill = true; /**< else it ended by itself */
};

/** Compares what a camera's ledger tells with what there was to be seen, and says both. */
void compare(const Day& day, size_t camera, const std::filesystem::path& folder,
             const std::vector<Interruption>& interruptions, Watched& watched);

}  // namespace building

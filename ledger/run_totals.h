#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace ledger {

/** What a run has seen since its start, for whoever asks again and again. */
struct RunTotals {
    static constexpr size_t kClasses = 9;
    template <typename T>
    using ByClass = std::array<T, kClasses>;

    std::array<ByClass<int64_t>, 6> crossings = {}; /**< by the values of entranceActivity */
    std::array<ByClass<int32_t>, 3> inAreas = {};   /**< objects in areas 1 to 3 in the last cycle */
    int64_t watchedMillis = 0;
    std::optional<double> watchedRatio; /**< of the last minute that is over, as far as the run was there; 0 to 1 */
    std::optional<int64_t> lastCycle;   /**< that succeeded: milliseconds UTC; nothing while UTC is not known */
};

}  // namespace ledger

#include <algorithm>
#include <cmath>

#include "counting.h"

namespace accuracy {
namespace {

constexpr double kSecondsApart = 2;
constexpr float kApart = 0.25F;

}  // namespace

Errors& Errors::operator+=(const Errors& other) {
    crossings += other.crossings;
    missed += other.missed;
    invented += other.invented;
    return *this;
}

double Errors::perHundred() const {
    return crossings == 0 ? 0 : 100.0 * (missed + invented) / crossings;
}

Errors compareCounts(const std::vector<Crossing>& crossings, const std::vector<Count>& counts) {
    struct Pair {
        double apart;
        size_t crossing;
        size_t count;
    };
    std::vector<Pair> pairs;
    for (size_t t = 0; t < crossings.size(); ++t) {
        for (size_t c = 0; c < counts.size(); ++c) {
            const double early = crossings[t].from - counts[c].seconds;
            const double late = counts[c].seconds - crossings[t].to;
            // What is needed chooses before what is only allowed.
            const double apart = std::max({0.0, early, late}) + (crossings[t].needed ? 0 : kSecondsApart);
            if (crossings[t].entering == counts[c].entering && std::max(early, late) <= kSecondsApart &&
                std::abs(crossings[t].along - counts[c].along) <= kApart) {
                pairs.push_back({apart, t, c});
            }
        }
    }
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) { return a.apart < b.apart; });
    std::vector<bool> crossingTaken(crossings.size(), false);
    std::vector<bool> countTaken(counts.size(), false);
    for (const Pair& pair : pairs) {
        if (!crossingTaken[pair.crossing] && !countTaken[pair.count]) {
            crossingTaken[pair.crossing] = countTaken[pair.count] = true;
        }
    }
    Errors errors;
    for (size_t t = 0; t < crossings.size(); ++t) {
        errors.crossings += crossings[t].needed ? 1 : 0;
        errors.missed += crossings[t].needed && !crossingTaken[t] ? 1 : 0;
    }
    errors.invented = static_cast<int>(std::count(countTaken.begin(), countTaken.end(), false));
    return errors;
}

}  // namespace accuracy

#include "accuracy_match.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace {

constexpr double kEarliest = -0.5;  // seconds
constexpr double kLatest = 1.2;
constexpr double kFarthest = 0.125;  // of the picture

bool canBe(const CountedCrossing& known, const CountedCrossing& counted) {
    const double late = counted.seconds - known.seconds;
    return known.enters == counted.enters && late >= kEarliest && late <= kLatest &&
           std::abs(known.x - counted.x) <= kFarthest && (known.y < 0 || std::abs(known.y - counted.y) <= kFarthest);
}

int sumOf(const std::vector<CountedCrossing>& crossings, bool enters) {
    int sum = 0;
    for (const CountedCrossing& crossing : crossings) {
        sum += crossing.enters == enters ? 1 : 0;
    }
    return sum;
}

}  // namespace

MatchedCounts matchCrossings(const std::vector<CountedCrossing>& known, const std::vector<CountedCrossing>& counted) {
    constexpr size_t kNobody = SIZE_MAX;
    std::vector<size_t> partner(counted.size(), kNobody);
    std::vector<bool> tried;
    // augmenting paths: who is paired already may move on to another
    const std::function<bool(size_t)> pair = [&](size_t k) {
        for (size_t c = 0; c < counted.size(); ++c) {
            if (tried[c] || !canBe(known[k], counted[c])) {
                continue;
            }
            tried[c] = true;
            if (partner[c] == kNobody || pair(partner[c])) {
                partner[c] = k;
                return true;
            }
        }
        return false;
    };
    int pairs = 0;
    for (size_t k = 0; k < known.size(); ++k) {
        tried.assign(counted.size(), false);
        pairs += pair(k) ? 1 : 0;
    }
    MatchedCounts counts;
    counts.known = static_cast<int>(known.size());
    counts.missed = counts.known - pairs;
    counts.invented = static_cast<int>(counted.size()) - pairs;
    counts.netError =
        std::abs(sumOf(known, true) - sumOf(counted, true)) + std::abs(sumOf(known, false) - sumOf(counted, false));
    return counts;
}

std::vector<CountedCrossing> readCountedCrossings(const std::string& tracks) {
    std::ifstream file(tracks);
    if (!file) {
        throw std::runtime_error("cannot read " + tracks);
    }
    std::vector<CountedCrossing> crossings;
    for (std::string text; std::getline(file, text);) {
        const nlohmann::json line = nlohmann::json::parse(text);
        const double width = line["picture"][0];
        const double height = line["picture"][1];
        for (const nlohmann::json& object : line["objects"]) {
            const int activity = object["activity"];
            if (activity <= 1) {
                crossings.push_back({line["seconds"], object["locator"][0].get<double>() / width,
                                     object["locator"][1].get<double>() / height, activity == 0});
            }
        }
    }
    return crossings;
}

#include "sightings.h"

#include <algorithm>
#include <cstdlib>

namespace desktop {
namespace {

constexpr int64_t kHorizon = 1000000;  // microseconds
constexpr std::ptrdiff_t kLooks = 3;
constexpr int64_t kKept = 10 * kHorizon;
constexpr std::size_t kMostKept = 1000;

// Somebody of 1.7 m walks 1.5 m a second; who hurries gets a little more.
constexpr double kSidesPerSecond = 1.25;

// Of two boxes on frames that follow one another: the same object has moved on by less than its own size.
constexpr float kSame = 0.1F;

float overlap(const FoundBox& a, const FoundBox& b) {
    const float width = std::min(a.right, b.right) - std::max(a.left, b.left);
    const float height = std::min(a.bottom, b.bottom) - std::max(a.top, b.top);
    const auto areaOf = [](const FoundBox& box) { return (box.right - box.left) * (box.bottom - box.top); };
    if (width <= 0 || height <= 0) {
        return 0;
    }
    return width * height / (areaOf(a) + areaOf(b) - width * height);
}

/** For every box the one among others that is the same object, or null: each of these is one box's, the best fit's. */
std::vector<const FoundBox*> counterparts(const std::vector<FoundBox>& boxes, const FoundBoxes& others) {
    struct Pair {
        float overlap;
        std::size_t box;
        std::size_t other;
    };
    std::vector<Pair> pairs;
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        for (std::size_t j = 0; others && j < others->size(); ++j) {
            if (const float common = overlap(boxes[i], (*others)[j]); common >= kSame) {
                pairs.push_back({common, i, j});
            }
        }
    }
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) { return a.overlap > b.overlap; });
    std::vector<const FoundBox*> same(boxes.size());
    std::vector<bool> taken(others ? others->size() : 0);
    for (const Pair& pair : pairs) {
        if (same[pair.box] == nullptr && !taken[pair.other]) {
            same[pair.box] = &(*others)[pair.other];
            taken[pair.other] = true;
        }
    }
    return same;
}

/** Adds those of some boxes that have no counterpart among others. */
void addUnmatched(const FoundBoxes& boxes, const FoundBoxes& others, int64_t distance, std::vector<Mask>& masks) {
    if (!boxes) {
        return;
    }
    const double reach = static_cast<double>(distance) / 1e6 * kSidesPerSecond;
    const std::vector<const FoundBox*> same = counterparts(*boxes, others);
    for (std::size_t i = 0; i < boxes->size(); ++i) {
        if (same[i] == nullptr) {
            masks.push_back({(*boxes)[i], reach});
        }
    }
}

}  // namespace

void Sightings::add(const Fetched& frame) {
    const std::lock_guard lock(m_mutex);
    if (!m_sightings.empty() && frame.micros <= m_sightings.back().micros) {
        return;
    }
    m_sightings.push_back({frame.micros, frame.found});
    while (m_sightings.size() > kMostKept ||
           (m_sightings.size() > 2 * kLooks && m_sightings.front().micros + kKept < frame.micros)) {
        m_sightings.pop_front();
    }
}

bool Sightings::isSettled(int64_t micros) const {
    const std::lock_guard lock(m_mutex);
    const auto later =
        std::count_if(m_sightings.begin(), m_sightings.end(), [&](const Sighting& s) { return s.micros > micros; });
    return later >= kLooks && m_sightings.back().micros >= micros + kHorizon;
}

std::vector<Mask> Sightings::around(int64_t micros) const {
    const std::lock_guard lock(m_mutex);
    std::vector<Mask> masks;
    const auto own = std::find_if(m_sightings.begin(), m_sightings.end(),
                                  [&](const Sighting& sighting) { return sighting.micros >= micros; });
    const auto isFar = [&](auto at) {
        return std::abs(std::distance(own, at)) > kLooks && std::abs(at->micros - micros) > kHorizon;
    };
    for (auto at = own; at != m_sightings.end() && !isFar(at); ++at) {
        if (at != own) {
            addUnmatched(at->found, std::prev(at)->found, at->micros - micros, masks);
        }
    }
    for (auto at = own; at != m_sightings.begin() && !isFar(std::prev(at)); --at) {
        if (at != m_sightings.end()) {
            addUnmatched(std::prev(at)->found, at->found, micros - std::prev(at)->micros, masks);
        }
    }
    return masks;
}

}  // namespace desktop

#include "desktop/live/sightings.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>

namespace desktop {
namespace {

constexpr int64_t kHorizon = 1000000;  // microseconds
constexpr std::ptrdiff_t kLooks = 3;
constexpr int64_t kKept = 10 * kHorizon;
constexpr std::size_t kMostKept = 1000;

// In longer sides of a box a second. Somebody of 1.7 m walks 1.5 m a second; who hurries gets a little more. Of those
// who were seen only once nothing is known, and runners, cyclists and cars go as fast as the other.
constexpr double kWalking = 1.25;
constexpr double kUnknownSpeed = 4;
constexpr double kFaster = 1.25;  // than in the looks that tell the speed

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

/** How far a box goes in a second, by the looks that follow the one at which it is seen first, in longer sides. */
template <typename Looks>
double speedOf(const FoundBox& box, Looks first, Looks end) {
    const FoundBox* seen = &box;
    Looks last = first;
    for (auto next = std::next(first); next != end && std::distance(first, next) <= kLooks; ++next) {
        const FoundBox* const same = counterparts({*seen}, next->found).front();
        if (same == nullptr) {
            break;
        }
        seen = same;
        last = next;
    }
    if (last == first) {
        return kUnknownSpeed;
    }
    // What comes into the picture moves with one edge only.
    const double ratio = first->ratio;
    const double across = std::max(std::abs(seen->left - box.left), std::abs(seen->right - box.right)) * ratio;
    const double down = std::max(std::abs(seen->top - box.top), std::abs(seen->bottom - box.bottom));
    const double side = std::max((box.right - box.left) * ratio, static_cast<double>(box.bottom - box.top));
    const double seconds = static_cast<double>(std::abs(last->micros - first->micros)) / 1e6;
    return std::max(kWalking, kFaster * std::max(across, down) / side / seconds);
}

/**
 * What covers those on a frame, the first of some looks, who are found only at a later one of them. Looks that go back
 * in time give those who were lost.
 */
template <typename Looks>
std::vector<Mask> masksOfNewcomers(Looks own, Looks end, int64_t micros) {
    std::vector<Mask> masks;
    if (own == end) {
        return masks;
    }
    for (auto at = std::next(own); at != end; ++at) {
        const int64_t distance = std::abs(at->micros - micros);
        if (std::distance(own, at) > kLooks && distance > kHorizon) {
            break;
        }
        const std::vector<FoundBox> nobody;
        const std::vector<FoundBox>& boxes = at->found ? *at->found : nobody;
        const std::vector<const FoundBox*> same = counterparts(boxes, std::prev(at)->found);
        for (std::size_t i = 0; i < boxes.size(); ++i) {
            if (same[i] == nullptr) {
                masks.push_back({boxes[i], static_cast<double>(distance) / 1e6 * speedOf(boxes[i], at, end)});
            }
        }
    }
    return masks;
}

}  // namespace

void Sightings::add(const Fetched& frame) {
    const MutexLock lock(m_mutex);
    if (!m_sightings.empty() && frame.micros <= m_sightings.back().micros) {
        return;
    }
    const bool turned = frame.rotation == 90 || frame.rotation == 270;
    const double ratio = frame.height > 0 ? static_cast<double>(frame.width) / frame.height : 1;
    m_sightings.push_back({frame.micros, turned ? 1 / ratio : ratio, frame.found});
    while (m_sightings.size() > kMostKept ||
           (m_sightings.size() > 2 * kLooks && m_sightings.front().micros + kKept < frame.micros)) {
        m_sightings.pop_front();
    }
}

bool Sightings::isSettled(int64_t micros) const {
    const MutexLock lock(m_mutex);
    const auto later =
        std::count_if(m_sightings.begin(), m_sightings.end(), [&](const Sighting& s) { return s.micros > micros; });
    return later > kLooks && std::prev(m_sightings.end(), 2)->micros >= micros + kHorizon;
}

std::vector<Mask> Sightings::around(int64_t micros) const {
    const MutexLock lock(m_mutex);
    const auto own = std::find_if(m_sightings.begin(), m_sightings.end(),
                                  [&](const Sighting& sighting) { return sighting.micros >= micros; });
    std::vector<Mask> masks = masksOfNewcomers(own, m_sightings.end(), micros);
    const std::vector<Mask> lost =
        masksOfNewcomers(own == m_sightings.end() ? m_sightings.rend() : std::make_reverse_iterator(std::next(own)),
                         m_sightings.rend(), micros);
    masks.insert(masks.end(), lost.begin(), lost.end());
    return masks;
}

}  // namespace desktop

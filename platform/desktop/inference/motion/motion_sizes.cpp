#include "desktop/inference/motion/motion_sizes.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace desktop {
namespace {

constexpr size_t kMostSeen = 240;
constexpr double kReachAcross = 0.35;  // of the picture: sizes change little from left to right
constexpr double kReachDown = 0.12;
constexpr double kFewest = 2.5;  // sightings close by, or more from farther away
constexpr double kLowest = 0.2;  // of the sightings, sorted by area, those from here
constexpr double kHighest = 0.5;

constexpr size_t kFewestForLine = 12;  // sightings

double square(double value) {
    return value * value;
}

}  // namespace

void MotionSizes::add(const cv::Rect2d& box, double area) {
    if (m_seen.size() == kMostSeen) {
        m_seen.pop_front();
    }
    m_seen.push_back({{box.x + box.width / 2, box.y + box.height / 2}, {box.width, box.height, area}});
}

std::optional<UsualSize> MotionSizes::byPerspective(double y) const {
    if (m_seen.size() < kFewestForLine) {
        return std::nullopt;
    }
    // what stands on a plane grows with its distance from the horizon: a straight line from the top down
    double n = 0;
    double sumY = 0;
    double sumYy = 0;
    double sumLength = 0;
    double sumYlength = 0;
    UsualSize mean;
    for (const Seen& seen : m_seen) {
        const double length = std::sqrt(seen.size.area);
        n += 1;
        sumY += seen.centre.y;
        sumYy += seen.centre.y * seen.centre.y;
        sumLength += length;
        sumYlength += seen.centre.y * length;
        mean.width += seen.size.width;
        mean.height += seen.size.height;
    }
    const double spread = sumYy / n - sumY / n * sumY / n;
    const double slope = spread > 1 ? std::max(0.0, (sumYlength / n - sumY / n * sumLength / n) / spread) : 0.0;
    const double middle = sumLength / n;
    constexpr double kFarthest = 2.5;
    const double factor = std::clamp((middle + slope * (y - sumY / n)) / middle, 1 / kFarthest, kFarthest);
    return UsualSize{mean.width / n * factor, mean.height / n * factor, square(middle * factor)};
}

std::optional<UsualSize> MotionSizes::at(const cv::Point2d& centre) const {
    std::vector<std::pair<double, const UsualSize*>> near;  // weight, size
    double total = 0;
    for (const Seen& seen : m_seen) {
        const double across = (seen.centre.x - centre.x) / (kReachAcross * m_picture.width);
        const double down = (seen.centre.y - centre.y) / (kReachDown * m_picture.height);
        const double weight = std::exp(-0.5 * (across * across + down * down));
        if (weight > 0.05) {
            near.emplace_back(weight, &seen.size);
            total += weight;
        }
    }
    if (total < kFewest) {
        return byPerspective(centre.y);
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& a, const auto& b) { return a.second->area < b.second->area; });
    UsualSize usual;
    double passed = 0;
    double used = 0;
    for (const auto& [weight, size] : near) {
        passed += weight;
        if (passed < kLowest * total || (passed - weight > kHighest * total && used > 0)) {
            continue;
        }
        usual.width += weight * size->width;
        usual.height += weight * size->height;
        usual.area += weight * size->area;
        used += weight;
    }
    return UsualSize{usual.width / used, usual.height / used, usual.area / used};
}

}  // namespace desktop

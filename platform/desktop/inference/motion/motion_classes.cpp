// From outlines to classes.
//
// Idea: each class has a usual shape: people are tall, narrow at the head and change their outline at every step;
// vehicles are solid, nearly rectangular in some direction, and rigid; a cyclist is about as wide as tall and sparse; a
// bus is a vehicle that is long and large in the picture. Every cycle adds the logarithm of how well the outline suits
// each class; of small objects only the height compared with the width tells much. An outline that the picture's edge
// cuts counts little. The class is what the whole life of the object speaks for, and once decided it changes only
// against clear evidence.
//
// Limits: shape alone does not tell a group of people from a cyclist, nor a van from above from a bus.
// To tune: list on the card only the "classes" that may appear before this camera.

#include "desktop/inference/motion/motion_classes.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <utility>

namespace desktop {
namespace {

constexpr double kCutWeight = 0.03;
constexpr int kEdgeMargin = 2;  // pixels

/** Logarithm of a bell curve of height 1, not lower than three deviations. */
double suits(double value, double usual, double deviation) {
    const double distance = std::min(std::abs(value - usual) / deviation, 3.0);
    return -0.5 * distance * distance;
}

/** As suits, but every value beyond usual is as good as usual. */
double atLeast(double value, double usual, double deviation) {
    return value >= usual ? 0 : suits(value, usual, deviation);
}

double atMost(double value, double usual, double deviation) {
    return value <= usual ? 0 : suits(value, usual, deviation);
}

/** How well the tallness (a logarithm) suits; what the picture cuts may be taller or wider in truth. */
double suitsTallness(const Shape& s, double tallness, double usual, double deviation) {
    if (s.cutInWidth && s.cutInHeight) {
        return 0;
    }
    if (s.cutInHeight) {
        return atMost(tallness, usual, deviation);
    }
    return s.cutInWidth ? atLeast(tallness, usual, deviation) : suits(tallness, usual, deviation);
}

double personShape(const Shape& s) {
    const double tallness = std::log(s.tallness);
    const double head = s.cutAtTop ? 0 : atMost(s.headWidth, 0.5, 0.1);
    // even of head and shoulders alone the picture shows something that is not flat
    const double notFlat = s.cutInWidth ? 0 : atLeast(tallness, std::log(0.7), 0.25);
    return suitsTallness(s, tallness, std::log(2.4), 0.4) + notFlat +
           s.detail * (atMost(s.solidity, 0.87, 0.05) + atLeast(s.solidity, 0.65, 0.12) + head +
                       atMost(s.rectangular, 0.71, 0.07));
}

double cyclistShape(const Shape& s) {
    constexpr double kRarer = -0.7;
    const double head = s.cutAtTop ? 0 : atMost(s.headWidth, 0.38, 0.1);
    return suitsTallness(s, std::log(s.tallness), std::log(1.05), 0.22) + kRarer +
           s.detail * (suits(s.solidity, 0.72, 0.08) + head + atMost(s.rectangular, 0.6, 0.1));
}

double vehicleShape(const Shape& s) {
    const double front = s.cutAtTop ? 0 : atLeast(s.headWidth, 0.62, 0.12);
    return s.detail * (atLeast(s.solidity, 0.92, 0.04) + atLeast(s.rectangular, 0.78, 0.05) + front);
}

/** How well a shape suits a class; classes that shapes do not tell apart get the value of their kind. */
double shapeSuits(ObjectClass objectClass, const Shape& s) {
    constexpr double kLargeIsRarer = 0.1;
    const double tallness = std::log(s.tallness);
    switch (objectClass) {
        case ObjectClass::Person:
            return personShape(s);
        case ObjectClass::Bicycle:
        case ObjectClass::Motorcycle:
            return cyclistShape(s);
        case ObjectClass::Bus:
        case ObjectClass::Truck:
        case ObjectClass::Train:
            return vehicleShape(s) + suits(std::abs(tallness), std::log(3.1), 0.12) + atLeast(s.covered, 0.1, 0.015) -
                   kLargeIsRarer;
        default:
            // from the side a car is longer than it seems from above, where it also shows its width
            return vehicleShape(s) + atMost(tallness, std::log(2.0), 0.2) + atLeast(tallness, -std::log(2.7), 0.1);
    }
}

bool isRigid(ObjectClass objectClass) {
    return objectClass != ObjectClass::Person && objectClass != ObjectClass::Bicycle &&
           objectClass != ObjectClass::Motorcycle;
}

}  // namespace

Shape describeShape(const Blob& blob, cv::Size picture) {
    Shape shape;
    shape.tallness = static_cast<double>(blob.box.height) / blob.box.width;
    shape.covered = static_cast<double>(blob.box.area()) / picture.area();
    shape.cutInWidth = blob.box.x < kEdgeMargin || blob.box.br().x > picture.width - kEdgeMargin;
    shape.cutAtTop = blob.box.y < kEdgeMargin;
    shape.cutInHeight = shape.cutAtTop || blob.box.br().y > picture.height - kEdgeMargin;
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(blob.mask.clone(), contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    std::vector<cv::Point> points;
    for (const auto& contour : contours) {
        points.insert(points.end(), contour.begin(), contour.end());
    }
    if (points.size() < 3) {
        return shape;
    }
    std::vector<cv::Point> hull;
    cv::convexHull(points, hull);
    // a contour runs through the middle of the outermost pixels: half a pixel on each side belongs to the area
    const double hullArea = cv::contourArea(hull) + cv::arcLength(hull, true) / 2 + 1;
    const cv::Size2f rectangle = cv::minAreaRect(hull).size;
    constexpr double kFullDetail = 1500;  // pixels
    shape.detail = std::clamp(blob.area / kFullDetail, 0.25, 1.0);
    shape.solidity = std::min(1.0, blob.area / hullArea);
    shape.rectangular = std::min(
        1.0, blob.area / (static_cast<double>(rectangle.width + 1) * static_cast<double>(rectangle.height + 1)));

    const int topRows = std::max(1, blob.box.height / 8);
    cv::Mat top;
    cv::reduce(blob.mask.rowRange(0, topRows), top, 0, cv::REDUCE_MAX);
    int widest = 1;
    for (int y = 0; y < blob.mask.rows; ++y) {
        widest = std::max(widest, cv::countNonZero(blob.mask.row(y)));
    }
    shape.headWidth = static_cast<double>(cv::countNonZero(top)) / widest;
    return shape;
}

cv::Mat normalisedOutline(const Blob& blob) {
    cv::Mat small;
    cv::resize(blob.mask, small, {24, 24}, 0, 0, cv::INTER_AREA);
    return small > 127;
}

double outlineChange(const cv::Mat& a, const cv::Mat& b) {
    const int either = cv::countNonZero(a | b);
    return either == 0 ? 0 : 1 - static_cast<double>(cv::countNonZero(a & b)) / either;
}

ClassVote::ClassVote(std::vector<ObjectClass> allowed) : m_allowed(std::move(allowed)), m_class(m_allowed.front()) {}

void ClassVote::add(const Shape& shape) {
    const double weight = shape.whole() ? 1 : kCutWeight;
    if (shape.whole() && !m_seenWhole) {
        // now that all of it is seen, what was seen of its parts tells nothing more
        m_seenWhole = true;
        m_sums.fill(0);
        m_weight = 0;
    }
    // of late counts more: an object that was seen badly at first may be seen well now
    const double memory = m_decided ? 0.98 : 0.8;
    m_weight = m_weight * memory + weight;
    for (const ObjectClass objectClass : m_allowed) {
        double& sum = m_sums[static_cast<size_t>(objectClass)];
        sum = sum * memory + weight * shapeSuits(objectClass, shape);
    }
}

void ClassVote::addOutlineChange(double change) {
    constexpr double kMemory = 0.95;
    m_changeSum = m_changeSum * kMemory + change;
    m_changeWeight = m_changeWeight * kMemory + 1;
}

double ClassVote::meanOutlineChange() const {
    constexpr double kFewestLooks = 3;
    return m_changeWeight < kFewestLooks ? 0 : m_changeSum / m_changeWeight;
}

double ClassVote::evidenceFor(ObjectClass objectClass) const {
    const double shape = m_weight > 0 ? m_sums[static_cast<size_t>(objectClass)] / m_weight : 0;
    const double change = meanOutlineChange();
    if (change <= 0) {
        return shape;
    }
    return shape + (isRigid(objectClass) ? atMost(change, 0.08, 0.06) : atLeast(change, 0.07, 0.05));
}

ObjectClass ClassVote::decide() {
    ObjectClass best = m_allowed.front();
    for (const ObjectClass candidate : m_allowed) {
        if (evidenceFor(candidate) > evidenceFor(best)) {
            best = candidate;
        }
    }
    const double clear = 1.5 + std::min(3.0, m_weight * 0.1);  // the longer it was the same, the clearer
    constexpr double kUndecidedClear = 0.3;
    constexpr double kSeen = 1.7;  // in whole pictures of it
    const bool deciding = !m_decided && m_weight >= kSeen;
    if (deciding || evidenceFor(best) > evidenceFor(m_class) + (m_decided ? clear : kUndecidedClear)) {
        m_class = best;
    }
    m_decided = m_decided || deciding;
    return m_class;
}

double ClassVote::lead() const {
    double runnerUp = evidenceFor(m_class) - 10;
    for (const ObjectClass other : m_allowed) {
        if (other != m_class) {
            runnerUp = std::max(runnerUp, evidenceFor(other));
        }
    }
    return std::max(0.0, evidenceFor(m_class) - runnerUp);
}

}  // namespace desktop

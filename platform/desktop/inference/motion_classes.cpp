// From outlines to classes.
//
// Idea: each class has a usual shape: people are tall, narrow at the head and change their outline at every step;
// vehicles are solid, nearly rectangular in some direction, and rigid; a cyclist is about as wide as tall and sparse; a
// bus is a vehicle that is long and large in the picture. Every cycle adds the logarithm of how well the outline suits
// each class. An outline that the picture's edge cuts counts little. The class is what the whole life of the object
// speaks for, and once decided it changes only against clear evidence.
//
// Limits: shape alone does not tell a group of people from a cyclist, nor a van from above from a bus.
// To tune: list on the card only the "classes" that may appear before this camera.

#include "motion_classes.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <opencv2/imgproc.hpp>

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

double vehicleShape(const Shape& s) {
    return atLeast(s.solidity, 0.93, 0.04) + atLeast(s.rectangular, 0.83, 0.08) + (s.cutAtTop ? 0 : atLeast(s.headWidth, 0.6, 0.15));
}

/** How well a shape suits a class; classes that shapes do not tell apart get the value of their kind. */
double shapeSuits(ObjectClass objectClass, const Shape& s) {
    const double tallness = std::log(s.tallness);
    switch (objectClass) {
        case ObjectClass::Person:
            return suitsTallness(s, tallness, std::log(2.5), 0.4) + suits(s.solidity, 0.84, 0.07) + (s.cutAtTop ? 0 : atMost(s.headWidth, 0.5, 0.15)) +
                   atMost(s.rectangular, 0.78, 0.1);
        case ObjectClass::Bicycle:
        case ObjectClass::Motorcycle:
            return suitsTallness(s, tallness, std::log(1.05), 0.3) + suits(s.solidity, 0.72, 0.08) +
                   (s.cutAtTop ? 0 : atMost(s.headWidth, 0.45, 0.15)) + atMost(s.rectangular, 0.6, 0.1) - 0.5;
        case ObjectClass::Bus:
        case ObjectClass::Truck:
        case ObjectClass::Train:
            return vehicleShape(s) + suits(std::abs(tallness), std::log(2.9), 0.25) + atLeast(s.covered, 0.1, 0.02) - 0.3;
        default:
            return vehicleShape(s) + atMost(std::abs(tallness), std::log(2.3), 0.25);
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
    shape.solidity = std::min(1.0, blob.area / hullArea);
    shape.rectangular =
        std::min(1.0, blob.area / (static_cast<double>(rectangle.width + 1) * static_cast<double>(rectangle.height + 1)));

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

double ClassVote::evidenceFor(ObjectClass objectClass) const {
    const double shape = m_weight > 0 ? m_sums[static_cast<size_t>(objectClass)] / m_weight : 0;
    if (m_changeWeight < 3) {
        return shape;
    }
    const double change = m_changeSum / m_changeWeight;
    return shape + (isRigid(objectClass) ? atMost(change, 0.06, 0.04) : atLeast(change, 0.1, 0.05));
}

ObjectClass ClassVote::decide() {
    ObjectClass best = m_allowed.front();
    for (const ObjectClass candidate : m_allowed) {
        if (evidenceFor(candidate) > evidenceFor(best)) {
            best = candidate;
        }
    }
    constexpr double kClear = 1.5;
    constexpr double kUndecidedClear = 0.3;
    constexpr double kSeen = 1.7;  // in whole pictures of it
    if (evidenceFor(best) > evidenceFor(m_class) + (m_decided ? kClear : kUndecidedClear)) {
        m_class = best;
    }
    m_decided = m_decided || m_weight >= kSeen;
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

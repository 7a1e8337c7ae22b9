#include "desktop/inference/motion/motion_track.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace desktop {
namespace {

constexpr double kGhostly = -0.25;
constexpr double kPlaceGain = 0.65;  // how far a measured edge corrects the predicted one
constexpr double kSpeedGain = 0.35;
constexpr double kSharedSpeedGain = 0.12;  // a share's border says little about the way

}  // namespace

cv::Point2d centreOf(const cv::Rect2d& box) {
    return {box.x + box.width / 2, box.y + box.height / 2};
}

cv::Rect2d realBox(const cv::Rect& box) {
    return {static_cast<double>(box.x), static_cast<double>(box.y), static_cast<double>(box.width),
            static_cast<double>(box.height)};
}

MotionTrack::MotionTrack(const Blob& first, std::vector<ObjectClass> classes)
    : edges{static_cast<double>(first.box.x), static_cast<double>(first.box.y), static_cast<double>(first.box.br().x),
            static_cast<double>(first.box.br().y)},
      area(first.area),
      blob(first),
      birthplace(centreOf(realBox(first.box))),
      vote(std::move(classes)),
      restingPlace(birthplace),
      measuredPlace(birthplace) {}

cv::Rect2d MotionTrack::box() const {
    return {edges[0], edges[1], edges[2] - edges[0], edges[3] - edges[1]};
}

cv::Rect2d MotionTrack::predictedBox() const {
    const double left = edges[0] + speeds[0];
    const double top = edges[1] + speeds[1];
    return {left, top, std::max(1.0, edges[2] + speeds[2] - left), std::max(1.0, edges[3] + speeds[3] - top)};
}

bool MotionTrack::holdsItsPlace() const {
    constexpr int kRests = 2;  // cycles
    return shown && travelled && resting >= kRests;
}

void MotionTrack::noteSeen(const Blob& part) {
    ++seen;
    missed = 0;
    blob = part;
    founding += (seen == 1 ? 1 : 0.3) * (part.founding - founding);
    ghostly = founding < kGhostly ? ghostly + 1 : 0;
    const cv::Point2d centre = centreOf(box());
    travelled = travelled || std::hypot(centre.x - birthplace.x, centre.y - birthplace.y) >
                                 std::min(edges[2] - edges[0], edges[3] - edges[1]);
    constexpr double kRestless = 2;
    if (std::hypot(centre.x - restingPlace.x, centre.y - restingPlace.y) > kRestless) {
        restingPlace = centre;
        resting = 0;
    } else {
        ++resting;
    }
}

void MotionTrack::seeAlone(const Blob& whole, cv::Size picture) {
    const std::array<double, 4> measured = {static_cast<double>(whole.box.x), static_cast<double>(whole.box.y),
                                            static_cast<double>(whole.box.br().x),
                                            static_cast<double>(whole.box.br().y)};
    for (size_t i = 0; i < measured.size(); ++i) {
        const double predicted = edges[i] + speeds[i];
        const double error = measured[i] - predicted;
        edges[i] = predicted + (seen < 2 ? 1 : kPlaceGain) * error;
        speeds[i] += (seen == 1 ? 1 : kSpeedGain) * error;
        edges[i] = std::clamp(edges[i], 0.0, static_cast<double>(i % 2 == 0 ? picture.width : picture.height));
    }
    // what shrinks fast must not turn inside out
    edges[2] = std::max(edges[2], edges[0] + 1);
    edges[3] = std::max(edges[3], edges[1] + 1);
    area += (seen < 2 ? 1 : 0.4) * (whole.area - area);
    ++alone;
    crowded = 0;
    noteSeen(whole);
    const Shape shape = describeShape(whole, picture);
    // an object that rests looks the same in every cycle: one look is enough
    constexpr int kLooksAtResting = 20;
    if (resting < kLooksAtResting) {
        vote.add(shape);
    }
    cv::Mat present = normalisedOutline(whole);
    if (shape.whole() && !outline.empty() && resting < 3) {
        vote.addOutlineChange(outlineChange(present, outline));
    }
    outline = shape.whole() ? present : cv::Mat();
    objectClass = vote.decide();
}

void MotionTrack::seeShare(const Blob& share, cv::Size picture, double growth) {
    const std::array<double, 2> lengths = {(edges[2] - edges[0]) * growth, (edges[3] - edges[1]) * growth};
    area *= growth * growth;
    const std::array<double, 2> from = {static_cast<double>(share.box.x), static_cast<double>(share.box.y)};
    const std::array<double, 2> to = {static_cast<double>(share.box.br().x), static_cast<double>(share.box.br().y)};
    for (size_t axis = 0; axis < 2; ++axis) {
        const double speed = (speeds[axis] + speeds[axis + 2]) / 2;
        const double middle = (edges[axis] + edges[axis + 2]) / 2 + speed;
        const double predicted = middle - lengths[axis] / 2;
        // what is hidden may lie to either side: the way so far decides between the places that its share allows
        const double low = std::min(from[axis], to[axis] - lengths[axis]);
        const double high = std::max(from[axis], to[axis] - lengths[axis]);
        const double start = predicted + kPlaceGain * (std::clamp(predicted, low, high) - predicted);
        const double gained = speed + kSharedSpeedGain * (std::clamp(predicted, low, high) - predicted) / kPlaceGain;
        edges[axis] = start;
        edges[axis + 2] = start + lengths[axis];
        speeds[axis] = gained;
        speeds[axis + 2] = gained;
    }
    for (size_t i = 0; i < edges.size(); ++i) {
        edges[i] = std::clamp(edges[i], 0.0, static_cast<double>(i % 2 == 0 ? picture.width : picture.height));
    }
    edges[2] = std::max(edges[2], edges[0] + 1);
    edges[3] = std::max(edges[3], edges[1] + 1);
    outline = cv::Mat();
    noteSeen(share);
    objectClass = vote.decide();
}

void MotionTrack::shrinkTo(const Blob& rest) {
    for (size_t axis = 0; axis < 2; ++axis) {
        const double speed = (speeds[axis] + speeds[axis + 2]) / 2;
        speeds[axis] = speed;
        speeds[axis + 2] = speed;
    }
    edges = {rest.box.x - speeds[0], rest.box.y - speeds[1], rest.box.br().x - speeds[2], rest.box.br().y - speeds[3]};
    area = rest.area;
    alone = 0;
}

void MotionTrack::miss() {
    ++missed;
    for (size_t i = 0; i < edges.size(); ++i) {
        edges[i] += speeds[i];
        speeds[i] *= 0.8;
    }
}

}  // namespace desktop

// From blobs to objects that last.
//
// Idea: each of the four edges of an object's box moves at its own speed, which makes growing at the picture's border
// and turning plain cases. A blob that covers two known objects is cut between them along what they are expected to
// cover; several blobs within one known object are joined. An object is shown from the second cycle in which it was
// seen, provided that it moves and its class is clear; what the picture's edge still cuts may need a few more. A thing
// that appears in mid-picture is often light or a ghost, so it has to move further or to persist. A shown object that
// is not found coasts for a few cycles, unless it was leaving the picture.
//
// Limits: two objects that come into the picture as one blob and never part are one.

#include "motion_tracks.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <utility>

namespace desktop {
namespace {

constexpr int kCyclesToConfirm = 2;
constexpr int kCyclesToBelieveResting = 15;
constexpr int kCyclesToBelieveCut = 4;       // at the picture's edge, with a class that leads
constexpr int kCyclesToBelieveUnclear = 10;  // at the picture's edge, with any class
constexpr double kLeads = 0.75;
constexpr double kFitsNothing = -6;  // evidence below which an outline is no object's
constexpr double kFounded = 0.2;
constexpr double kGhostly = -0.25;
constexpr int kCyclesToBelieveSudden = 4;  // first seen in mid-picture
constexpr double kTravelled = 3;           // pixels that only a moving thing covers
constexpr double kOwnSizes = 0.25;         // the same, in mid-picture, where lights and remains of others appear
constexpr double kEdgeMargin = 2;
constexpr int kLongestCoast = 3;
constexpr double kPlaceGain = 0.65;  // how far a measured edge corrects the predicted one
constexpr double kSpeedGain = 0.35;

cv::Point2d centreOf(const cv::Rect2d& box) {
    return {box.x + box.width / 2, box.y + box.height / 2};
}

double coveredPart(const cv::Rect2d& of, const cv::Rect2d& by) {
    return of.area() > 0 ? (of & by).area() / of.area() : 0;
}

double match(const cv::Rect2d& predicted, const cv::Rect2d& blob) {
    const double common = (predicted & blob).area();
    return common / std::max(1.0, std::min(predicted.area(), blob.area()));
}

cv::Rect2d real(const cv::Rect& box) {
    return {static_cast<double>(box.x), static_cast<double>(box.y), static_cast<double>(box.width),
            static_cast<double>(box.height)};
}

/** The part of a blob whose pixels lie closer to the middle of one box than to those of the others. */
Blob shareOf(const Blob& blob, size_t which, const std::vector<cv::Rect2d>& boxes) {
    Blob share;
    share.founding = blob.founding;
    cv::Mat mask = cv::Mat::zeros(blob.mask.size(), CV_8U);
    const auto distance = [](const cv::Rect2d& box, double x, double y) {
        const cv::Point2d centre = centreOf(box);
        return std::max(std::abs(x - centre.x) / box.width, std::abs(y - centre.y) / box.height);
    };
    constexpr double kFarthest = 0.62;  // half of the box, and some room for its growth
    for (int y = 0; y < mask.rows; ++y) {
        for (int x = 0; x < mask.cols; ++x) {
            if (blob.mask.at<unsigned char>(y, x) == 0) {
                continue;
            }
            const double px = blob.box.x + x + 0.5;
            const double py = blob.box.y + y + 0.5;
            const double own = distance(boxes[which], px, py);
            bool nearest = own <= kFarthest;
            for (size_t other = 0; nearest && other < boxes.size(); ++other) {
                const double its = distance(boxes[other], px, py);
                nearest = other == which || own < its || (own == its && which < other);
            }
            mask.at<unsigned char>(y, x) = nearest ? 255 : 0;
        }
    }
    const cv::Rect inner = cv::boundingRect(mask);
    share.box = inner + blob.box.tl();
    share.mask = mask(inner).clone();
    share.area = cv::countNonZero(share.mask);
    return share;
}

}  // namespace

MotionTrack::MotionTrack(const Blob& first, std::vector<ObjectClass> classes)
    : edges{static_cast<double>(first.box.x), static_cast<double>(first.box.y), static_cast<double>(first.box.br().x),
            static_cast<double>(first.box.br().y)},
      blob(first),
      birthplace(centreOf(real(first.box))),
      vote(std::move(classes)),
      restingPlace(birthplace) {}

cv::Rect2d MotionTrack::box() const {
    return {edges[0], edges[1], edges[2] - edges[0], edges[3] - edges[1]};
}

cv::Rect2d MotionTrack::predictedBox() const {
    const double left = edges[0] + speeds[0];
    const double top = edges[1] + speeds[1];
    return {left, top, std::max(1.0, edges[2] + speeds[2] - left), std::max(1.0, edges[3] + speeds[3] - top)};
}

MotionTracks::MotionTracks(const MotionCard& card, cv::Size picture) : m_card(card), m_picture(picture) {}

bool MotionTracks::touchesEdge(const cv::Rect2d& box) const {
    return box.x <= kEdgeMargin || box.y <= kEdgeMargin || box.x + box.width >= m_picture.width - kEdgeMargin ||
           box.y + box.height >= m_picture.height - kEdgeMargin;
}

std::vector<Blob> MotionTracks::splitSharedBlobs(std::vector<Blob> blobs) const {
    std::vector<Blob> result;
    for (Blob& blob : blobs) {
        std::vector<cv::Rect2d> sharing;
        for (const MotionTrack& track : m_tracks) {
            const cv::Rect2d predicted = track.predictedBox();
            if (track.shown && coveredPart(predicted, real(blob.box)) > 0.5) {
                sharing.push_back(predicted);
            }
        }
        std::vector<Blob> shares;
        for (size_t i = 0; sharing.size() > 1 && i < sharing.size(); ++i) {
            Blob share = shareOf(blob, i, sharing);
            constexpr double kSmallestShare = 0.1;
            if (share.area > kSmallestShare * sharing[i].area()) {
                shares.push_back(std::move(share));
            }
        }
        if (shares.size() > 1) {
            std::move(shares.begin(), shares.end(), std::back_inserter(result));
        } else {
            result.push_back(std::move(blob));
        }
    }
    return result;
}

void MotionTracks::update(std::vector<Blob> blobs) {
    blobs = splitSharedBlobs(std::move(blobs));
    struct Pair {
        double value;
        size_t track;
        size_t blob;
    };
    std::vector<Pair> pairs;
    for (size_t t = 0; t < m_tracks.size(); ++t) {
        const cv::Rect2d predicted = m_tracks[t].predictedBox();
        for (size_t b = 0; b < blobs.size(); ++b) {
            const double value = match(predicted, real(blobs[b].box));
            if (value > 0.15) {
                // among equal matches, shown tracks and large blobs come first
                const double size = std::min(1.0, blobs[b].area / std::max(1.0, m_tracks[t].blob.area));
                pairs.push_back({value + size + (m_tracks[t].shown ? 1 : 0), t, b});
            }
        }
    }
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) { return a.value > b.value; });
    std::vector<bool> blobTaken(blobs.size());
    std::vector<std::vector<const Blob*>> parts(m_tracks.size());
    for (const Pair& pair : pairs) {
        if (!blobTaken[pair.blob] && parts[pair.track].empty()) {
            blobTaken[pair.blob] = true;
            parts[pair.track].push_back(&blobs[pair.blob]);
        }
    }
    // what is left over and lies within a known object is a piece of it
    for (const Pair& pair : pairs) {
        const cv::Rect2d known = m_tracks[pair.track].predictedBox();
        if (!blobTaken[pair.blob] && coveredPart(real(blobs[pair.blob].box), known) > 0.6) {
            blobTaken[pair.blob] = true;
            parts[pair.track].push_back(&blobs[pair.blob]);
        }
    }
    for (size_t t = 0; t < m_tracks.size(); ++t) {
        if (parts[t].empty()) {
            miss(m_tracks[t]);
        } else {
            see(m_tracks[t], parts[t].size() == 1 ? *parts[t].front() : joinBlobs(parts[t]));
        }
    }
    m_tracks.erase(std::remove_if(m_tracks.begin(), m_tracks.end(),
                                  [&](const MotionTrack& track) {
                                      const bool leaving = touchesEdge(track.box());
                                      return track.missed > (track.shown && !leaving ? kLongestCoast : 0);
                                  }),
                   m_tracks.end());
    for (size_t b = 0; b < blobs.size(); ++b) {
        if (!blobTaken[b]) {
            m_tracks.emplace_back(blobs[b], m_card.classes);
            m_tracks.back().cameIn = touchesEdge(real(blobs[b].box));
            see(m_tracks.back(), blobs[b]);
        }
    }
}

void MotionTracks::see(MotionTrack& track, const Blob& blob) const {
    const std::array<double, 4> measured = {static_cast<double>(blob.box.x), static_cast<double>(blob.box.y),
                                            static_cast<double>(blob.box.br().x), static_cast<double>(blob.box.br().y)};
    for (size_t i = 0; i < measured.size(); ++i) {
        const double predicted = track.edges[i] + track.speeds[i];
        const double error = measured[i] - predicted;
        track.edges[i] = predicted + (track.seen < 2 ? 1 : kPlaceGain) * error;
        track.speeds[i] += (track.seen == 1 ? 1 : kSpeedGain) * error;
        track.edges[i] =
            std::clamp(track.edges[i], 0.0, static_cast<double>(i % 2 == 0 ? m_picture.width : m_picture.height));
    }
    // what shrinks fast must not turn inside out
    track.edges[2] = std::max(track.edges[2], track.edges[0] + 1);
    track.edges[3] = std::max(track.edges[3], track.edges[1] + 1);
    ++track.seen;
    track.missed = 0;
    track.blob = blob;
    track.founding += (track.seen == 1 ? 1 : 0.3) * (blob.founding - track.founding);
    track.ghostly = track.founding < kGhostly ? track.ghostly + 1 : 0;
    const cv::Point2d centre = centreOf(track.box());
    constexpr double kRestless = 2;
    if (std::hypot(centre.x - track.restingPlace.x, centre.y - track.restingPlace.y) > kRestless) {
        track.restingPlace = centre;
        track.resting = 0;
    } else {
        ++track.resting;
    }
    const Shape shape = describeShape(blob, m_picture);
    // an object that rests looks the same in every cycle: one look is enough
    constexpr int kLooksAtResting = 20;
    if (track.resting < kLooksAtResting) {
        track.vote.add(shape);
    }
    cv::Mat outline = normalisedOutline(blob);
    if (shape.whole() && !track.outline.empty() && track.resting < 3) {
        track.vote.addOutlineChange(outlineChange(outline, track.outline));
    }
    track.outline = shape.whole() ? outline : cv::Mat();
    track.objectClass = track.vote.decide();
    confirm(track);
}

void MotionTracks::confirm(MotionTrack& track) const {
    if (track.shown || track.seen < kCyclesToConfirm) {
        return;
    }
    const bool clear = track.vote.decided() || track.seen >= kCyclesToBelieveUnclear ||
                       (track.seen >= kCyclesToBelieveCut && track.vote.lead() >= kLeads);
    const cv::Point2d centre = centreOf(track.box());
    const double way = std::hypot(centre.x - track.birthplace.x, centre.y - track.birthplace.y);
    // what goes its way for half its size is a thing, however faint its outline
    const bool founded = track.founding >= kFounded ||
                         (track.founding > kGhostly && way > std::min(track.box().width, track.box().height) / 2);
    if (!clear || !founded || track.vote.evidenceFor(track.objectClass) < kFitsNothing) {
        return;
    }
    const cv::Rect2d box = track.box();
    const double enough = track.cameIn ? kTravelled : std::max(kTravelled, kOwnSizes * std::min(box.width, box.height));
    const int cycles = track.cameIn ? kCyclesToConfirm : kCyclesToBelieveSudden;
    track.shown = (way > enough && track.seen >= cycles) || track.seen >= kCyclesToBelieveResting;
}

void MotionTracks::miss(MotionTrack& track) const {
    ++track.missed;
    for (size_t i = 0; i < track.edges.size(); ++i) {
        track.edges[i] += track.speeds[i];
        track.speeds[i] *= 0.8;
    }
}

}  // namespace desktop

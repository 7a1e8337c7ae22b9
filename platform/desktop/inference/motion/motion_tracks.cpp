// From blobs to objects that last.
//
// Idea: each of the four edges of an object's box moves at its own speed, which makes growing at the picture's border
// and turning plain cases. Every known object has one blob in which it is at home. A blob with one object that is not
// much larger than that object is the object. In any other blob objects share: each keeps its size, gets the pixels
// closest to where it is expected, and is held within them; what lies outside of all and is as large as an object
// usually is at that place is a newcomer. A blob without a known object is cut into as many as usually fill its area.
// What is usual is learned from those that were seen alone (motion_sizes).
//
// An object is shown from the second cycle in which it was seen, provided that it moves and its class is clear; what
// the picture's edge still cuts may need a few more. A thing that appears in mid-picture is often light or a ghost, so
// it has to move further or to persist; a piece of a shown object has to move on its own. A shown object that is not
// found coasts for a few cycles, unless it was leaving the picture.
//
// Limits: two objects that come into the picture as one blob and never part are one as long as nothing was seen alone
// at that place.

#include "desktop/inference/motion/motion_tracks.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "desktop/inference/motion/motion_shares.h"

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
constexpr int kLongestCoast = 4;
constexpr double kMuchLarger = 1.5;  // than the object itself: there is something else
constexpr double kLonger = 1.3;      // the same, in one direction
constexpr double kInside = 0.6;      // part of a box that must lie in another for it to lie within
constexpr size_t kNobody = SIZE_MAX;
constexpr int kGone = 1000;  // missed cycles that end any object

/** How many of a blob's pixels lie in a box. */
int pixelsIn(const Blob& blob, const cv::Rect2d& box) {
    const cv::Rect whole(static_cast<int>(std::floor(box.x)), static_cast<int>(std::floor(box.y)),
                         static_cast<int>(std::ceil(box.width)), static_cast<int>(std::ceil(box.height)));
    const cv::Rect common = (whole & blob.box) - blob.box.tl();
    return common.area() > 0 && common.x >= 0 && common.y >= 0 ? cv::countNonZero(blob.mask(common)) : 0;
}

double coveredPart(const cv::Rect2d& of, const cv::Rect2d& by) {
    return of.area() > 0 ? (of & by).area() / of.area() : 0;
}

bool isVehicle(ObjectClass objectClass) {
    return objectClass != ObjectClass::Person && objectClass != ObjectClass::Bicycle;
}

}  // namespace

MotionTracks::MotionTracks(const MotionCard& card, cv::Size picture)
    : m_smallest(card.smallestArea * picture.area()), m_picture(picture), m_sizes(picture) {}

void MotionTracks::setClasses(const std::vector<ObjectClass>& classes) {
    if (classes == m_classes) {
        return;
    }
    m_classes = classes;
    m_vehicles = std::any_of(classes.begin(), classes.end(), isVehicle);
    m_oneKind = !m_vehicles || std::all_of(classes.begin(), classes.end(), isVehicle);
    for (MotionTrack& track : m_tracks) {
        track.vote = ClassVote(classes);
    }
}

bool MotionTracks::touchesEdge(const cv::Rect2d& box) const {
    return box.x <= kEdgeMargin || box.y <= kEdgeMargin || box.x + box.width >= m_picture.width - kEdgeMargin ||
           box.y + box.height >= m_picture.height - kEdgeMargin;
}

MotionTracks::Homes MotionTracks::findHomes(const std::vector<Blob>& blobs) const {
    Homes homes(blobs.size());
    for (size_t t = 0; t < m_tracks.size(); ++t) {
        const cv::Rect2d predicted = m_tracks[t].predictedBox();
        double most = 0;
        size_t home = blobs.size();
        for (size_t b = 0; b < blobs.size(); ++b) {
            const double inside = pixelsIn(blobs[b], predicted);
            constexpr double kEnough = 0.2;
            const bool enough = inside > kEnough * std::min(m_tracks[t].area, blobs[b].area);
            if (enough && inside > most) {
                most = inside;
                home = b;
            }
        }
        if (home < blobs.size()) {
            homes[home].push_back(t);
        }
    }
    return homes;
}

void MotionTracks::adoptFragments(std::vector<Blob>& blobs, Homes& homes) const {
    for (size_t home = 0; home < blobs.size(); ++home) {
        if (homes[home].size() != 1) {
            continue;
        }
        const MotionTrack& track = m_tracks[homes[home].front()];
        const cv::Rect2d known = track.predictedBox();
        for (size_t b = 0; b < blobs.size(); ++b) {
            const cv::Rect2d together = realBox(blobs[home].box | blobs[b].box);
            const bool fits = together.width <= kLonger * known.width && together.height <= kLonger * known.height &&
                              blobs[home].area + blobs[b].area <= kMuchLarger * track.area;
            const bool piece = b != home && blobs[b].area > 0 && homes[b].empty() && fits &&
                               coveredPart(realBox(blobs[b].box), known) > kInside;
            const auto usual = m_sizes.at(centreOf(together));
            if (piece && mayBeOne(blobs[home], blobs[b], usual ? &*usual : nullptr, m_smallest)) {
                const double founding = blobs[home].founding;
                blobs[home] = joinBlobs({&blobs[home], &blobs[b]});
                blobs[home].founding = founding;
                blobs[b].area = 0;
            }
        }
    }
    for (size_t b = blobs.size(); b-- > 0;) {
        if (blobs[b].area == 0) {
            blobs.erase(blobs.begin() + static_cast<std::ptrdiff_t>(b));
            homes.erase(homes.begin() + static_cast<std::ptrdiff_t>(b));
        }
    }
}

bool MotionTracks::mayBeSeveral(const Blob& blob) const {
    if (!m_vehicles) {
        return true;
    }
    // one large vehicle is solid; several, or people, leave gaps
    constexpr double kSolid = 0.86;
    return describeShape(blob, m_picture).solidity < kSolid;
}

/** Whether a blob is as large as one object usually is at its place. */
bool MotionTracks::isUsual(const Blob& blob) const {
    const std::optional<UsualSize> usual = m_sizes.at(centreOf(realBox(blob.box)));
    return usual && blob.area < kMuchLarger * usual->area && blob.box.width < kLonger * usual->width &&
           blob.box.height < kLonger * usual->height;
}

/** By how much an object that comes nearer or goes away changes its size in this cycle. */
double MotionTracks::growthOf(const MotionTrack& track) const {
    const std::optional<UsualSize> here = m_sizes.at(centreOf(track.box()));
    const std::optional<UsualSize> there = m_sizes.at(centreOf(track.predictedBox()));
    constexpr double kFastest = 1.1;
    return here && there ? std::clamp(there->height / here->height, 1 / kFastest, kFastest) : 1;
}

std::vector<cv::Rect2d> MotionTracks::severalIn(const Blob& blob) const {
    const std::optional<UsualSize> usual = m_sizes.at(centreOf(realBox(blob.box)));
    if (!usual) {
        return {};
    }
    const int count = static_cast<int>(std::lround(blob.area / usual->area));
    const bool larger = blob.box.width > kLonger * usual->width || blob.box.height > kLonger * usual->height;
    if (blob.area < kMuchLarger * usual->area || count < 2 || !larger || !mayBeSeveral(blob)) {
        return {};
    }
    return placeBoxes(blob.mask, blob.box.tl(), count, {usual->width, usual->height});
}

std::vector<cv::Rect2d> MotionTracks::newcomersIn(const Blob& blob, const std::vector<size_t>& homed) const {
    std::vector<cv::Rect2d> known;
    double knownArea = 0;
    for (const size_t t : homed) {
        known.push_back(m_tracks[t].predictedBox());
        knownArea += m_tracks[t].area;
    }
    const UsualSize own = {known.front().width, known.front().height, m_tracks[homed.front()].area};
    const UsualSize usual = m_sizes.at(centreOf(realBox(blob.box))).value_or(own);
    constexpr double kEnough = 0.6;  // part of an object that must be out of the known ones
    const cv::Mat outside = pixelsOutside(blob, known);
    const double left = cv::countNonZero(outside);
    if (left < kEnough * usual.area || blob.area < knownArea + kEnough * usual.area || !mayBeSeveral(blob)) {
        return {};
    }
    const int count = std::max(1, static_cast<int>(std::lround(left / usual.area)));
    return placeBoxes(outside, blob.box.tl(), count, {usual.width, usual.height});
}

void MotionTracks::add(const Blob& blob) {
    m_tracks.emplace_back(blob, m_classes);
    m_tracks.back().cameIn = touchesEdge(realBox(blob.box));
}

void MotionTracks::noteSize(MotionTrack& track) {
    const cv::Rect2d box = track.box();
    const cv::Point2d centre = centreOf(box);
    const double way = std::hypot(centre.x - track.measuredPlace.x, centre.y - track.measuredPlace.y);
    if (track.seen >= 3 && track.resting == 0 && way > std::min(box.width, box.height) / 2 && !touchesEdge(box)) {
        track.measuredPlace = centre;
        m_sizes.add(box, track.area);
    }
}

void MotionTracks::start(const Blob& blob) {
    const std::vector<cv::Rect2d> several = severalIn(blob);
    if (several.empty()) {
        add(blob);
        m_tracks.back().seeAlone(blob, m_picture);
        return;
    }
    const std::vector<Blob> shares = shareOut(blob, several);
    for (size_t i = 0; i < shares.size(); ++i) {
        if (shares[i].area > 0) {
            add(shares[i]);
            m_tracks.back().seeShare(shares[i], m_picture);
        }
    }
}

void MotionTracks::followSharing(const Blob& blob, const std::vector<size_t>& homed,
                                 const std::vector<cv::Rect2d>& newcomers) {
    std::vector<cv::Rect2d> boxes;
    for (const size_t t : homed) {
        boxes.push_back(m_tracks[t].predictedBox());
    }
    boxes.insert(boxes.end(), newcomers.begin(), newcomers.end());
    const std::vector<Blob> shares = shareOut(blob, boxes);
    for (size_t i = 0; i < boxes.size(); ++i) {
        if (i >= homed.size()) {
            if (shares[i].area > 0) {
                add(shares[i]);
                m_tracks.back().seeShare(shares[i], m_picture);
            }
            continue;
        }
        MotionTrack& track = m_tracks[homed[i]];
        constexpr double kSmallestShare = 0.15;
        if (shares[i].area > kSmallestShare * track.area) {
            track.seeShare(shares[i], m_picture, growthOf(track));
        } else {
            track.miss();
        }
        constexpr double kRoom = 0.6;
        track.crowded = shares[i].area < kRoom * track.area ? track.crowded + 1 : 0;
    }
}

/** Where several small ones are at home in one usual object, they were its parts: the one seen longest is the object.
 */
void MotionTracks::keepOldest(const Blob& blob, std::vector<size_t>& homed) {
    double sum = 0;
    for (const size_t t : homed) {
        sum += m_tracks[t].area;
    }
    constexpr double kParts = 0.8;
    const bool solid = m_vehicles && !mayBeSeveral(blob);
    if (homed.size() < 2 || sum > kParts * blob.area || !(isUsual(blob) || solid)) {
        return;
    }
    const size_t oldest = *std::max_element(homed.begin(), homed.end(),
                                            [&](size_t a, size_t b) { return m_tracks[a].seen < m_tracks[b].seen; });
    for (const size_t t : homed) {
        if (t != oldest) {
            m_tracks[t].missed = kGone;
        }
    }
    m_tracks[oldest].shrinkTo(blob);
    homed = {oldest};
}

/** An object that stays as large as several usually are is several: it becomes the closest of them. */
void MotionTracks::followOversized(const Blob& blob, size_t t) {
    constexpr int kLongEnough = 3;
    MotionTrack& track = m_tracks[t];
    const std::vector<cv::Rect2d> several = severalIn(blob);
    track.oversized = several.empty() || touchesEdge(realBox(blob.box)) ? 0 : track.oversized + 1;
    if (track.oversized < kLongEnough) {
        track.seeAlone(blob, m_picture);
        noteSize(track);
        return;
    }
    const std::vector<Blob> shares = shareOut(blob, several);
    const size_t largest = static_cast<size_t>(
        std::max_element(shares.begin(), shares.end(), [](const Blob& a, const Blob& b) { return a.area < b.area; }) -
        shares.begin());
    track.shrinkTo(shares[largest]);
    track.seeShare(shares[largest], m_picture);
    track.oversized = 0;
    for (size_t i = 0; i < shares.size(); ++i) {
        if (i != largest && shares[i].area > 0) {
            startPiece(shares[i], t);
        }
    }
}

void MotionTracks::follow(const Blob& blob, std::vector<size_t> homed) {
    if (homed.empty()) {
        start(blob);
        return;
    }
    keepOldest(blob, homed);
    MotionTrack& first = m_tracks[homed.front()];
    const cv::Rect2d predicted = first.predictedBox();
    const bool grown = blob.area > kMuchLarger * first.area &&
                       (blob.box.width > kLonger * predicted.width || blob.box.height > kLonger * predicted.height);
    if (homed.size() == 1 && !(grown && first.sizeKnown())) {
        followOversized(blob, homed.front());
        return;
    }
    const std::vector<cv::Rect2d> newcomers = isUsual(blob) ? std::vector<cv::Rect2d>() : newcomersIn(blob, homed);
    if (homed.size() == 1 && newcomers.empty()) {
        // it is larger than it was, and there is no room for another
        first.seeAlone(blob, m_picture);
        return;
    }
    followSharing(blob, homed, newcomers);
}

/** Which object each blob without one broke off from: one that turns out to have been several. */
std::vector<size_t> MotionTracks::findParents(const std::vector<Blob>& blobs, const Homes& homes) {
    std::vector<size_t> parents(blobs.size(), kNobody);
    for (size_t home = 0; home < blobs.size(); ++home) {
        if (homes[home].size() != 1) {
            continue;
        }
        MotionTrack& track = m_tracks[homes[home].front()];
        const cv::Rect2d known = track.predictedBox();
        for (size_t b = 0; b < blobs.size(); ++b) {
            constexpr double kAlike = 0.4;
            if (homes[b].empty() && blobs[b].area > kAlike * blobs[home].area &&
                coveredPart(realBox(blobs[b].box), known) > kInside) {
                parents[b] = homes[home].front();
                track.shrinkTo(blobs[home]);
            }
        }
    }
    return parents;
}

void MotionTracks::startPiece(const Blob& blob, size_t parent) {
    add(blob);
    MotionTrack& piece = m_tracks.back();
    const MotionTrack& whole = m_tracks[parent];
    piece.speeds = whole.speeds;
    piece.cameIn = whole.cameIn;
    piece.shown = whole.shown;
    piece.vote = whole.vote;
    piece.seeAlone(blob, m_picture);
    piece.speeds = whole.speeds;
}

void MotionTracks::dropTwins(const Blob& blob, std::vector<size_t>& homed) {
    // those not yet shown that the blob has no room for were pieces of the others
    double sum = 0;
    for (const size_t t : homed) {
        sum += m_tracks[t].area;
    }
    constexpr double kRoom = 1.25;
    for (size_t i = homed.size(); i-- > 0 && homed.size() > 1 && sum > kRoom * blob.area;) {
        MotionTrack& track = m_tracks[homed[i]];
        if (!track.shown) {
            sum -= track.area;
            track.missed = kGone;
            homed.erase(homed.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

void MotionTracks::update(std::vector<Blob> blobs) {
    Homes homes = findHomes(blobs);
    adoptFragments(blobs, homes);
    const std::vector<size_t> parents = findParents(blobs, homes);
    std::vector<bool> home(m_tracks.size());
    for (size_t b = 0; b < blobs.size(); ++b) {
        for (const size_t t : homes[b]) {
            home[t] = true;
        }
        dropTwins(blobs[b], homes[b]);
    }
    for (size_t t = 0; t < home.size(); ++t) {
        if (!home[t]) {
            m_tracks[t].miss();
        }
    }
    for (size_t b = 0; b < blobs.size(); ++b) {
        if (parents[b] == kNobody) {
            follow(blobs[b], homes[b]);
        } else {
            startPiece(blobs[b], parents[b]);
        }
    }
    end();
    for (MotionTrack& track : m_tracks) {
        confirm(track);
    }
}

bool MotionTracks::clings(const MotionTrack& track) const {
    const cv::Rect2d box = track.box();
    return std::any_of(m_tracks.begin(), m_tracks.end(), [&](const MotionTrack& other) {
        const double across = (track.speeds[0] + track.speeds[2] - other.speeds[0] - other.speeds[2]) / 2;
        const double down = (track.speeds[1] + track.speeds[3] - other.speeds[1] - other.speeds[3]) / 2;
        constexpr double kOwnWay = 1;  // pixels per cycle
        return &other != &track && other.shown && coveredPart(box, other.box()) > kInside &&
               std::hypot(across, down) < kOwnWay;
    });
}

void MotionTracks::confirm(MotionTrack& track) const {
    if (track.shown || track.seen < kCyclesToConfirm || track.missed > 0) {
        return;
    }
    const bool clear = m_oneKind || track.vote.decided() || track.seen >= kCyclesToBelieveUnclear ||
                       (track.seen >= kCyclesToBelieveCut && track.vote.lead() >= kLeads);
    const cv::Point2d centre = centreOf(track.box());
    const double way = std::hypot(centre.x - track.birthplace.x, centre.y - track.birthplace.y);
    // what goes its way for half its size is a thing, however faint its outline
    const bool founded = track.founding >= kFounded ||
                         (track.founding > kGhostly && way > std::min(track.box().width, track.box().height) / 2);
    const bool fits = m_oneKind || track.vote.evidenceFor(track.objectClass) >= kFitsNothing;
    if (!clear || !founded || !fits || clings(track)) {
        return;
    }
    const cv::Rect2d box = track.box();
    const double enough = track.cameIn ? kTravelled : std::max(kTravelled, kOwnSizes * std::min(box.width, box.height));
    const int cycles = track.cameIn ? kCyclesToConfirm : kCyclesToBelieveSudden;
    track.shown = (way > enough && track.seen >= cycles) || track.seen >= kCyclesToBelieveResting;
}

void MotionTracks::end() {
    // of two that have room for one only, the younger goes
    constexpr int kLongestCrowded = 12;
    for (size_t younger = 1; younger < m_tracks.size(); ++younger) {
        for (size_t older = 0; older < younger; ++older) {
            const cv::Rect2d a = m_tracks[older].box();
            const cv::Rect2d b = m_tracks[younger].box();
            const double common = (a & b).area() / std::max(1.0, std::min(a.area(), b.area()));
            if (m_tracks[younger].crowded + m_tracks[older].crowded > kLongestCrowded && common > 0.6) {
                m_tracks[younger].missed = kGone;
            }
        }
    }
    m_tracks.erase(std::remove_if(m_tracks.begin(), m_tracks.end(),
                                  [&](const MotionTrack& track) {
                                      const bool leaving = touchesEdge(track.box());
                                      return track.missed > (track.shown && !leaving ? kLongestCoast : 0);
                                  }),
                   m_tracks.end());
}

}  // namespace desktop

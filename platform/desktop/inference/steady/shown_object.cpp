#include "desktop/inference/steady/shown_object.h"

#include <algorithm>
#include <cmath>

namespace desktop {
namespace {

constexpr double kLongestStep = 95;  // pixels; a tracker that knows nothing follows up to 100
constexpr double kCatchUp = 3;       // heights a second by which one that was held up goes faster
constexpr double kSteady = 2.5;      // jitters by which what rests may seem to move
constexpr double kRestTime = 0.6;    // seconds without a move after which an object rests
constexpr double kGone = 1.5;        // times as far away is one who has gone
constexpr double kPlay = 1;          // jitters by which the path may stray before it is followed

PixelBox between(const PixelBox& from, const PixelBox& to, double share) {
    return {from.x + (to.x - from.x) * share, from.y + (to.y - from.y) * share,
            from.width + (to.width - from.width) * share, from.height + (to.height - from.height) * share};
}

/** The farther of both locators' ways. */
double wayOf(const PixelBox& from, const PixelBox& to) {
    return std::max(std::hypot(to.x - from.x, to.y - from.y), std::hypot(to.x - from.x, to.bottom() - from.bottom()));
}

/** The largest move of a locator along an axis. */
double strayOf(const PixelBox& from, const PixelBox& to) {
    return std::max({std::abs(to.x - from.x), std::abs(to.y - from.y), std::abs(to.bottom() - from.bottom())});
}

/** Follows value only so far that it is no farther away than play. */
double follow(double held, double value, double play) {
    return std::clamp(held, value - play, value + play);
}

}  // namespace

void ShownObject::aim(const FollowedObject& object, double moment, double step) {
    if (object.firstSeen() > moment) {
        return;
    }
    if (!begun) {
        begun = true;
        m_target = object.lookBack(object.firstSeen()).box;
        box = m_target;
        m_anchor = m_target;
        m_anchored = moment;
    }
    const FollowedObject::Look look = object.lookBack(moment);
    PixelBox place = look.box;
    if (look.seen) {
        m_stood = false;
    } else if (!look.later) {
        m_stood = true;
    } else if (m_stood) {
        // He was taken for standing until he was seen again: from where he stands to there.
        place = between(m_target, look.next, step / (look.nextSeen - moment + step));
    }
    const double play = kSteady * object.jitter() * place.height;
    if (strayOf(m_anchor, place) > kRestTime * play) {
        m_anchor = place;
        m_anchored = moment;
    }
    if (m_resting) {
        // Noise strays for a moment; who has gone is farther away yet in the newest picture.
        m_resting = strayOf(m_target, place) < play || strayOf(m_target, object.newestPlace()) < kGone * play;
    } else {
        m_resting = moment - m_anchored > kRestTime;
    }
    if (!m_resting) {
        const double stray = kPlay * object.jitter() * place.height;
        const double bottom = follow(m_target.bottom(), place.bottom(), stray);
        m_target.x = follow(m_target.x, place.x, stray);
        m_target.y = follow(m_target.y, place.y, stray);
        m_target.width = place.width;
        m_target.height = std::max(1.0, 2 * (bottom - m_target.y));
    }
    if (objectClass != object.objectClass()) {
        objectClass = object.objectClass();
        visible = false;  // a tracker does not know it again
    }
    score = object.lastScore();
    speedX = object.speedX();
    speedY = object.speedY();
    approach(m_target, (std::hypot(speedX, speedY) + kCatchUp * m_target.height) * step);
}

void ShownObject::aimAtEnd(double step) {
    ended = true;
    over += step;
    approach(m_target, (std::hypot(speedX, speedY) + kCatchUp * m_target.height) * step);
}

void ShownObject::approach(PixelBox target, double most) {
    const double way = wayOf(box, target);
    const double longest = std::min(most, kLongestStep);
    wanted = way > longest ? between(box, target, longest / way) : target;
}

bool ShownObject::hasArrived() const {
    return !begun || wayOf(box, m_target) < 1;
}

}  // namespace desktop

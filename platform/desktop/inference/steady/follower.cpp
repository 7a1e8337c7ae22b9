#include "follower.h"

#include <algorithm>
#include <cmath>

#include "assignment.h"

namespace desktop {
namespace {

constexpr int kTimesToBeKnown = 3;
constexpr double kLongestFirstGap = 0.7;  // seconds for which one that is not known may be out of sight
constexpr double kOtherClass = 2;         // misfit of a box of another class
constexpr double kWeakFit = 5;            // misfit that a weak box may have at most
constexpr double kLongestWeak = 2.5;      // seconds for which weak boxes alone are believed
constexpr double kUnknown = 3;            // misfit of an object that is not known: others choose first
constexpr double kPart = 0.6;     // share of the smaller box above which two boxes are one object or parts of it
constexpr double kApart = 0.5;    // share of the smaller box below which two boxes prove two objects
constexpr double kTwin = 0.6;     // heights from an object at which a new one may be the same
constexpr double kTwinRun = 0.8;  // and so many more for each second it was out of sight
constexpr double kTwinFarthest = 1.2;
constexpr double kTwinSize = 0.5;  // by which their heights may differ, in the logarithm
constexpr double kEdge = 0.02;     // of the picture: nearer to its edge a box touches it
constexpr double kLeaves = 0.2;    // sizes a second towards the edge
constexpr double kLeft = 0.3;      // seconds after which one who was leaving is gone
constexpr int kTimesTogether = 2;  // pictures that show both prove two objects
constexpr int kTimesAlone = 2;     // pictures that show one in turn prove one

double sharedOf(const PixelBox& a, const PixelBox& b) {
    return commonArea(a, b) / std::min(a.area(), b.area());
}

}  // namespace

bool Follower::isKnown(const FollowedObject& object) {
    return object.timesSeen() >= kTimesToBeKnown && object.timesConfident() >= 2 && object.twin < 0;
}

void Follower::follow(double now, const std::vector<SeenBox>& seen, double width, double height) {
    for (FollowedObject& object : m_objects) {
        object.advance(now);
    }
    std::vector<bool> taken(seen.size(), false);
    std::vector<bool> found(m_objects.size(), false);
    give(seen, true, taken, found);
    give(seen, false, taken, found);
    m_gone.clear();
    std::erase_if(m_objects, [&](const FollowedObject& object) {
        const bool gone = hasGone(object, now, width, height);
        if (gone && isKnown(object)) {
            m_gone.push_back(object);
        }
        return gone;
    });
    sortOutTwins(now);
    begin(now, seen, taken);
}

void Follower::give(const std::vector<SeenBox>& seen, bool confident, std::vector<bool>& taken,
                    std::vector<bool>& found) {
    std::vector<size_t> rows;
    for (size_t i = 0; i < m_objects.size(); ++i) {
        if (!found[i] && (confident || isKnown(m_objects[i]))) {
            rows.push_back(i);
        }
    }
    std::vector<size_t> columns;
    for (size_t j = 0; j < seen.size(); ++j) {
        if (!taken[j] && seen[j].confident == confident) {
            columns.push_back(j);
        }
    }
    if (rows.empty() || columns.empty()) {
        return;
    }
    std::vector<double> gains(rows.size() * columns.size(), 0);
    for (size_t r = 0; r < rows.size(); ++r) {
        const FollowedObject& object = m_objects[rows[r]];
        // Who was out of sight for long may be anywhere, so that a box near him says less.
        const double vague = 4 * std::log(object.uncertainty() / (0.05 * object.expected().height));
        const double before = vague + (isKnown(object) ? 0 : kUnknown);
        for (size_t c = 0; c < columns.size(); ++c) {
            const SeenBox& box = seen[columns[c]];
            const double misfit = object.misfit(box);
            if (misfit < (confident ? FollowedObject::kBadFit : kWeakFit)) {
                const double all = misfit + before + (box.objectClass == object.objectClass() ? 0 : kOtherClass);
                gains[r * columns.size() + c] = std::max(0.01, 2 * FollowedObject::kBadFit - all);
            }
        }
    }
    const std::vector<size_t> pairs = assign(gains, rows.size(), columns.size());
    for (size_t r = 0; r < rows.size(); ++r) {
        if (pairs[r] != kUnassigned) {
            m_objects[rows[r]].see(seen[columns[pairs[r]]]);
            taken[columns[pairs[r]]] = true;
            found[rows[r]] = true;
        }
    }
}

FollowedObject* Follower::find(int number) {
    const auto found = std::find_if(m_objects.begin(), m_objects.end(),
                                    [&](const FollowedObject& object) { return object.number() == number; });
    return found == m_objects.end() ? nullptr : &*found;
}

void Follower::sortOutTwins(double now) {
    std::vector<int> over;
    for (FollowedObject& object : m_objects) {
        if (object.twin < 0) {
            continue;
        }
        FollowedObject* const twin = find(object.twin);
        const bool seen = object.lastSeen() == now;
        if (twin == nullptr) {
            object.twin = -1;
            continue;
        }
        const bool twinSeen = twin->lastSeen() == now;
        object.together += seen && twinSeen && sharedOf(object.newestPlace(), twin->newestPlace()) < kApart ? 1 : 0;
        object.otherAlone += !seen && twinSeen ? 1 : 0;
        if (object.together >= kTimesTogether) {
            object.twin = -1;
        } else if (object.otherAlone > kTimesAlone) {
            over.push_back(object.number());
        } else if (seen && twin->lastSeen() < object.firstSeen() && object.timesSeen() >= kTimesToBeKnown) {
            twin->adopt(object);
            over.push_back(object.number());
        }
    }
    std::erase_if(m_objects, [&](const FollowedObject& object) {
        return std::find(over.begin(), over.end(), object.number()) != over.end();
    });
}

void Follower::begin(double now, const std::vector<SeenBox>& seen, const std::vector<bool>& taken) {
    const size_t known = m_objects.size();
    for (size_t j = 0; j < seen.size(); ++j) {
        if (taken[j] || !seen[j].confident) {
            continue;
        }
        bool isNew = true;
        int twin = -1;
        double nearest = 1;
        for (size_t i = 0; i < known && isNew; ++i) {
            const FollowedObject& object = m_objects[i];
            const PixelBox there = object.expected();
            const double way = std::hypot(there.x - seen[j].box.x, there.y - seen[j].box.y);
            const double reach = std::min(kTwinFarthest, kTwin + kTwinRun * (now - object.lastSeen()));
            const bool alike = std::abs(std::log(seen[j].box.height / there.height)) < kTwinSize;
            if (alike && way < nearest * reach * seen[j].box.height) {
                nearest = way / (reach * seen[j].box.height);
                twin = object.number();
            }
            if (object.lastSeen() < now) {
                continue;
            }
            isNew = sharedOf(seen[j].box, there) < kPart;
        }
        if (isNew) {
            m_objects.emplace_back(m_nextNumber++, now, seen[j]);
            m_objects.back().twin = twin;
            FollowedObject* const other = twin < 0 ? nullptr : find(twin);
            m_objects.back().together =
                other != nullptr && other->lastSeen() == now && sharedOf(other->newestPlace(), seen[j].box) < kApart
                    ? 1
                    : 0;
        }
    }
}

bool Follower::hasGone(const FollowedObject& object, double now, double width, double height) const {
    const double gap = now - object.lastSeen();
    if (!isKnown(object)) {
        return gap > kLongestFirstGap;
    }
    const PixelBox there = object.expected();
    const bool outside = there.x < 0 || there.y < 0 || there.x > width || there.y > height;
    const PixelBox last = object.newestPlace();
    const double speed = kLeaves * std::max(last.width, last.height);
    const bool leaving = (last.left() < kEdge * width && object.speedX() < -speed) ||
                         (last.right() > (1 - kEdge) * width && object.speedX() > speed) ||
                         (last.top() < kEdge * height && object.speedY() < -speed) ||
                         (last.bottom() > (1 - kEdge) * height && object.speedY() > speed);
    return gap > kLongestGap || now - object.lastConfident() > kLongestWeak || (gap > 0 && outside) ||
           (gap > kLeft && leaving);
}

}  // namespace desktop

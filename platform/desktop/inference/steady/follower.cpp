#include "desktop/inference/steady/follower.h"

#include <algorithm>
#include <cmath>

#include "desktop/inference/steady/assignment.h"

namespace desktop {
namespace {

constexpr int kTimesToBeKnown = 3;
constexpr double kTrusted = 5;            // trust from which an object is believed
constexpr double kDistrusted = -6;        // below which one that is not known is given up
constexpr double kFound = 0.7;            // share of pictures in which an object is found
constexpr double kUnknown = 4;            // by which one that is not known is less likely: others choose first
constexpr double kWeak = 2;               // by which a weak box is, in the logarithm
constexpr double kLongestFirstGap = 0.7;  // seconds for which one that is not known may be out of sight
constexpr double kLongestWeak = 2.5;      // seconds for which weak boxes alone are believed
constexpr double kChance = 0.05;          // boxes in a picture that are of nothing, or of somebody new
constexpr double kJitterMemory = 0.02;    // of an object in what was measured of all
constexpr int kTimesToKnowJitter = 7;
constexpr double kPart = 0.9;     // share of the smaller box above which two boxes are one object or parts of it
constexpr double kApart = 0.8;    // share of the smaller box below which two boxes prove two objects
constexpr double kTwin = 0.45;    // heights from an object at which a new one may be the same
constexpr double kTwinRun = 0.8;  // and so many more for each second it was out of sight
constexpr double kTwinFarthest = 1.2;
constexpr double kTwinSize = 0.5;  // by which their heights may differ, in the logarithm
constexpr double kEdge = 0.02;     // of the picture: nearer to its edge a box touches it
constexpr double kLeaves = 0.2;    // sizes a second towards the edge
constexpr double kLeft = 0.3;      // seconds after which one who was leaving is gone
constexpr int kTimesTogether = 1;  // pictures that show both prove two objects
constexpr int kTimesAlone = 4;     // pictures that show one in turn prove one

double sharedOf(const PixelBox& a, const PixelBox& b) {
    return commonArea(a, b) / std::min(a.area(), b.area());
}

}  // namespace

bool Follower::isKnown(const FollowedObject& object) {
    return object.timesSeen() >= kTimesToBeKnown && object.timesConfident() >= 2 && object.trust > kTrusted &&
           object.twin < 0;
}

void Follower::follow(double now, const std::vector<SeenBox>& seen, double width, double height) {
    for (FollowedObject& object : m_objects) {
        object.advance(now);
    }
    m_chance = kChance / (width * height);
    std::vector<bool> taken(seen.size(), false);
    std::vector<bool> found(m_objects.size(), false);
    give(seen, true, taken, found);
    give(seen, false, taken, found);
    for (size_t i = 0; i < m_objects.size(); ++i) {
        if (found[i] && m_objects[i].timesSeen() >= kTimesToKnowJitter) {
            m_jitter += kJitterMemory * (m_objects[i].jitter() - m_jitter);
        } else if (!found[i] && !isKnown(m_objects[i])) {
            m_objects[i].trust += std::log(1 - kFound);
        }
    }
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
    // How much more likely a box is the object's than a chance one, and the object found than not.
    const double whenFound = std::log(kFound / (1 - kFound));
    std::vector<double> gains(rows.size() * columns.size(), 0);
    std::vector<double> trusts(gains.size(), 0);
    for (size_t r = 0; r < rows.size(); ++r) {
        const FollowedObject& object = m_objects[rows[r]];
        for (size_t c = 0; c < columns.size(); ++c) {
            const double likelihood = object.likelihood(seen[columns[c]]);
            if (likelihood > 0) {
                const double trust = std::log(likelihood / m_chance);
                trusts[r * columns.size() + c] = std::max(0.0, trust);
                gains[r * columns.size() + c] =
                    trust + whenFound - (isKnown(object) ? 0 : kUnknown) - (confident ? 0 : kWeak);
            }
        }
    }
    const std::vector<size_t> pairs = assign(gains, rows.size(), columns.size());
    for (size_t r = 0; r < rows.size(); ++r) {
        if (pairs[r] != kUnassigned) {
            m_objects[rows[r]].trust += trusts[r * columns.size() + pairs[r]];
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
            const PixelBox last = object.newestPlace();
            const double way = std::min(std::hypot(there.x - seen[j].box.x, there.y - seen[j].box.y),
                                        std::hypot(last.x - seen[j].box.x, last.y - seen[j].box.y));
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
            m_objects.emplace_back(m_nextNumber++, now, seen[j], m_jitter);
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
        return gap > kLongestFirstGap || object.trust < kDistrusted;
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

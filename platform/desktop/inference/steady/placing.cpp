#include "desktop/inference/steady/placing.h"

#include <algorithm>
#include <cmath>

namespace desktop {
namespace {

constexpr size_t kPlaces = 12;
constexpr double kSmallest = 0.0052;  // of the picture, a little above what is thrown away
constexpr double kLargest = 0.49;
constexpr double kWidest = 1.5;     // by which a box may be widened to be large enough
constexpr double kNarrowest = 0.2;  // of its width, to which it may be narrowed
constexpr double kShared = 0.36;    // of the smaller box
constexpr double kReach = 105;      // pixels: the tracker takes what is nearer
constexpr int kRemembered = 2;      // answers after which the tracker has forgotten an object near an entrance
constexpr int kGaveWay = 1;
constexpr double kMeeting = 1.2;
constexpr double kAside = 0.06;         // of its height: a step aside
constexpr double kFarthestAside = 0.2;  // of its height
constexpr double kBack = 0.8;           // of what it stands aside, when it can step back
constexpr double kMoves = 0.25;         // of its height a second
constexpr double kLongestHiding = 1;    // seconds for which one that gave way waits where he was

bool sameKind(ObjectClass a, ObjectClass b) {
    const auto isCarOrTruck = [](ObjectClass c) { return c == ObjectClass::Car || c == ObjectClass::Truck; };
    return a == b || (isCarOrTruck(a) && isCarOrTruck(b));
}

double sharedOf(const PixelBox& a, const PixelBox& b) {
    return commonArea(a, b) / std::min(a.area(), b.area());
}

/** Ways between two boxes by either locator. */
struct Way {
    Way(const PixelBox& a, const PixelBox& b)
        : centre(std::hypot(a.x - b.x, a.y - b.y)), bottom(std::hypot(a.x - b.x, a.bottom() - b.bottom())) {}
    bool isShorter(const Way& other, double times) const {
        return centre * times < other.centre && bottom * times < other.bottom;
    }
    double least() const { return std::min(centre, bottom); }

    double centre;
    double bottom;
};

/** On whole pixels, so that the centre and the middle of the bottom edge come out as they are meant. */
Detection snapped(const PixelBox& box, double width, double height) {
    const double x = std::round(box.x);
    const double y = std::round(box.y);
    const double halfWidth = std::max(1.0, std::round(box.width / 2));
    const double halfHeight = std::max(1.0, std::round(box.height / 2));
    const auto fraction = [](double pixel, double size) {
        return static_cast<float>(std::clamp((pixel + 0.25) / size, 0.0, 1.0));
    };
    Detection detection;
    detection.left = fraction(x - halfWidth, width);
    detection.right = fraction(x + halfWidth, width);
    detection.top = fraction(y - halfHeight, height);
    detection.bottom = fraction(y + halfHeight, height);
    return detection;
}

PixelBox between(const PixelBox& from, const PixelBox& to, double share) {
    return {from.x + (to.x - from.x) * share, from.y + (to.y - from.y) * share,
            from.width + (to.width - from.width) * share, from.height + (to.height - from.height) * share};
}

}  // namespace

std::vector<Detection> Placing::place(std::vector<ShownObject>& objects, double width, double height, float sensitivity,
                                      double step) {
    m_placed.clear();
    std::vector<ShownObject*> order;
    for (ShownObject& object : objects) {
        if (object.begun) {
            order.push_back(&object);
        }
    }
    std::stable_sort(order.begin(), order.end(),
                     [](const ShownObject* a, const ShownObject* b) { return a->visible && !b->visible; });
    for (ShownObject* const next : order) {
        ShownObject& object = *next;
        bool shown = false;
        const auto isTooSmall = [&](const PixelBox& box) { return box.area() * kWidest < kSmallest * width * height; };
        if (!object.visible && isTooSmall(object.box)) {
            object.box = object.wanted;  // it begins where it is large enough
        }
        const bool isShowable = !isTooSmall(object.wanted);  // nobody waits for what is too small
        if (isShowable && object.visible) {
            shown = move(object, width, height);
        } else if (isShowable && !isTaken(object) && !isMistakable(object, object.box) &&
                   fits(object, object.box, width, height)) {
            shown = true;
        } else if (!isShowable || object.hidden > kLongestHiding) {
            object.box = object.wanted;
        }
        if (!shown) {
            object.asideX = object.asideY = 0;
        }
        object.hidden = shown ? 0 : object.hidden + step;
        object.visible = shown;
        object.shownOnce = object.shownOnce || shown;
    }
    note();
    std::vector<Detection> answer;
    for (const Placed& placed : m_placed) {
        Detection detection = snapped(placed.box, width, height);
        detection.objectClass = placed.object->objectClass;
        detection.score = std::max(placed.object->score, sensitivity + 0.02F * (1 - sensitivity));
        answer.push_back(detection);
    }
    return answer;
}

double Placing::room(PixelBox box, double asideX, double asideY) const {
    box.x += asideX;
    box.y += asideY;
    double least = 1e9;
    for (const Placed& placed : m_placed) {
        least = std::min(least, Way(box, placed.there).least());
    }
    return least;
}

bool Placing::move(ShownObject& object, double pictureWidth, double pictureHeight) {
    // Who moves may step aside a little, at right angles to his way. Who stands stays where he is.
    const double height = object.box.height;
    struct Aside {
        double x;
        double y;
    };
    std::vector<Aside> asides;
    const double speed = std::hypot(object.speedX, object.speedY);
    if (object.isResting() || speed < kMoves * height) {
        asides = {{object.asideX, object.asideY}};
    } else {
        asides = {{kBack * object.asideX, kBack * object.asideY}, {object.asideX, object.asideY}};
        for (const double step : {kAside, -kAside, 2 * kAside, -2 * kAside, 3 * kAside, -3 * kAside}) {
            asides.push_back({object.asideX - object.speedY / speed * step * height,
                              object.asideY + object.speedX / speed * step * height});
        }
        std::erase_if(asides,
                      [&](const Aside& aside) { return std::hypot(aside.x, aside.y) > kFarthestAside * height; });
    }
    for (const double share : {1.0, 0.7, 0.5, 0.35, 0.2, 0.1, 0.0}) {
        const PixelBox path = between(object.box, object.wanted, share);
        if (share == 0) {
            // Who is held up gets as far out of the other's way as he may, to pass him next.
            std::stable_sort(asides.begin(), asides.end(), [&](const Aside& a, const Aside& b) {
                return room(path, a.x, a.y) > room(path, b.x, b.y);
            });
        }
        for (const Aside& aside : asides) {
            PixelBox there = path;
            there.x += aside.x;
            there.y += aside.y;
            if (!isMistakable(object, there) && fits(object, there, pictureWidth, pictureHeight)) {
                object.box = path;
                object.asideX = aside.x;
                object.asideY = aside.y;
                return true;
            }
        }
    }
    return false;
}

bool Placing::isPlaced(int number) const {
    return std::any_of(m_placed.begin(), m_placed.end(),
                       [&](const Placed& placed) { return placed.object->number == number; });
}

bool Placing::isTaken(const ShownObject& newcomer) const {
    // One that the tracker has not forgotten takes the first place by force, or whoever appears near it. Who only gave
    // way comes back to where he was: there it does not matter for whom he is taken.
    const int remembered = newcomer.shownOnce ? kGaveWay : kRemembered;
    const auto takes = [&](const Left& left) {
        return left.number != newcomer.number && left.answers <= remembered && !isPlaced(left.number) &&
               (m_placed.empty() ||
                (left.objectClass == newcomer.objectClass && Way(left.box, newcomer.box).least() < kReach));
    };
    return std::any_of(m_before.begin(), m_before.end(), takes) || std::any_of(m_left.begin(), m_left.end(), takes);
}

const PixelBox* Placing::before(const ShownObject& object) const {
    const auto found = std::find_if(m_before.begin(), m_before.end(),
                                    [&](const Left& candidate) { return candidate.number == object.number; });
    return found == m_before.end() ? nullptr : &found->box;
}

bool Placing::isMistakable(const ShownObject& object, const PixelBox& there) const {
    const PixelBox* const from = before(object);
    // One that the tracker still knows, but that has no box of its own yet, takes whatever comes nearer to him than its
    // own object is.
    const auto robs = [&](const Left& left) {
        return left.number != object.number && left.objectClass == object.objectClass && !isPlaced(left.number) &&
               left.answers == 0 && !Way(*from, there).isShorter(Way(left.box, there), 1);
    };
    if (from != nullptr &&
        (std::any_of(m_before.begin(), m_before.end(), robs) || std::any_of(m_left.begin(), m_left.end(), robs))) {
        return true;
    }
    for (const Placed& placed : m_placed) {
        if (placed.object->objectClass != object.objectClass) {
            continue;
        }
        const PixelBox& otherThere = placed.there;
        const PixelBox* const otherFrom = before(*placed.object);
        // Two who meet would be mistaken for each other in the next answer, when it is too late to give way.
        const bool meet =
            from != nullptr && otherFrom != nullptr &&
            (there.x - from->x) * (otherThere.x - otherFrom->x) + (there.y - from->y) * (otherThere.y - otherFrom->y) <
                0;
        const double margin = meet ? kMeeting : 1;
        if (from != nullptr && !Way(*from, there).isShorter(Way(*from, otherThere), margin)) {
            return true;
        }
        if (otherFrom != nullptr && !Way(*otherFrom, otherThere).isShorter(Way(*otherFrom, there), margin)) {
            return true;
        }
    }
    return false;
}

bool Placing::fits(ShownObject& object, const PixelBox& where, double width, double height) {
    if (m_placed.size() >= kPlaces) {
        return false;
    }
    const double picture = width * height;
    PixelBox there = where;
    if (there.area() * kWidest < kSmallest * picture) {
        return false;
    }
    // On whole pixels on either side of the locator, a box must still be large enough.
    const double least = 2 * std::ceil(kSmallest * picture / there.height / 2);
    there.width = std::clamp(there.width, least, std::max(least, kLargest * picture / there.height));
    Placed placed = {&object, where, there, std::max(kNarrowest * there.width, least)};
    std::vector<Placed> narrowed = m_placed;
    for (Placed& other : narrowed) {
        if (!sameKind(other.object->objectClass, object.objectClass)) {
            continue;
        }
        while (sharedOf(other.box, placed.box) > kShared) {
            if (other.box.width <= other.least && placed.box.width <= placed.least) {
                return false;
            }
            other.box.width = std::max(other.least, 0.9 * other.box.width);
            placed.box.width = std::max(placed.least, 0.9 * placed.box.width);
        }
    }
    m_placed = std::move(narrowed);
    m_placed.push_back(placed);
    return true;
}

void Placing::note() {
    for (Left& left : m_left) {
        ++left.answers;
    }
    std::erase_if(m_left, [](const Left& left) { return left.answers > kRemembered; });
    for (const Left& before : m_before) {
        if (!isPlaced(before.number)) {
            m_left.push_back(before);
        }
    }
    std::erase_if(m_left, [&](const Left& left) { return isPlaced(left.number); });
    m_before.clear();
    for (const Placed& placed : m_placed) {
        m_before.push_back({placed.object->number, placed.there, placed.object->objectClass, 0});
    }
}

}  // namespace desktop

#include "walkers.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace accuracy {
namespace {

constexpr double kAspect = 16.0 / 9;
constexpr double kPersonWidth = 0.4;  // of the height
constexpr double kUndecided = 0.1;    // of the height: nearer to the line, both sides are right

/** A stretch of a way; places in units of the picture's height, from its left top corner. */
struct Leg {
    double x = 0;
    double y = 0;
    double speed = 0;  // heights of the object a second
    double pause = 0;  // seconds at the leg's end
};

/** Somebody on the way. The place is that of the feet or wheels. */
struct Walker {
    TrueObject shape;
    double x = 0;
    double y = 0;
    double wide = kPersonWidth;
    double size = 1;  // of the usual height
    std::vector<Leg> legs;
    size_t leg = 0;
    double pause = 0;
    double sway = 0;       // heights to each side
    double swayPhase = 0;  // radians
    double time = 0;
    int side = 0;          // of the line when it was last clear: -1, 1; 0 before the first look
    double decided = 0;    // seconds at which it was last clear
    bool stepped = false;  // over the line since
};

/** The usual height at a place: the lower in the picture, the nearer. */
double usualHeight(double y) {
    return 0.17 + 0.15 * y;
}

class Maker {
public:
    Maker(SceneKind kind, uint64_t seed, double cyclesPerSecond)
        : m_random(seed * kSceneKinds + static_cast<uint64_t>(kind)) {
        m_scene.kind = kind;
        m_scene.cyclesPerSecond = cyclesPerSecond;
        m_scene.lineUpright = m_random.happens(0.5);
        m_scene.locatorAtBottom = m_random.happens(0.5);
        m_scene.detectionArea = m_random.happens(0.25);
        if (kind == SceneKind::Pillar) {
            // Objects go behind it right before the line or right behind it, or on it.
            m_scene.lineUpright = true;
            const double middle = kLine + m_random.between(-0.04, 0.04);
            const double wide = m_random.between(0.04, 0.07);
            m_scene.pillarLeft = middle - wide / 2;
            m_scene.pillarRight = middle + wide / 2;
        }
        m_wanted = m_random.whole(6, 10);
    }

    Scene make(double seconds) {
        const double step = 1 / m_scene.cyclesPerSecond;
        double untilNext = 0;
        for (double now = 0; now < seconds || !m_walkers.empty(); now += step) {
            untilNext -= step;
            while (now < seconds && untilNext <= 0 && static_cast<int>(m_walkers.size()) < m_wanted) {
                untilNext = spawn() * m_random.between(0.3, 1.3);
            }
            for (Walker& walker : m_walkers) {
                move(walker, step);
            }
            std::erase_if(m_walkers, [](const Walker& walker) { return walker.leg >= walker.legs.size(); });
            look(now);
        }
        return std::move(m_scene);
    }

    Scene makeStander(double seconds) {
        Walker walker = person(0);
        const double h = usualHeight(0.6);
        walker.x = m_scene.lineUpright ? kAspect * kLine + 0.03 * h : kAspect * kLine;
        walker.y = m_scene.lineUpright ? 0.6 : kLine + 0.03 * h;
        if (!m_scene.lineUpright && !m_scene.locatorAtBottom) {
            walker.y += usualHeight(walker.y) / 2;
        }
        walker.legs = {{walker.x, walker.y, 1, 2 * seconds}};
        m_walkers.push_back(walker);
        for (double now = 0; now < seconds; now += 1 / m_scene.cyclesPerSecond) {
            look(now);
        }
        m_scene.crossings.clear();
        return std::move(m_scene);
    }

private:
    Walker person(double lane) {
        Walker walker;
        walker.shape.id = m_nextId++;
        walker.size = m_random.between(0.9, 1.1);
        walker.wide = kPersonWidth * m_random.between(0.85, 1.15);
        walker.sway = m_random.between(0.0, 0.02);
        walker.swayPhase = m_random.between(0, 6.28);
        walker.y = lane;
        return walker;
    }

    double pace() { return m_random.between(0.65, 1.0); }

    /** A way over the line at a lane: across the picture, or down it. Lanes are 0..1 along the line. */
    void lay(Walker& walker, double lane, bool forward, double speed) const {
        if (m_scene.lineUpright) {
            const double y = 0.35 + 0.6 * lane;
            walker.x = forward ? -0.02 : kAspect + 0.02;
            walker.y = y;
            walker.legs = {{forward ? kAspect + 0.1 : -0.1, y, speed, 0}};
        } else {
            const double x = kAspect * (0.06 + 0.88 * lane);
            const double far = 0.12;
            const double near = 1.12;
            walker.x = x;
            walker.y = forward ? far : near;
            walker.legs = {{x, forward ? near : far, speed, 0}};
        }
    }

    /** A stop on the way, offset heights of the object beyond the line as it goes. */
    Leg stop(const Walker& walker, double offset, double seconds) const {
        const Leg last = walker.legs.back();
        Leg leg = last;
        leg.pause = seconds;
        if (m_scene.lineUpright) {
            const double h = heightAt(walker, last.y);
            leg.x = kAspect * kLine + (last.x > walker.x ? offset : -offset) * h;
        } else {
            // Where the locator, not the feet, is at the line: found by a few rounds, as the height depends on it.
            const bool down = last.y > walker.y;
            double y = kLine;
            for (int round = 0; round < 20; ++round) {
                const double h = heightAt(walker, y);
                y = kLine + (down ? offset : -offset) * h + (m_scene.locatorAtBottom ? 0 : h / 2);
            }
            leg.y = y;
        }
        return leg;
    }

    /** Sends somebody, or several, on the way; returns the seconds until the next usually comes. */
    double spawn() {
        const bool forward = m_random.happens(0.5);
        const double lane = m_random.uniform();
        switch (m_scene.kind) {
            case SceneKind::Crowd:
                walk(lane, forward, pace());
                return 0.8;
            case SceneKind::Shoulders: {
                const double speed = pace();
                // Half a width to a width apart: their boxes overlap.
                const double apart = m_random.between(0.5, 1.0) * kPersonWidth * 0.25;
                walk(lane, forward, speed);
                Walker& first = m_walkers.back();
                Walker second = first;
                second.shape.id = m_nextId++;
                if (m_scene.lineUpright) {
                    const double back = (first.legs.back().x > first.x ? -1 : 1) * m_random.between(0.5, 1.0) *
                                        kPersonWidth * usualHeight(first.y);
                    second.x += back;
                    second.y += apart * 0.3;
                    for (Leg& leg : second.legs) {
                        leg.x += back;
                        leg.y += apart * 0.3;
                    }
                } else {
                    second.x += apart;
                    second.legs.back().x += apart;
                }
                m_walkers.push_back(second);
                return 1.6;
            }
            case SceneKind::Overtaking: {
                const double path = 0.2 + 0.6 * static_cast<double>(m_nextId % 3) / 2;
                const bool way = m_nextId % 2 == 0;
                walk(path + m_random.between(-0.05, 0.05), way, m_nextId % 4 < 2 ? 0.5 : m_random.between(1.0, 1.5));
                return 0.8;
            }
            case SceneKind::Loitering: {
                walk(lane, forward, pace());
                if (m_random.happens(0.5) && isFree(m_walkers.back())) {
                    standOnTheLine(m_walkers.back(), m_random.happens(0.5));
                }
                return 0.8;
            }
            case SceneKind::Turning: {
                walk(lane, forward, pace());
                if (m_random.happens(0.6)) {
                    // From a full height before the line to a full height behind it, but not so near as to be
                    // undecided.
                    const double beyond = m_random.between(0.25, 1.0) * (m_random.happens(0.5) ? 1 : -1);
                    turnBack(m_walkers.back(), beyond, m_random.between(0, 1.5));
                }
                return 0.8;
            }
            case SceneKind::Hiding: {
                const double path = 0.1 + 0.8 * static_cast<double>(m_random.whole(0, 2)) / 2;
                walk(path + m_random.between(-0.02, 0.02), forward, pace());
                return 0.8;
            }
            case SceneKind::Pillar:
                walk(lane, forward, pace());
                return 0.8;
            case SceneKind::Vehicles: {
                drive(forward);
                return 0.9;
            }
        }
        return 1;
    }

    /** Whether nobody stands, or will, on somebody's way over the line. */
    bool isFree(const Walker& walker) const {
        return std::none_of(m_walkers.begin(), m_walkers.end(), [&](const Walker& other) {
            const Leg& halt = other.legs.front();
            const double apart = m_scene.lineUpright ? std::abs(halt.y - walker.legs.back().y) / 0.3
                                                     : std::abs(halt.x - walker.legs.back().x) / kPersonWidth;
            return halt.pause > 0 && apart < 1.2 * usualHeight(halt.y);
        });
    }

    void walk(double lane, bool forward, double speed) {
        Walker walker = person(0);
        lay(walker, lane, forward, speed);
        m_walkers.push_back(walker);
    }

    void drive(bool forward) {
        Walker walker;
        walker.shape.id = m_nextId++;
        const bool truck = m_random.happens(0.2);
        walker.shape.objectClass = truck ? desktop::ObjectClass::Truck : desktop::ObjectClass::Car;
        walker.size = truck ? m_random.between(1.0, 1.2) : m_random.between(0.6, 0.75);
        walker.wide = m_scene.lineUpright ? (truck ? 2.2 : 2.0) : (truck ? 1.0 : 1.3);
        // Lanes by way, so that none drives through another; who comes up behind a slower one is not simulated.
        const int lanes = m_scene.lineUpright ? 2 : 3;
        const double lane = (forward ? 0.0 : 0.55) + 0.45 * m_random.whole(0, lanes - 1) / lanes;
        lay(walker, lane, forward, m_random.between(0.95, 1.05) * (m_scene.lineUpright ? 2.4 : 1.5));
        const auto inTheWay = [&](const Walker& other) {
            return std::abs(other.legs.back().y - walker.legs.back().y) < 0.02 &&
                   std::abs(other.legs.back().x - walker.legs.back().x) < 0.02 &&
                   std::hypot(other.x - walker.x, other.y - walker.y) < (m_scene.lineUpright ? 0.6 : 0.35);
        };
        if (std::none_of(m_walkers.begin(), m_walkers.end(), inTheWay)) {
            m_walkers.push_back(walker);
        }
    }

    void standOnTheLine(Walker& walker, bool goesOn) {
        const double start = m_scene.lineUpright ? walker.x : walker.y;
        const Leg on = walker.legs.back();
        Leg halt = stop(walker, m_random.between(-0.08, 0.08), m_random.between(3, 12));
        Leg leave = on;
        if (!goesOn) {
            (m_scene.lineUpright ? leave.x : leave.y) = start + (start > 0.5 ? 0.05 : -0.05);
        }
        walker.legs = {halt, leave};
    }

    void turnBack(Walker& walker, double beyond, double seconds) const {
        const double start = m_scene.lineUpright ? walker.x : walker.y;
        const Leg on = walker.legs.back();
        const Leg halt = stop(walker, beyond, seconds);
        Leg leave = on;
        (m_scene.lineUpright ? leave.x : leave.y) = start + (start > 0.5 ? 0.05 : -0.05);
        walker.legs = {halt, leave};
    }

    static double heightAt(const Walker& walker, double y) { return usualHeight(y) * walker.size; }

    static void move(Walker& walker, double step) {
        walker.time += step;
        if (walker.pause > 0) {
            walker.pause -= step;
            walker.leg += walker.pause <= 0 ? 1 : 0;
            return;
        }
        const Leg& leg = walker.legs[walker.leg];
        const double way = std::hypot(leg.x - walker.x, leg.y - walker.y);
        const double stride = leg.speed * heightAt(walker, walker.y) * step;
        if (way <= stride) {
            walker.x = leg.x;
            walker.y = leg.y;
            walker.pause = leg.pause;
            walker.leg += walker.pause > 0 ? 0 : 1;
            return;
        }
        walker.x += (leg.x - walker.x) / way * stride;
        walker.y += (leg.y - walker.y) / way * stride;
    }

    /** Notes where everybody is, and who has crossed the line since. */
    void look(double now) {
        std::vector<TrueObject> objects;
        for (Walker& walker : m_walkers) {
            TrueObject shape = walker.shape;
            const double h = heightAt(walker, walker.y);
            const double moving = walker.pause > 0 ? 0 : 1;
            const double x = walker.x + moving * walker.sway * h * std::sin(walker.swayPhase + 6.0 * walker.time);
            shape.left = static_cast<float>((x - walker.wide * h / 2) / kAspect);
            shape.right = static_cast<float>((x + walker.wide * h / 2) / kAspect);
            shape.top = static_cast<float>(walker.y - h);
            shape.bottom = static_cast<float>(walker.y);
            shape.nearness = static_cast<float>(walker.y);
            objects.push_back(shape);
            const double across = m_scene.lineUpright ? walker.x - kAspect * kLine
                                                      : (m_scene.locatorAtBottom ? walker.y : walker.y - h / 2) - kLine;
            noteSide(walker, across / h, now,
                     static_cast<float>(m_scene.lineUpright ? (walker.y - h / 2) : x / kAspect));
        }
        m_scene.cycles.push_back(std::move(objects));
    }

    /** across: heights beyond the line. */
    void noteSide(Walker& walker, double across, double now, float along) {
        const int side = across < 0 ? -1 : 1;
        if (std::abs(across) < kUndecided && walker.side != 0) {
            walker.stepped = walker.stepped || side != walker.side;
            return;
        }
        if (walker.side != 0 && side != walker.side) {
            m_scene.crossings.push_back({walker.decided, now, side > 0, along, true});
        } else if (walker.stepped) {
            m_scene.crossings.push_back({walker.decided, now, side < 0, along, false});
            m_scene.crossings.push_back({walker.decided, now, side > 0, along, false});
        }
        walker.stepped = false;
        walker.side = side;
        walker.decided = now;
    }

    Random m_random;
    Scene m_scene;
    std::vector<Walker> m_walkers;
    int m_nextId = 0;
    int m_wanted = 8;
};

}  // namespace

const char* nameOf(SceneKind kind) {
    static constexpr std::array<const char*, kSceneKinds> kNames = {"crowd",   "shoulders", "overtaking", "loitering",
                                                                    "turning", "hiding",    "pillar",     "vehicles"};
    return kNames[static_cast<size_t>(kind)];
}

Scene makeScene(SceneKind kind, uint64_t seed, double seconds, double cyclesPerSecond) {
    return Maker(kind, seed, cyclesPerSecond).make(seconds);
}

Scene makeStander(uint64_t seed, double seconds, double cyclesPerSecond) {
    return Maker(SceneKind::Loitering, seed, cyclesPerSecond).makeStander(seconds);
}

}  // namespace accuracy

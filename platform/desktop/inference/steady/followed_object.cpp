#include "desktop/inference/steady/followed_object.h"

#include <algorithm>
#include <cmath>

namespace desktop {
namespace {

constexpr double kLeastJitter = 0.02;
constexpr double kMostJitter = 0.1;
constexpr double kJitterMemory = 0.04;  // share of the newest look in the estimate
constexpr double kUsualSpeed = 1.2;     // deviation of a new object's speed, in sizes a second
constexpr double kUnrest = 0.3;         // by which the speed changes within a second, in sizes a second
constexpr double kTurn = 2.5;           // the same for one that stops, starts or turns
constexpr double kTurns = 0.003;        // share of looks at which one does
constexpr double kSizeUnrest = 0.15;
constexpr double kSizeNoise = 1.0;       // of the jitter
constexpr double kSizeMisfit = 0.25;     // deviation of a box's size, in the logarithm
constexpr double kLargestMisfit = 0.65;  // of a size that fits at all, in the logarithm
constexpr double kOtherClass = 1;        // by which a box of another class is less likely, in the logarithm
constexpr double kSurprise = 2.5;        // deviations up to which a box is believed
constexpr double kMajority = 1.5;
constexpr double kVoteKept = 0.93;  // of older votes at each look: who was far away at first is known better later

constexpr int kTimesToKnowSpeed = 4;
constexpr double kNear = 0.25;  // sizes within which a box may be the object's whatever its speed
constexpr double kFastPerson = 1.5;
constexpr double kFastVehicle = 2;
constexpr double kFarthest = 1;

std::array<double, 4> axesOf(const PixelBox& box) {
    return {box.x, box.y, box.width, box.height};
}

PixelBox boxOf(const std::array<AxisState, 4>& axes) {
    return {axes[0].place, axes[1].place, std::max(1.0, axes[2].place), std::max(1.0, axes[3].place)};
}

double square(double value) {
    return value * value;
}

/** Of a normal distribution. */
double density(double off, double variance) {
    return std::exp(-square(off) / variance / 2) / std::sqrt(2 * 3.14159265358979323846 * variance);
}

}  // namespace

double commonArea(const PixelBox& a, const PixelBox& b) {
    const double width = std::min(a.right(), b.right()) - std::max(a.left(), b.left());
    const double height = std::min(a.bottom(), b.bottom()) - std::max(a.top(), b.top());
    return width > 0 && height > 0 ? width * height : 0;
}

FollowedObject::FollowedObject(int number, double now, const SeenBox& seen, double jitter)
    : m_number(number),
      m_first(now),
      m_last(now),
      m_lastConfident(now),
      m_timesConfident(seen.confident ? 1 : 0),
      m_lastScore(seen.score),
      m_jitter(jitter),
      m_class(seen.objectClass) {
    Picture picture;
    picture.time = now;
    picture.seen = true;
    const std::array<double, kAxes> places = axesOf(seen.box);
    const double size = std::max(seen.box.width, seen.box.height);
    for (size_t i = 0; i < kAxes; ++i) {
        const double speed = (i < 2 ? kUsualSpeed : kSizeUnrest) * size;
        picture.axes[i] = {places[i], 0, square(m_jitter * seen.box.height), 0, square(speed)};
    }
    picture.expected = picture.axes;
    m_pictures.push_back(picture);
    vote(seen);
}

double FollowedObject::scale() const {
    return std::max({1.0, newest().axes[2].place, newest().axes[3].place});
}

double FollowedObject::noise(size_t axis) const {
    const double height = std::max(1.0, newest().axes[3].place);
    return square((axis < 2 ? 1 : kSizeNoise) * m_jitter * height);
}

double FollowedObject::unrest(size_t axis) const {
    return square((axis < 2 ? kUnrest : kSizeUnrest) * scale());
}

void FollowedObject::advance(double now) {
    Picture picture;
    picture.time = now;
    const double step = std::max(1e-3, now - newest().time);
    for (size_t i = 0; i < kAxes; ++i) {
        picture.expected[i] = newest().axes[i].after(step, unrest(i));
        if (i >= 2) {
            picture.expected[i].place = std::max(1.0, picture.expected[i].place);
        }
    }
    picture.axes = picture.expected;
    m_pictures.push_back(picture);
}

PixelBox FollowedObject::expected() const {
    return boxOf(newest().expected);
}

void FollowedObject::adopt(const FollowedObject& other) {
    Picture& picture = m_pictures.back();
    picture.seen = true;
    picture.axes = other.newest().axes;
    m_last = picture.time;
    m_lastConfident = other.m_lastConfident;
    m_lastScore = other.m_lastScore;
    m_timesSeen += other.m_timesSeen;
}

const FollowedObject::Picture& FollowedObject::lastLook() const {
    auto picture = m_pictures.rbegin();
    while (!picture->seen && std::next(picture) != m_pictures.rend()) {
        ++picture;
    }
    return *picture;
}

PixelBox FollowedObject::newestPlace() const {
    return boxOf(lastLook().axes);
}

double FollowedObject::reach() const {
    const double speed = m_class == ObjectClass::Person ? kFastPerson : kFastVehicle;
    const double gap = newest().time - m_last;
    return scale() * (m_timesSeen < kTimesToKnowSpeed ? std::min(kFarthest, kNear + speed * gap) : kFarthest);
}

double FollowedObject::placeLikelihood(const SeenBox& seen, double unrest) const {
    const Picture& last = lastLook();
    const double gap = newest().time - last.time;
    const AxisState x = last.axes[0].after(gap, unrest);
    const AxisState y = last.axes[1].after(gap, unrest);
    return density(seen.box.x - x.place, x.placeVariance + noise(0)) *
           density(seen.box.y - y.place, y.placeVariance + noise(1));
}

double FollowedObject::turning(const SeenBox& seen) const {
    const double turns = kTurns * placeLikelihood(seen, square(kTurn * scale()));
    const double all = turns + (1 - kTurns) * placeLikelihood(seen, unrest(0));
    return all > 0 ? turns / all : 0;
}

double FollowedObject::likelihood(const SeenBox& seen) const {
    const PixelBox here = expected();
    if (square(seen.box.x - here.x) + square(seen.box.y - here.y) > square(reach())) {
        return 0;
    }
    const double height = std::log(seen.box.height / here.height);
    const double width = std::log(seen.box.width / here.width);
    if (m_timesSeen > 3 && std::max(std::abs(height), std::abs(width) * 0.8) > kLargestMisfit) {
        return 0;
    }
    const double place =
        kTurns * placeLikelihood(seen, square(kTurn * scale())) + (1 - kTurns) * placeLikelihood(seen, unrest(0));
    const double size = square(height / kSizeMisfit) / 2 + square(width / kSizeMisfit) / 4;
    return place * std::exp(-size - (seen.objectClass == m_class ? 0 : kOtherClass));
}

void FollowedObject::believeTurn(double share) {
    size_t next = m_pictures.size() - 1;
    while (next > 1 && !m_pictures[next - 1].seen) {
        --next;
    }
    for (size_t k = std::max<size_t>(next, 1); k < m_pictures.size(); ++k) {
        const double step = m_pictures[k].time - m_pictures[k - 1].time;
        for (size_t i = 0; i < 2; ++i) {
            const double power = unrest(i) + share * (square(kTurn * scale()) - unrest(i));
            m_pictures[k].axes[i] = m_pictures[k].expected[i] = m_pictures[k - 1].axes[i].after(step, power);
        }
    }
}

void FollowedObject::see(const SeenBox& seen) {
    if (m_timesSeen > 3) {
        believeTurn(turning(seen));
    }
    Picture& picture = m_pictures.back();
    picture.seen = true;
    const std::array<double, kAxes> places = axesOf(seen.box);
    const PixelBox here = expected();
    // A box of another size is part of the object, or more than it, and tells its place less well.
    const double odd =
        std::max(std::abs(std::log(seen.box.height / here.height)), std::abs(std::log(seen.box.width / here.width)));
    const double doubt = 1 + square(odd / 0.2);
    double surprise = 0;
    for (size_t i = 0; i < kAxes; ++i) {
        const double variance = noise(i) * doubt;
        const double sum = picture.expected[i].placeVariance + variance;
        const double most = kSurprise * std::sqrt(sum);
        const double off = places[i] - picture.expected[i].place;
        picture.axes[i].correct(m_timesSeen > 3 ? std::clamp(off, -most, most) : off, variance);
        surprise += i < 2 ? square(off) / sum / 2 : 0;
    }
    if (m_timesSeen > 3) {
        const double variance = square(m_jitter) * (1 - kJitterMemory + kJitterMemory * std::min(surprise, 6.0));
        m_jitter = std::clamp(std::sqrt(variance), kLeastJitter, kMostJitter);
    }
    m_last = picture.time;
    m_lastConfident = seen.confident ? m_last : m_lastConfident;
    m_lastScore = seen.score;
    ++m_timesSeen;
    m_timesConfident += seen.confident ? 1 : 0;
    vote(seen);
}

void FollowedObject::vote(const SeenBox& seen) {
    for (double& votes : m_votes) {
        votes *= kVoteKept;
    }
    m_votes[static_cast<size_t>(seen.objectClass)] += seen.score;
    const auto best = std::max_element(m_votes.begin(), m_votes.end());
    if (*best > kMajority * m_votes[static_cast<size_t>(m_class)]) {
        m_class = static_cast<ObjectClass>(best - m_votes.begin());
    }
}

FollowedObject::Look FollowedObject::lookBack(double moment) const {
    size_t last = m_pictures.size() - 1;
    while (last > 0 && !m_pictures[last].seen) {
        --last;
    }
    size_t asked = m_pictures.size() - 1;
    while (asked > 0 && m_pictures[asked].time > moment) {
        --asked;
    }
    Look look;
    if (asked >= last) {
        look.box = boxOf(m_pictures[last].axes);
        look.seen = asked == last;
        return look;
    }
    look.seen = m_pictures[asked].seen;
    look.later = true;
    std::array<SmoothedAxis, kAxes> smoothed;
    for (size_t i = 0; i < kAxes; ++i) {
        smoothed[i] = {m_pictures[last].axes[i].place, m_pictures[last].axes[i].speed};
    }
    const auto box = [&smoothed] {
        return PixelBox{smoothed[0].place, smoothed[1].place, std::max(1.0, smoothed[2].place),
                        std::max(1.0, smoothed[3].place)};
    };
    look.nextSeen = m_pictures[last].time;
    look.next = box();
    for (size_t k = last; k-- > asked;) {
        const double step = m_pictures[k + 1].time - m_pictures[k].time;
        for (size_t i = 0; i < kAxes; ++i) {
            smoothed[i] = smoothBack(m_pictures[k].axes[i], m_pictures[k + 1].expected[i], smoothed[i], step);
        }
        if (m_pictures[k].seen && k > asked) {
            look.nextSeen = m_pictures[k].time;
            look.next = box();
        }
    }
    look.box = box();
    return look;
}

void FollowedObject::forgetBefore(double moment) {
    // What was seen last stays, as the place where it stands.
    while (m_pictures.size() > 1 && m_pictures[1].time <= moment && m_pictures.front().time < m_last) {
        m_pictures.pop_front();
    }
}

}  // namespace desktop

#include "desktop/inference/steady/steadying.h"

#include <algorithm>

namespace desktop {
namespace {

constexpr int64_t kClockJitter = 10000;  // microseconds
constexpr float kWeak = 0.5F;            // of the sensitivity: boxes of a lower score are noise
constexpr double kSpeck = 0.001;         // of the picture: smaller boxes are noise
constexpr double kHuge = 0.5;            // larger ones, too
constexpr size_t kMostBoxes = 60;
constexpr double kLongestEnd = 2;  // seconds for which one that has ended may go on to where it ended

double secondsOf(int64_t micros) {
    return static_cast<double>(micros) / 1e6;
}

std::vector<SeenBox> seenBoxes(const std::vector<Detection>& found, const AnalysedPicture& picture) {
    std::vector<SeenBox> seen;
    for (const Detection& detection : found) {
        const double left = std::clamp<double>(detection.left, 0, 1) * picture.width;
        const double right = std::clamp<double>(detection.right, 0, 1) * picture.width;
        const double top = std::clamp<double>(detection.top, 0, 1) * picture.height;
        const double bottom = std::clamp<double>(detection.bottom, 0, 1) * picture.height;
        const SeenBox box = {{(left + right) / 2, (top + bottom) / 2, right - left, bottom - top},
                             detection.objectClass,
                             detection.score,
                             detection.score > picture.sensitivity};
        const double share = box.box.area() / picture.width / picture.height;
        if (share > kSpeck && share < kHuge && detection.score > kWeak * picture.sensitivity) {
            seen.push_back(box);
        }
    }
    std::stable_sort(seen.begin(), seen.end(), [](const SeenBox& a, const SeenBox& b) { return a.score > b.score; });
    seen.resize(std::min(seen.size(), kMostBoxes));
    return seen;
}

FollowedObject* find(std::vector<FollowedObject>& objects, int number) {
    const auto found = std::find_if(objects.begin(), objects.end(),
                                    [number](const FollowedObject& object) { return object.number() == number; });
    return found == objects.end() ? nullptr : &*found;
}

}  // namespace

std::vector<Detection> Steadying::next(const std::vector<Detection>& found, const AnalysedPicture& picture) {
    const int64_t before = m_pictures.empty() ? picture.micros : m_pictures.front();
    m_pictures.push_back(picture.micros);
    while (picture.micros - m_pictures.front() > kLag + kClockJitter) {
        m_pictures.pop_front();
    }
    const double moment = secondsOf(answered());
    const double step = secondsOf(answered() - before);

    m_follower.follow(secondsOf(picture.micros), seenBoxes(found, picture), picture.width, picture.height);
    for (const FollowedObject& object : m_follower.objects()) {
        const auto shown = std::find_if(m_shown.begin(), m_shown.end(), [&](const ShownObject& candidate) {
            return candidate.number == object.number();
        });
        if (shown == m_shown.end() && Follower::isKnown(object)) {
            m_shown.emplace_back(object.number());
        }
    }
    m_gone.insert(m_gone.end(), m_follower.gone().begin(), m_follower.gone().end());
    for (ShownObject& shown : m_shown) {
        FollowedObject* object = find(m_follower.objects(), shown.number);
        if (object == nullptr) {
            object = find(m_gone, shown.number);  // it goes its last half a second yet
        }
        if (object == nullptr) {
            shown.aimAtEnd(step);
            continue;
        }
        shown.aim(*object, moment, step);
        if (shown.begun) {
            object->forgetBefore(moment);
        }
    }
    std::erase_if(m_gone, [&](const FollowedObject& object) { return object.lastSeen() <= moment; });
    std::erase_if(m_shown, [](const ShownObject& shown) {
        return shown.ended && (shown.hasArrived() || shown.over > kLongestEnd);
    });
    return m_placing.place(m_shown, picture.width, picture.height, picture.sensitivity, step);
}

}  // namespace desktop

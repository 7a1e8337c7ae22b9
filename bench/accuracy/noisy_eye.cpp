#include "noisy_eye.h"

#include <algorithm>

namespace accuracy {
namespace {

using desktop::Detection;
using desktop::ObjectClass;

constexpr double kAspect = 16.0 / 9;
constexpr float kLeastVisible = 0.35F;  // share of a box's width or area below which nothing is found

float areaOf(float left, float top, float right, float bottom) {
    return std::max(0.0F, right - left) * std::max(0.0F, bottom - top);
}

float areaOf(const TrueObject& object) {
    return areaOf(object.left, object.top, object.right, object.bottom);
}

float common(const TrueObject& a, const TrueObject& b) {
    return areaOf(std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                  std::min(a.bottom, b.bottom));
}

bool isVehicle(ObjectClass objectClass) {
    return objectClass == ObjectClass::Car || objectClass == ObjectClass::Truck;
}

}  // namespace

const std::vector<Noise>& noiseLevels() {
    static const std::vector<Noise> kLevels = {{"good", 0.05, 2, 0.015, 0.002, 0.002, 0.001, 0.01},
                                               {"typical", 0.20, 8, 0.04, 0.02, 0.005, 0.01, 0.05},
                                               {"bad", 0.40, 12, 0.08, 0.02, 0.01, 0.01, 0.3}};
    return kLevels;
}

NoisyEye::NoisyEye(const Noise& noise, const Scene& scene, uint64_t seed)
    : m_noise(noise),
      m_pillarLeft(scene.pillarLeft),
      m_pillarRight(scene.pillarRight),
      m_usual(scene.kind == SceneKind::Vehicles ? ObjectClass::Car : ObjectClass::Person),
      m_random(seed) {}

bool NoisyEye::seen(int id) {
    int& hidden = m_hidden[id];
    if (hidden == 0) {
        // Bursts of (1 + longest) / 2 on average make up the share that is asked for.
        const double mean = (1 + m_noise.longestBurst) / 2.0;
        if (!m_random.happens(m_noise.missed / (1 - m_noise.missed) / mean)) {
            return true;
        }
        hidden = m_random.whole(1, m_noise.longestBurst);
    }
    --hidden;
    return false;
}

Detection NoisyEye::jittered(const TrueObject& object) {
    const double height = object.bottom - object.top;
    const double deviation = m_noise.jitter * height;
    const double grown = 1 + m_noise.jitter / 2 * m_random.normal();
    const double x = (object.left + object.right) / 2.0 + deviation / kAspect * m_random.normal();
    const double y = (object.top + object.bottom) / 2.0 + deviation * m_random.normal();
    const double halfWidth = (object.right - object.left) / 2.0 * grown;
    const double halfHeight = height / 2 * (1 + m_noise.jitter / 2 * m_random.normal());
    Detection box;
    box.left = static_cast<float>(x - halfWidth);
    box.right = static_cast<float>(x + halfWidth);
    box.top = static_cast<float>(y - halfHeight);
    box.bottom = static_cast<float>(y + halfHeight);
    box.objectClass = object.objectClass;
    box.score = static_cast<float>(std::clamp(0.65 + 0.15 * m_random.normal(), 0.1, 0.98));
    if (m_random.happens(m_noise.flipped)) {
        static constexpr ObjectClass kOthers[] = {ObjectClass::Bicycle, ObjectClass::Motorcycle, ObjectClass::Bus};
        box.objectClass = kOthers[m_random.whole(0, 2)];
    }
    return box;
}

void NoisyEye::invent(std::vector<Detection>& found) {
    for (double chance = m_noise.invented; m_random.happens(chance); chance /= 2) {
        const double height = m_random.between(0.18, 0.35);
        const double width = height / kAspect * (isVehicle(m_usual) ? 1.5 : 0.4);
        const double x = m_random.between(0.05, 0.95);
        const double y = m_random.between(0.2, 0.9);
        found.push_back({static_cast<float>(x - width / 2), static_cast<float>(y - height / 2),
                         static_cast<float>(x + width / 2), static_cast<float>(y + height / 2), m_usual,
                         static_cast<float>(m_random.between(0.36, 0.7))});
    }
}

std::vector<Detection> NoisyEye::look(const std::vector<TrueObject>& objects) {
    std::vector<Detection> found;
    std::vector<bool> merged(objects.size(), false);
    for (size_t i = 0; i < objects.size(); ++i) {
        const TrueObject& object = objects[i];
        const bool picked = seen(object.id);
        const Detection box = jittered(object);
        const float inPicture = areaOf(std::max(object.left, 0.0F), std::max(object.top, 0.0F),
                                       std::min(object.right, 1.0F), std::min(object.bottom, 1.0F));
        const double behindPillar =
            std::max(0.0, std::min<double>(object.right, m_pillarRight) - std::max<double>(object.left, m_pillarLeft));
        bool visible = inPicture > kLeastVisible * areaOf(object) &&
                       behindPillar < (1 - kLeastVisible) * (object.right - object.left);
        size_t touched = objects.size();
        for (size_t j = 0; j < objects.size(); ++j) {
            const float covered = common(object, objects[j]);
            if (j != i && objects[j].nearness > object.nearness && covered > (1 - kLeastVisible) * areaOf(object)) {
                visible = false;
            }
            if (j > i && covered > 0 && !merged[j]) {
                touched = j;
            }
        }
        if (merged[i] || !picked || !visible) {
            continue;
        }
        if (touched < objects.size() && m_random.happens(m_noise.merged)) {
            Detection both = jittered(objects[touched]);
            both.left = std::min(both.left, box.left);
            both.top = std::min(both.top, box.top);
            both.right = std::max(both.right, box.right);
            both.bottom = std::max(both.bottom, box.bottom);
            merged[touched] = true;
            found.push_back(both);
        } else if (m_random.happens(m_noise.split)) {
            Detection upper = box;
            Detection lower = box;
            upper.bottom = lower.top = (box.top + box.bottom) / 2;
            found.push_back(upper);
            found.push_back(lower);
        } else {
            found.push_back(box);
        }
    }
    invent(found);
    for (Detection& box : found) {
        box.left = std::clamp(box.left, 0.0F, 1.0F);
        box.right = std::clamp(box.right, 0.0F, 1.0F);
        box.top = std::clamp(box.top, 0.0F, 1.0F);
        box.bottom = std::clamp(box.bottom, 0.0F, 1.0F);
    }
    return found;
}

}  // namespace accuracy

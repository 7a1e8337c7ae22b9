#include "desktop/video/scene/scene.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <map>
#include <sstream>

namespace desktop {

bool isPresent(const SceneFigure& figure, double seconds) {
    return seconds >= figure.path.front().seconds && seconds <= figure.path.back().seconds;
}

FigurePose poseAt(const SceneFigure& figure, double seconds) {
    const Keyframe& first = figure.path.front();
    FigurePose pose = {first.x, first.y, 0.0, false, false, first.scale};
    for (std::size_t leg = 1; leg < figure.path.size(); ++leg) {
        const Keyframe& from = figure.path[leg - 1];
        const Keyframe& to = figure.path[leg];
        if (seconds < from.seconds) {
            break;
        }
        const double part = seconds >= to.seconds ? 1.0 : (seconds - from.seconds) / (to.seconds - from.seconds);
        pose.x = from.x + part * (to.x - from.x);
        pose.y = from.y + part * (to.y - from.y);
        pose.scale = from.scale + part * (to.scale - from.scale);
        pose.travelled += part * std::hypot(to.x - from.x, to.y - from.y);
        pose.moves = to.x != from.x || to.y != from.y;
        if (to.x != from.x) {
            pose.facesLeft = to.x < from.x;
        }
    }
    return pose;
}

std::vector<Crossing> crossingsOf(const Scene& scene) {
    constexpr double kStep = 0.01;  // seconds; nobody is through the door and back in this time
    const auto isInside = [&scene](const FigurePose& pose) {
        return pose.x >= scene.door.left * scene.width && pose.x < scene.door.right * scene.width &&
               pose.y >= scene.door.top * scene.height && pose.y < scene.door.bottom * scene.height;
    };
    const auto isShown = [&scene](const FigurePose& pose) {
        return pose.x > 0 && pose.x < scene.width && pose.y > 0 && pose.y < scene.height;
    };
    std::vector<Crossing> crossings;
    for (const SceneFigure& figure : scene.figures) {
        const double from = std::max(0.0, figure.path.front().seconds);
        const double to = std::min<double>(scene.seconds, figure.path.back().seconds);
        for (double seconds = from; seconds + kStep <= to; seconds += kStep) {
            const FigurePose before = poseAt(figure, seconds);
            const FigurePose after = poseAt(figure, seconds + kStep);
            if (isShown(before) && isShown(after) && isInside(before) != isInside(after)) {
                crossings.push_back({seconds + kStep / 2, after.x, after.y, isInside(after), figure.kind});
            }
        }
    }
    std::sort(crossings.begin(), crossings.end(),
              [](const Crossing& a, const Crossing& b) { return a.seconds < b.seconds; });
    return crossings;
}

const char* labelOf(FigureKind kind) {
    switch (kind) {
        case FigureKind::Person:
            return "Person";
        case FigureKind::Car:
            return "Car";
        case FigureKind::Bus:
            return "Bus";
        case FigureKind::Bicycle:
            break;
    }
    return "Bicycle";
}

std::optional<Scene> findScene(const std::string& name) {
    if (name == plaza().name) {
        return plaza();
    }
    const auto dash = name.find('-');
    const std::string trial = name.substr(0, dash);
    const std::vector<std::string>& known = trialNames();
    uint32_t seed = 1;
    if (dash != std::string::npos) {
        const char* end = name.data() + name.size();
        const auto [stop, error] = std::from_chars(name.data() + dash + 1, end, seed);
        if (error != std::errc() || stop != end) {
            return std::nullopt;
        }
    }
    if (std::find(known.begin(), known.end(), trial) == known.end()) {
        return std::nullopt;
    }
    return makeTrial(trial, seed);
}

std::string sceneNames() {
    std::string names = plaza().name;
    for (const std::string& trial : trialNames()) {
        names.append(", ").append(trial);
    }
    return names;
}

std::string truthOf(const Scene& scene) {
    const SceneArea& door = scene.door;
    std::map<std::string, std::array<int, 2>> counts;
    for (const Crossing& crossing : crossingsOf(scene)) {
        ++counts[labelOf(crossing.kind)].at(crossing.enters ? 0 : 1);
    }
    std::ostringstream text;
    text << "{\n  \"clip\": \"scene:" << scene.name << "\",\n  \"settings\": {\n    \"classes\": [";
    for (auto count = counts.begin(); count != counts.end(); ++count) {
        text << (count == counts.begin() ? "\"" : ", \"") << count->first << '"';
    }
    text << "],\n    \"entrance1\": [[" << door.left << ", " << door.top << "], [" << door.right << ", " << door.top
         << "], [" << door.right << ", " << door.bottom << "], [" << door.left << ", " << door.bottom
         << "]]\n  },\n  \"expected\": {\n    \"entrance1\": {";
    for (auto count = counts.begin(); count != counts.end(); ++count) {
        text << (count == counts.begin() ? "\"" : ", \"") << count->first << "\": {\"enter\": " << count->second[0]
             << ", \"exit\": " << count->second[1] << '}';
    }
    text << "}\n  }\n}\n";
    return text.str();
}

}  // namespace desktop

#include "scene.h"

#include <cmath>

namespace desktop {

bool isPresent(const SceneFigure& figure, double seconds) {
    return seconds >= figure.path.front().seconds && seconds <= figure.path.back().seconds;
}

FigurePose poseAt(const SceneFigure& figure, double seconds) {
    const Keyframe& first = figure.path.front();
    FigurePose pose = {first.x, first.y, 0.0, false, false};
    for (std::size_t leg = 1; leg < figure.path.size(); ++leg) {
        const Keyframe& from = figure.path[leg - 1];
        const Keyframe& to = figure.path[leg];
        if (seconds < from.seconds) {
            break;
        }
        const double part = seconds >= to.seconds ? 1.0 : (seconds - from.seconds) / (to.seconds - from.seconds);
        pose.x = from.x + part * (to.x - from.x);
        pose.y = from.y + part * (to.y - from.y);
        pose.travelled += part * std::hypot(to.x - from.x, to.y - from.y);
        pose.moves = to.x != from.x || to.y != from.y;
        if (to.x != from.x) {
            pose.facesLeft = to.x < from.x;
        }
    }
    return pose;
}

const Scene* findScene(const std::string& name) {
    return name == plaza().name ? &plaza() : nullptr;
}

std::string sceneNames() {
    return plaza().name;
}

}  // namespace desktop

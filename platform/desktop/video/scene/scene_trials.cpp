#include <algorithm>
#include <array>
#include <utility>

#include "desktop/video/scene/scene.h"

/**
 * The trials: what makes counting hard, each by itself. People and vehicles come by dice, so that a counter can be
 * tried on seeds that nobody looked at while it was built. Some are in the picture from its first frame on.
 */
namespace desktop {
namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 360;
constexpr int kSeconds = 40;
constexpr SceneArea kRightHalf = {0.5, 0, 1, 1};
constexpr SceneArea kLowerHalf = {0, 0.5, 1, 1};

/** Dice that fall alike on every machine, which std distributions do not. */
class Dice {
public:
    explicit Dice(uint32_t seed) : m_state(seed * 2654435761U + 12345) {}

    double between(double low, double high) { return low + (high - low) * next() / 65536.0; }
    bool oneIn(int chances) { return next() % static_cast<uint32_t>(chances) == 0; }
    template <size_t N>
    Colour oneOf(const std::array<Colour, N>& colours) {
        return colours[next() % N];
    }

private:
    uint32_t next() {
        m_state = m_state * 1664525U + 1013904223U;
        return m_state >> 16U;
    }

    uint32_t m_state;
};

constexpr std::array<Colour, 10> kCoats = {0xb3372f, 0x2f6f4f, 0x2c4f94, 0x8a2f6a, 0x274b6d,
                                           0xa8551f, 0x22252c, 0xe6e2d8, 0x1f6a6a, 0x3b3b40};
constexpr std::array<Colour, 4> kTrousers = {0x2b3550, 0x3a2f2a, 0x26282e, 0x40342c};
constexpr std::array<Colour, 7> kBodies = {0xdc453c, 0x4f8fdc, 0xe8e4da, 0xe0b020, 0x2a2d33, 0x4fb8ac, 0x8f9499};

Scene emptyTrial(std::string name, const SceneArea& door, Backdrop backdrop) {
    Scene scene = {.name = std::move(name),
                   .width = kWidth,
                   .height = kHeight,
                   .frameRate = 15,
                   .seconds = kSeconds,
                   .door = door,
                   .crossing = {0, 0, 0, 0},
                   .seats = {0, 0, 0, 0},
                   .figures = {}};
    scene.backdrop = backdrop;
    return scene;
}

/** People who walk through the picture, to the right and to the left, each pause of some seconds between two. */
void addWalkers(Scene& scene, Dice& dice, double pause, double highestLane, int pairOneIn) {
    for (double start = -5; start < kSeconds - 6; start += dice.between(0.5 * pause, 1.5 * pause)) {
        const double y = dice.between(highestLane, 285);
        const double size = 0.55 + 0.45 * y / 285;  // who is farther is smaller
        const double speed = dice.between(45, 75) * size;
        const bool leftwards = dice.oneIn(2);
        const bool pair = dice.oneIn(pairOneIn);
        for (int who = 0; who < (pair ? 2 : 1); ++who) {
            const int height = static_cast<int>(dice.between(96, 112) * size);
            const int width = height * 42 / 100;
            const double aside = who * dice.between(0.75, 1.1) * width;
            const double near = who * 4;
            const double from = (leftwards ? kWidth + width : -width) + aside;
            const double to = (leftwards ? -width : kWidth + width) + aside;
            scene.figures.push_back({FigureKind::Person,
                                     width,
                                     height,
                                     dice.oneOf(kCoats),
                                     dice.oneOf(kTrousers),
                                     {{start, from, y - height / 2.0 + 60 + near},
                                      {start + (kWidth + 2 * width) / speed, to, y - height / 2.0 + 60 + near}}});
        }
    }
}

/** People seen from above, who walk up and down the picture. */
void addPeopleFromAbove(Scene& scene, Dice& dice, double pause) {
    for (double start = -4; start < kSeconds - 6; start += dice.between(0.5 * pause, 1.5 * pause)) {
        const double x = dice.between(60, kWidth - 110);
        const double speed = dice.between(40, 70);
        const bool upwards = dice.oneIn(2);
        const bool pair = dice.oneIn(3);
        for (int who = 0; who < (pair ? 2 : 1); ++who) {
            const int width = static_cast<int>(dice.between(44, 54));
            const int height = static_cast<int>(dice.between(50, 60));
            const double aside = who * dice.between(0.9, 1.15) * width;
            const double drift = dice.between(-30, 30) * (pair ? 0 : 1);
            const double from = upwards ? kHeight + height : -height;
            const double to = upwards ? -height : kHeight + height;
            scene.figures.push_back(
                {FigureKind::Person,
                 width,
                 height,
                 dice.oneOf(kCoats),
                 dice.oneOf(kTrousers),
                 {{start, x + aside, from}, {start + (kHeight + 2 * height) / speed, x + aside + drift, to}},
                 View::Above});
        }
    }
}

/** A lane of cars and buses nose to tail that waits once on its way. */
void addQueue(Scene& scene, Dice& dice, double bottom, double size, bool leftwards) {
    const double speed = dice.between(70, 110) * size;
    const double halt = dice.between(10, 16);
    const double wait = dice.between(3, 6);
    const double end = kSeconds + 2;
    const std::array<std::pair<double, double>, 4> way = {
        {{-4, 0}, {halt, speed * (halt + 4)}, {halt + wait, speed * (halt + 4)}, {end, speed * (end + 4 - wait)}}};
    for (double behind = dice.between(-0.2, 0.3) * kWidth; behind < way.back().second - kWidth;) {
        const bool bus = dice.oneIn(7);
        const int width = static_cast<int>((bus ? dice.between(190, 210) : dice.between(105, 130)) * size);
        const int height = static_cast<int>((bus ? 66 : 48) * size);
        SceneFigure figure = {
            bus ? FigureKind::Bus : FigureKind::Car, width, height, dice.oneOf(kBodies), 0xd8dde0, {}};
        for (const auto& [seconds, gone] : way) {
            const double x = gone - behind - width / 2.0;
            figure.path.push_back({seconds, leftwards ? kWidth - x : x, bottom - height / 2.0});
        }
        scene.figures.push_back(std::move(figure));
        behind += width + dice.between(8, 50) * size;
    }
}

/** A lane of cars that come towards the camera. */
void addOncomingLane(Scene& scene, Dice& dice, double side) {
    constexpr double kFarthest = 60;  // metres
    constexpr double kNearest = 2.5;
    const double speed = dice.between(5, 8);  // metres a second
    for (double start = -3; start < kSeconds - 3; start += dice.between(8, 18) / speed) {
        const int width = static_cast<int>(dice.between(118, 134));
        SceneFigure figure = {FigureKind::Car, width, width * 85 / 100, dice.oneOf(kBodies), 0, {}, View::Ahead};
        constexpr int kParts = 150;
        for (int part = 0; part <= kParts; ++part) {
            const double distance = kFarthest + (kNearest - kFarthest) * part / kParts;
            const double scale = 7 / distance;
            figure.path.push_back({start + (kFarthest - distance) / speed, kWidth / 2.0 + side * 95 * scale,
                                   0.1 * kHeight + 180 * scale - figure.height * scale / 2, scale});
        }
        scene.figures.push_back(std::move(figure));
    }
}

}  // namespace

const std::vector<std::string>& trialNames() {
    static const std::vector<std::string> names = {"crowd", "dusk", "lamps", "oncoming",
                                                   "queue", "rain", "shake", "walkway"};
    return names;
}

Scene makeTrial(const std::string& name, uint32_t seed) {
    Dice dice(seed);
    const std::string fullName = seed == 1 ? name : name + "-" + std::to_string(seed);
    constexpr double kSparse = 2.6;  // seconds
    if (name == "queue") {
        Scene scene = emptyTrial(fullName, kRightHalf, Backdrop::Yard);
        addQueue(scene, dice, 165, 0.85, true);
        addQueue(scene, dice, 265, 1.1, false);
        return scene;
    }
    if (name == "oncoming") {
        Scene scene = emptyTrial(fullName, kLowerHalf, Backdrop::Road);
        addOncomingLane(scene, dice, -1);
        addOncomingLane(scene, dice, 1);
        return scene;
    }
    if (name == "walkway") {
        Scene scene = emptyTrial(fullName, kLowerHalf, Backdrop::Yard);
        addPeopleFromAbove(scene, dice, 1.3);
        return scene;
    }
    Scene scene = emptyTrial(fullName, kRightHalf, Backdrop::Yard);
    if (name == "crowd") {
        addWalkers(scene, dice, 1.0, 120, 3);
        return scene;
    }
    addWalkers(scene, dice, kSparse, 90, 5);
    Weather& weather = scene.weather;
    if (name == "dusk") {
        weather.light = {{-1, 0.3}};
        weather.noise = 1.7;
    } else if (name == "lamps") {
        for (double seconds = dice.between(4, 7); seconds < kSeconds; seconds += dice.between(3, 7)) {
            weather.light.push_back({seconds, dice.between(0.6, 1.25)});
        }
        weather.cloud = 0.25;
    } else if (name == "rain") {
        weather.rain = 150;
        weather.noise = 1.5;
    } else if (name == "shake") {
        weather.shake = 7;
    }
    return scene;
}

}  // namespace desktop

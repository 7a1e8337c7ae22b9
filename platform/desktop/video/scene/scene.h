#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace desktop {

enum class FigureKind {
    Person,
    Car,
    Bus,
    Bicycle,
};

/** From where a figure is seen; people and cars only are drawn from elsewhere than the side. */
enum class View {
    Side,
    Above, /**< people: head and shoulders */
    Ahead, /**< cars: their fronts */
};

/** Where a figure's centre is at a moment; between two of them it moves evenly. */
struct Keyframe {
    double seconds;
    double x;         /**< pixels */
    double y;         /**< pixels */
    double scale = 1; /**< factor of the figure's size: what comes nearer grows */
};

/** A red, green, blue colour as 0xRRGGBB. */
using Colour = uint32_t;

/** Something that moves through a scene. It is there from its path's first keyframe to the last. */
struct SceneFigure {
    FigureKind kind;
    int width;   /**< pixels of its box */
    int height;  /**< pixels of its box */
    Colour main; /**< coat or bodywork */
    Colour trim; /**< trousers, stripe or second colour */
    std::vector<Keyframe> path;
    View view = View::Side;
};

/** An area of the picture as fractions of its width and height. */
struct SceneArea {
    double left;
    double top;
    double right;
    double bottom;
};

/** From a moment on the picture is so much brighter or darker. */
struct LightStep {
    double seconds;
    double gain;
};

/** What lies between the place and the picture. */
struct Weather {
    double shake = 0;             /**< pixels by which a mast in the wind moves the picture to each side */
    std::vector<LightStep> light; /**< in the order of time; 1 before the first */
    double cloud = 0;             /**< part of the light that a passing cloud takes away */
    int rain = 0;                 /**< streaks in each frame */
    double noise = 1;             /**< factor of the sensor's noise */
};

enum class Backdrop {
    Plaza,
    Yard, /**< paving all over, with some things on it */
    Road, /**< a road that comes towards the camera */
};

/** A drawn scene: what moves in it and the areas that its ground shows. */
struct Scene {
    std::string name;
    int width;
    int height;
    int frameRate;  /**< frames a second */
    int seconds;    /**< length of one pass */
    SceneArea door; /**< whoever comes in or goes out here is counted */
    SceneArea crossing;
    SceneArea seats;
    std::vector<SceneFigure> figures;
    Backdrop backdrop = Backdrop::Plaza;
    Weather weather = {};
};

/** A figure at a moment. */
struct FigurePose {
    double x;         /**< centre, pixels */
    double y;         /**< centre, pixels */
    double travelled; /**< pixels since its first keyframe: drives its gait and wheels */
    bool moves;
    bool facesLeft;
    double scale = 1;
};

/** A figure's centre crosses the border of the scene's door. */
struct Crossing {
    double seconds;
    double x; /**< pixels */
    double y; /**< pixels */
    bool enters;
    FigureKind kind;
};

/** Tells whether a figure is in the scene at a moment, counted in seconds. */
bool isPresent(const SceneFigure& figure, double seconds);

/** Returns a figure's pose at a moment at which it is present. */
FigurePose poseAt(const SceneFigure& figure, double seconds);

/** All crossings of the scene's door that its picture shows, in the order of time. */
std::vector<Crossing> crossingsOf(const Scene& scene);

/** What a figure is counted as: "Person", "Car", "Bus" or "Bicycle". */
const char* labelOf(FigureKind kind);

/**
 * Returns the scene of that name, nothing when there is none. A trial may be asked for with a seed, as in "crowd-7",
 * which throws other dice for it; "crowd" is "crowd-1".
 */
std::optional<Scene> findScene(const std::string& name);

/** The names of all scenes, separated by ", ". */
std::string sceneNames();

/** The plaza: a street, a place with seats and the doorway of a building. */
const Scene& plaza();

/** The trials: scenes that are hard to count, in the order of their names. */
const std::vector<std::string>& trialNames();

/** Makes the trial of one of trialNames; figures, light and wind come from dice that the seed decides. */
Scene makeTrial(const std::string& name, uint32_t seed);

/** A scene's truth as a truth file holds it: the settings that watch its door, and what is to be counted there. */
std::string truthOf(const Scene& scene);

}  // namespace desktop

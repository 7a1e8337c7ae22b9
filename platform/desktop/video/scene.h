#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace desktop {

enum class FigureKind {
    Person,
    Car,
    Bus,
    Bicycle,
};

/** Where a figure's centre is at a moment; between two of them it moves evenly. */
struct Keyframe {
    double seconds;
    double x; /**< pixels */
    double y; /**< pixels */
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
};

/** An area of the picture as fractions of its width and height. */
struct SceneArea {
    double left;
    double top;
    double right;
    double bottom;
};

/** A drawn scene: what moves in it and the areas that its ground shows. */
struct Scene {
    std::string name;
    int width;
    int height;
    int frameRate; /**< frames a second */
    int seconds;   /**< length of one pass */
    SceneArea door;
    SceneArea crossing;
    SceneArea seats;
    std::vector<SceneFigure> figures;
};

/** A figure at a moment. */
struct FigurePose {
    double x;         /**< centre, pixels */
    double y;         /**< centre, pixels */
    double travelled; /**< pixels since its first keyframe: drives its gait and wheels */
    bool moves;
    bool facesLeft;
};

/** Tells whether a figure is in the scene at a moment, counted in seconds. */
bool isPresent(const SceneFigure& figure, double seconds);

/** Returns a figure's pose at a moment at which it is present. */
FigurePose poseAt(const SceneFigure& figure, double seconds);

/** Returns the scene of that name, null when there is none. */
const Scene* findScene(const std::string& name);

/** The names of all scenes, separated by ", ". */
std::string sceneNames();

/** The plaza: a street, a place with seats and the doorway of a building. */
const Scene& plaza();

}  // namespace desktop

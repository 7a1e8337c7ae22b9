#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "desktop/inference/detections/detections.h"
#include "random.h"

/**
 * Walkers and vehicles before a fixed camera, drawn by lot, that cross a line at known moments.
 *
 * Places are fractions of the picture's width and height, which is 16:9; times are seconds from the scene's begin.
 */
namespace accuracy {

/** What goes on in a scene; each kind gets an equal share of the cycles. */
enum class SceneKind {
    Crowd,      /**< both ways at once, each at a pace of its own */
    Shoulders,  /**< pairs shoulder to shoulder, the same way */
    Overtaking, /**< one way, fast ones past slow ones on almost the same path */
    Loitering,  /**< people who stop on the line, and go on or back */
    Turning,    /**< people who turn back, some before the line, some behind it */
    Hiding,     /**< groups on the same path both ways, one behind the other for the camera */
    Pillar,     /**< a pillar, wider than a person, beside the line */
    Vehicles,   /**< cars and trucks, both ways */
};

inline constexpr int kSceneKinds = 8;
const char* nameOf(SceneKind kind);

/** An object as it really is at one moment. */
struct TrueObject {
    int id = 0;
    desktop::ObjectClass objectClass = desktop::ObjectClass::Person;
    float left = 0;
    float top = 0;
    float right = 0;
    float bottom = 0;
    float nearness = 0; /**< of two that cover the same place the nearer hides the other */
};

/** A step over the line. */
struct Crossing {
    double from = 0; /**< seconds; who stands on the line may be counted at any moment of it */
    double to = 0;
    bool entering = false; /**< into the zone, which lies right of the line or below it */
    float along = 0;       /**< where on the line, 0..1 */
    bool needed = true;    /**< false: a step to and fro so near the line that counting it or not are both right */
};

struct Scene {
    SceneKind kind = SceneKind::Crowd;
    bool lineUpright = true; /**< the line is the middle of the picture's width, else of its height */
    bool locatorAtBottom = false;
    bool detectionArea = false; /**< a detection area covers the whole picture */
    double cyclesPerSecond = 10;
    double pillarLeft = 2; /**< 0..1, beyond 1: there is none */
    double pillarRight = 2;
    std::vector<std::vector<TrueObject>> cycles;
    std::vector<Crossing> crossings; /**< in the order of time */
};

/** Makes a scene in which people come for so many seconds, and goes on until all are gone. Depends on the seed alone.
 */
Scene makeScene(SceneKind kind, uint64_t seed, double seconds, double cyclesPerSecond);

/** A person who stands on the line, 3 % of the height beside it, and never moves. */
Scene makeStander(uint64_t seed, double seconds, double cyclesPerSecond);

/** Where the line is, in fractions of the width or the height. */
inline constexpr float kLine = 0.5F;

}  // namespace accuracy

#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/** What an engine finds in one picture, and the tensors it is handed on in. */
namespace desktop {

/** The object classes, numbered as the output tensors carry them. */
enum class ObjectClass {
    Person = 0,
    Bicycle = 1,
    Car = 2,
    Motorcycle = 3,
    Airplane = 4,
    Bus = 5,
    Train = 6,
    Truck = 7,
    Boat = 8,
};

inline constexpr size_t kObjectClassCount = 9;

/** Returns the class of a name such as "Person", or nothing for a name that is not one of the nine. */
std::optional<ObjectClass> objectClassFromName(const std::string& name);

/** All nine names, separated by ", ", for messages. */
std::string objectClassNames();

/** One found object; the box is in fractions (0..1) of the picture's width and height. */
struct Detection {
    float left = 0;
    float top = 0;
    float right = 0;
    float bottom = 0;
    ObjectClass objectClass = ObjectClass::Person;
    float score = 0; /**< 0..1 */
};

/** Number of result slots in the output tensors. */
inline constexpr size_t kResultSlots = 100;

/** The four output tensors as they are written; slots beyond the count are zero. */
struct ResultTensors {
    std::array<float, kResultSlots * 4> locations{}; /**< ymin, xmin, ymax, xmax per slot */
    std::array<float, kResultSlots> classes{};
    std::array<float, kResultSlots> scores{};
    std::array<float, 1> count{};
};

/** Intersection over union of two boxes, 0 when they do not meet. */
float intersectionOverUnion(const Detection& a, const Detection& b);

/**
 * Sorts best first and drops, class by class, each box that covers a better one by more than overlap (intersection
 * over union). Boxes of equal score keep their order, so that equal pictures give equal results.
 */
void keepBestPerObject(std::vector<Detection>& detections, float overlap);

/** Packs detections, best first and clamped to the picture; those beyond the last slot are left out. */
ResultTensors packResultTensors(std::vector<Detection> detections);

/** The same, but in the order in which they come. */
ResultTensors packInOrder(const std::vector<Detection>& detections);

}  // namespace desktop

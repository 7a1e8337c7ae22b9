#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

/**
 * The small values that every stage of the analysis passes on. All coordinates are integer pixels of the analysis
 * stream, origin at the top left, x to the right, y downwards.
 */

/** A point; also the vertex of an area's polygon. */
using t_one_locator = std::pair<int32_t, int32_t>;

struct rectangle {
    int32_t X = 0;
    int32_t Y = 0;
    int32_t W = 0;
    int32_t H = 0;

    /** The middle; halves truncate toward zero. */
    t_one_locator get_centroid() const { return {X + W / 2, Y + H / 2}; }
};

/** One box from the detector. */
struct detection {
    int32_t X = 0;
    int32_t Y = 0;
    int32_t W = 0;
    int32_t H = 0;
    int32_t ClassId = 0;     /**< model class index; 0..8 equal the values of objects */
    float Confidence = 0.0F; /**< detector score, 0..1 */

    t_one_locator get_centroid() const { return {X + W / 2, Y + H / 2}; }

    /** The middle of the bottom edge: a person's feet. */
    t_one_locator get_bottom() const { return {X + W / 2, Y + H}; }

    /** The point that stands for the object wherever it is tested or drawn. */
    t_one_locator get_locator(bool atBottom) const { return atBottom ? get_bottom() : get_centroid(); }
};

/** Object classes. The values are stored, compared and used as array indices, as are those of all enumerations here. */
enum class objects : int32_t {
    person = 0,
    bicycle = 1,
    car = 2,
    motorcycle = 3,
    airplane = 4,
    bus = 5,
    train = 6,
    truck = 7,
    boat = 8,
    unknown = 100,
};

/** The object of a model class index; unknown for an index outside 0..8. */
objects class_index_to_object(int32_t classId);

/** The words for them, by value. */
inline constexpr std::array<const char*, 9> kClassLabels = {"Person", "Bicycle", "Car",   "Motorcycle", "Airplane",
                                                            "Bus",    "Train",   "Truck", "Boat"};

/** The label of a model class index, "Person" to "Boat"; "Unknown" for an index outside 0..8. */
const char* class_index_to_label(int32_t classId);

/** The other way round: 0..8; nothing for another text. */
std::optional<int32_t> label_to_class_index(const std::string& label);

/** The three detection areas. */
enum class aoi : int32_t {
    aoi1 = 0,
    aoi2 = 1,
    aoi3 = 2,
    unknown = 100
};

/**
 * Where a locator stands with respect to the entrance zones. unknown is 0 here, unlike elsewhere: a new entry of the
 * tracker starts as 0 and so means "never seen in any zone".
 */
enum class entrances : int32_t {
    unknown = 0,
    not_in_entrance = 1,
    in_entrance1 = 2,
    in_entrance2 = 3,
    in_entrance3 = 4,
};

/** The entrance zones as indices. */
enum class entrance : int32_t {
    entrance1 = 0,
    entrance2 = 1,
    entrance3 = 2,
    unknown = 100
};

/** Where an object stands with respect to the detection areas. For area n, "briefly" is 2n-1 and "lengthily" 2n. */
enum class footings : int32_t {
    not_in_AOI = 0,
    in_AOI1_briefly = 1,
    in_AOI1_lengthily = 2,
    in_AOI2_briefly = 3,
    in_AOI2_lengthily = 4,
    in_AOI3_briefly = 5,
    in_AOI3_lengthily = 6,
};

/** Entry and exit events. For entrance n, the entry is 2(n-1) and the exit 2(n-1)+1. */
enum class entranceActivity : int32_t {
    enterEntrance1 = 0,
    exitEntrance1 = 1,
    enterEntrance2 = 2,
    exitEntrance2 = 3,
    enterEntrance3 = 4,
    exitEntrance3 = 5,
    unknown = 100,
};

/** How the number of objects in an area is compared with the configured minimum. */
enum class logicComparison : int32_t {
    lessThan = 0,
    exactly = 1,
    atLeast = 2,
    unknown = 100
};

/** One tracked object in the current frame. */
struct one_find {
    t_one_locator locator = {0, 0}; /**< the point tested against areas and entrances */
    detection detect;               /**< the box that the tracker matched to the object in this frame */
    int32_t id = 0;                 /**< tracker identifier, unique for the life of the process */
    footings footing = footings::not_in_AOI;
    int32_t seconds = 0; /**< whole seconds since the object was first seen in a detection area */
    entrances entrance = entrances::unknown;
    entranceActivity entranceAct = entranceActivity::unknown;
};

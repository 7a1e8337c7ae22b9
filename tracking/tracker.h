#pragma once

#include <map>
#include <vector>

#include "config/config_params.h"
#include "finding/finding.h"

using t_objects_map = std::map<int, detection>;
using t_disappeared_map = std::map<int, int>;
using t_occupancy_map = std::map<int, entrances>;

/**
 * Gives each object an identifier that stays from frame to frame, by the distance between locator points; identifiers
 * start at 0 and are never reused. Also remembers, per object, the entrance state last recorded for it. Main-loop
 * thread only.
 */
class tracker {
public:
    /** Rows are known objects in ascending id order, columns are detections in input order. */
    using t_distances = std::vector<std::vector<float>>;

    /** config: the live record, for the locator. */
    explicit tracker(const ConfigParams& config);

    /** Restarts the ids at 0 and sets the disappearance limit; known objects stay. */
    void init(int maxDisappeared);

    /** An object unmatched for more than this many consecutive frames is forgotten. */
    void set_max_disappeared(int maxDisappeared) { m_MaxDisappeared = maxDisappeared; }

    /** Largest distance, in analysis-stream pixels, at which object and detection are taken for the same. */
    void set_max_distance(int maxDistance) { m_MaxDistance = maxDistance; }

    /** Matches one frame's detections to the known objects; returns the known objects afterwards. */
    t_objects_map track_rectangles(const std::vector<detection>& detections);

    void register_one(const detection& box);
    void register_new_objects(const std::vector<detection>& boxes);
    void de_register_one(int id);

    /** Counts a frame in which nothing was detected. */
    void no_detections();

    /** The ids and the boxes of the known objects, in ascending id order. */
    std::vector<int> list_object_keys() const;
    std::vector<detection> list_object_values() const;

    bool is_id_in_occupancy_map(int id) const { return m_Occupancy.contains(id); }
    void update_occupancy_map(int id, entrances state) { m_Occupancy[id] = state; }

    /** The recorded entrance state; an id not seen before is recorded as unknown. */
    entrances get_occupancy_state(int id) { return m_Occupancy[id]; }

    /** Euclidean distance of the locators; a sentinel of 1e12 for different classes and beyond the largest distance. */
    float compute_distance(const detection& a, const detection& b) const;
    t_distances compute_all_distances(const std::vector<detection>& known, const std::vector<detection>& found) const;

    /** Row indices, ascending by the row's smallest entry, then by index. */
    static std::vector<size_t> min_argsort(const t_distances& distances);

    /** For each of the rows given, the first column that holds the row's smallest entry. */
    static std::vector<size_t> argmin_rows(const t_distances& distances, const std::vector<size_t>& rows);

private:
    /** Counts a frame without a match; forgets the object when that were too many. */
    void count_missing(int id);

    t_objects_map m_Objects;         /**< each live object's latest box */
    t_disappeared_map m_Disappeared; /**< consecutive frames without a match */
    t_occupancy_map m_Occupancy;     /**< the entrance state last recorded */
    int m_NextObjectId = 0;
    int m_MaxDisappeared = 0;
    int m_MaxDistance = 100;
    const ConfigParams& m_config;
};

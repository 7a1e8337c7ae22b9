#include "tracking/tracker.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "log/Logger.h"

namespace {

constexpr float kNeverTheSame = 1e12F;

}  // namespace

tracker::tracker(const ConfigParams& config) : m_config(config) {}

void tracker::init(int maxDisappeared) {
    m_NextObjectId = 0;
    m_MaxDisappeared = maxDisappeared;
}

t_objects_map tracker::track_rectangles(const std::vector<detection>& detections) {
    if (detections.empty()) {
        no_detections();
        return m_Objects;
    }
    if (m_Objects.empty()) {
        register_new_objects(detections);
        return m_Objects;
    }
    const std::vector<int> ids = list_object_keys();
    const t_distances distances = compute_all_distances(list_object_values(), detections);
    const std::vector<size_t> rows = min_argsort(distances);
    const std::vector<size_t> columns = argmin_rows(distances, rows);
    if (rows.size() != columns.size()) {
        applicationLog().error("track_rectangles: RowsSize != ColsSize");
        return m_Objects;
    }
    std::vector<bool> rowUsed(ids.size(), false);
    std::vector<bool> columnUsed(detections.size(), false);
    // A match does not look at the distance again. A row of nothing but sentinels still takes its first column when
    // that is free; the sentinel only puts such rows last, so that real matches choose before them.
    for (size_t k = 0; k < rows.size(); ++k) {
        const size_t row = rows[k];
        const size_t column = columns[k];
        if (rowUsed[row] || columnUsed[column]) {
            continue;
        }
        m_Objects[ids[row]] = detections[column];
        m_Disappeared[ids[row]] = 0;
        rowUsed[row] = true;
        columnUsed[column] = true;
    }
    for (size_t row = 0; row < ids.size(); ++row) {
        if (!rowUsed[row]) {
            count_missing(ids[row]);
        }
    }
    for (size_t column = 0; column < detections.size(); ++column) {
        if (!columnUsed[column]) {
            register_one(detections[column]);
        }
    }
    return m_Objects;
}

void tracker::register_one(const detection& box) {
    m_Objects[m_NextObjectId] = box;
    m_Disappeared[m_NextObjectId] = 0;
    ++m_NextObjectId;
}

void tracker::register_new_objects(const std::vector<detection>& boxes) {
    for (const detection& box : boxes) {
        register_one(box);
    }
}

void tracker::de_register_one(int id) {
    m_Objects.erase(id);
    m_Disappeared.erase(id);
    m_Occupancy.erase(id);
}

void tracker::no_detections() {
    for (const int id : list_object_keys()) {
        count_missing(id);
    }
}

void tracker::count_missing(int id) {
    if (++m_Disappeared[id] > m_MaxDisappeared) {
        de_register_one(id);
    }
}

std::vector<int> tracker::list_object_keys() const {
    std::vector<int> ids;
    ids.reserve(m_Objects.size());
    for (const auto& [id, box] : m_Objects) {
        ids.push_back(id);
    }
    return ids;
}

std::vector<detection> tracker::list_object_values() const {
    std::vector<detection> boxes;
    boxes.reserve(m_Objects.size());
    for (const auto& [id, box] : m_Objects) {
        boxes.push_back(box);
    }
    return boxes;
}

float tracker::compute_distance(const detection& a, const detection& b) const {
    if (a.ClassId != b.ClassId) {
        return kNeverTheSame;
    }
    const t_one_locator from = a.get_locator(m_config.b_LocatorAtBottom);
    const t_one_locator to = b.get_locator(m_config.b_LocatorAtBottom);
    // In doubles, which hold these whole numbers exactly and do not overflow.
    const double dx = static_cast<double>(from.first) - to.first;
    const double dy = static_cast<double>(from.second) - to.second;
    const auto distance = static_cast<float>(std::sqrt(dx * dx + dy * dy));
    return distance > static_cast<float>(m_MaxDistance) ? kNeverTheSame : distance;
}

tracker::t_distances tracker::compute_all_distances(const std::vector<detection>& known,
                                                    const std::vector<detection>& found) const {
    t_distances distances(known.size(), std::vector<float>(found.size()));
    for (size_t row = 0; row < known.size(); ++row) {
        for (size_t column = 0; column < found.size(); ++column) {
            distances[row][column] = compute_distance(known[row], found[column]);
        }
    }
    return distances;
}

std::vector<size_t> tracker::min_argsort(const t_distances& distances) {
    std::vector<std::pair<float, size_t>> minima;
    minima.reserve(distances.size());
    for (size_t row = 0; row < distances.size(); ++row) {
        minima.emplace_back(*std::min_element(distances[row].begin(), distances[row].end()), row);
    }
    std::sort(minima.begin(), minima.end());
    std::vector<size_t> rows;
    rows.reserve(minima.size());
    for (const auto& [minimum, row] : minima) {
        rows.push_back(row);
    }
    return rows;
}

std::vector<size_t> tracker::argmin_rows(const t_distances& distances, const std::vector<size_t>& rows) {
    std::vector<size_t> columns;
    columns.reserve(rows.size());
    for (const size_t row : rows) {
        const std::vector<float>& entries = distances[row];
        columns.push_back(static_cast<size_t>(std::min_element(entries.begin(), entries.end()) - entries.begin()));
    }
    return columns;
}

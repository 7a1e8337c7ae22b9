#include "statistics/transient_state.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace {

size_t index(auto value) {
    return static_cast<size_t>(value);
}

template <typename Record>
void appendSection(std::string& text, const std::vector<Record>& records) {
    text += std::to_string(records.size()) + '\n';
    for (const Record& record : records) {
        text += record.serialize() + '\n';
    }
}

// A section of a real camera has 27 records at most. A text that was cut off lacks no more; a count that promises more
// is a wrong one, and must not be allowed to fill the memory.
constexpr int kMostMissingLines = 1000;

template <typename Record>
void readSection(std::istream& text, const std::string& dateTime, const std::string& camera,
                 std::vector<Record>& records) {
    std::string line;
    std::getline(text, line);
    const int count = std::stoi(line);
    Record blank;
    blank.dateTime = dateTime;
    blank.cameraName = camera;
    for (int i = 0; i < count; ++i) {
        if (!std::getline(text, line)) {
            if (count - i > kMostMissingLines) {
                throw std::out_of_range("deserializeRecords: expected " + std::to_string(count) +
                                        " records, the text ends after " + std::to_string(i));
            }
            line.clear();
        }
        Record record = blank;
        record.deserialize(line);
        record.dateTime = dateTime;
        record.cameraName = camera;
        records.push_back(record);
    }
}

}  // namespace

TransientState::TransientState(const ConfigParams& config) : m_config(config) {}

TransientState::TransientState(const TransientState& tallies, const ConfigParams& config)
    : crowdCounts(tallies.crowdCounts),
      cumulativeCrowdCounts(tallies.cumulativeCrowdCounts),
      entrances(tallies.entrances),
      exits(tallies.exits),
      occupancy(tallies.occupancy),
      numberOfFrames(tallies.numberOfFrames),
      m_config(config) {}

void TransientState::reset() {
    resetCrowdCounts();
    resetEntranceActivity();
    resetCumulativeCrowdCounts();
}

void TransientState::resetCrowdCounts() {
    crowdCounts = {};
}

void TransientState::resetEntranceActivity() {
    entrances = {};
    exits = {};
}

void TransientState::resetCumulativeCrowdCounts() {
    cumulativeCrowdCounts = {};
    numberOfFrames = 0;
}

void TransientState::resetOccupancy() {
    resetEntranceActivity();
    occupancy = {};
}

bool TransientState::hasCounted() const {
    return entrances != decltype(entrances){} || exits != decltype(exits){};
}

int32_t TransientState::getCrowdCount(aoi area, objects object) const {
    return crowdCounts.at(index(area)).at(index(object));
}

int32_t TransientState::getEntrances(entrance zone, objects object) const {
    return entrances.at(index(zone)).at(index(object));
}

int32_t TransientState::getExits(entrance zone, objects object) const {
    return exits.at(index(zone)).at(index(object));
}

int32_t TransientState::getAverageCrowdCount(aoi area, objects object) const {
    return averageOf(index(area), index(object));
}

int32_t TransientState::averageOf(size_t area, size_t object) const {
    if (numberOfFrames == 0) {
        return 0;
    }
    const auto sum = static_cast<float>(cumulativeCrowdCounts.at(area).at(object));
    return static_cast<int32_t>(std::round(sum / static_cast<float>(numberOfFrames)));
}

int32_t TransientState::getOccupancy(objects object) const {
    return std::max(0, occupancy.at(index(object)));
}

void countUp(int32_t& tally) {
    tally += tally < std::numeric_limits<int32_t>::max() ? 1 : 0;
}

bool TransientState::add(const one_find& finding) {
    const size_t object = index(finding.detect.ClassId);
    if (finding.footing != footings::not_in_AOI) {
        const size_t area = (index(finding.footing) - 1) / 2;
        countUp(crowdCounts.at(area).at(object));
        countUp(cumulativeCrowdCounts.at(area).at(object));
    }
    if (finding.entranceAct != entranceActivity::unknown) {
        const size_t zone = index(finding.entranceAct) / 2;
        if (index(finding.entranceAct) % 2 == 0) {
            countUp(entrances.at(zone).at(object));
            countUp(occupancy.at(object));
        } else {
            countUp(exits.at(zone).at(object));
            if (occupancy.at(object) >= 1) {
                --occupancy.at(object);
            }
        }
    }
    return true;
}

bool TransientState::add(const std::vector<one_find>& findings) {
    resetCrowdCounts();
    for (const one_find& finding : findings) {
        add(finding);
    }
    countUp(numberOfFrames);
    return true;
}

template <typename Visit>
void TransientState::forEachMonitored(bool (*isMonitored)(const ConfigParams&, int), Visit visit) const {
    for (size_t row = 0; row < kAreas; ++row) {
        for (size_t object = 0; object < kClasses; ++object) {
            if (isMonitored(m_config, static_cast<int>(row)) &&
                isObjectClassMonitored(m_config, static_cast<int>(object))) {
                visit(row, object);
            }
        }
    }
}

std::vector<CrowdCountRecord> TransientState::getCrowdCountRecords(const std::string& dateTime,
                                                                   const std::string& camera) const {
    std::vector<CrowdCountRecord> records;
    forEachMonitored(isAreaMonitored, [&](size_t area, size_t object) {
        records.emplace_back(dateTime, camera, static_cast<aoi>(area), static_cast<objects>(object),
                             crowdCounts[area][object]);
    });
    return records;
}

std::vector<CrowdCountRecord> TransientState::getAverageCrowdCountRecords(const std::string& dateTime,
                                                                          const std::string& camera) const {
    std::vector<CrowdCountRecord> records;
    forEachMonitored(isAreaMonitored, [&](size_t area, size_t object) {
        records.emplace_back(dateTime, camera, static_cast<aoi>(area), static_cast<objects>(object),
                             averageOf(area, object));
    });
    return records;
}

std::vector<EntranceActivityRecord> TransientState::getEntranceActivityRecords(const std::string& dateTime,
                                                                               const std::string& camera) const {
    std::vector<EntranceActivityRecord> records;
    forEachMonitored(isEntranceMonitored, [&](size_t zone, size_t object) {
        records.emplace_back(dateTime, camera, static_cast<entrance>(zone), static_cast<objects>(object),
                             entrances[zone][object], exits[zone][object]);
    });
    return records;
}

std::vector<OccupancyObjectRecord> TransientState::getOccupancyObjectRecords(const std::string& dateTime,
                                                                             const std::string& camera) const {
    std::vector<OccupancyObjectRecord> records;
    for (size_t object = 0; object < kClasses; ++object) {
        if (isObjectClassMonitored(m_config, static_cast<int>(object))) {
            records.emplace_back(dateTime, camera, static_cast<objects>(object), occupancy[object]);
        }
    }
    return records;
}

std::string TransientState::getSerializedRecords() const {
    const PeriodRecords records = getRecords("", "");
    std::string text;
    forEachKind([&](const auto& kind) { appendSection(text, records.*kind.records); });
    return text;
}

PeriodRecords TransientState::getRecords(const std::string& dateTime, const std::string& camera) const {
    return {getCrowdCountRecords(dateTime, camera), getEntranceActivityRecords(dateTime, camera),
            getOccupancyObjectRecords(dateTime, camera), getAverageCrowdCountRecords(dateTime, camera)};
}

PeriodRecords TransientState::readRecords(const std::string& text, const std::string& dateTime,
                                          const std::string& camera) {
    std::istringstream stream(text);
    PeriodRecords records;
    forEachKind([&](const auto& kind) { readSection(stream, dateTime, camera, records.*kind.records); });
    return records;
}

void TransientState::deserializeRecords(const std::string& text, const std::string& dateTime, const std::string& camera,
                                        std::vector<CrowdCountRecord>& crowd,
                                        std::vector<EntranceActivityRecord>& activity,
                                        std::vector<OccupancyObjectRecord>& occupants,
                                        std::vector<CrowdCountRecord>& average) {
    PeriodRecords records = readRecords(text, dateTime, camera);
    const auto append = [](auto& all, auto& more) { all.insert(all.end(), more.begin(), more.end()); };
    append(crowd, records.crowd);
    append(activity, records.activity);
    append(occupants, records.occupants);
    append(average, records.average);
}

/** Visits every tally with its name, its value and whether it is monitored. */
template <typename Visit>
void TransientState::visitData(Visit visit) const {
    for (size_t object = 0; object < kClasses; ++object) {
        const bool classMonitored = isObjectClassMonitored(m_config, static_cast<int>(object));
        const std::string name = objectNames[object];
        for (size_t row = 0; row < kAreas; ++row) {
            const bool inArea = classMonitored && isAreaMonitored(m_config, static_cast<int>(row));
            const bool inEntrance = classMonitored && isEntranceMonitored(m_config, static_cast<int>(row));
            const std::string area = aoiNames[row];
            const std::string zone = entranceNames[row];
            visit(area + "_" + name, crowdCounts[row][object], inArea);
            visit("Average" + area + "_" + name, averageOf(row, object), inArea);
            visit(zone + "_Entrances_" + name, entrances[row][object], inEntrance);
            visit(zone + "_Exits_" + name, exits[row][object], inEntrance);
        }
        visit("Occupancy_" + name, occupancy[object], classMonitored);
    }
}

std::map<std::string, std::string> TransientState::getDataMap() const {
    std::map<std::string, std::string> data;
    visitData([&](const std::string& name, int32_t value, bool monitored) {
        data[name] = monitored ? std::to_string(value) : std::string();
    });
    return data;
}

std::map<std::string, std::string> TransientState::getSparseDataMap() const {
    std::map<std::string, std::string> data;
    visitData([&](const std::string& name, int32_t value, bool monitored) {
        if (monitored) {
            data[name] = std::to_string(value);
        }
    });
    return data;
}

#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "config/config_params.h"
#include "finding/finding.h"
#include "statistics/occupancy_records.h"
#include "statistics/record_kinds.h"

/** Adds one to a tally, which stays at the largest number: what no leader fetches grows for years. */
void countUp(int32_t& tally);

/**
 * The tallies of one period, by area or entrance (0..2) and object class (0..8).
 *
 * Crowd counts describe the last frame; cumulative counts and the number of frames grow until they are reset, and their
 * quotient is the average crowd. Entries and exits are summed; the occupancy per class survives the periods.
 */
class TransientState {
public:
    /** config: the live record; it says what is monitored. */
    explicit TransientState(const ConfigParams& config);

    /** The same tallies, with what is monitored taken from another record. */
    TransientState(const TransientState& tallies, const ConfigParams& config);

    /** Everything but the occupancy. */
    void reset();
    void resetCrowdCounts();
    void resetEntranceActivity();
    /** The cumulative counts and the number of frames. */
    void resetCumulativeCrowdCounts();
    /** The occupancy, and entries and exits. */
    void resetOccupancy();

    /** Whether there is an entry or an exit. */
    bool hasCounted() const;

    int32_t getCrowdCount(aoi area, objects object) const;
    int32_t getEntrances(entrance zone, objects object) const;
    int32_t getExits(entrance zone, objects object) const;
    /** Per frame, rounded half away from zero; 0 without frames. */
    int32_t getAverageCrowdCount(aoi area, objects object) const;
    /** Never negative. */
    int32_t getOccupancy(objects object) const;
    int32_t getNumberOfFrames() const { return numberOfFrames; }

    /** Adds one finding, whose class is 0..8. True. */
    bool add(const one_find& finding);

    /** Adds a frame. True. */
    bool add(const std::vector<one_find>& findings);

    // Records of what is monitored, area or entrance first, then class.
    std::vector<CrowdCountRecord> getCrowdCountRecords(const std::string& dateTime, const std::string& camera) const;
    std::vector<CrowdCountRecord> getAverageCrowdCountRecords(const std::string& dateTime,
                                                              const std::string& camera) const;
    std::vector<EntranceActivityRecord> getEntranceActivityRecords(const std::string& dateTime,
                                                                   const std::string& camera) const;
    std::vector<OccupancyObjectRecord> getOccupancyObjectRecords(const std::string& dateTime,
                                                                 const std::string& camera) const;

    /** The records of every kind. */
    PeriodRecords getRecords(const std::string& dateTime, const std::string& camera) const;

    /**
     * The records as a follower hands them to its leader, kind by kind; each section is a line with its number of
     * records, then those, without date and camera name.
     */
    std::string getSerializedRecords() const;

    /**
     * Reads what getSerializedRecords wrote, dating and naming the records. A line of another shape, or one that lacks
     * because the text ends early, gives a default record. Throws what std::stoi throws when a count or a number is
     * none, and std::out_of_range when more than 1000 lines of a section lack.
     */
    static PeriodRecords readRecords(const std::string& text, const std::string& dateTime, const std::string& camera);
    static void deserializeRecords(const std::string& text, const std::string& dateTime, const std::string& camera,
                                   std::vector<CrowdCountRecord>& crowd, std::vector<EntranceActivityRecord>& activity,
                                   std::vector<OccupancyObjectRecord>& occupants,
                                   std::vector<CrowdCountRecord>& average);

    /** Every tally by name, 117 in all; what is not monitored has an empty value. */
    std::map<std::string, std::string> getDataMap() const;

    /** The tallies that are monitored, by name. */
    std::map<std::string, std::string> getSparseDataMap() const;

private:
    static constexpr size_t kAreas = aoiNames.size();
    static constexpr size_t kClasses = objectNames.size();
    using Table = std::array<std::array<int32_t, kClasses>, kAreas>;

    int32_t averageOf(size_t area, size_t object) const;
    template <typename Visit>
    void forEachMonitored(bool (*isMonitored)(const ConfigParams&, int), Visit visit) const;
    template <typename Visit>
    void visitData(Visit visit) const;

    Table crowdCounts = {};
    Table cumulativeCrowdCounts = {};
    Table entrances = {};
    Table exits = {};
    std::array<int32_t, kClasses> occupancy = {};
    int32_t numberOfFrames = 0;
    const ConfigParams& m_config;
};

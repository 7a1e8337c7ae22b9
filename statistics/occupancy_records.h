#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "config/config_params.h"
#include "finding/finding.h"

/*
 * The records in which every period's tallies are kept, and their one-line text form: fields joined by commas, without
 * quotes or escapes, enumerations as numbers. A camera name with a comma breaks its own line; names are kept as they
 * are.
 */

/** The words with which reports and data maps spell enumerations, by value. */
inline constexpr std::array<const char*, 3> aoiNames = {"AOI1", "AOI2", "AOI3"};
inline constexpr std::array<const char*, 3> entranceNames = {"Entrance1", "Entrance2", "Entrance3"};
inline constexpr std::array<const char*, 9> objectNames = kClassLabels;

/** Local time by strftime's format; at most 79 characters. */
std::string timeToString(time_t value, const char* format);

/**
 * Parses local time; 0 when the text does not fit the format. Daylight saving is taken as off, so that a text of a
 * summer's day reads back an hour off in a zone that has daylight saving. The archives rely on it.
 */
time_t stringToTime(const std::string& text, const char* format);

/** What all records share: a local time stamp as text, "%Y-%m-%d %X". */
class OccupancyRecordBase {
public:
    virtual ~OccupancyRecordBase() = default;

    /** The record's line, without its end. */
    virtual std::string serialize() const = 0;

    /**
     * Reads a line. False, with the record unchanged, when the number of fields is another; throws what std::stoi
     * throws when a number is none, with the fields before it already taken.
     */
    virtual bool deserialize(const std::string& line) = 0;

    static std::string getCurrentDateTime();
    static time_t stringToTime(const std::string& text);
    static std::string timeToString(time_t value);

    /** Splits at commas: an empty line is one empty field, a comma at the end is followed by one. */
    static std::vector<std::string> stringToFields(const std::string& line);

    std::string dateTime;

protected:
    OccupancyRecordBase() : dateTime(getCurrentDateTime()) {}
    explicit OccupancyRecordBase(std::string moment) : dateTime(std::move(moment)) {}
    OccupancyRecordBase(const OccupancyRecordBase&) = default;
    OccupancyRecordBase(OccupancyRecordBase&&) = default;
    OccupancyRecordBase& operator=(const OccupancyRecordBase&) = default;
    OccupancyRecordBase& operator=(OccupancyRecordBase&&) = default;
};

/** By time; a time stamp that cannot be read comes first. */
bool operator<(const OccupancyRecordBase& left, const OccupancyRecordBase& right);

/** Objects of one class in one area. */
class CrowdCountRecord : public OccupancyRecordBase {
public:
    CrowdCountRecord() = default;
    CrowdCountRecord(std::string moment, std::string camera, ::aoi area, objects objectClass, int32_t number);

    static const char* getCSVHeader() { return "Date,Camera Name,AOI,Object,Count"; }
    std::string serialize() const override;
    bool deserialize(const std::string& line) override;

    std::string cameraName;
    ::aoi aoi = ::aoi::unknown;
    objects object = objects::unknown;
    int32_t count = 0;
};

/** Entries and exits of one class through one entrance. */
class EntranceActivityRecord : public OccupancyRecordBase {
public:
    EntranceActivityRecord() = default;
    EntranceActivityRecord(std::string moment, std::string camera, ::entrance zone, objects objectClass,
                           int32_t entered, int32_t left);

    static const char* getCSVHeader() { return "Date,Camera Name,Entrance,Object,EntranceCount,ExitCount"; }
    std::string serialize() const override;
    bool deserialize(const std::string& line) override;

    std::string cameraName;
    ::entrance entrance = ::entrance::unknown;
    objects object = objects::unknown;
    int32_t entranceCount = 0;
    int32_t exitCount = 0;
};

/** Objects of one class inside at the end of a period. */
class OccupancyObjectRecord : public OccupancyRecordBase {
public:
    OccupancyObjectRecord() = default;
    OccupancyObjectRecord(std::string moment, std::string camera, objects objectClass, int32_t number);

    static const char* getCSVHeader() { return "Date,Camera Name,Object,Count"; }
    std::string serialize() const override;
    bool deserialize(const std::string& line) override;

    std::string cameraName;
    objects object = objects::unknown;
    int32_t count = 0;
};

/** The totals of a moment, with a 28-byte binary form beside the text form. Stands by. */
class OccupancyRecord {
public:
    OccupancyRecord() = default;
    OccupancyRecord(int32_t occupants, int32_t area1, int32_t area2, int32_t area3, int32_t allOccupants,
                    int32_t allAreas);
    OccupancyRecord(std::string moment, int32_t occupants, int32_t area1, int32_t area2, int32_t area3,
                    int32_t allOccupants, int32_t allAreas);
    OccupancyRecord(time_t moment, int32_t occupants, int32_t area1, int32_t area2, int32_t area3, int32_t allOccupants,
                    int32_t allAreas);

    static const char* getCSVHeader() { return "Date,Occupancy,AOI1,AOI2,AOI3,Total Occupancy,Total AOI"; }
    static std::string getCurrentDateTime() { return OccupancyRecordBase::getCurrentDateTime(); }
    static time_t stringToTime(const std::string& text) { return OccupancyRecordBase::stringToTime(text); }
    static std::string timeToString(time_t value) { return OccupancyRecordBase::timeToString(value); }

    std::string serialize() const;
    /** As OccupancyRecordBase::deserialize. */
    bool deserialize(const std::string& line);

    /** A 4-byte time and six 4-byte counts in the processor's byte order. Always true. */
    bool write(std::ostream& out) const;
    bool read(std::istream& in);

    std::string dateTime;
    int32_t occupancy = 0;
    int32_t countA1 = 0;
    int32_t countA2 = 0;
    int32_t countA3 = 0;
    int32_t totalOccupancy = 0;
    int32_t totalAOI = 0;
};

bool operator<(const OccupancyRecord& left, const OccupancyRecord& right);

// Stored numbers back to enumerations; a number outside the range gives unknown.
aoi indexToArea(int index);
entrance indexToEntrance(int index);
objects indexToObject(int index);

/** The text, or the current date-time text for a null pointer. */
std::string ptrToDateTime(const char* text);

#include "statistics/occupancy_records.h"

#include <iomanip>
#include <sstream>
#include <utility>

#include "base/clock.h"

namespace {

constexpr const char* kDateTimeFormat = "%Y-%m-%d %X";

template <typename... Fields>
std::string joined(const std::string& dateTime, const Fields&... fields) {
    std::ostringstream line;
    line << dateTime;
    ((line << ',' << fields), ...);
    return line.str();
}

template <typename Enumeration>
int32_t number(Enumeration value) {
    return static_cast<int32_t>(value);
}

}  // namespace

std::string timeToString(time_t value, const char* format) {
    const std::tm calendar = localTime(value);
    std::array<char, 80> text = {};
    strftime(text.data(), text.size(), format, &calendar);
    return text.data();
}

time_t stringToTime(const std::string& text, const char* format) {
    std::tm calendar = {};
    std::istringstream stream(text);
    stream >> std::get_time(&calendar, format);
    return stream.fail() ? 0 : fromLocalTime(calendar);
}

std::string OccupancyRecordBase::getCurrentDateTime() {
    return timeToString(clockNow());
}

time_t OccupancyRecordBase::stringToTime(const std::string& text) {
    return ::stringToTime(text, kDateTimeFormat);
}

std::string OccupancyRecordBase::timeToString(time_t value) {
    return ::timeToString(value, kDateTimeFormat);
}

std::vector<std::string> OccupancyRecordBase::stringToFields(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream stream(line);
    while (stream.good()) {
        std::string field;
        std::getline(stream, field, ',');
        fields.push_back(std::move(field));
    }
    return fields;
}

bool operator<(const OccupancyRecordBase& left, const OccupancyRecordBase& right) {
    return OccupancyRecordBase::stringToTime(left.dateTime) < OccupancyRecordBase::stringToTime(right.dateTime);
}

CrowdCountRecord::CrowdCountRecord(std::string moment, std::string camera, ::aoi area, objects objectClass,
                                   int32_t number)
    : OccupancyRecordBase(std::move(moment)),
      cameraName(std::move(camera)),
      aoi(area),
      object(objectClass),
      count(number) {}

std::string CrowdCountRecord::serialize() const {
    return joined(dateTime, cameraName, number(aoi), number(object), count);
}

bool CrowdCountRecord::deserialize(const std::string& line) {
    const std::vector<std::string> fields = stringToFields(line);
    if (fields.size() != 5) {
        return false;
    }
    dateTime = fields[0];
    cameraName = fields[1];
    aoi = indexToArea(std::stoi(fields[2]));
    object = indexToObject(std::stoi(fields[3]));
    count = std::stoi(fields[4]);
    return true;
}

EntranceActivityRecord::EntranceActivityRecord(std::string moment, std::string camera, ::entrance zone,
                                               objects objectClass, int32_t entered, int32_t left)
    : OccupancyRecordBase(std::move(moment)),
      cameraName(std::move(camera)),
      entrance(zone),
      object(objectClass),
      entranceCount(entered),
      exitCount(left) {}

std::string EntranceActivityRecord::serialize() const {
    return joined(dateTime, cameraName, number(entrance), number(object), entranceCount, exitCount);
}

bool EntranceActivityRecord::deserialize(const std::string& line) {
    const std::vector<std::string> fields = stringToFields(line);
    if (fields.size() != 6) {
        return false;
    }
    dateTime = fields[0];
    cameraName = fields[1];
    entrance = indexToEntrance(std::stoi(fields[2]));
    object = indexToObject(std::stoi(fields[3]));
    entranceCount = std::stoi(fields[4]);
    exitCount = std::stoi(fields[5]);
    return true;
}

OccupancyObjectRecord::OccupancyObjectRecord(std::string moment, std::string camera, objects objectClass,
                                             int32_t number)
    : OccupancyRecordBase(std::move(moment)), cameraName(std::move(camera)), object(objectClass), count(number) {}

std::string OccupancyObjectRecord::serialize() const {
    return joined(dateTime, cameraName, number(object), count);
}

bool OccupancyObjectRecord::deserialize(const std::string& line) {
    const std::vector<std::string> fields = stringToFields(line);
    if (fields.size() != 4) {
        return false;
    }
    dateTime = fields[0];
    cameraName = fields[1];
    object = indexToObject(std::stoi(fields[2]));
    count = std::stoi(fields[3]);
    return true;
}

OccupancyRecord::OccupancyRecord(int32_t occupants, int32_t area1, int32_t area2, int32_t area3, int32_t allOccupants,
                                 int32_t allAreas)
    : OccupancyRecord(getCurrentDateTime(), occupants, area1, area2, area3, allOccupants, allAreas) {}

OccupancyRecord::OccupancyRecord(std::string moment, int32_t occupants, int32_t area1, int32_t area2, int32_t area3,
                                 int32_t allOccupants, int32_t allAreas)
    : dateTime(std::move(moment)),
      occupancy(occupants),
      countA1(area1),
      countA2(area2),
      countA3(area3),
      totalOccupancy(allOccupants),
      totalAOI(allAreas) {}

OccupancyRecord::OccupancyRecord(time_t moment, int32_t occupants, int32_t area1, int32_t area2, int32_t area3,
                                 int32_t allOccupants, int32_t allAreas)
    : OccupancyRecord(timeToString(moment), occupants, area1, area2, area3, allOccupants, allAreas) {}

std::string OccupancyRecord::serialize() const {
    return joined(dateTime, occupancy, countA1, countA2, countA3, totalOccupancy, totalAOI);
}

bool OccupancyRecord::deserialize(const std::string& line) {
    const std::vector<std::string> fields = OccupancyRecordBase::stringToFields(line);
    if (fields.size() != 7) {
        return false;
    }
    dateTime = fields[0];
    int32_t* const counts[] = {&occupancy, &countA1, &countA2, &countA3, &totalOccupancy, &totalAOI};
    for (size_t i = 0; i < std::size(counts); ++i) {
        *counts[i] = std::stoi(fields[i + 1]);
    }
    return true;
}

bool OccupancyRecord::write(std::ostream& out) const {
    const std::array<int32_t, 7> values = {
        static_cast<int32_t>(stringToTime(dateTime)), occupancy, countA1, countA2, countA3, totalOccupancy, totalAOI};
    out.write(reinterpret_cast<const char*>(values.data()), sizeof(values));
    return true;
}

bool OccupancyRecord::read(std::istream& in) {
    std::array<int32_t, 7> values = {};
    in.read(reinterpret_cast<char*>(values.data()), sizeof(values));
    // Unsigned, so that four bytes reach to the year 2106.
    dateTime = timeToString(static_cast<time_t>(static_cast<uint32_t>(values[0])));
    occupancy = values[1];
    countA1 = values[2];
    countA2 = values[3];
    countA3 = values[4];
    totalOccupancy = values[5];
    totalAOI = values[6];
    return true;
}

bool operator<(const OccupancyRecord& left, const OccupancyRecord& right) {
    return OccupancyRecord::stringToTime(left.dateTime) < OccupancyRecord::stringToTime(right.dateTime);
}

aoi indexToArea(int index) {
    return index >= 0 && index < static_cast<int>(aoiNames.size()) ? static_cast<aoi>(index) : aoi::unknown;
}

entrance indexToEntrance(int index) {
    return index >= 0 && index < static_cast<int>(entranceNames.size()) ? static_cast<entrance>(index)
                                                                        : entrance::unknown;
}

objects indexToObject(int index) {
    return class_index_to_object(index);
}

std::string ptrToDateTime(const char* text) {
    return text == nullptr ? OccupancyRecordBase::getCurrentDateTime() : std::string(text);
}

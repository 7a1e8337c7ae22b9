#include "statistics/summary_report.h"

#include <fstream>

namespace {

template <typename Names, typename Enumeration>
bool isNamed(const Names& names, Enumeration value) {
    const auto index = static_cast<int32_t>(value);
    return index >= 0 && index < static_cast<int32_t>(names.size());
}

template <typename Names, typename Enumeration>
std::string nameOf(const Names& names, Enumeration value) {
    return names[static_cast<size_t>(value)];
}

/** The row's value of a column, 0 when it has none. */
int32_t cell(const std::map<std::string, int32_t>& row, const std::string& column) {
    const auto found = row.find(column);
    return found == row.end() ? 0 : found->second;
}

}  // namespace

void SummaryReport::add(const std::string& dateTime, const std::string& column, int32_t value) {
    report[dateTime][column] = value;
}

bool SummaryReport::addCrowd(const std::vector<CrowdCountRecord>& records, const std::string& prefix) {
    for (const CrowdCountRecord& record : records) {
        if (isNamed(aoiNames, record.aoi) && isNamed(objectNames, record.object)) {
            add(record.dateTime,
                prefix + nameOf(aoiNames, record.aoi) + "_" + nameOf(objectNames, record.object) + "_" +
                    record.cameraName,
                record.count);
        }
    }
    return true;
}

bool SummaryReport::add(const std::vector<CrowdCountRecord>& records) {
    return addCrowd(records, "");
}

bool SummaryReport::addAverage(const std::vector<CrowdCountRecord>& records) {
    return addCrowd(records, "Average");
}

bool SummaryReport::add(const std::vector<EntranceActivityRecord>& records) {
    for (const EntranceActivityRecord& record : records) {
        if (isNamed(entranceNames, record.entrance) && isNamed(objectNames, record.object)) {
            const std::string zone = nameOf(entranceNames, record.entrance);
            const std::string tail = nameOf(objectNames, record.object) + "_" + record.cameraName;
            add(record.dateTime, zone + "_Entrances_" + tail, record.entranceCount);
            add(record.dateTime, zone + "_Exits_" + tail, record.exitCount);
        }
    }
    return true;
}

bool SummaryReport::add(const std::vector<OccupancyObjectRecord>& records) {
    for (const OccupancyObjectRecord& record : records) {
        if (isNamed(objectNames, record.object)) {
            add(record.dateTime, "Occup_" + nameOf(objectNames, record.object) + "_" + record.cameraName, record.count);
        }
    }
    return true;
}

std::vector<std::string> SummaryReport::getDateTimes() const {
    std::vector<std::string> dateTimes;
    for (const auto& [dateTime, row] : report) {
        dateTimes.push_back(dateTime);
    }
    return dateTimes;
}

std::set<std::string> SummaryReport::getColumnNames() const {
    std::set<std::string> columns;
    for (const auto& [dateTime, row] : report) {
        for (const auto& [column, value] : row) {
            columns.insert(column);
        }
    }
    return columns;
}

std::string SummaryReport::getCSVHeader() const {
    std::string header = "Date";
    for (const std::string& column : getColumnNames()) {
        header += "," + column;
    }
    return header;
}

std::string SummaryReport::getHTMLHeader() const {
    std::string header = "<tr><th>Date</th>";
    for (const std::string& column : getColumnNames()) {
        header += "<th>" + column + "</th>";
    }
    return header + "</tr>\n";
}

std::string SummaryReport::getCSVAsString() const {
    const std::set<std::string> columns = getColumnNames();
    std::string text = getCSVHeader() + "\n";
    for (const auto& [dateTime, row] : report) {
        text += dateTime;
        for (const std::string& column : columns) {
            text += "," + std::to_string(cell(row, column));
        }
        text += '\n';
    }
    return text;
}

std::string SummaryReport::getHTMLAsString() const {
    const std::set<std::string> columns = getColumnNames();
    std::string text =
        "<html><head><title>Senvo Summary Report</title></head><body><h1>Senvo Summary Report</h1><table>" +
        getHTMLHeader() + "\n";
    for (const auto& [dateTime, row] : report) {
        text += "<tr><th>" + dateTime + "</th>";
        for (const std::string& column : columns) {
            text += "<th>" + std::to_string(cell(row, column)) + "</th>";
        }
        text += "</tr>\n";
    }
    return text + "</table></body></html>";
}

bool SummaryReport::writeCSVFile(const std::string& path) const {
    std::ofstream file(path, std::ios::trunc);
    if (!file) {
        return false;
    }
    file << getCSVAsString();
    return true;
}

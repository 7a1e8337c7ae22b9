#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "statistics/occupancy_records.h"

/** Rows by date-time text; cells by column name. The text form of dates sorts in time. */
using Report = std::map<std::string, std::map<std::string, int32_t>>;

/**
 * Archived records as one wide table: a row per flush, a column per camera, area or entrance, object class and measure.
 * Nothing in the texts is quoted or escaped: a camera name with a comma shifts the columns.
 */
class SummaryReport {
public:
    /** Sets a cell; the last value for a date and column wins. */
    void add(const std::string& dateTime, const std::string& column, int32_t value);

    // Add each record's cells in order; records whose area, entrance or class has no name are left out. All true.
    bool add(const std::vector<CrowdCountRecord>& records);
    bool add(const std::vector<EntranceActivityRecord>& records);
    bool add(const std::vector<OccupancyObjectRecord>& records);
    bool addAverage(const std::vector<CrowdCountRecord>& records);

    /** Number of distinct date-times. */
    size_t nrows() const { return report.size(); }

    std::vector<std::string> getDateTimes() const;

    /** The columns of all rows in ascending byte-wise order. */
    std::set<std::string> getColumnNames() const;

    std::string getCSVHeader() const;
    std::string getHTMLHeader() const;

    /** Missing cells are 0. */
    std::string getCSVAsString() const;

    /** Every cell is a header cell, as the page's style sheet expects. */
    std::string getHTMLAsString() const;

    /** False when the file cannot be opened. */
    bool writeCSVFile(const std::string& path) const;

private:
    bool addCrowd(const std::vector<CrowdCountRecord>& records, const std::string& prefix);

    Report report;
};

#pragma once

#include <ctime>
#include <string>

#include "statistics/occupancy_records.h"

/** What a purge does to an archive. */
struct PurgeCut {
    time_t before = 0; /**< records dated earlier go */
    std::string now;   /**< the date that lines of another shape get */
};

/** Reads dates of records, remembering the last: the lines of one flush share theirs. */
class DateReader {
public:
    time_t read(const std::string& text) {
        if (!m_read || text != m_text) {
            m_text = text;
            m_time = OccupancyRecordBase::stringToTime(text);
            m_read = true;
        }
        return m_time;
    }

private:
    std::string m_text;
    time_t m_time = 0;
    bool m_read = false;
};

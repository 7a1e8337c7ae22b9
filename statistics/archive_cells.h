#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "statistics/line_reader.h"
#include "statistics/purge_cut.h"
#include "statistics/record_kinds.h"

/*
 * Every flush brings the same lines but for the date and the count. So the reader remembers what stood between them
 * (",Lobby,0,2,") with the column it means, and expects the lines of a flush in the order of the flush before: a
 * comparison of bytes and a short number are all that most lines cost. Any other line takes the long way through the
 * record and SummaryReport, which alone know the rules: what parses, what is left out, how columns are named.
 */

/** Names of a report's columns to their places. */
using Columns = std::map<std::string, size_t>;

/** A kind of archive: how many numbers end its lines, and the columns of a line, none when it is left out. */
struct ArchiveKind {
    size_t numbers;
    std::set<std::string> (*columnsOf)(const std::string& line);
};

/** Of each kind of record, in the kinds' order. */
extern const OfEachKind<ArchiveKind> kArchiveKinds;

/** A part of an archive's file that begins and ends with a line. */
struct Run {
    off_t begin = 0;
    off_t end = 0;
};

/** A part of an archive. */
struct ArchivePart {
    const ArchiveKind& kind;
    int fd;
    Run run;
    std::optional<time_t> purgedBefore; /**< lines dated earlier do not count */
};

/** Walks over the lines of a part of an archive that count for a report. Throws what std::stoi throws. */
class ArchiveCells {
public:
    /** columns: new names are put in when they may be; else the first line that brings some is the end. */
    ArchiveCells(const ArchivePart& part, Columns& columns, bool mayAdd);

    /** Goes to the next line; false at the end. */
    bool next();

    bool valid() const { return m_valid; }

    /** Whether the walk ended at a column that is not known. */
    bool endedUnknown() const { return m_unknown; }

    /** Whether the line has another date than the one before. */
    bool hasNewDate() const { return m_newDate; }

    /** Whether that date is an earlier one: a clock was set back. */
    bool descends() const { return m_newDate && m_descends; }
    const std::string& date() const { return m_date; }

    /** Where in the file the line begins and ends. */
    off_t lineBegin() const { return m_reader.position() - static_cast<off_t>(m_lineSize); }
    off_t lineEnd() const { return m_reader.position(); }

    /** Characters of the numbers so far beyond one each. */
    size_t extraDigits() const { return m_extraDigits; }

    /** Puts the values of this line and all others of its date where they belong, and goes to the next date. */
    void take(std::vector<int32_t>& row);

private:
    struct Step {
        std::string between; /**< the bytes from the date to the numbers */
        std::array<size_t, 2> places = {};
    };

    size_t takeExpected(std::string_view text);
    bool takeAny(const std::string& line);
    bool isPurged(std::string_view date);
    void setDate(std::string_view date);

    const ArchiveKind& m_kind;
    LineReader m_reader;
    const std::optional<time_t> m_purgedBefore;
    DateReader m_dateReader;
    Columns& m_columns;
    const bool m_mayAdd;
    std::vector<Step> m_steps;
    std::map<std::string, size_t> m_known; /**< places of the steps */
    size_t m_expected = 0;                 /**< the step that comes next if this flush is like the one before */
    std::string m_date;
    std::array<int32_t, 2> m_values = {};
    std::array<size_t, 2> m_places = {};
    size_t m_lineSize = 0;
    size_t m_extraDigits = 0;
    bool m_started = false;
    bool m_newDate = false;
    bool m_descends = false;
    bool m_unknown = false;
    bool m_valid = false;
};

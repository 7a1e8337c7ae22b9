#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "statistics/archive_cells.h"

/**
 * The rows of a report in the order of their dates, out of files in which they come in any order: clocks were set back
 * again and again. Goes over the files window by window, each holding the earliest dates that are left and fit into a
 * few megabytes.
 */
class DateWindows {
public:
    using RowVisitor = std::function<void(const std::string& date, const std::vector<int32_t>& row)>;

    /**
     * files: in the order in which a report takes them; they and columns, which name every column, outlive this.
     * rowsAtOnce: how many rows a window holds at most; by default as many as fit into 8 MiB.
     */
    DateWindows(const std::vector<ArchivePart>& files, Columns& columns, size_t rowsAtOnce = 0);

    /** Visits every row once. Throws what std::stoi throws. */
    void forEachRow(const RowVisitor& visit);

private:
    /** A part of a file that is read, or left out, as a whole. */
    struct Piece {
        ArchivePart part;
        std::string earliest;
        std::string latest;
    };

    void cutIntoPieces(const ArchivePart& file);
    void fill(const std::optional<std::string>& after);
    std::vector<int32_t>& rowOf(const std::string& date, const std::optional<std::string>& after);

    Columns& m_columns;
    size_t m_rowsAtOnce;
    std::vector<Piece> m_pieces;
    std::map<std::string, std::vector<int32_t>> m_rows; /**< the window */
    std::optional<std::string> m_beyond;                /**< dates from this one on did not fit */
    std::vector<int32_t> m_elsewhere;                   /**< takes the values of rows that are not in the window */
};

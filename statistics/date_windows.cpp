#include "statistics/date_windows.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr size_t kWindowBytes = size_t{1} << 23U;
constexpr size_t kRowBytes = 160;  // what a row takes besides its values
constexpr off_t kPieceBytes = off_t{1} << 20U;

}  // namespace

DateWindows::DateWindows(const std::vector<ArchivePart>& files, Columns& columns, size_t rowsAtOnce)
    : m_columns(columns), m_rowsAtOnce(rowsAtOnce), m_elsewhere(columns.size()) {
    if (m_rowsAtOnce == 0) {
        m_rowsAtOnce = std::max<size_t>(1, kWindowBytes / (kRowBytes + columns.size() * sizeof(int32_t)));
    }
    for (const ArchivePart& file : files) {
        cutIntoPieces(file);
    }
}

void DateWindows::cutIntoPieces(const ArchivePart& file) {
    ArchiveCells cells(file, m_columns, false);
    bool first = true;
    while (cells.next()) {
        if (!cells.hasNewDate()) {
            continue;
        }
        const std::string& date = cells.date();
        if (first || cells.lineBegin() - m_pieces.back().part.run.begin > kPieceBytes) {
            if (!first) {
                m_pieces.back().part.run.end = cells.lineBegin();
            }
            ArchivePart part = file;
            part.run.begin = cells.lineBegin();
            m_pieces.push_back({part, date, date});
            first = false;
        }
        Piece& piece = m_pieces.back();
        piece.earliest = std::min(piece.earliest, date);
        piece.latest = std::max(piece.latest, date);
    }
}

void DateWindows::forEachRow(const RowVisitor& visit) {
    std::optional<std::string> after;
    do {
        fill(after);
        for (const auto& [date, row] : m_rows) {
            visit(date, row);
        }
        if (!m_rows.empty()) {
            after = std::prev(m_rows.end())->first;
        }
    } while (m_beyond);
}

void DateWindows::fill(const std::optional<std::string>& after) {
    m_rows.clear();
    m_beyond.reset();
    for (const Piece& piece : m_pieces) {
        if ((after && piece.latest <= *after) || (m_beyond && piece.earliest >= *m_beyond)) {
            continue;
        }
        ArchiveCells cells(piece.part, m_columns, false);
        cells.next();
        while (cells.valid()) {
            cells.take(rowOf(cells.date(), after));
        }
    }
}

std::vector<int32_t>& DateWindows::rowOf(const std::string& date, const std::optional<std::string>& after) {
    if ((after && date <= *after) || (m_beyond && date >= *m_beyond)) {
        return m_elsewhere;
    }
    const auto [row, isNew] = m_rows.try_emplace(date);
    if (isNew) {
        row->second.resize(m_columns.size());
    }
    if (m_rows.size() > m_rowsAtOnce) {
        const auto last = std::prev(m_rows.end());
        m_beyond = last->first;
        const bool isLast = last == row;
        m_rows.erase(last);
        if (isLast) {
            return m_elsewhere;
        }
    }
    return row->second;
}

#include "statistics/report_stream.h"

#include <algorithm>
#include <charconv>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "base/unique_fd.h"
#include "statistics/archive_cells.h"
#include "statistics/archive_file.h"
#include "statistics/date_windows.h"
#include "statistics/summary_report.h"

/*
 * Archives are written flush by flush, so their dates ascend and the report's rows can be merged from the four files
 * without keeping them; where a clock was set back, a file falls into runs that ascend. A survey finds columns and
 * runs, a second pass writes the rows. Memory is the text and a buffer for each run.
 *
 * Most archives hold the same columns from their first day and no clock was ever set back: then the beginning of the
 * files tells as much as all of them, and one pass is enough. Where that was wrong, the whole survey follows. Where
 * clocks were set back more often than there is room for buffers, the rows are sorted window by window.
 */

namespace report_stream {
namespace {

constexpr size_t kBeginning = 100;  // dates of a file that a short survey looks at
constexpr size_t kMostRuns = 64;    // of all files; each has a buffer

struct File {
    UniqueFd fd;
    off_t size = 0; /**< what is appended later is left to the next report */
    std::optional<time_t> purgedBefore;
};
using Files = OfEachKind<File>;

struct Survey {
    Columns columns;
    std::array<std::vector<Run>, 4> runs; /**< those of all files together; not more than kMostRuns and one */
    size_t runCount = 0;
    size_t rows = 0;
    size_t dateLength = 0;
    size_t extraDigits = 0; /**< characters of the numbers beyond one each */
};

/** What a count over a part comes to over the whole, with an eighth to spare. */
size_t scaled(size_t count, off_t part, off_t whole) {
    const double share = static_cast<double>(whole) / static_cast<double>(part);
    return static_cast<size_t>(static_cast<double>(count) * share * 1.125) + 1;
}

/** Looks at all lines; or at the first dates of every file, and reckons that the rest is like them. */
Survey look(const Files& files, bool all) {
    Survey survey;
    for (size_t i = 0; i < files.size(); ++i) {
        if (!files[i].fd) {
            continue;
        }
        ArchiveCells cells({kArchiveKinds[i], files[i].fd.get(), {0, files[i].size}, files[i].purgedBefore},
                           survey.columns, true);
        std::vector<Run>& runs = survey.runs[i];
        runs.emplace_back();
        ++survey.runCount;
        size_t dates = 0;
        bool more = false;
        while ((more = cells.next()) && (all || dates < kBeginning)) {
            dates += cells.hasNewDate() ? 1 : 0;
            survey.dateLength = std::max(survey.dateLength, cells.date().size());
            if (cells.descends() && ++survey.runCount <= kMostRuns) {
                runs.back().end = cells.lineBegin();
                runs.push_back({cells.lineBegin()});
            }
        }
        size_t digits = cells.extraDigits();
        runs.back().end = files[i].size;
        if (more) {
            dates = scaled(dates, cells.lineEnd(), files[i].size);
            digits = scaled(digits, cells.lineEnd(), files[i].size);
        }
        survey.rows = std::max(survey.rows, dates);
        survey.extraDigits += digits;
    }
    size_t place = 0;
    for (auto& [name, number] : survey.columns) {
        number = place++;
    }
    return survey;
}

struct Frame {
    std::string_view rowBegin, cellBegin, cellEnd, rowEnd, end;
};
constexpr Frame kCsv = {"", ",", "", "\n", ""};
constexpr Frame kHtml = {"<tr><th>", "<th>", "</th>", "</tr>\n", "</table></body></html>"};

std::string head(const Columns& columns, Form form) {
    SummaryReport names;
    for (const auto& [name, place] : columns) {
        names.add("", name, 0);
    }
    if (form == Form::Csv) {
        return names.getCSVHeader() + "\n";
    }
    const std::string text = names.getHTMLAsString();
    return text.substr(0, text.find("\n\n") + 2);
}

void appendRow(std::string& text, const std::string& date, const std::vector<int32_t>& row, const Frame& frame) {
    text.append(frame.rowBegin).append(date).append(frame.rowBegin.empty() ? "" : frame.cellEnd);
    std::array<char, 12> digits = {};
    for (const int32_t value : row) {
        text += frame.cellBegin;
        if (value >= 0 && value <= 9) {
            text += static_cast<char>('0' + value);
        } else {
            text.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr);
        }
        text += frame.cellEnd;
    }
    text += frame.rowEnd;
}

/** The rows when there are too many runs to be merged. */
std::string sortedRowsOf(const Files& files, Survey& survey, Form form) {
    std::vector<ArchivePart> parts;
    for (size_t i = 0; i < files.size(); ++i) {
        if (files[i].fd) {
            parts.push_back({kArchiveKinds[i], files[i].fd.get(), {0, files[i].size}, files[i].purgedBefore});
        }
    }
    DateWindows windows(std::move(parts), survey.columns);
    const Frame& frame = form == Form::Csv ? kCsv : kHtml;
    std::string text = head(survey.columns, form);
    // Measured first: a text that grows by doubling would need room for two of it.
    size_t size = text.size() + frame.end.size();
    std::string measured;
    windows.forEachRow([&](const std::string& date, const std::vector<int32_t>& row) {
        measured.clear();
        appendRow(measured, date, row, frame);
        size += measured.size();
    });
    text.reserve(size);
    windows.forEachRow(
        [&](const std::string& date, const std::vector<int32_t>& row) { appendRow(text, date, row, frame); });
    text += frame.end;
    return text;
}

/**
 * Merges the runs into rows. Nothing when there is a column or a clock that was set back of which the survey does not
 * know, or when the text turns out longer than reckoned and may not grow.
 */
std::optional<std::string> rowsOf(const Files& files, Survey& survey, Form form, bool mayGrow) {
    const Frame& frame = form == Form::Csv ? kCsv : kHtml;
    std::string text = head(survey.columns, form);
    // One piece from the start: a text that grows by doubling would need room for two of it.
    const size_t cellSize = frame.cellBegin.size() + 1 + frame.cellEnd.size();
    const size_t shortRow = 32 + survey.dateLength + survey.columns.size() * cellSize;
    const size_t longRow = shortRow + survey.columns.size() * 10;
    text.reserve(text.size() + survey.rows * shortRow + survey.extraDigits + longRow + frame.end.size());
    std::vector<ArchiveCells> sources;
    sources.reserve(survey.runCount);
    for (size_t i = 0; i < files.size(); ++i) {
        for (const Run& run : survey.runs[i]) {
            const ArchivePart part = {kArchiveKinds[i], files[i].fd.get(), run, files[i].purgedBefore};
            sources.emplace_back(part, survey.columns, false).next();
        }
    }
    std::vector<int32_t> row(survey.columns.size());
    for (;;) {
        const ArchiveCells* first = nullptr;
        for (const ArchiveCells& source : sources) {
            if (source.endedUnknown() || (source.valid() && source.descends())) {
                return std::nullopt;
            }
            if (source.valid() && (first == nullptr || source.date() < first->date())) {
                first = &source;
            }
        }
        if (first == nullptr) {
            break;
        }
        const std::string date = first->date();
        if (!mayGrow && text.capacity() - text.size() < longRow + date.size()) {
            return std::nullopt;
        }
        std::fill(row.begin(), row.end(), 0);
        for (ArchiveCells& source : sources) {
            if (source.valid() && source.date() == date) {
                source.take(row);
            }
        }
        appendRow(text, date, row, frame);
    }
    text += frame.end;
    return text;
}

/** The text by a look at the beginnings; nothing when those did not tell enough. */
std::optional<std::string> fromBeginnings(const Files& files, Form form) {
    try {
        Survey survey = look(files, false);
        return rowsOf(files, survey, form, false);
    } catch (const std::logic_error&) {
        return std::nullopt;  // a word for a number: of several the survey of everything meets the right one first
    }
}

}  // namespace

std::string write(const Archives& archives, Form form) {
    Files files;
    for (size_t i = 0; i < files.size(); ++i) {
        files[i].fd = UniqueFd(open(archives[i].path.c_str(), O_RDONLY | O_CLOEXEC));
        files[i].size = archive_file::wholeSize(files[i].fd.get());
        files[i].purgedBefore = archives[i].purgedBefore;
    }
    if (std::optional<std::string> text = fromBeginnings(files, form)) {
        return std::move(*text);
    }
    Survey survey = look(files, true);
    // Of everything the survey knows, rows there are.
    return survey.runCount > kMostRuns ? sortedRowsOf(files, survey, form) : rowsOf(files, survey, form, true).value();
}

}  // namespace report_stream

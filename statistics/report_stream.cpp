#include "report_stream.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <map>
#include <set>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "summary_report.h"
#include "unique_fd.h"

/*
 * Archives are written flush by flush, so their dates ascend and the report's rows can be merged from the four files
 * without keeping them: one pass finds the columns, a second one writes the rows. Memory is the text and four buffers.
 *
 * And every flush brings the same lines but for the date and the count. So the reader remembers what stood between them
 * (",Lobby,0,2,") with the column it means, and expects the lines of a flush in the order of the flush before: a
 * comparison of bytes and a short number are all that most lines cost. Any other line takes the long way through the
 * record and SummaryReport, which alone know the rules: what parses, what is left out, how columns are named.
 */

namespace report_stream {
namespace {

/** Names of a report's columns to their places. */
using Columns = std::map<std::string, size_t>;

/** A kind of archive: how many numbers end its lines, and the columns of a line, none when it is left out. */
struct Kind {
    size_t numbers;
    std::set<std::string> (*columnsOf)(const std::string& line);
};

template <typename Record, bool kAverage = false>
std::set<std::string> columnsOf(const std::string& line) {
    Record record;
    record.deserialize(line);
    SummaryReport report;
    if constexpr (kAverage) {
        report.addAverage({record});
    } else {
        report.add(std::vector<Record>{record});
    }
    return report.getColumnNames();
}

constexpr std::array<Kind, 4> kKinds = {{{1, columnsOf<CrowdCountRecord>},
                                         {2, columnsOf<EntranceActivityRecord>},
                                         {1, columnsOf<OccupancyObjectRecord>},
                                         {1, columnsOf<CrowdCountRecord, true>}}};

/** Hands out a file's text in whole lines; a line longer than the buffer makes it grow. */
class LineReader {
public:
    explicit LineReader(int fd, off_t most) : m_fd(fd), m_most(most), m_buffer(kBufferSize) {}

    /** What is left of the whole lines at hand, more of them when nothing is; empty at the end. */
    std::string_view lines() {
        if (m_begin == m_whole) {
            fill();
        }
        return {m_buffer.data() + m_begin, m_whole - m_begin};
    }
    void skip(size_t bytes) { m_begin += bytes; }
    off_t bytesRead() const { return m_read; }

private:
    static constexpr size_t kBufferSize = size_t{1} << 17U;

    void fill() {
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = m_whole = 0;
        while (m_whole == 0 && !m_atEnd) {
            if (m_end + 1 >= m_buffer.size()) {
                m_buffer.resize(m_buffer.size() * 2);
            }
            const auto room = std::min(static_cast<off_t>(m_buffer.size() - m_end - 1), m_most - m_read);
            const ssize_t got = pread(m_fd, m_buffer.data() + m_end, static_cast<size_t>(room), m_read);
            if (got <= 0) {
                m_atEnd = true;
                if (m_end > 0) {
                    m_buffer[m_end++] = '\n';  // the last line may lack its end
                }
                m_whole = m_end;
                return;
            }
            const size_t before = m_end;
            m_end += static_cast<size_t>(got);
            m_read += got;
            const size_t newline = std::string_view(m_buffer.data() + before, m_end - before).rfind('\n');
            m_whole = newline == std::string_view::npos ? 0 : before + newline + 1;
        }
    }

    const int m_fd;
    const off_t m_most;  // the second pass reads no more than the first, whatever was appended meanwhile
    off_t m_read = 0;
    std::vector<char> m_buffer;
    size_t m_begin = 0;
    size_t m_whole = 0; /**< end of the whole lines */
    size_t m_end = 0;
    bool m_atEnd = false;
};

/** Walks over the cells of one archive. */
class Cells {
public:
    /** columns: new names are put in when they may be; else lines that bring some are left out. */
    Cells(const Kind& kind, int fd, off_t most, Columns& columns, bool mayAdd)
        : m_kind(kind), m_reader(fd, most), m_columns(columns), m_mayAdd(mayAdd) {}

    /** Goes to the next line that counts; false at the end and where dates descend. */
    bool next() {
        m_newDate = false;
        for (std::string_view text = m_reader.lines(); !text.empty(); text = m_reader.lines()) {
            if (m_expected == m_steps.size()) {
                m_expected = 0;
            }
            const size_t taken = takeExpected(text);
            if (taken > 0) {
                ++m_expected;
                m_reader.skip(taken);
                return m_valid = !m_descends;
            }
            const size_t length = text.find('\n');
            const std::string line(text.substr(0, length));
            m_reader.skip(length + 1);
            if (takeAny(line)) {
                return m_valid = !m_descends;
            }
        }
        return m_valid = false;
    }

    bool valid() const { return m_valid; }
    bool descends() const { return m_descends; }
    bool hasNewDate() const { return m_newDate; }
    const std::string& date() const { return m_date; }
    off_t bytesRead() const { return m_reader.bytesRead(); }
    /** Characters of the numbers beyond one each. */
    size_t extraDigits() const { return m_extraDigits; }

    /** Puts the values of this line and all others of its date where they belong. */
    void take(std::vector<int32_t>& row) {
        do {
            for (size_t i = 0; i < m_kind.numbers; ++i) {
                row[m_places[i]] = m_values[i];
            }
        } while (next() && !m_newDate);
    }

private:
    struct Step {
        std::string between; /**< the bytes from the date to the numbers */
        std::array<size_t, 2> places = {};
    };

    size_t takeExpected(std::string_view text) {
        if (m_steps.empty()) {
            return 0;
        }
        const Step& step = m_steps[m_expected];
        size_t dateLength = m_date.size();
        const bool sameDate = text.size() > dateLength && text[dateLength] == ',' &&
                              std::memcmp(text.data(), m_date.data(), dateLength) == 0;
        if (!sameDate) {
            dateLength = std::min(text.find(','), text.size());
            if (text.substr(0, dateLength).find('\n') != std::string_view::npos) {
                return 0;
            }
        }
        if (text.substr(dateLength, step.between.size()) != step.between) {
            return 0;
        }
        const char* at = text.data() + dateLength + step.between.size();
        const char* const end = text.data() + text.size();
        std::array<int32_t, 2> values = {};
        size_t digits = 0;
        for (size_t i = 0; i < m_kind.numbers; ++i) {
            const char* const begin = at;
            const char after = i + 1 < m_kind.numbers ? ',' : '\n';
            if (end - at > 1 && at[1] == after && *at >= '0' && *at <= '9') {
                values[i] = *at++ - '0';
            } else {
                const auto [stop, error] = std::from_chars(at, end, values[i]);
                if (error != std::errc() || stop == end) {
                    return 0;
                }
                at = stop;
            }
            if (*at != after) {
                return 0;
            }
            digits += static_cast<size_t>(at - begin) - 1;
            ++at;
        }
        m_extraDigits += digits;
        m_values = values;
        m_places = step.places;
        if (!sameDate) {
            setDate(text.substr(0, dateLength));
        }
        return static_cast<size_t>(at - text.data());
    }

    bool takeAny(const std::string& line) {
        const std::set<std::string> names = m_kind.columnsOf(line);
        if (names.size() != m_kind.numbers) {
            return false;
        }
        size_t numbers = line.size();
        for (size_t i = m_kind.numbers; i-- > 0;) {
            numbers = line.rfind(',', numbers - 1);
            m_values[i] = std::stoi(line.substr(numbers + 1));
        }
        const size_t dateLength = line.find(',');
        Step step{line.substr(dateLength, numbers + 1 - dateLength), {}};
        size_t place = 0;
        for (const std::string& name : names) {
            const auto column = m_mayAdd ? m_columns.try_emplace(name, 0).first : m_columns.find(name);
            if (column == m_columns.end()) {
                return false;
            }
            step.places[place++] = column->second;
        }
        m_places = step.places;
        m_extraDigits += line.size() - numbers;
        const auto [known, isNew] = m_known.try_emplace(step.between, m_steps.size());
        m_expected = known->second + 1;
        if (isNew) {
            m_steps.push_back(std::move(step));
        }
        setDate(std::string_view(line).substr(0, dateLength));
        return true;
    }

    void setDate(std::string_view date) {
        if (!m_started || date != m_date) {
            m_descends = m_started && date < m_date;
            m_date = date;
            m_newDate = m_started = true;
        }
    }

    const Kind& m_kind;
    LineReader m_reader;
    Columns& m_columns;
    const bool m_mayAdd;
    std::vector<Step> m_steps;
    std::map<std::string, size_t> m_known; /**< places of the steps */
    size_t m_expected = 0;                 /**< the step that comes next if this flush is like the one before */
    std::string m_date;
    std::array<int32_t, 2> m_values = {};
    std::array<size_t, 2> m_places = {};
    size_t m_extraDigits = 0;
    bool m_started = false;
    bool m_newDate = false;
    bool m_descends = false;
    bool m_valid = false;
};

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

}  // namespace

std::optional<std::string> write(const Archives& archives, Form form) {
    const std::array<const std::string*, 4> paths = {&archives.crowdCount, &archives.entranceActivity,
                                                     &archives.occupancy, &archives.averageCrowdCount};
    std::array<UniqueFd, 4> files;
    std::array<off_t, 4> sizes = {};
    Columns columns;
    size_t rows = 0;
    size_t dateLength = 0;
    size_t extraDigits = 0;
    for (size_t i = 0; i < kKinds.size(); ++i) {
        files[i] = UniqueFd(open(paths[i]->c_str(), O_RDONLY | O_CLOEXEC));
        Cells cells(kKinds[i], files[i].get(), std::numeric_limits<off_t>::max(), columns, true);
        size_t dates = 0;
        while (cells.next()) {
            dates += cells.hasNewDate() ? 1 : 0;
            dateLength = std::max(dateLength, cells.date().size());
        }
        if (cells.descends()) {
            return std::nullopt;
        }
        sizes[i] = cells.bytesRead();
        rows = std::max(rows, dates);
        extraDigits += cells.extraDigits();
    }
    size_t place = 0;
    for (auto& [name, number] : columns) {
        number = place++;
    }
    const Frame& frame = form == Form::Csv ? kCsv : kHtml;
    std::string text = head(columns, form);
    // One piece from the start: a text that grows by doubling would need room for two of it.
    const size_t cellSize = frame.cellBegin.size() + 1 + frame.cellEnd.size();
    text.reserve(text.size() + rows * (32 + dateLength + columns.size() * cellSize) + extraDigits + frame.end.size());
    std::vector<Cells> sources;
    sources.reserve(kKinds.size());
    for (size_t i = 0; i < kKinds.size(); ++i) {
        sources.emplace_back(kKinds[i], files[i].get(), sizes[i], columns, false).next();
    }
    std::vector<int32_t> row(columns.size());
    for (;;) {
        const Cells* first = nullptr;
        for (const Cells& source : sources) {
            if (source.valid() && (first == nullptr || source.date() < first->date())) {
                first = &source;
            }
        }
        if (first == nullptr) {
            break;
        }
        const std::string date = first->date();
        std::fill(row.begin(), row.end(), 0);
        for (Cells& source : sources) {
            if (source.valid() && source.date() == date) {
                source.take(row);
            }
        }
        appendRow(text, date, row, frame);
    }
    text += frame.end;
    return text;
}

}  // namespace report_stream

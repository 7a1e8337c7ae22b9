#include "statistics/archive_cells.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "statistics/summary_report.h"

namespace {

/** The columns that a line of a kind of archive has in a report. */
template <size_t kKind>
std::set<std::string> columnsOf(const std::string& line) {
    constexpr auto kRecordKind = std::get<kKind>(kRecordKinds);
    typename decltype(kRecordKind)::Record record;
    record.deserialize(line);
    SummaryReport report;
    (report.*kRecordKind.addToReport)({record});
    return report.getColumnNames();
}

template <size_t... kKinds>
OfEachKind<ArchiveKind> archiveKinds(std::index_sequence<kKinds...> /*of all kinds*/) {
    return {{{std::get<kKinds>(kRecordKinds).numbers, columnsOf<kKinds>}...}};
}

}  // namespace

const OfEachKind<ArchiveKind> kArchiveKinds = archiveKinds(std::make_index_sequence<kRecordKindCount>());

ArchiveCells::ArchiveCells(const ArchivePart& part, Columns& columns, bool mayAdd)
    : m_kind(part.kind),
      m_reader(part.fd, part.run.begin, part.run.end),
      m_purgedBefore(part.purgedBefore),
      m_columns(columns),
      m_mayAdd(mayAdd) {}

bool ArchiveCells::next() {
    m_newDate = false;
    for (std::string_view text = m_reader.lines(); !text.empty() && !m_unknown; text = m_reader.lines()) {
        if (m_expected == m_steps.size()) {
            m_expected = 0;
        }
        m_lineSize = takeExpected(text);
        if (m_lineSize > 0) {
            ++m_expected;
            m_reader.skip(m_lineSize);
            return m_valid = true;
        }
        m_lineSize = text.find('\n') + 1;
        const std::string line(text.substr(0, m_lineSize - 1));
        m_reader.skip(m_lineSize);
        if (takeAny(line)) {
            return m_valid = true;
        }
    }
    return m_valid = false;
}

void ArchiveCells::take(std::vector<int32_t>& row) {
    do {
        for (size_t i = 0; i < m_kind.numbers; ++i) {
            row[m_places[i]] = m_values[i];
        }
    } while (next() && !m_newDate);
}

size_t ArchiveCells::takeExpected(std::string_view text) {
    if (m_steps.empty()) {
        return 0;
    }
    const Step& step = m_steps[m_expected];
    size_t dateLength = m_date.size();
    const bool sameDate =
        text.size() > dateLength && text[dateLength] == ',' && std::memcmp(text.data(), m_date.data(), dateLength) == 0;
    if (!sameDate) {
        dateLength = std::min(text.find(','), text.size());
        if (text.substr(0, dateLength).find('\n') != std::string_view::npos) {
            return 0;
        }
    }
    if (text.substr(dateLength, step.between.size()) != step.between) {
        return 0;
    }
    if (!sameDate && isPurged(text.substr(0, dateLength))) {
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

bool ArchiveCells::takeAny(const std::string& line) {
    const std::set<std::string> names = m_kind.columnsOf(line);
    if (names.size() != m_kind.numbers) {
        return false;
    }
    const size_t dateLength = line.find(',');
    if (isPurged(std::string_view(line).substr(0, dateLength))) {
        return false;
    }
    size_t numbers = line.size();
    for (size_t i = m_kind.numbers; i-- > 0;) {
        numbers = line.rfind(',', numbers - 1);
        m_values[i] = std::stoi(line.substr(numbers + 1));
    }
    Step step{line.substr(dateLength, numbers + 1 - dateLength), {}};
    size_t place = 0;
    for (const std::string& name : names) {
        const auto column = m_mayAdd ? m_columns.try_emplace(name, 0).first : m_columns.find(name);
        if (column == m_columns.end()) {
            m_unknown = true;
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

bool ArchiveCells::isPurged(std::string_view date) {
    return m_purgedBefore && m_dateReader.read(std::string(date)) < *m_purgedBefore;
}

void ArchiveCells::setDate(std::string_view date) {
    if (!m_started || date != m_date) {
        m_descends = m_started && date < m_date;
        m_date = date;
        m_newDate = m_started = true;
    }
}

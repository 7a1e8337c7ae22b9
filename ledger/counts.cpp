#include "ledger/counts.h"

#include <algorithm>
#include <glib.h>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace ledger {

namespace {

constexpr size_t kMostRows = 20'000;
constexpr int kQuartersPerDay = 96;
constexpr int64_t kHourMillis = 4 * kQuarterMillis;
constexpr size_t kDateDigits = std::string_view("2026-11-22").size();

struct UnrefZone {
    void operator()(GTimeZone* zone) const { g_time_zone_unref(zone); }
};
using Zone = std::unique_ptr<GTimeZone, UnrefZone>;

struct UnrefTime {
    void operator()(GDateTime* time) const { g_date_time_unref(time); }
};
using Time = std::unique_ptr<GDateTime, UnrefTime>;

struct FreeText {
    void operator()(char* text) const { g_free(text); }
};

/** Whether a text has the form of a zone's name; of others, GLib would open any file. */
bool isZoneName(const std::string& name) {
    const bool hasCharacters = std::all_of(name.begin(), name.end(), [](char c) {
        return g_ascii_isalnum(c) || c == '_' || c == '+' || c == '-' || c == '/';
    });
    return hasCharacters && !name.starts_with('/') && !name.ends_with('/') && name.find("//") == std::string::npos;
}

Zone zoneOf(const std::string& name) {
    Zone zone;
    if (name.empty()) {
        zone.reset(g_time_zone_new_local());
    } else if (isZoneName(name)) {
        zone.reset(g_time_zone_new_identifier(name.c_str()));
    }
    if (!zone) {
        throw std::invalid_argument("expected a time zone such as Europe/Berlin, got \"" + name + "\"");
    }
    return zone;
}

/** Takes a time that GLib has made; it makes none outside of the calendar. */
Time made(GDateTime* time) {
    if (time == nullptr) {
        throw std::invalid_argument(
            "expected times within the years 1 to 9999 of the time zone, got one outside of them");
    }
    return Time(time);
}

Time timeIn(const Zone& zone, int64_t utcMillis) {
    const Time utc = made(g_date_time_new_from_unix_utc(utcMillis / 1000));
    return made(g_date_time_to_timezone(utc.get(), zone.get()));
}

int64_t millisOf(const Time& time) {
    return g_date_time_to_unix(time.get()) * 1000;
}

std::string textOf(const Zone& zone, int64_t utcMillis) {
    const Time time = timeIn(zone, utcMillis);
    const std::unique_ptr<char, FreeText> text(g_date_time_format(time.get(), "%Y-%m-%dT%H:%M:%S%:z"));
    return text.get();
}

/** Of a local time that comes twice, the first: a day that begins so begins there. */
int64_t firstOf(const Zone& zone, const Time& time) {
    const Time before = timeIn(zone, millisOf(time) - kHourMillis);
    const bool isTwice = g_date_time_get_hour(before.get()) == g_date_time_get_hour(time.get()) &&
                         g_date_time_get_minute(before.get()) == g_date_time_get_minute(time.get());
    return millisOf(isTwice ? before : time);
}

/** Where the day begins that lies so many days from a time's, or its month, or its year. */
int64_t midnight(const Zone& zone, const Time& time, int days, int months, int years) {
    const Time there = made(g_date_time_add_full(time.get(), years, months, days, 0, 0, 0));
    const bool byMonth = months != 0;
    const bool byYear = years != 0;
    const Time begin = made(
        g_date_time_new(zone.get(), g_date_time_get_year(there.get()), byYear ? 1 : g_date_time_get_month(there.get()),
                        byMonth || byYear ? 1 : g_date_time_get_day_of_month(there.get()), 0, 0, 0));
    return firstOf(zone, begin);
}

/** The first moment behind another one at which a step ends. */
int64_t nextBoundary(const Zone& zone, int64_t utcMillis, Step step) {
    const Time time = timeIn(zone, utcMillis);
    switch (step) {
        case Step::Quarter:
            break;
        case Step::Hour:
            // Where clocks are set by half an hour, an hour may have six quarters.
            for (int64_t next = utcMillis + kQuarterMillis, i = 0; i < kQuartersPerDay; ++i, next += kQuarterMillis) {
                if (g_date_time_get_minute(timeIn(zone, next).get()) == 0) {
                    return next;
                }
            }
            break;
        case Step::Day:
            return midnight(zone, time, 1, 0, 0);
        case Step::Week:
            return midnight(zone, time, 8 - g_date_time_get_day_of_week(time.get()), 0, 0);
        case Step::Month:
            return midnight(zone, time, 0, 1, 0);
        case Step::Year:
            return midnight(zone, time, 0, 0, 1);
    }
    return utcMillis + kQuarterMillis;
}

void addTo(CountsRow& row, const Quarter& quarter, const CountsBy& by) {
    for (const auto& [key, count] : quarter.crossings) {
        Count told;
        told.entrance = by.entrance ? std::optional(key.entrance) : std::nullopt;
        told.isIn = by.direction ? std::optional(key.isIn) : std::nullopt;
        told.classId = by.classes ? std::optional(key.classId) : std::nullopt;
        row.counts[told] += count;
    }
}

}  // namespace

Step stepOf(const std::string& text) {
    static const std::map<std::string, Step> kSteps = {{"quarter", Step::Quarter}, {"hour", Step::Hour},
                                                       {"day", Step::Day},         {"week", Step::Week},
                                                       {"month", Step::Month},     {"year", Step::Year}};
    const auto known = kSteps.find(text);
    if (known == kSteps.end()) {
        throw std::invalid_argument("expected a step of quarter, hour, day, week, month or year, got \"" + text + "\"");
    }
    return known->second;
}

CountsBy countsByOf(const std::string& text) {
    CountsBy by = {false, false, false};
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, ',');) {
        if (word == "entrance") {
            by.entrance = true;
        } else if (word == "direction") {
            by.direction = true;
        } else if (word == "class") {
            by.classes = true;
        } else {
            throw std::invalid_argument("expected by=entrance, direction or class, joined by commas, got \"" + word +
                                        "\"");
        }
    }
    return by;
}

int64_t momentOf(const std::string& text, const std::string& zone) {
    const std::string whole = text.size() == kDateDigits ? text + "T00:00:00" : text;
    const Time time(g_date_time_new_from_iso8601(whole.c_str(), zoneOf(zone).get()));
    // In UTC it may lie outside of the calendar.
    if (!time || !Time(g_date_time_to_utc(time.get()))) {
        throw std::invalid_argument("expected a time such as 2026-11-22 or 2026-11-22T07:00:00Z, got \"" + text + "\"");
    }
    return text.size() == kDateDigits ? firstOf(zoneOf(zone), time) : millisOf(time);
}

std::string localZoneName() {
    const Zone zone = zoneOf("");
    const std::string name = g_time_zone_get_identifier(zone.get());
    // Rules without a name, such as "CET-1CEST,M3.5.0,M10.5.0/3", mean nothing elsewhere.
    const bool isName = name.find('/') != std::string::npos && name.find(',') == std::string::npos;
    return isName || name == "UTC" ? name : "";
}

HourOfDay::HourOfDay(const std::string& zone)
    : m_read([known = std::shared_ptr<GTimeZone>(zoneOf(zone).release(), UnrefZone())](int64_t utcMillis) {
          const Time utc(g_date_time_new_from_unix_utc(utcMillis / 1000));
          const Time there(utc ? g_date_time_to_timezone(utc.get(), known.get()) : nullptr);
          return there ? g_date_time_get_hour(there.get()) : 0;
      }) {}

int HourOfDay::operator()(int64_t utcMillis) const {
    if (const int64_t quarter = utcMillis / kQuarterMillis; quarter != m_quarter) {
        m_quarter = quarter;
        m_hour = m_read(utcMillis);
    }
    return m_hour;
}

std::vector<CountsRow> countsOf(const Index& index, const CountsQuery& query, const Quarters& before) {
    const Zone zone = zoneOf(query.zone);
    if (query.from >= query.until) {
        throw std::invalid_argument("expected an end behind the begin, got " + textOf(zone, query.from) + " to " +
                                    textOf(zone, query.until));
    }
    const int64_t first = query.from / kQuarterMillis;
    const int64_t last = (query.until + kQuarterMillis - 1) / kQuarterMillis;
    const Quarters quarters = index.quarters(first, last);
    std::vector<CountsRow> rows;
    for (int64_t begin = first * kQuarterMillis; begin < last * kQuarterMillis;) {
        if (rows.size() == kMostRows) {
            throw std::invalid_argument("expected a question of at most " + std::to_string(kMostRows) +
                                        " rows, got more; ask for longer steps or less time");
        }
        CountsRow row;
        row.begin = begin;
        row.end = std::min(nextBoundary(zone, begin, query.step), last * kQuarterMillis);
        row.beginText = textOf(zone, row.begin);
        row.endText = textOf(zone, row.end);
        int64_t watched = 0;
        for (const Quarters* const from : {&quarters, &before}) {
            const auto behind = from->lower_bound(row.end / kQuarterMillis);
            for (auto at = from->lower_bound(row.begin / kQuarterMillis); at != behind; ++at) {
                addTo(row, at->second, query.by);
                watched += at->second.watchedMillis;
            }
        }
        row.coverage = std::min(1.0, static_cast<double>(watched) / static_cast<double>(row.end - row.begin));
        begin = row.end;
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace ledger

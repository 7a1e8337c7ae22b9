#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ledger/index.h"

namespace ledger {

/** How long a row of counts is, in the time of a zone. */
enum class Step {
    Quarter,
    Hour,
    Day,
    Week, /**< from Monday on */
    Month,
    Year
};

/** By what counts are told apart. */
struct CountsBy {
    bool entrance = true;
    bool direction = true;
    bool classes = false;
};

/** A question for counts. Texts as a request gives them. */
struct CountsQuery {
    int64_t from = 0;  /**< UTC, milliseconds; a part of a quarter of an hour counts as the whole */
    int64_t until = 0; /**< likewise, not included */
    Step step = Step::Hour;
    CountsBy by;
    std::string zone; /**< such as "Europe/Berlin"; empty for the machine's */
};

/** One count of a row; what the question does not tell apart is not set. */
struct Count {
    std::optional<int> entrance;
    std::optional<bool> isIn;
    std::optional<int> classId;

    auto operator<=>(const Count&) const = default;  // NOLINT(modernize-use-nullptr): a comparison with 0
};

struct CountsRow {
    int64_t begin = 0; /**< UTC, milliseconds */
    int64_t end = 0;
    std::string beginText; /**< in the zone, with its offset: "2026-11-22T00:00:00+01:00" */
    std::string endText;
    double coverage = 0; /**< the share of it that was watched, 0..1 */
    std::map<Count, int64_t> counts;
};

/** Reads "quarter", "hour", "day", "week", "month" or "year"; throws std::invalid_argument, saying so. */
Step stepOf(const std::string& text);

/** Reads "entrance,direction,class" or some of them; throws std::invalid_argument, saying so. */
CountsBy countsByOf(const std::string& text);

/**
 * Reads a moment: "2026-11-22" and "2026-11-22T08:00:00" in a zone, "2026-11-22T07:00:00Z" and with an offset as they
 * say. Throws std::invalid_argument with what was expected.
 */
int64_t momentOf(const std::string& text, const std::string& zone);

/** The machine's zone as others name it, such as "Europe/Berlin"; empty where it has no such name. */
std::string localZoneName();

/** Tells the hour of the day in a zone. */
class HourOfDay {
public:
    /** zone: as in CountsQuery. Throws std::invalid_argument for an unknown one. */
    explicit HourOfDay(const std::string& zone);

    /** 0..23; quick for moments near the one before. */
    int operator()(int64_t utcMillis) const;

private:
    std::function<int(int64_t)> m_read;
    mutable int64_t m_quarter = -1; /**< the last one asked for */
    mutable int m_hour = 0;
};

/**
 * Counts per step, every step of the time asked for; hours and days as the zone has them, a night of 25 hours included.
 * before: what is known from elsewhere, and added. Throws std::invalid_argument for an unknown zone, an end before the
 * begin, rows outside of the years 1 to 9999, and for more than 20,000 rows.
 */
std::vector<CountsRow> countsOf(const Index& index, const CountsQuery& query, const Quarters& before = {});

}  // namespace ledger

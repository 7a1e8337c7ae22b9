#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

/**
 * The ledger's lines. Each is one JSON object that begins with its number, the ledger's epoch, its time and its kind,
 * in this order:
 *
 *     {"seq":17,"epoch":"5f0c…","t":"2026-11-22T04:31:39.123Z","kind":"crossing", …}
 *
 * A line from before the clock was known carries "boot" and "mono" instead of "t". docs/ledger.md describes every kind.
 */
namespace ledger {

/** When something was: in UTC or, before the clock was known, in time since the machine's start. */
struct Moment {
    int64_t utcMillis = 0;  /**< milliseconds since 1970; meaningless while boot is set */
    std::string boot;       /**< the machine's start that monoMillis counts from; empty when utcMillis tells */
    int64_t monoMillis = 0; /**< milliseconds since the machine's start; 0 where the line did not need it */

    [[nodiscard]] bool isDated() const { return boot.empty(); }
};

/** How every line begins. */
struct LineHead {
    int64_t seq = 0;
    std::string epoch;
    Moment moment;
    std::string kind;
};

/** The text of an object's members, for lineText; what is no UTF-8 in it is replaced. */
std::string bodyText(const nlohmann::ordered_json& body);

/** One line, its end included. body: the kind's own members, from bodyText. */
std::string lineText(const LineHead& head, std::string_view body);

/**
 * Reads how a line begins, without reading the rest; nothing when it is no line of the ledger, or one with a hole: a
 * page that a power cut kept from the disk. line: without its end.
 */
std::optional<LineHead> headOf(std::string_view line);

/** Reads a whole line; a discarded value when it is no JSON object with a ledger line's head. */
nlohmann::json parseLine(std::string_view line);

/** What a line of kind "clock" makes known: when a start of the machine was. */
struct BootTime {
    std::string boot;
    int64_t utcMillis = 0; /**< milliseconds since 1970 */
};

/**
 * Reads a whole line; nothing for one of another kind, or that tells of a step of the clock only. By it are dated all
 * lines before it that count from this start of the machine and that no earlier one dates.
 */
std::optional<BootTime> bootTimeOf(const LineHead& head, const nlohmann::json& line);

/** A member of a line; empty where there is none, or another kind of value: a damaged line must not end a process. */
std::string textIn(const nlohmann::json& line, const char* member);

/** Likewise a whole number, 0 where there is none or one beyond all reach. */
int64_t numberIn(const nlohmann::json& line, const char* member);

/** "2026-11-22T04:31:39.123Z"; years 0 to 9999. */
std::string utcText(int64_t utcMillis);

/** Reads utcText's form, to the millisecond; nothing when it is another text. */
std::optional<int64_t> utcOf(std::string_view text);

/** The day of a moment in UTC: "2026-11-22". */
std::string utcDay(int64_t utcMillis);

}  // namespace ledger

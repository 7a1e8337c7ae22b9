#include "ledger/line.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <nlohmann/json.hpp>

namespace ledger {

namespace {

constexpr int64_t kMillisPerSecond = 1000;
// Beyond what a ledger reaches in a thousand years; a damaged line must not make numbers overflow.
constexpr int64_t kMostNumber = 1'000'000'000'000'000;

constexpr std::string_view kUtcForm = "0000-00-00T00:00:00.000Z";
constexpr int64_t kMillisPerMinute = 60 * kMillisPerSecond;
constexpr int64_t kMillisPerHour = 60 * kMillisPerMinute;
constexpr int64_t kMillisPerDay = 24 * kMillisPerHour;

/** Where each number of an UTC text stands, and how many digits it has. */
struct Field {
    size_t at;
    size_t digits;
};
constexpr Field kYear = {0, 4};
constexpr Field kMonth = {5, 2};
constexpr Field kDayOfMonth = {8, 2};
constexpr Field kHour = {11, 2};
constexpr Field kMinute = {14, 2};
constexpr Field kSecond = {17, 2};
constexpr Field kMilli = {20, 3};

int64_t numberAt(std::string_view text, Field field) {
    int64_t number = 0;
    for (const char digit : text.substr(field.at, field.digits)) {
        number = number * 10 + (digit - '0');
    }
    return number;
}

void putNumber(std::string& text, Field field, int64_t number) {
    for (size_t i = field.at + field.digits; i-- > field.at; number /= 10) {
        text[i] = static_cast<char>('0' + number % 10);
    }
}

/** Takes a fixed text off the front; false when another one is there. */
bool take(std::string_view& rest, std::string_view expected) {
    if (!rest.starts_with(expected)) {
        return false;
    }
    rest.remove_prefix(expected.size());
    return true;
}

bool takeNumber(std::string_view& rest, int64_t& number) {
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    if (error != std::errc() || number < 0 || number > kMostNumber) {
        return false;
    }
    rest.remove_prefix(static_cast<size_t>(end - rest.data()));
    return true;
}

/** Takes a text up to its closing quote; the head's texts need no escapes. */
bool takeText(std::string_view& rest, std::string& text) {
    const size_t end = rest.find('"');
    if (end == std::string_view::npos) {
        return false;
    }
    text = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return text.find('\\') == std::string::npos;
}

bool takeMoment(std::string_view& rest, Moment& moment) {
    std::string text;
    if (take(rest, ",\"t\":\"")) {
        const bool read = takeText(rest, text);
        const std::optional<int64_t> utc = utcOf(text);
        moment.utcMillis = utc.value_or(0);
        return read && utc;
    }
    return take(rest, ",\"boot\":\"") && takeText(rest, moment.boot) && !moment.boot.empty() &&
           take(rest, ",\"mono\":") && takeNumber(rest, moment.monoMillis);
}

}  // namespace

std::string utcText(int64_t utcMillis) {
    using std::chrono::days;
    const std::chrono::milliseconds sinceEpoch(utcMillis);
    const auto day = std::chrono::floor<days>(sinceEpoch);
    const std::chrono::year_month_day date{std::chrono::sys_days(day)};
    const int64_t ofDay = (sinceEpoch - day).count();
    std::string text(kUtcForm);
    putNumber(text, kYear, static_cast<int>(date.year()));
    putNumber(text, kMonth, static_cast<unsigned>(date.month()));
    putNumber(text, kDayOfMonth, static_cast<unsigned>(date.day()));
    putNumber(text, kHour, ofDay / kMillisPerHour);
    putNumber(text, kMinute, ofDay / kMillisPerMinute % 60);
    putNumber(text, kSecond, ofDay / kMillisPerSecond % 60);
    putNumber(text, kMilli, ofDay % kMillisPerSecond);
    return text;
}

std::optional<int64_t> utcOf(std::string_view text) {
    const bool hasForm = text.size() == kUtcForm.size() &&
                         std::equal(text.begin(), text.end(), kUtcForm.begin(), [](char character, char form) {
                             return form == '0' ? character >= '0' && character <= '9' : character == form;
                         });
    if (!hasForm) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(numberAt(text, kYear))),
                                           std::chrono::month(static_cast<unsigned>(numberAt(text, kMonth))),
                                           std::chrono::day(static_cast<unsigned>(numberAt(text, kDayOfMonth))));
    const int64_t hour = numberAt(text, kHour);
    const int64_t minute = numberAt(text, kMinute);
    const int64_t second = numberAt(text, kSecond);
    if (!date.ok() || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    const int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
    return days * kMillisPerDay + hour * kMillisPerHour + minute * kMillisPerMinute + second * kMillisPerSecond +
           numberAt(text, kMilli);
}

std::string utcDay(int64_t utcMillis) {
    return utcText(utcMillis).substr(0, std::string_view("2026-11-22").size());
}

std::string bodyText(const nlohmann::ordered_json& body) {
    // What others wrote, such as a remark, may be no UTF-8; that must not cost the line.
    if (body.empty()) {
        return {};
    }
    const std::string object = body.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    return object.substr(1, object.size() - 2);
}

std::string lineText(const LineHead& head, std::string_view body) {
    std::string line = "{\"seq\":" + std::to_string(head.seq) + ",\"epoch\":\"" + head.epoch + "\",";
    if (head.moment.isDated()) {
        line += "\"t\":\"" + utcText(head.moment.utcMillis) + "\"";
    } else {
        line += "\"boot\":\"" + head.moment.boot + "\",\"mono\":" + std::to_string(head.moment.monoMillis);
    }
    line += ",\"kind\":\"" + head.kind + "\"";
    if (!body.empty()) {
        line += ",";
        line += body;
    }
    return line + "}\n";
}

std::optional<LineHead> headOf(std::string_view line) {
    if (line.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    LineHead head;
    const bool read = take(line, "{\"seq\":") && takeNumber(line, head.seq) && take(line, ",\"epoch\":\"") &&
                      takeText(line, head.epoch) && takeMoment(line, head.moment) && take(line, ",\"kind\":\"") &&
                      takeText(line, head.kind);
    return read && head.seq > 0 && line.ends_with('}') ? std::optional(head) : std::nullopt;
}

nlohmann::json parseLine(std::string_view line) {
    nlohmann::json discarded = nlohmann::json::value_t::discarded;
    if (!headOf(line)) {
        return discarded;
    }
    nlohmann::json parsed = nlohmann::json::parse(line, nullptr, false);
    return parsed.is_object() ? parsed : discarded;
}

std::optional<BootTime> bootTimeOf(const LineHead& head, const nlohmann::json& line) {
    if (head.kind != "clock" || !head.moment.isDated() || !line.contains("boot")) {
        return std::nullopt;
    }
    return BootTime{textIn(line, "boot"), head.moment.utcMillis - numberIn(line, "mono")};
}

std::string textIn(const nlohmann::json& line, const char* member) {
    const auto found = line.find(member);
    return found != line.end() && found->is_string() ? found->get<std::string>() : "";
}

int64_t numberIn(const nlohmann::json& line, const char* member) {
    const auto found = line.find(member);
    const int64_t number = found != line.end() && found->is_number_integer() ? found->get<int64_t>() : 0;
    return number >= -kMostNumber && number <= kMostNumber ? number : 0;
}

}  // namespace ledger

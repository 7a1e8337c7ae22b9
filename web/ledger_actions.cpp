#include "web/ledger_actions.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

#include "base/clock.h"
#include "config/settings_file.h"
#include "finding/finding.h"
#include "inquiry/archived_counts.h"
#include "inquiry/recount.h"
#include "inquiry/stays.h"
#include "inquiry/why.h"
#include "ledger/counts.h"
#include "web/follower_trial.h"

namespace {

using nlohmann::ordered_json;

constexpr int64_t kMostAnswerBytes = int64_t{1} << 20;
constexpr int64_t kMostLines = 100'000;
// What a request reads at most when it picks a few lines out of many.
constexpr int64_t kMostReadBytes = int64_t{1} << 20;
// What get_counts is answered at once: where so much at most is not in the index yet, and so long a time is asked for.
constexpr int64_t kQuickBytes = int64_t{128} << 10;
constexpr int64_t kQuickSpan = int64_t{31} * 86'400'000;
constexpr int64_t kIndexStep = int64_t{1} << 20;  // bytes between two looks whether the process ends
constexpr int64_t kMillisPerDay = 86'400'000;
// Where clocks go back by three hours, as zones have done at most in this century.
constexpr int64_t kLongestDay = kMillisPerDay + int64_t{3} * 3'600'000;
// What one question has read: seconds of work, and no more memory than that. All that a camera keeps, and months of a
// desktop's.
constexpr int64_t kMostAskedMebibytes = 256;
constexpr int64_t kLongestHandCount = 3'600'000;  // milliseconds
constexpr size_t kMostTaps = 3'000;
constexpr size_t kLongestRemark = 1'000;

/** Where a reader is; the number of the next line it wants. */
int64_t nextSeqOf(const std::string& since, const std::string& epoch) {
    if (since.empty()) {
        return 1;
    }
    const size_t colon = since.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        throw std::invalid_argument("expected since=EPOCH:SEQ, got \"" + since + "\"");
    }
    const int64_t seq =
        numberOf(since.substr(colon + 1), 0, std::numeric_limits<int64_t>::max() - 1, "the number in since");
    // Another epoch is another ledger; all of this one is new.
    return since.substr(0, colon) == epoch ? seq + 1 : 1;
}

std::string joined(const std::set<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

/** What is meant where a question names no time. */
enum class Otherwise {
    Always,
    LastDay
};

/** The time that a question is about. */
inquiry::Span spanOf(const QueryPairs& query, const std::string& zone, Otherwise otherwise = Otherwise::LastDay) {
    const ledger::HourOfDay checked(zone);  // also where no time is read in it
    const std::string from = valueOf(query, "from");
    const std::string to = valueOf(query, "to");
    inquiry::Span span;
    if (!to.empty()) {
        span.until = ledger::momentOf(to, zone);
    } else if (otherwise == Otherwise::LastDay) {
        span.until = clockNowMicros() / 1000;
    }
    if (!from.empty()) {
        span.from = ledger::momentOf(from, zone);
    } else if (otherwise == Otherwise::LastDay) {
        span.from = span.until - kMillisPerDay;
    }
    if (span.from >= span.until) {
        throw std::invalid_argument("expected to behind from, got " + ledger::utcText(span.from) + " and " +
                                    ledger::utcText(span.until));
    }
    return span;
}

/**
 * Where the lines begin that stand right before a number and are from before the clock was known; about a mebibyte of
 * them at most.
 */
int64_t beginOfUndated(const ledger::Ledger& book, int64_t seq) {
    constexpr int64_t kFewLines = 64;
    int64_t begin = seq;
    for (int64_t count = kFewLines; begin > 1; count *= 2) {
        const int64_t from = std::max<int64_t>(1, seq - count);
        const std::string lines = book.lines(from, seq - 1, 2 * kMostAnswerBytes);
        if (lines.empty() || lines.size() > static_cast<size_t>(kMostAnswerBytes)) {
            break;
        }
        begin = from;
        std::istringstream text(lines);
        for (std::string line; std::getline(text, line);) {
            const std::optional<ledger::LineHead> head = ledger::headOf(line);
            begin = head && head->moment.isDated() ? head->seq + 1 : begin;
        }
        if (begin > from) {
            break;
        }
    }
    return begin;
}

/** The first line that may be of a day or a later one. */
int64_t firstSeqOfDay(const ledger::Ledger& book, int64_t utcMillis) {
    int64_t first = 1;
    const std::string day = ledger::utcDay(utcMillis);
    for (const ledger::LedgerFile& file : book.files()) {
        if (file.day >= day && file.day != "undated") {
            break;
        }
        first = file.lastSeq + 1;
    }
    // What nobody could date stands where the lines before it are.
    return beginOfUndated(book, first);
}

/** The name of the file that has a line. */
std::string fileWith(const ledger::Ledger& book, int64_t seq) {
    std::string name;
    for (const ledger::LedgerFile& file : book.files()) {
        name = file.firstSeq <= seq ? file.name : name;
    }
    return name;
}

LedgerAnswer getLedger(LedgerAccess& access, const QueryPairs& query) {
    const inquiry::Span span = spanOf(query, valueOf(query, "zone", "UTC"), Otherwise::Always);
    const std::set<std::string> kinds = inquiry::kindsOf(valueOf(query, "kinds"));
    const bool isNewest = numberOf(valueOf(query, "newest", "0"), 0, 1, "newest") == 1;
    int64_t limit = numberOf(valueOf(query, "limit", std::to_string(kMostLines)), 1, kMostLines, "limit");
    const ledger::Position last = access.book().end();
    int64_t next = nextSeqOf(valueOf(query, "since"), last.epoch);
    if (span.from != inquiry::Span().from) {
        next = std::max(next, firstSeqOfDay(access.book(), span.from));
    }
    if (!isNewest) {
        access.makeSafe();
    }
    const int64_t through = isNewest ? last.seq : access.book().safeSeq();
    const int64_t first = next;
    std::set<std::string> unread;
    std::string body;
    for (int64_t readBytes = 0; readBytes < kMostReadBytes && limit > 0;) {
        const std::string lines = access.book().lines(next, through, kMostAnswerBytes, &unread);
        if (lines.empty()) {
            next = unread.empty() ? next : std::max(next, through + 1);
            break;
        }
        readBytes += static_cast<int64_t>(lines.size());
        bool isFull = false;
        for (size_t at = 0; at < lines.size() && limit > 0 && !isFull;) {
            const size_t lineEnd = lines.find('\n', at);
            const std::string_view line = std::string_view(lines).substr(at, lineEnd - at);
            const std::optional<ledger::LineHead> head = ledger::headOf(line);
            const bool isWanted = head && (kinds.empty() || kinds.contains(head->kind)) &&
                                  (!head->moment.isDated() || span.holds(head->moment.utcMillis));
            isFull = isWanted && !body.empty() && body.size() + line.size() >= static_cast<size_t>(kMostAnswerBytes);
            if (isFull) {
                break;
            }
            // A file may have been damaged since it was written, and a reader takes JSON for granted.
            if (isWanted && !nlohmann::json::accept(line)) {
                unread.insert(fileWith(access.book(), head->seq));
            } else if (isWanted) {
                body += line;
                body += '\n';
                --limit;
            }
            next = head ? head->seq + 1 : next;
            at = lineEnd + 1;
        }
        if (isFull) {
            break;
        }
    }
    // Of those that were met, the ones that were passed.
    std::erase_if(unread, [next](const std::string& name) {
        const std::optional<ledger::LedgerFile> file = ledger::fileOf(name);
        return file && file->firstSeq >= next;
    });
    for (const ledger::LedgerFile& file : access.book().setAside()) {
        if (file.firstSeq >= first && file.firstSeq < next) {
            unread.insert(file.name);
        }
    }
    // Where nothing was read, the ledger may begin behind what was asked for.
    const std::string position = last.epoch + ":" + std::to_string(next - 1);
    std::string headers =
        "X-Ledger-Next: " + position + "\r\nX-Ledger-End: " + last.epoch + ":" + std::to_string(last.seq) + "\r\n";
    if (!unread.empty()) {
        headers += "X-Ledger-Unreadable: " + joined(unread) + "\r\n";
    }
    return {"application/x-ndjson", headers, body};
}

/** The answer to a job, or its number where it is not made yet. */
LedgerAnswer answerOfJob(AnswerJobs& jobs, int64_t number) {
    if (std::optional<std::string> answer = jobs.take(number)) {
        return {"application/json", "", std::move(*answer)};
    }
    return {"application/json", "", ordered_json({{"job", number}}).dump(), "202 Accepted"};
}

/**
 * Asks the lines of a time, on the jobs' thread. read: the time whose lines tell of it. Throws std::invalid_argument
 * where these are too many.
 */
LedgerAnswer askLines(LedgerAccess& access, const inquiry::Span& span, const inquiry::Span& read,
                      const std::function<ordered_json(const inquiry::Chunks&)>& question) {
    const int64_t mebibytes = inquiry::bytesFor(access.book(), read) >> 20;
    if (mebibytes >= kMostAskedMebibytes) {
        throw std::invalid_argument("expected a time of which the ledger has less than " +
                                    std::to_string(kMostAskedMebibytes) + " MiB, got one with " +
                                    std::to_string(mebibytes) + "; ask for less time");
    }
    const int64_t job = access.jobs().post([&access, span, read, question](const std::atomic<bool>& stop) {
        inquiry::Unread unread;
        const inquiry::Chunks chunks = inquiry::chunksOf(access.book(), read, &unread);
        ordered_json answer = {{"from", ledger::utcText(span.from)}, {"to", ledger::utcText(span.until)}};
        answer.update(question([&chunks, &stop] { return stop ? std::string() : chunks(); }));
        if (!unread.empty()) {
            answer["unreadable"] = unread;
        }
        return answer.dump();
    });
    return answerOfJob(access.jobs(), job);
}

LedgerAnswer getStays(LedgerAccess& access, const QueryPairs& query) {
    const inquiry::Span span = spanOf(query, valueOf(query, "zone"));
    return askLines(access, span, span, [span](const inquiry::Chunks& chunks) {
        return ordered_json({{"stays", inquiry::jsonOf(inquiry::staysOf(chunks, span))}});
    });
}

LedgerAnswer getHeat(LedgerAccess& access, const QueryPairs& query) {
    const std::string zone = valueOf(query, "zone");
    const inquiry::Span span = spanOf(query, zone);
    return askLines(access, span, span, [span, zone](const inquiry::Chunks& chunks) {
        return inquiry::jsonOf(inquiry::heatOf(chunks, span, zone));
    });
}

LedgerAnswer getWhy(LedgerAccess& access, const LedgerQuestion& question) {
    const inquiry::Span span = spanOf(question.query, valueOf(question.query, "zone"));
    // Every line of the time is read, and all ways near its entrances are measured.
    if (span.until - span.from > kLongestDay) {
        throw std::invalid_argument("expected a day at most, got " + ledger::utcText(span.from) + " to " +
                                    ledger::utcText(span.until));
    }
    const auto entrance = static_cast<int>(numberOf(valueOf(question.query, "entrance", "0"), 0, 3, "entrance"));
    const inquiry::SettingsFor settings = inquiry::settingsInForce(question.settings, question.picture);
    return askLines(access, span, span, [span, entrance, settings](const inquiry::Chunks& chunks) {
        return inquiry::whyOf(chunks, settings, span, entrance);
    });
}

LedgerAnswer postRecount(LedgerAccess& access, const LedgerQuestion& question) {
    const inquiry::Span span = spanOf(question.query, valueOf(question.query, "zone"));
    const nlohmann::json document = nlohmann::json::parse(question.body, nullptr, false);
    if (document.is_discarded()) {
        throw std::invalid_argument("expected settings as JSON, got " + std::to_string(question.body.size()) +
                                    " bytes that are none");
    }
    Settings settings;
    try {
        settings = parseSettings(document);
    } catch (const std::runtime_error& error) {
        throw std::invalid_argument(error.what());
    }
    return askLines(access, span, inquiry::readToRecount(span), [span, settings](const inquiry::Chunks& chunks) {
        const auto settingsFor = [&settings](ledger::PictureSize size) {
            ConfigParams config;
            applySettings(settings, static_cast<unsigned>(size.width), static_cast<unsigned>(size.height), 1, config);
            return config;
        };
        return inquiry::jsonOf(inquiry::recountOf(chunks, settingsFor, span));
    });
}

/** Tries whether a follower answers, on the jobs' thread, since it may take its time. */
LedgerAnswer testFollower(LedgerAccess& access, const LedgerQuestion& question) {
    const CameraInfo& cameras = question.settings.cameraInfo;
    const auto slot = static_cast<size_t>(numberOf(valueOf(question.query, "slot"), 1, CameraInfo::kFollowers, "slot"));
    const std::string& ip = cameras.followerIPAddress[slot - 1];
    if (ip.empty()) {
        throw std::invalid_argument("expected a follower with an address, got slot " + std::to_string(slot) +
                                    ", which has none");
    }
    const int64_t job =
        access.jobs().post([ip, login = cameras.followerLogin[slot - 1], password = cameras.followerPassword[slot - 1]](
                               const std::atomic<bool>&) { return tryFollower(ip, login, password); });
    return answerOfJob(access.jobs(), job);
}

/** A count made by hand, checked; throws std::invalid_argument. */
ordered_json handCountOf(const std::string& body, const std::string& user) {
    const nlohmann::json count = nlohmann::json::parse(body, nullptr, false);
    const auto fail = [](const std::string& expected) {
        throw std::invalid_argument("expected a count by hand with " + expected);
    };
    const auto momentIn = [&](const nlohmann::json& object, const char* key) {
        const auto found = object.is_object() ? object.find(key) : object.end();
        const std::optional<int64_t> moment =
            found != object.end() && found->is_string() ? ledger::utcOf(found->get<std::string>()) : std::nullopt;
        if (!moment) {
            fail(std::string("\"") + key + "\" such as 2026-11-22T07:00:00.000Z");
        }
        return *moment;
    };
    const int64_t begin = momentIn(count, "begin");
    const int64_t end = momentIn(count, "end");
    if (end <= begin || end - begin > kLongestHandCount) {
        fail("an end behind the begin, by an hour at most");
    }
    const nlohmann::json offset = count.value("phone_offset", nlohmann::json(0));
    if (!offset.is_number_integer()) {
        fail("\"phone_offset\" in whole milliseconds");
    }
    const nlohmann::json remark = count.value("remark", nlohmann::json(""));
    if (!remark.is_string() || remark.get<std::string>().size() > kLongestRemark) {
        fail("a \"remark\" of " + std::to_string(kLongestRemark) + " bytes at most");
    }
    const nlohmann::json light = count.value("light", nlohmann::json(nullptr));
    if (!light.is_null() && light != "daylight" && light != "lamps" && light != "dark") {
        fail("a \"light\" of daylight, lamps or dark, or none");
    }
    const nlohmann::json taps = count.value("taps", nlohmann::json());
    if (!taps.is_array() || taps.size() > kMostTaps) {
        fail("at most " + std::to_string(kMostTaps) + " \"taps\"");
    }
    ordered_json kept = ordered_json::array();
    for (const nlohmann::json& tap : taps) {
        const int64_t moment = momentIn(tap, "t");
        const nlohmann::json entrance = tap.value("entrance", nlohmann::json());
        const nlohmann::json direction = tap.value("direction", nlohmann::json());
        if (!entrance.is_number_integer() || entrance < 1 || entrance > 3 ||
            (direction != "in" && direction != "out") || moment < begin || moment > end) {
            fail("taps of an entrance 1 to 3, a direction in or out and a time between begin and end");
        }
        kept.push_back({{"t", ledger::utcText(moment)}, {"entrance", entrance}, {"direction", direction}});
    }
    ordered_json line = {{"user", user},
                         {"begin", ledger::utcText(begin)},
                         {"end", ledger::utcText(end)},
                         {"phone_offset", offset},
                         {"remark", remark}};
    if (!light.is_null()) {
        line["light"] = light;
    }
    line["taps"] = std::move(kept);
    return line;
}

std::string countsAnswer(const ledger::Index& index, const ledger::Ledger& book, const ledger::CountsQuery& question,
                         const ledger::Quarters& archived);

LedgerAnswer getCounts(LedgerAccess& access, const LedgerQuestion& asked) {
    const QueryPairs& query = asked.query;
    ledger::CountsQuery question;
    question.zone = valueOf(query, "zone");
    question.step = ledger::stepOf(valueOf(query, "step", "hour"));
    question.by = ledger::countsByOf(valueOf(query, "by", "entrance,direction"));
    const inquiry::Span span = spanOf(query, question.zone);
    question.from = span.from / ledger::kQuarterMillis * ledger::kQuarterMillis;  // the whole quarter counts
    question.until = span.until;
    ledger::Index& index = access.index();
    if (index.updateUnlessBusy(kQuickBytes)) {
        const std::optional<int64_t> knownFrom = index.begin();
        if (knownFrom && question.from >= *knownFrom && question.until - question.from <= kQuickSpan) {
            return {"application/json", "", countsAnswer(index, access.book(), question, {})};
        }
    }
    const int64_t job =
        access.jobs().post([&index, &book = access.book(), question, path = access.archive(),
                            camera = asked.settings.cameraInfo.thisCameraName](const std::atomic<bool>& stop) {
            while (!stop && !index.update(kIndexStep)) {
            }
            // Before the ledger's first day the archive tells, which may be long.
            const int64_t knownFrom = index.begin().value_or(std::numeric_limits<int64_t>::max());
            return countsAnswer(index, book, question,
                                question.from < knownFrom ? inquiry::countsBefore(book, knownFrom, path, camera, stop)
                                                          : ledger::Quarters());
        });
    return answerOfJob(access.jobs(), job);
}

std::string countsAnswer(const ledger::Index& index, const ledger::Ledger& book, const ledger::CountsQuery& question,
                         const ledger::Quarters& archived) {
    const std::optional<int64_t> knownFrom = index.begin();
    ordered_json rows = ordered_json::array();
    for (const ledger::CountsRow& row : ledger::countsOf(index, question, archived)) {
        ordered_json counts = ordered_json::array();
        for (const auto& [key, count] : row.counts) {
            ordered_json entry = ordered_json::object();
            if (key.entrance) {
                entry["entrance"] = *key.entrance;
            }
            if (key.isIn) {
                entry["direction"] = *key.isIn ? "in" : "out";
            }
            if (key.classId) {
                entry["class"] = class_index_to_label(*key.classId);
            }
            entry["count"] = count;
            counts.push_back(std::move(entry));
        }
        const bool isKnown = knownFrom && row.end > *knownFrom;
        rows.push_back({{"begin", row.beginText},
                        {"end", row.endText},
                        {"coverage", isKnown ? ordered_json(row.coverage) : ordered_json()},
                        {"counts", std::move(counts)}});
    }
    ordered_json answer = {{"known_from", knownFrom ? ordered_json(ledger::utcText(*knownFrom)) : ordered_json()},
                           {"rows", std::move(rows)}};
    const inquiry::Span span = {question.from, question.until};
    inquiry::Unread unread;
    inquiry::noteThose(index.unreadable(), span, &unread);
    inquiry::noteThose(book.setAside(), span, &unread);
    if (!unread.empty()) {
        answer["unreadable"] = unread;
    }
    return answer.dump();
}

LedgerAnswer occupancyBefore(const ledger::LastRun& run) {
    ordered_json lost = ordered_json::array();
    for (const auto& [key, count] : run.openPeriod) {
        const auto& [entrance, direction, className] = key;
        lost.push_back({{"entrance", entrance}, {"direction", direction}, {"class", className}, {"count", count}});
    }
    const bool isDated = run.lastLine && run.lastLine->isDated();
    const ordered_json answer = {
        {"ended", run.ending},
        {"at", isDated ? ordered_json(ledger::utcText(run.lastLine->utcMillis)) : ordered_json()},
        {"gap", run.gapMillis ? ordered_json(*run.gapMillis / 1000) : ordered_json()},
        {"occupancy", run.occupancy ? ordered_json(*run.occupancy) : ordered_json()},
        {"lost", std::move(lost)}};
    return {"application/json", "", answer.dump()};
}

}  // namespace

std::string valueOf(const QueryPairs& query, const char* key, const std::string& otherwise) {
    const auto pair = std::find_if(query.begin(), query.end(), [&](const auto& entry) { return entry.first == key; });
    return pair == query.end() ? otherwise : pair->second;
}

int64_t numberOf(const std::string& text, int64_t least, int64_t most, const char* what) {
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < least || number > most) {
        throw std::invalid_argument(std::string("expected ") + what + " from " + std::to_string(least) + " to " +
                                    std::to_string(most) + ", got \"" + text + "\"");
    }
    return number;
}

bool isOfLedger(const std::string& action) {
    static const std::set<std::string> kActions = {"get_ledger", "get_counts",   "occupancy_before", "stays",
                                                   "heat",       "why",          "ledger_answer",    "recount",
                                                   "hand_count", "test_follower"};
    return kActions.contains(action);
}

std::optional<LedgerAnswer> answerFromLedger(LedgerAccess& access, const LedgerQuestion& question) {
    const std::string& action = question.action;
    if (action == "get_ledger") {
        return getLedger(access, question.query);
    }
    if (action == "get_counts") {
        return getCounts(access, question);
    }
    if (action == "occupancy_before") {
        return occupancyBefore(access.lastRun());
    }
    if (action == "stays") {
        return getStays(access, question.query);
    }
    if (action == "heat") {
        return getHeat(access, question.query);
    }
    if (action == "why") {
        return getWhy(access, question);
    }
    if (action == "test_follower") {
        return testFollower(access, question);
    }
    if (action == "recount" || action == "hand_count") {
        throw std::invalid_argument("expected a POST of " + action + ", got a GET");
    }
    if (action == "ledger_answer") {
        return answerOfJob(access.jobs(),
                           numberOf(valueOf(question.query, "job"), 1, std::numeric_limits<int64_t>::max(), "job"));
    }
    return std::nullopt;
}

std::optional<LedgerAnswer> answerPostToLedger(LedgerAccess& access, const LedgerQuestion& question) {
    if (question.action == "recount") {
        return postRecount(access, question);
    }
    if (question.action == "hand_count") {
        access.write("hand_count", handCountOf(question.body, question.user));
        return LedgerAnswer{"text/plain", "", ""};
    }
    return std::nullopt;
}

#include "ledger_actions.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

#include "clock.h"
#include "counts.h"
#include "finding.h"

namespace {

using nlohmann::ordered_json;

constexpr int64_t kMostAnswerBytes = int64_t{1} << 20;
constexpr int64_t kMostLines = 100'000;
// What a request reads at most when it picks a few lines out of many.
constexpr int64_t kMostReadBytes = int64_t{4} << 20;
constexpr int64_t kMillisPerDay = 86'400'000;

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

std::set<std::string> wordsOf(const std::string& text) {
    std::set<std::string> words;
    std::istringstream list(text);
    for (std::string word; std::getline(list, word, ',');) {
        words.insert(word);
    }
    return words;
}

/** The first line of the first file that may hold something from a day on. */
int64_t firstSeqOfDay(const ledger::Ledger& book, int64_t utcMillis) {
    int64_t first = 1;
    const std::string day = ledger::utcDay(utcMillis);
    for (const ledger::LedgerFile& file : book.files()) {
        if (file.day >= day) {
            break;
        }
        first = file.lastSeq + 1;
    }
    return first;
}

LedgerAnswer getLedger(LedgerAccess& access, const QueryPairs& query) {
    const std::string zone = valueOf(query, "zone", "UTC");
    const std::string from = valueOf(query, "from");
    const std::string to = valueOf(query, "to");
    const int64_t begin = from.empty() ? std::numeric_limits<int64_t>::min() : ledger::momentOf(from, zone);
    const int64_t end = to.empty() ? std::numeric_limits<int64_t>::max() : ledger::momentOf(to, zone);
    const std::set<std::string> kinds = wordsOf(valueOf(query, "kinds"));
    int64_t limit = numberOf(valueOf(query, "limit", std::to_string(kMostLines)), 1, kMostLines, "limit");
    const ledger::Position last = access.book().end();
    int64_t next = nextSeqOf(valueOf(query, "since"), last.epoch);
    if (!from.empty()) {
        next = std::max(next, firstSeqOfDay(access.book(), begin));
    }
    std::string body;
    for (int64_t readBytes = 0; readBytes < kMostReadBytes && limit > 0;) {
        const std::string lines = access.safeLines(next, kMostAnswerBytes);
        if (lines.empty()) {
            break;
        }
        readBytes += static_cast<int64_t>(lines.size());
        bool isFull = false;
        for (size_t at = 0; at < lines.size() && limit > 0 && !isFull;) {
            const size_t lineEnd = lines.find('\n', at);
            const std::string_view line = std::string_view(lines).substr(at, lineEnd - at);
            const std::optional<ledger::LineHead> head = ledger::headOf(line);
            const bool isWanted =
                head && (kinds.empty() || kinds.contains(head->kind)) &&
                (!head->moment.isDated() || (head->moment.utcMillis >= begin && head->moment.utcMillis < end));
            isFull = isWanted && !body.empty() && body.size() + line.size() >= static_cast<size_t>(kMostAnswerBytes);
            if (isFull) {
                break;
            }
            if (isWanted) {
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
    // Where nothing was read, the ledger may begin behind what was asked for.
    const std::string position = last.epoch + ":" + std::to_string(next - 1);
    return {"application/x-ndjson",
            "X-Ledger-Next: " + position + "\r\nX-Ledger-End: " + last.epoch + ":" + std::to_string(last.seq) + "\r\n",
            body};
}

LedgerAnswer getCounts(LedgerAccess& access, const QueryPairs& query) {
    ledger::CountsQuery question;
    question.zone = valueOf(query, "zone");
    question.step = ledger::stepOf(valueOf(query, "step", "hour"));
    question.by = ledger::countsByOf(valueOf(query, "by", "entrance,direction"));
    const int64_t now = clockNowMicros() / 1000;
    const std::string from = valueOf(query, "from");
    const std::string to = valueOf(query, "to");
    question.until = to.empty() ? now : ledger::momentOf(to, question.zone);
    question.from = from.empty() ? question.until - kMillisPerDay : ledger::momentOf(from, question.zone);
    const ledger::Index& index = access.index();
    const std::optional<int64_t> knownFrom = index.begin();
    ordered_json rows = ordered_json::array();
    for (const ledger::CountsRow& row : ledger::countsOf(index, question)) {
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
    const ordered_json answer = {{"known_from", knownFrom ? ordered_json(ledger::utcText(*knownFrom)) : ordered_json()},
                                 {"rows", std::move(rows)}};
    return {"application/json", "", answer.dump()};
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

std::optional<LedgerAnswer> answerFromLedger(LedgerAccess& access, const std::string& action, const QueryPairs& query) {
    if (action == "get_ledger") {
        return getLedger(access, query);
    }
    if (action == "get_counts") {
        return getCounts(access, query);
    }
    if (action == "occupancy_before") {
        return occupancyBefore(access.lastRun());
    }
    return std::nullopt;
}

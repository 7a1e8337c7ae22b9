#include "inquiry/lines.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace inquiry {

namespace {

constexpr int64_t kChunkBytes = ledger::kLongestLine;
constexpr int64_t kTailBytes = int64_t{1} << 16;
// What ten minutes bring; where more waits for a line "clock", that line is missing.
constexpr size_t kMostWaiting = size_t{16} << 20;
constexpr int64_t kMillisPerDay = int64_t{24} * 60 * 60 * 1000;

/** Whether no line of a file can tell of a time, by the day in its name. */
bool isOutside(const ledger::LedgerFile& file, const Span& span) {
    const std::optional<int64_t> begin = ledger::utcOf(file.day + "T00:00:00.000Z");
    if (!begin) {
        return span.from != std::numeric_limits<int64_t>::min();  // what nobody can date is the earliest there is
    }
    return *begin + kMillisPerDay <= span.from || *begin - kLatestLine >= span.until;
}

/**
 * The files from the first to the last one that may tell of a time. Those between them stay, whatever their day: where
 * the clock was wrong for a while, a run may have begun meanwhile. Lines without a time stand at the end of what was
 * written before them; what they mean is in the file behind.
 */
std::vector<ledger::LedgerFile> within(const Span& span, const std::vector<ledger::LedgerFile>& files,
                                       const std::function<bool(const ledger::LedgerFile&)>& endsUndated) {
    const auto mayTell = [&](const ledger::LedgerFile& file) { return !isOutside(file, span); };
    auto first = std::find_if(files.begin(), files.end(), mayTell);
    auto end = std::find_if(files.rbegin(), std::make_reverse_iterator(first), mayTell).base();
    while (first != end && first != files.begin() && endsUndated(*std::prev(first))) {
        --first;
    }
    while (first != end && end != files.end() && endsUndated(*std::prev(end))) {
        ++end;
    }
    return {first, end};
}

/** How the last of whole lines begins; what is no line is passed over. */
std::optional<ledger::LineHead> lastHeadIn(std::string_view lines) {
    while (!lines.empty()) {
        lines.remove_suffix(1);
        const size_t before = lines.rfind('\n');
        const size_t begin = before == std::string_view::npos ? 0 : before + 1;
        if (auto head = ledger::headOf(lines.substr(begin))) {
            return head;
        }
        lines = lines.substr(0, begin);
    }
    return std::nullopt;
}

/** Whether whole lines end with one from before the clock was known. */
bool endUndated(std::string_view lines) {
    const std::optional<ledger::LineHead> last = lastHeadIn(lines);
    return last && !last->moment.isDated();
}

/** The last bytes of a file, from a line's begin to a line's end. */
std::string lastLinesOf(ledger::Disk& disk, const std::string& name) {
    const int64_t from = std::max<int64_t>(0, disk.size(name).value_or(0) - kTailBytes);
    std::string lines = disk.read(name, from, kTailBytes).value_or("");
    lines.resize(lines.rfind('\n') == std::string::npos ? 0 : lines.rfind('\n') + 1);
    return from == 0 ? lines : lines.substr(std::min(lines.size(), lines.find('\n') + 1));
}

/** Dates lines, in order, as far as lines "clock" tell; those that wait for one keep those behind them waiting. */
class Dating {
public:
    using Visit = std::function<void(const ledger::LineHead&, std::string_view)>;

    explicit Dating(Visit visit) : m_visit(std::move(visit)) {}

    void take(const ledger::LineHead& head, std::string_view line) {
        const std::optional<ledger::BootTime> known =
            head.kind == "clock" ? ledger::bootTimeOf(head, ledger::parseLine(line)) : std::nullopt;
        if (!m_waiting.empty()) {
            const std::string& boot = m_waiting.front().head.moment.boot;
            if (known && known->boot == boot) {
                date(*known);
                letGo();
            } else if (known || (!head.moment.isDated() && head.moment.boot != boot) || m_bytes > kMostWaiting) {
                letGo();  // the machine was started again before anybody knew the time
            }
        }
        if (m_waiting.empty() && head.moment.isDated()) {
            m_visit(head, line);
        } else {
            m_waiting.push_back({head, std::string(line)});
            m_bytes += line.size();
        }
    }

    /** Gives what waits, as it is. */
    void letGo() {
        for (const Waiting& line : std::exchange(m_waiting, {})) {
            m_visit(line.head, line.text);
        }
        m_bytes = 0;
    }

private:
    struct Waiting {
        ledger::LineHead head;
        std::string text;
    };

    void date(const ledger::BootTime& time) {
        for (Waiting& line : m_waiting) {
            if (ledger::Moment& moment = line.head.moment; !moment.isDated()) {
                moment = {time.utcMillis + moment.monoMillis, "", moment.monoMillis};
            }
        }
    }

    const Visit m_visit;
    std::vector<Waiting> m_waiting; /**< from the first line of a start of the machine that is not dated */
    size_t m_bytes = 0;
};

/** Reads on in a file, which may get another name meanwhile; nothing, and noted, when it cannot be read. */
std::string readOn(ledger::Disk& disk, ledger::LedgerFile& file, int64_t at, int64_t most, Unread* unread) {
    std::optional<std::string> text = disk.read(file.name, at, most);
    if (!text && file.isYoung()) {
        file.name = ledger::fileName(file.firstSeq, file.day, false);
        text = disk.read(file.name, at, most);
    }
    // One that is gone was cut meanwhile, as a line tells.
    if (!text && unread != nullptr && disk.size(file.name)) {
        unread->insert(file.name);
    }
    return text.value_or("");
}

}  // namespace

void noteThose(const std::vector<ledger::LedgerFile>& files, const Span& span, Unread* unread) {
    for (const ledger::LedgerFile& file : files) {
        if (unread != nullptr && !isOutside(file, span)) {
            unread->insert(file.name);
        }
    }
}

int64_t bytesFor(const ledger::Ledger& book, const Span& span) {
    int64_t bytes = 0;
    for (const ledger::LedgerFile& file : within(span, book.files(), [](const auto&) { return false; })) {
        bytes += file.bytes;
    }
    return bytes;
}

Chunks chunksOf(const ledger::Ledger& book, const Span& span, Unread* unread) {
    noteThose(book.setAside(), span, unread);
    const std::vector<ledger::LedgerFile> files = within(span, book.files(), [&](const ledger::LedgerFile& file) {
        return endUndated(book.lines(file.lastSeq, file.lastSeq, kTailBytes));
    });
    int64_t last = 0;
    for (const ledger::LedgerFile& file : files) {
        last = std::max(last, file.lastSeq);
    }
    return [&book, unread, next = files.empty() ? 1 : files.front().firstSeq, last]() mutable {
        std::string lines = next <= last ? book.lines(next, last, kChunkBytes, unread) : "";
        const std::optional<ledger::LineHead> head = lastHeadIn(lines);
        next = head ? head->seq + 1 : last + 1;
        return lines;
    };
}

std::set<std::string> kindsOf(const std::string& text) {
    static const std::set<std::string> kKinds = {"alert",      "clock",  "corrected", "crossing", "cut",
                                                 "hand_count", "object", "period",    "reset",    "settings",
                                                 "start",      "stop",   "watched"};
    std::set<std::string> kinds;
    std::istringstream list(text);
    for (std::string kind; std::getline(list, kind, ',');) {
        if (!kKinds.contains(kind)) {
            std::string known;
            for (const std::string& each : kKinds) {
                known += (known.empty() ? "" : ", ") + each;
            }
            throw std::invalid_argument("expected kinds, joined by commas, of " + known + ", got \"" + kind + "\"");
        }
        kinds.insert(kind);
    }
    return kinds;
}

std::vector<ledger::LedgerFile> filesIn(ledger::Disk& disk) {
    std::vector<ledger::LedgerFile> files;
    for (const std::string& name : disk.list()) {
        if (const std::optional<ledger::LedgerFile> file = ledger::fileOf(name)) {
            files.push_back(*file);
        }
    }
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.firstSeq < b.firstSeq; });
    return files;
}

Chunks chunksOf(ledger::Disk& disk, const Span& span, Unread* unread) {
    noteThose(ledger::filesSetAside(disk), span, unread);
    std::vector<ledger::LedgerFile> files = within(
        span, filesIn(disk), [&](const ledger::LedgerFile& file) { return endUndated(lastLinesOf(disk, file.name)); });
    return [&disk, unread, files = std::move(files), file = size_t{0}, at = int64_t{0}]() mutable {
        for (; file < files.size(); ++file, at = 0) {
            for (bool isAll = false; !isAll;) {
                std::string lines = readOn(disk, files[file], at, kChunkBytes, unread);
                isAll = static_cast<int64_t>(lines.size()) < kChunkBytes;
                const size_t end = lines.rfind('\n');
                if (end != std::string::npos) {
                    lines.resize(end + 1);
                    at += static_cast<int64_t>(lines.size());
                    return lines;
                }
                at += static_cast<int64_t>(lines.size());  // too long for a line
            }
        }
        return std::string();
    };
}

void visitLines(const Chunks& chunks, const std::function<bool(const ledger::LineHead&, std::string_view)>& visit) {
    for (std::string lines = chunks(); !lines.empty(); lines = chunks()) {
        for (size_t at = 0; at < lines.size();) {
            const size_t end = lines.find('\n', at);
            const std::string_view line = std::string_view(lines).substr(at, end - at);
            const std::optional<ledger::LineHead> head = ledger::headOf(line);
            if (head && !visit(*head, line)) {
                return;
            }
            at = end + 1;
        }
    }
}

void visitLinesFor(const Chunks& chunks, const Span& span,
                   const std::function<void(const ledger::LineHead&, std::string_view)>& visit) {
    // Lines of the time may follow, once the clock was set back. What nobody can date is where the lines before it are.
    bool isTooLate = false;
    Dating dating([&](const ledger::LineHead& head, std::string_view line) {
        if (head.moment.isDated()) {
            isTooLate = head.moment.utcMillis - kLatestLine >= span.until;
        }
        if (!isTooLate || head.kind == "start") {
            visit(head, line);
        }
    });
    visitLines(chunks, [&](const ledger::LineHead& head, std::string_view line) {
        dating.take(head, line);
        return true;
    });
    dating.letGo();
}

int64_t timeOf(const ledger::LineHead& head) {
    return head.moment.isDated() ? head.moment.utcMillis : std::numeric_limits<int64_t>::min();
}

}  // namespace inquiry

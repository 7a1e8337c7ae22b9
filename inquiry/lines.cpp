#include "lines.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <vector>

namespace inquiry {

namespace {

constexpr int64_t kChunkBytes = int64_t{1} << 20;
// How long after something happened the line that tells of it may come: a path's part is written when it is full.
constexpr int64_t kLatestLine = int64_t{15} * 60 * 1000;
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
 * the clock was wrong for a while, a run may have begun meanwhile.
 */
std::vector<ledger::LedgerFile> within(const Span& span, const std::vector<ledger::LedgerFile>& files) {
    const auto mayTell = [&](const ledger::LedgerFile& file) { return !isOutside(file, span); };
    const auto first = std::find_if(files.begin(), files.end(), mayTell);
    const auto end = std::find_if(files.rbegin(), std::make_reverse_iterator(first), mayTell).base();
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

}  // namespace

Chunks chunksOf(const ledger::Ledger& book, const Span& span) {
    const std::vector<ledger::LedgerFile> files = within(span, book.files());
    int64_t last = 0;
    for (const ledger::LedgerFile& file : files) {
        last = std::max(last, file.lastSeq);
    }
    return [&book, next = files.empty() ? 1 : files.front().firstSeq, last]() mutable {
        std::string lines = next <= last ? book.lines(next, last, kChunkBytes) : "";
        const std::optional<ledger::LineHead> head = lastHeadIn(lines);
        next = head ? head->seq + 1 : last + 1;
        return lines;
    };
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

Chunks chunksOf(ledger::Disk& disk, const Span& span) {
    return [&disk, files = within(span, filesIn(disk)), file = size_t{0}, at = int64_t{0}]() mutable {
        for (; file < files.size(); ++file, at = 0) {
            // A line longer than a chunk is read with as many as it takes.
            for (int64_t most = kChunkBytes;; most *= 2) {
                std::string lines = disk.read(files[file].name, at, most).value_or("");
                const bool isAll = static_cast<int64_t>(lines.size()) < most;
                lines.resize(lines.rfind('\n') == std::string::npos ? 0 : lines.rfind('\n') + 1);
                if (!lines.empty()) {
                    at += static_cast<int64_t>(lines.size());
                    return lines;
                }
                if (isAll) {
                    break;
                }
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
    // Lines of the time may follow, once the clock was set back. What is not dated is where the lines before it are.
    bool isTooLate = false;
    visitLines(chunks, [&](const ledger::LineHead& head, std::string_view line) {
        if (head.moment.isDated()) {
            isTooLate = head.moment.utcMillis - kLatestLine >= span.until;
        }
        if (!isTooLate || head.kind == "start") {
            visit(head, line);
        }
        return true;
    });
}

int64_t timeOf(const ledger::LineHead& head) {
    return head.moment.isDated() ? head.moment.utcMillis : std::numeric_limits<int64_t>::min();
}

}  // namespace inquiry

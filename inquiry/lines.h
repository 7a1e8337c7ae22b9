#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ledger/disk.h"
#include "ledger/ledger.h"
#include "ledger/line.h"

/** What can be asked of a ledger's lines beyond counts: recounts, stays, heat, why, and whether it is whole. */
namespace inquiry {

/** A time asked for: UTC, milliseconds, its end not included. All of a ledger by default, undated lines included. */
struct Span {
    int64_t from = std::numeric_limits<int64_t>::min();
    int64_t until = std::numeric_limits<int64_t>::max();

    [[nodiscard]] bool holds(int64_t utcMillis) const { return utcMillis >= from && utcMillis < until; }
};

/**
 * How long after something happened the line that tells of it may come, milliseconds: a path's part is written when it
 * is full.
 */
inline constexpr int64_t kLatestLine = int64_t{15} * 60 * 1000;

/** Gives a ledger's next whole lines, ends included, about 1 MiB; empty behind the last. */
using Chunks = std::function<std::string()>;

/** The names of files whose lines are left out, since they cannot be read or could not be at a start. */
using Unread = std::set<std::string>;

/** Notes which of the files that cannot be read may tell of a time; unread may be null. */
void noteThose(const std::vector<ledger::LedgerFile>& files, const Span& span, Unread* unread);

/**
 * The lines of a running application's ledger, as far as it goes now: all files' that may tell of a time. book, unread:
 * outlive what is returned.
 */
Chunks chunksOf(const ledger::Ledger& book, const Span& span, Unread* unread = nullptr);

/** How many bytes have to be read for a time, about. */
int64_t bytesFor(const ledger::Ledger& book, const Span& span);

/** The lines of a folder that somebody may be writing to. disk, unread: outlive what is returned. */
Chunks chunksOf(ledger::Disk& disk, const Span& span, Unread* unread = nullptr);

/** Calls visit with each line as it is, its end not included, until there is none or visit returns false. */
void visitLines(const Chunks& chunks, const std::function<bool(const ledger::LineHead&, std::string_view)>& visit);

/**
 * The same to the end, but for lines that are too late to tell of a time; others follow them where the clock was set
 * back. Earlier ones come, too, since an object that was there may be told of by a line of before, and every run's
 * begin, whatever its time. Heads of lines from before the clock was known are dated by the line "clock" that says what
 * they mean; where there is none they are as they are.
 */
void visitLinesFor(const Chunks& chunks, const Span& span,
                   const std::function<void(const ledger::LineHead&, std::string_view)>& visit);

/**
 * Reads kinds of lines, joined by commas; none for an empty text. Throws std::invalid_argument for a kind that there is
 * not, with those that there are.
 */
std::set<std::string> kindsOf(const std::string& text);

/** A folder's files in the order of their lines. */
std::vector<ledger::LedgerFile> filesIn(ledger::Disk& disk);

/** When a line was; the earliest there is for one whose time nobody knows. */
int64_t timeOf(const ledger::LineHead& head);

}  // namespace inquiry

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ledger/disk.h"
#include "ledger/line.h"

namespace ledger {

/**
 * One file of the ledger: whole lines in the order of their numbers, all of one UTC day. Its name begins with the
 * number of its first line, so that names and lines are in one order even when the clock was set back:
 * "000000000017-2026-11-22.ndjson".
 *
 * The file that follows one which may not be safe on the disk yet is called ".young" until both are: after a power cut
 * that took the end of the one, what the other holds continues nothing.
 */
struct LedgerFile {
    std::string name;
    std::string day;        /**< "2026-11-22"; "undated" where no line tells */
    int64_t firstSeq = 0;   /**< as the name says; retention may have taken that line */
    int64_t lastSeq = 0;    /**< 0 while there is no line */
    int64_t bytes = 0;      /**< up to the end of the last line */
    int version = 0;        /**< another one when retention has rewritten it */
    bool hasObjects = true; /**< whether retention may find lines of kind "object" in it */
    bool isClosed = false;  /**< nothing can be added: what is torn at its end could not be cut off */

    [[nodiscard]] bool isYoung() const;
};

/** A longer line, its end included, is none; in bytes. */
inline constexpr int64_t kLongestLine = int64_t{1} << 20;

/** How the name of a file goes on that could not be read at a start, and was set aside. */
inline constexpr const char* kAsideEnding = ".unreadable";

/** The name of a file. */
std::string fileName(int64_t firstSeq, const std::string& day, bool young);

/** The file that a name tells of, its content unread; nothing for another kind of file. */
std::optional<LedgerFile> fileOf(const std::string& name);

/**
 * Calls visit with each whole line, its end not included, and where it begins, until visit returns false; with an empty
 * one for what is too long for a line, of which no more is held in memory. False, with errno set, when the file could
 * not be read to the end.
 */
bool forEachLine(Disk& disk, const LedgerFile& file, int64_t from,
                 const std::function<bool(std::string_view line, int64_t at)>& visit);

/** The files that could not be read at a start and were set aside; of each its name, day and first number. */
std::vector<LedgerFile> filesSetAside(Disk& disk);

/** Where the first line with at least this number begins; file.bytes when there is none, nothing when the file cannot
 * be read so far. */
std::optional<int64_t> findLine(Disk& disk, const LedgerFile& file, int64_t seq);

/** Numbers of lines that are gone, ends included. */
struct Gap {
    int64_t from = 0;
    int64_t through = 0;
};

/** What mendFile found. */
struct MendedFile {
    LedgerFile file;
    std::optional<LineHead> last; /**< how the last good line begins */
    int64_t dropped = 0;          /**< bytes that were cut off */
    bool isDamaged = false;       /**< something that is no line has good lines behind it */
    std::vector<Gap> gaps;        /**< what is gone there */
    bool isRead = false;          /**< else nothing is known of it but its name */
};

/**
 * Cuts a file off behind its last good line, where a power cut or a killed process left something that is none, and
 * tells what it holds. A file that cannot be read is left as it is.
 */
MendedFile mendFile(Disk& disk, LedgerFile file);

/** Leaves good lines only in a file; false, with errno set, when that fails and it is as it was. */
bool dropDamage(Disk& disk, LedgerFile& file);

}  // namespace ledger

#pragma once

#include <functional>
#include <string>
#include <sys/types.h>

/** What an archive does with its file of lines. */
namespace archive_file {

/** Asked for each line without its end. */
using LineVisitor = std::function<void(const std::string& line)>;

/** Decides whether a line stays; kept receives what is written in its place. */
using LineFilter = std::function<bool(const std::string& line, std::string& kept)>;

/**
 * Appends text, making the file when there is none, and brings it to the disk. All of it, or, on a full disk, nothing;
 * the failure is logged. False when the file may have been left torn.
 */
bool append(const std::string& path, const std::string& text);

/** How far an archive can be read without coming upon lines that are being appended. Any thread. */
off_t wholeSize(int fd);

/**
 * Visits every line in order; none when the file cannot be opened. False, with errno set, when there is a file that
 * could not be read to its end. Exceptions of the visitor pass. Any thread.
 */
bool forEachLine(const std::string& path, const LineVisitor& visit);

/**
 * Replaces the file by the lines that stay, line by line, so that a power cut leaves the old file or the new one; an
 * empty one when there was none. Where nothing would change nothing is written, which spares the flash. Failures are
 * logged and leave the old one; so do exceptions of the filter, which pass.
 *
 * Any thread, one at a time for a file; what is appended meanwhile stays, too.
 */
void rewrite(const std::string& path, const LineFilter& filter);

/** Asked whether a line is one. */
using LineJudge = std::function<bool(const std::string& line)>;

/**
 * mendLines: a last line that lacks its end is completed when it parses, and dropped, logged, when it does not. False,
 * logged, when it could not be mended. Not while the file is rewritten.
 */
bool repair(const std::string& path, const LineJudge& parses);

/** The same for the last line alone, also while the file is rewritten. */
bool repairLastLine(const std::string& path, const LineJudge& parses);

}  // namespace archive_file

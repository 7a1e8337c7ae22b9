#pragma once

#include <functional>
#include <string>

/** What an archive does with its file of lines. */
namespace archive_file {

/** Asked for each line without its end. */
using LineVisitor = std::function<void(const std::string& line)>;

/** Decides whether a line stays; kept receives what is written in its place. */
using LineFilter = std::function<bool(const std::string& line, std::string& kept)>;

/** Appends text, making the file when there is none, and brings it to the disk. All of it, or, on a full disk, nothing;
 * the failure is logged. */
void append(const std::string& path, const std::string& text);

/** Visits every line in order; none when the file cannot be opened. Exceptions of the visitor pass. */
void forEachLine(const std::string& path, const LineVisitor& visit);

/**
 * Replaces the file by the lines that stay, line by line, so that a power cut leaves the old file or the new one.
 * Failures are logged and leave the old one; so do exceptions of the filter, which pass.
 */
void rewrite(const std::string& path, const LineFilter& filter);

/** mendLines: a last line that lacks its end is completed when it parses, and dropped, logged, when it does not. */
void repair(const std::string& path, const std::function<bool(const std::string& line)>& parses);

}  // namespace archive_file

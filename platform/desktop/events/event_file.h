#pragma once

#include <string>
#include <vector>

namespace desktop {

/**
 * Appends a line, which ends with its line break, to a file of events: all of it or, on a full disk, nothing. A line
 * that a kill tore before gets its end first, so that it costs no more than itself.
 *
 * A file that would grow beyond 10 MiB becomes PATH.1, and an older one the next number; there are at most ten, so that
 * the oldest of all goes. One that cannot be renamed goes on to grow: no event is lost for that.
 *
 * May be called from any thread; one process at a time may write to a file. Returns what went wrong, naming the file,
 * and nothing when all is well.
 */
std::string appendEvent(const std::string& path, const std::string& line);

/** The files of a path's events, the oldest first; the last is the path itself, whether or not there is such a file. */
std::vector<std::string> eventFiles(const std::string& path);

}  // namespace desktop

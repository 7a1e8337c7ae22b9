#pragma once

#include <functional>
#include <string>

#include "base/unique_fd.h"

/*
 * Files of lines whose writer may be killed at any moment: that tears at most the last line, and a torn line never
 * costs more than itself.
 */

/**
 * Appends text, making the file when there is none: all of it or, on a full disk, nothing. Returns the file, for a
 * caller that wants to sync it; none, with errno set, on failure.
 */
UniqueFd appendText(const std::string& path, const std::string& text);

/** What mendLines did. */
struct Mending {
    std::string dropped; /**< the torn last line that was cut off */
    int error = 0;       /**< errno of what could not be mended; 0 when all is well */
};

/** Ends a last line that lacks its end when it is whole, cuts it off when it is not. */
Mending mendLastLine(const std::string& path, const std::function<bool(const std::string& line)>& isWhole);

/**
 * Mends what a killed process left: the last line, and the beginnings of a file that was to replace this one, which it
 * removes. For start-up, before the first append.
 */
Mending mendLines(const std::string& path, const std::function<bool(const std::string& line)>& isWhole);

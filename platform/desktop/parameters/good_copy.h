#pragma once

#include <sqlite3.h>
#include <string>

namespace desktop {

/**
 * Writes what a store's file holds into the copy beside it, PATH.good: whole and on the disk, or not at all. database:
 * a connection to that file, which no other thread uses meanwhile. A failure leaves the copy that is there.
 */
void keepGoodCopy(sqlite3* database, const std::string& path);

/**
 * When a store's file is damaged: sets it aside as PATH.damaged, in place of an earlier one, and puts the last good
 * copy there or, without one, nothing, so that the store begins with its defaults, and the loss is remembered
 * (lost_settings.h). Killed in between, it begins again the next time. Nobody may have the store open meanwhile.
 *
 * A file that was emptied is damaged when there is a good copy; one that was removed is not: so settings are begun
 * anew.
 *
 * Returns what was wrong and what was done, a line for people; empty when the file is whole or missing, or cannot be
 * judged, as when it is locked. When it cannot be set aside, the line says so, and the file stays.
 */
std::string restoreDamaged(const std::string& path);

}  // namespace desktop

#pragma once

#include <string>
#include <vector>

/** Crossings of an entrance's border, known or counted, and what became of them. */

struct CountedCrossing {
    double seconds = 0;
    double x = 0; /**< fraction of the picture's width */
    double y = 0; /**< fraction of its height; negative when it is not known */
    bool enters = true;
};

struct MatchedCounts {
    int known = 0;
    int missed = 0;
    int invented = 0;
    int netError = 0; /**< how far the sums of those who came in and of those who went out are off */
};

/**
 * Pairs as many known crossings as can be with counted ones in the same direction, not far from there (an eighth of the
 * picture) and up to half a second before or 1.2 seconds after: engines may answer for an older picture.
 */
MatchedCounts matchCrossings(const std::vector<CountedCrossing>& known, const std::vector<CountedCrossing>& counted);

/** Reads the first entrance's crossings from a file of tracks. Throws std::runtime_error. */
std::vector<CountedCrossing> readCountedCrossings(const std::string& tracks);

#pragma once

#include <array>
#include <ctime>
#include <optional>
#include <string>

/** The summary report straight from the archives' files, by a shorter way to the same text. */
namespace report_stream {

enum class Form {
    Csv,
    Html
};

/** The four archives, in the order in which they are read. */
struct Archives {
    std::string crowdCount;
    std::string entranceActivity;
    std::string occupancy;
    std::string averageCrowdCount;

    /** For each: lines dated earlier are about to be purged and count for gone. */
    std::array<std::optional<time_t>, 4> purgedBefore = {};
};

/**
 * What SummaryReport writes over the archives' records, byte for byte. Takes the memory of the text and at most 16 MiB,
 * however often clocks were set back. Throws what std::stoi throws when a number is none. Any thread.
 */
std::string write(const Archives& archives, Form form);

}  // namespace report_stream

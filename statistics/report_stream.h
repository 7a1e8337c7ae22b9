#pragma once

#include <array>
#include <optional>
#include <string>

/** The summary report straight from the archives' files, by a shorter way to the same text. */
namespace report_stream {

enum class Form {
    Csv,
    Html
};

/** The paths of the four archives, in the order in which they are read. */
struct Archives {
    std::string crowdCount;
    std::string entranceActivity;
    std::string occupancy;
    std::string averageCrowdCount;
};

/**
 * What SummaryReport writes over the archives' records, byte for byte. Nothing when clocks were set back more often
 * than this way follows, dozens of times: then only SummaryReport can sort the dates. Throws what std::stoi throws when
 * a number is none. Any thread.
 */
std::optional<std::string> write(const Archives& archives, Form form);

}  // namespace report_stream

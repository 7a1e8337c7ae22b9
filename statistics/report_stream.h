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
 * What SummaryReport writes over the archives' records, byte for byte. Nothing when the dates of a file do not ascend,
 * as after a clock was set back: then only SummaryReport can sort them. Throws what std::stoi throws when a number is
 * none. Any thread.
 */
std::optional<std::string> write(const Archives& archives, Form form);

}  // namespace report_stream

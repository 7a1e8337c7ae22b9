#pragma once

#include <ctime>
#include <optional>
#include <string>

#include "statistics/record_kinds.h"

/** The summary report straight from the archives' files, by a shorter way to the same text. */
namespace report_stream {

enum class Form {
    Csv,
    Html
};

struct Archive {
    std::string path;
    std::optional<time_t> purgedBefore = {}; /**< lines dated earlier are about to be purged and count for gone */
};

/** One of each kind of record, in the kinds' order. */
using Archives = OfEachKind<Archive>;

/**
 * What SummaryReport writes over the archives' records, byte for byte. Takes the memory of the text and at most 16 MiB,
 * however often clocks were set back. Throws what std::stoi throws when a number is none. Any thread.
 */
std::string write(const Archives& archives, Form form);

}  // namespace report_stream

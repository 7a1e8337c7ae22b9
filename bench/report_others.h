#pragma once

#include <optional>
#include <string>

#include "statistics/report_stream.h"

/**
 * Shell commands by which other programs make the report's table from the same files: each reads the four archives and
 * writes one CSV file, out. Nothing, said on the terminal, where the program is not installed.
 */
std::optional<std::string> reportBySqlite(const report_stream::Archives& archives, const std::string& out);
std::optional<std::string> reportByPandas(const report_stream::Archives& archives, const std::string& out);

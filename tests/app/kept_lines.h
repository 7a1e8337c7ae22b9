#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "ledger/ledger.h"
#include "ledger_schema.h"

/* The lines that an application has kept, as its tests look at them. */

inline std::vector<nlohmann::json> linesOf(const std::string& text) {
    std::vector<nlohmann::json> lines;
    std::istringstream all(text);
    for (std::string line; std::getline(all, line);) {
        lines.push_back(ledger::parseLine(line));
    }
    return lines;
}

/** All lines in a folder, in the order of its files. */
inline std::vector<nlohmann::json> linesIn(const std::filesystem::path& folder) {
    std::string text;
    for (const std::string& name : ledger::openFolder(folder.string())->list()) {
        text += ledger::fileOf(name) ? readFile(folder / name) : "";
    }
    return linesOf(text);
}

inline std::vector<std::string> kindsOf(const std::vector<nlohmann::json>& lines) {
    std::vector<std::string> kinds;
    for (const nlohmann::json& line : lines) {
        kinds.push_back(line["kind"]);
    }
    return kinds;
}

/** What the schema has against these lines. */
inline std::string faultsOf(const std::vector<nlohmann::json>& lines) {
    std::string text;
    for (const nlohmann::json& line : lines) {
        text += line.dump() + "\n";
    }
    return schemaFaults(text);
}

inline constexpr const char* kLedger = "usr/local/packages/ostrel_senvo/localdata/ledger";

#include "evaluate/truth_file.h"

#include <fstream>
#include <glib.h>
#include <memory>
#include <stdexcept>
#include <vector>

#include "base/json_reader.h"

namespace {

using json::member;

int countOf(const std::string& key, const nlohmann::json& value) {
    if (!value.is_number_integer() || value.get<int64_t>() < 0 || value.get<int64_t>() > 1000000) {
        throw std::runtime_error("\"" + key + "\": expected a whole number, got " + value.dump());
    }
    return value.get<int>();
}

EntranceCounts countsOf(const std::string& key, const nlohmann::json& value) {
    EntranceCounts counts;
    for (const auto& [label, moves] : value.items()) {
        if (!moves.is_object()) {
            throw std::runtime_error("\"" + key + "\": expected \"enter\" and \"exit\" for " + label + ", got " +
                                     moves.dump());
        }
        counts[label] = {countOf(key, member(moves, "enter")), countOf(key, member(moves, "exit"))};
    }
    return counts;
}

void readExpected(const nlohmann::json& expected, Truth& truth) {
    static const std::string kStarts = "_alert_starts";
    static const std::string kStops = "_alert_stops";
    const auto endsWith = [](const std::string& key, const std::string& ending) {
        return key.size() > ending.size() && key.compare(key.size() - ending.size(), ending.size(), ending) == 0;
    };
    for (const auto& [key, value] : expected.items()) {
        if (key == "entrance1" || key == "entrance2" || key == "entrance3") {
            truth.entrances[static_cast<size_t>(key.back() - '1')] = countsOf(key, value);
        } else if (key == "occupancy_at_end") {
            truth.occupancyAtEnd = countOf(key, value);
        } else if (endsWith(key, kStarts)) {
            truth.alertStarts[key.substr(0, key.size() - kStarts.size())] = countOf(key, value);
        } else if (endsWith(key, kStops)) {
            truth.alertStops[key.substr(0, key.size() - kStops.size())] = countOf(key, value);
        } else if (key != "tolerance_seconds") {
            throw std::runtime_error("\"expected\": unknown key \"" + key + "\"");
        }
    }
}

std::string sha256Of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    const std::unique_ptr<GChecksum, decltype(&g_checksum_free)> checksum(g_checksum_new(G_CHECKSUM_SHA256),
                                                                          g_checksum_free);
    std::vector<char> block(size_t{1} << 20U);
    while (file.read(block.data(), static_cast<std::streamsize>(block.size())) || file.gcount() > 0) {
        g_checksum_update(checksum.get(), reinterpret_cast<const guchar*>(block.data()),
                          static_cast<gssize>(file.gcount()));
    }
    return g_checksum_get_string(checksum.get());
}

}  // namespace

Truth readTruthFile(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read the truth file " + path);
    }
    const nlohmann::json document = nlohmann::json::parse(file, nullptr, false);
    try {
        if (!document.is_object()) {
            throw std::runtime_error("expected a JSON object");
        }
        Truth truth;
        truth.clip = member(document, "clip").get<std::string>();
        truth.sha256 = document.value("sha256", "");
        truth.settings = parseSettings(member(document, "settings"));
        readExpected(member(document, "expected"), truth);
        return truth;
    } catch (const std::exception& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
}

void checkTruthIsOf(const Truth& truth, const std::string& clip) {
    if (truth.sha256.empty()) {
        if (truth.clip != clip) {
            throw std::runtime_error("the truth is of another clip: expected " + truth.clip + ", got " + clip);
        }
        return;
    }
    const std::string sha256 = sha256Of(clip);
    if (sha256 != truth.sha256) {
        throw std::runtime_error("the truth is of another clip: expected " + truth.clip + " with sha256 " +
                                 truth.sha256 + ", got " + clip + " with sha256 " + sha256);
    }
}

#include "desktop/mqtt/published_lines.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace desktop {

std::optional<PublishedLines> readPublishedLines(const std::string& manifest) {
    std::ifstream file(manifest);
    const nlohmann::json document = nlohmann::json::parse(file, nullptr, false);
    if (!document.is_object()) {
        throw std::runtime_error(manifest + ": expected a JSON object, got none");
    }
    const auto lines = document.find("published_lines");
    if (lines == document.end()) {
        return std::nullopt;
    }
    const auto isText = [](const nlohmann::json& value) { return value.is_string(); };
    const nlohmann::json live = lines->is_object() ? lines->value("live", nlohmann::json::array()) : nlohmann::json();
    if (!lines->is_object() || !lines->contains("folder") || !isText((*lines)["folder"]) || !live.is_array() ||
        !std::all_of(live.begin(), live.end(), isText)) {
        throw std::runtime_error(manifest +
                                 R"(: expected a text "folder" and a list of texts "live" in "published_lines", got )" +
                                 lines->dump());
    }
    return PublishedLines{(*lines)["folder"].get<std::string>(), live.get<std::vector<std::string>>()};
}

}  // namespace desktop

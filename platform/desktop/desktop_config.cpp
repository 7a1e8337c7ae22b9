#include "desktop_config.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace desktop {
namespace {

DesktopConfig loadFromEnvironment() {
    const char* path = std::getenv("SENVO_DESKTOP_CONFIG");
    if (path == nullptr) {
        return {};
    }
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error(std::string("SENVO_DESKTOP_CONFIG: cannot read ") + path);
    }
    std::stringstream text;
    text << file.rdbuf();
    try {
        return parseDesktopConfig(text.str());
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(std::string(path) + ": " + error.what());
    }
}

DesktopConfig& instance() {
    static DesktopConfig config = loadFromEnvironment();
    return config;
}

std::string textOf(const std::string& key, const nlohmann::json& value) {
    if (!value.is_string()) {
        throw std::runtime_error("\"" + key + "\": expected a text, got " + value.dump());
    }
    return value.get<std::string>();
}

}  // namespace

const DesktopConfig& desktopConfig() {
    return instance();
}

void setDesktopConfig(DesktopConfig config) {
    instance() = std::move(config);
}

DesktopConfig parseDesktopConfig(const std::string& json) {
    const nlohmann::json document = nlohmann::json::parse(json, nullptr, false);
    if (!document.is_object()) {
        throw std::runtime_error("expected a JSON object");
    }
    DesktopConfig config;
    for (const auto& [key, value] : document.items()) {
        if (key == "video") {
            config.video = textOf(key, value);
        } else if (key == "networksFolder") {
            config.networksFolder = textOf(key, value);
        } else if (key == "stateFolder") {
            config.stateFolder = textOf(key, value);
        } else if (key == "manifest") {
            config.manifest = textOf(key, value);
        } else if (key == "heartbeat") {
            config.heartbeat = textOf(key, value);
        } else if (key == "pacing") {
            const std::string pacing = textOf(key, value);
            if (pacing != "realtime" && pacing != "virtual") {
                throw std::runtime_error("\"pacing\": expected realtime or virtual, got \"" + pacing + "\"");
            }
            config.pacing = pacing == "virtual" ? Pacing::Virtual : Pacing::RealTime;
        } else {
            throw std::runtime_error("unknown key \"" + key +
                                     "\"; known: video, pacing, networksFolder, stateFolder, manifest, heartbeat");
        }
    }
    return config;
}

std::string formatDesktopConfig(const DesktopConfig& config) {
    const nlohmann::ordered_json document = {{"video", config.video},
                                             {"pacing", config.pacing == Pacing::Virtual ? "virtual" : "realtime"},
                                             {"networksFolder", config.networksFolder},
                                             {"stateFolder", config.stateFolder},
                                             {"manifest", config.manifest},
                                             {"heartbeat", config.heartbeat}};
    return document.dump(2) + "\n";
}

int64_t nowMicros() {
    if (desktopConfig().nowMicros) {
        return desktopConfig().nowMicros();
    }
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace desktop

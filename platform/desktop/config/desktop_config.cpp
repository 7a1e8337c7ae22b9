#include "desktop/config/desktop_config.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

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

struct TextKey {
    const char* key;
    std::string& value;
};

/** The keys of the file whose value is a text. */
std::vector<TextKey> textKeys(DesktopConfig& config) {
    return {{"video", config.video},
            {"networksFolder", config.networksFolder},
            {"stateFolder", config.stateFolder},
            {"manifest", config.manifest},
            {"heartbeat", config.heartbeat},
            {"liveSocket", config.liveSocket},
            {"mqtt", config.mqtt.address},
            {"mqttUser", config.mqtt.user},
            {"mqttPasswordFile", config.mqtt.passwordFile},
            {"mqttCaFile", config.mqtt.caFile},
            {"mqttCertFile", config.mqtt.certFile},
            {"mqttKeyFile", config.mqtt.keyFile}};
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
    const std::vector<TextKey> texts = textKeys(config);
    for (const auto& [key, value] : document.items()) {
        const auto isKey = [&name = key](const TextKey& text) { return name == text.key; };
        if (const auto text = std::find_if(texts.begin(), texts.end(), isKey); text != texts.end()) {
            text->value = textOf(key, value);
        } else if (key == "pacing") {
            const std::string pacing = textOf(key, value);
            if (pacing != "realtime" && pacing != "virtual") {
                throw std::runtime_error("\"pacing\": expected realtime or virtual, got \"" + pacing + "\"");
            }
            config.pacing = pacing == "virtual" ? Pacing::Virtual : Pacing::RealTime;
        } else {
            std::string known = "pacing";
            for (const TextKey& other : texts) {
                known += std::string(", ") + other.key;
            }
            throw std::runtime_error("unknown key \"" + key + "\"; known: " + known);
        }
    }
    return config;
}

std::string formatDesktopConfig(DesktopConfig config) {
    nlohmann::ordered_json document = {{"pacing", config.pacing == Pacing::Virtual ? "virtual" : "realtime"}};
    for (const TextKey& text : textKeys(config)) {
        document[text.key] = text.value;
    }
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

#include "desktop/config/desktop_config.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "base/json_reader.h"

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

}  // namespace

const DesktopConfig& desktopConfig() {
    return instance();
}

void setDesktopConfig(DesktopConfig config) {
    instance() = std::move(config);
}

DesktopConfig parseDesktopConfig(const std::string& text) {
    static const json::NameTable<Pacing> kPacings = {{"realtime", Pacing::RealTime}, {"virtual", Pacing::Virtual}};
    DesktopConfig config;
    json::Readers readers = {
        {"pacing", [&](auto& key, auto& value) { config.pacing = json::oneOf(kPacings, key, value); }}};
    for (const TextKey& known : textKeys(config)) {
        readers.emplace_back(known.key, [known](auto& key, auto& value) { known.value = json::text(key, value); });
    }
    json::readObject("", json::Value::parse(text, nullptr, false), readers);
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

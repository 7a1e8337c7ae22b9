#include "desktop/tool/mqtt_options.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace desktop {
namespace {

namespace fs = std::filesystem;

std::string checkAddress(const std::string& text) {
    try {
        parseMqttAddress(text);
        return {};
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

/** A file that can be read; its path becomes absolute, since the application works in another folder. */
std::string checkFile(std::string& path) {
    std::error_code ignored;
    if (!fs::is_regular_file(path, ignored) || access(path.c_str(), R_OK) != 0) {
        return "expected a file that can be read, got " + path;
    }
    path = fs::absolute(path).string();
    return {};
}

}  // namespace

void addMqttOptions(CLI::App& command, MqttConfig& config) {
    CLI::Option* const broker =
        command
            .add_option("--mqtt", config.address,
                        "Also publish the events to the MQTT broker at this HOST:PORT[/prefix]; docs/mqtt.md")
            ->check(checkAddress);
    const auto addFile = [&command](const char* name, std::string& path, const char* help) {
        return command.add_option(name, path, help)->transform(CLI::Validator(checkFile, "FILE"));
    };
    CLI::Option* const user =
        command.add_option("--mqtt-user", config.user, "User to log on to the broker as")->needs(broker);
    addFile("--mqtt-password-file", config.passwordFile, "File whose first line is the user's password")->needs(user);
    CLI::Option* const authorities =
        addFile("--mqtt-cafile", config.caFile,
                "Use TLS; the broker's certificate has to be signed by one of this file (PEM)")
            ->needs(broker);
    CLI::Option* const certificate =
        addFile("--mqtt-cert", config.certFile, "The camera's own certificate (PEM), if the broker asks for one")
            ->needs(authorities);
    CLI::Option* const key =
        addFile("--mqtt-key", config.keyFile, "The key of --mqtt-cert (PEM), without a passphrase")->needs(certificate);
    certificate->needs(key);
}

}  // namespace desktop

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <iostream>
#include <numeric>

#include "camera_folder.h"
#include "mqtt_options.h"
#include "supervisor.h"

namespace {

namespace fs = std::filesystem;

constexpr int kUnusable = 2;

struct Options {
    std::string video = "scene:plaza";
    std::string model = "motion";
    std::string networks;
    std::string state;
    desktop::MqttConfig mqtt;
    int seconds = 0; /**< 0: until stopped */
};

fs::path defaultStateFolder(const std::string& name) {
    if (const char* const state = std::getenv("XDG_STATE_HOME")) {
        return fs::path(state) / "ostrel-senvo" / name;
    }
    const char* const home = std::getenv("HOME");
    return fs::path(home == nullptr ? "." : home) / ".local/state/ostrel-senvo" / name;
}

/** Whether a source names a file, rather than an address, a device or a drawn scene. */
bool isFile(const std::string& video) {
    return video.find("://") == std::string::npos && video.rfind("scene:", 0) != 0;
}

std::string checkedVideo(const std::string& video) {
    if (!isFile(video)) {
        return video;
    }
    if (!fs::exists(video)) {
        throw std::runtime_error("no video " + video +
                                 ": expected a file, a device such as /dev/video0, an address such as rtsp://..., or "
                                 "scene:plaza");
    }
    return fs::absolute(video).string();
}

std::string checkedNetworks(const std::string& folder) {
    if (folder.empty()) {
        return {};
    }
    if (!fs::is_directory(folder)) {
        throw std::runtime_error("--networks: expected a folder, got " + folder);
    }
    return fs::absolute(folder).string();
}

/** The errors of the application's last start in its log, so that the reason for its end stands on the terminal. */
std::string newestErrors(const fs::path& log) {
    constexpr size_t kMost = 8;
    std::deque<std::string> errors;
    std::ifstream file(log);
    for (std::string line; std::getline(file, line);) {
        if (line.find("|warning|STARTING ") != std::string::npos) {
            errors.clear();
        }
        if (line.find("|error|") != std::string::npos) {
            errors.push_back("  " + line + "\n");
        }
        if (errors.size() > kMost) {
            errors.pop_front();
        }
    }
    return std::accumulate(errors.begin(), errors.end(), std::string());
}

int keepRunning(const Options& options, const std::string& defaultName, const std::string& program,
                const std::map<std::string, std::string>& moreEnvironment) {
    desktop::DesktopConfig config;
    config.video = checkedVideo(options.video);
    config.networksFolder = checkedNetworks(options.networks);
    config.mqtt = options.mqtt;
    const fs::path card = desktop::findModelCard(options.model);
    const desktop::CameraFolder camera(options.state.empty() ? defaultStateFolder(defaultName)
                                                             : fs::path(options.state));
    config.stateFolder = camera.path().string();
    config.manifest = (desktop::packageFolder() / "manifest.json").string();
    camera.writeConfig(config);
    camera.installModel(card, 960, 540);

    std::cout << "video:  " << options.video << "\nmodel:  " << card.string() << "\nstate:  " << camera.path().string()
              << "\nlog:    " << camera.log().string() << std::endl;
    desktop::SupervisedProcess process;
    process.executable = fs::read_symlink("/proc/self/exe").parent_path() / program;
    process.workingFolder = camera.application();
    process.environment = moreEnvironment;
    process.environment["OSTREL_SENVO_ROOT"] = camera.root().string();
    process.environment["SENVO_DESKTOP_CONFIG"] = camera.configFile().string();
    const auto duration = options.seconds > 0 ? std::optional(std::chrono::seconds(options.seconds)) : std::nullopt;
    return desktop::supervise(process, duration, [log = camera.log()](const std::string& line) {
        std::cerr << "senvo: " << line << '\n' << newestErrors(log) << std::flush;
    });
}

void addCommonOptions(CLI::App& command, Options& options) {
    command.add_option("--model", options.model, "Model card: a file, or a name such as motion")->capture_default_str();
    command.add_option("--networks", options.networks, "Folder of the network files that the card names");
    addMqttOptions(command, options.mqtt);
    command.add_option("--seconds", options.seconds, "End after so many seconds")->check(CLI::Range(1, 1000000000));
    command.add_option("--state", options.state,
                       "Folder for settings, events and the log; by default one below ~/.local/state/ostrel-senvo");
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Runs a camera on this machine.", "senvo");
    app.require_subcommand(1);
    Options options;
    CLI::App* const run = app.add_subcommand(
        "run",
        "Counts what a video shows, until stopped. The application is started again when it ends with an error.");
    run->add_option("--video", options.video,
                    "A video file, an address (rtsp://...), a webcam (/dev/video0) or scene:plaza")
        ->required();
    addCommonOptions(*run, options);
    CLI::App* const demo =
        app.add_subcommand("demo", "Runs on a drawn scene and prints the counts as they change, until stopped.");
    addCommonOptions(*demo, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        app.exit(error, std::cerr, std::cerr);
        return kUnusable;
    }
    try {
        if (run->parsed()) {
            return keepRunning(options, "camera", "ostrel_senvo", {});
        }
        const fs::path truth = desktop::packageFolder() / "scenes" / "plaza.truth.json";
        return keepRunning(options, "demo", "senvo-watch", {{"SENVO_WATCH_TRUTH", truth.string()}});
    } catch (const std::exception& error) {
        std::cerr << "senvo: " << error.what() << '\n';
        return kUnusable;
    }
}

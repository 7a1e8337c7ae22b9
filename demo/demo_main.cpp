#include <CLI/CLI.hpp>
#include <iostream>
#include <sys/stat.h>

#include "base/command_line.h"
#include "demo/demo_building.h"
#include "desktop/tool/background.h"
#include "evaluate/truth_file.h"

namespace {

constexpr std::chrono::milliseconds kLook(250);

int runDemo(desktop::CameraOptions options, int followers, int seconds) {
    if (options.state.empty()) {
        options.state = desktop::defaultStateFolder("demo");
    }
    DemoBuilding building(options, followers,
                          readTruthFile((desktop::packageFolder() / "scenes/plaza.truth.json").string()).settings);
    std::cout << "state: " << std::filesystem::absolute(options.state).string() << std::endl;
    desktop::holdBackSupervisorSignals();
    const std::vector<desktop::SupervisedProcess> processes = building.processes();
    const desktop::Background beside(kLook, [&building] { return building.step(); });
    const auto duration = seconds > 0 ? std::optional(std::chrono::seconds(seconds)) : std::nullopt;
    const int status = desktop::supervise(processes, duration,
                                          [](const std::string& line) { std::cerr << "senvo: " << line << std::endl; });
    building.end();
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    // Settings hold the passwords of followers, and the log may hold them, too.
    umask(S_IRWXG | S_IRWXO);
    CLI::App app(
        "Runs a camera on a drawn scene, prints its counts as they change and serves its web interface, until stopped. "
        "With followers it is a building: a leader that adds up the counts of cameras beside it.",
        "senvo demo");
    desktop::CameraOptions options;
    int seconds = 0;
    int followers = 0;
    addCameraOptions(app, options, seconds);
    app.add_option("--followers", followers, "How many followers the camera leads; their ports follow its own")
        ->check(CLI::Range(0, DemoBuilding::kMostFollowers))
        ->capture_default_str();
    return perform(app, argc, argv, "senvo", [&] { return runDemo(options, followers, seconds); });
}

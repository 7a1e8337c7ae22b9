#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "app/application.h"
#include "base/clock.h"
#include "config/settings_file.h"
#include "desktop/frames/virtual_time.h"
#include "desktop/tool/camera_folder.h"
#include "program.h"
#include "test_folder.h"
#include "this_build.h"

namespace {

constexpr int kCycles = 250;

/** What the first 25 seconds of the drawn scene come to, on a camera whose log and events go nowhere. */
struct Outcome {
    std::vector<int> occupancy;
    unsigned cycles = 0;
    std::string events;
};

Outcome runScene(bool diskIsFull) {
    const TestFolder folder;
    const desktop::CameraFolder camera(folder.path() / "camera");
    const std::filesystem::path events = camera.path() / "events.jsonl";
    if (diskIsFull) {
        std::filesystem::create_symlink("/dev/full", events);
        std::filesystem::create_symlink("/dev/full", camera.log());
    }
    desktop::DesktopConfig config;
    config.pacing = desktop::Pacing::Virtual;
    config.stateFolder = camera.path();
    config.manifest = desktop::packageFolder() / "manifest.json";
    desktop::setDesktopConfig(config);
    setenv("OSTREL_SENVO_ROOT", camera.root().c_str(), 1);
    const WorkingFolder inFolder(camera.application());
    camera.installModel(desktop::findModelCard("motion"), 960, 540);

    Outcome outcome;
    Application application;
    application.init_parameter_controller();
    EXPECT_EQ(application.init_ai(), 1);
    application.init_occupancy_controller();
    application.init_event_manager();
    application.init_logic(application.config().i_MaxDisappeared);
    ConfigParams settings = application.config();
    applySettings(
        parseSettings(
            nlohmann::json::parse(readFile(this_build::checkout() / "package/scenes/plaza.truth.json")).at("settings")),
        application.detector().get_stream_width(), application.detector().get_stream_height(),
        application.detector().get_iteration_time(), settings);
    application.applySettings(settings);
    for (int64_t cycle = 0; cycle < kCycles; ++cycle) {
        const int64_t now = cycle * application.detector().get_iteration_time() * 1000;
        setClock([now] { return 1704067200000000 + now; });
        desktop::setVirtualTime(now);
        application.thread_function();
        outcome.occupancy.push_back(application.metrics().occupancyCount);
    }
    outcome.cycles = application.frameCounter();
    outcome.events = diskIsFull ? "" : readFile(events);
    setClock(nullptr);
    unsetenv("OSTREL_SENVO_ROOT");
    return outcome;
}

/** Runs the scene in a process of its own, as a camera does; the counts as a text. */
std::string countsOf(bool diskIsFull, const std::filesystem::path& result) {
    const pid_t pid = fork();
    if (pid == 0) {
        const Outcome outcome = runScene(diskIsFull);
        std::string text = std::to_string(outcome.cycles) + " cycles";
        for (const int count : outcome.occupancy) {
            text += " " + std::to_string(count);
        }
        writeFile(result, text + (outcome.events.empty() ? "" : " with events"));
        std::_Exit(0);
    }
    Child child(pid);
    EXPECT_EQ(child.wait(300000), 0);
    return readFile(result);
}

TEST(FullDisk, LosesLogAndEventsButNoCounts) {
    const TestFolder folder;
    const std::string counts = countsOf(false, folder.path() / "roomy");
    EXPECT_EQ(counts.rfind(std::to_string(kCycles) + " cycles", 0), 0U) << counts;
    EXPECT_NE(counts.find(" 1 "), std::string::npos) << "somebody came in: " << counts;
    EXPECT_TRUE(counts.ends_with(" with events")) << counts;
    EXPECT_EQ(countsOf(true, folder.path() / "full") + " with events", counts);
}

}  // namespace

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <unistd.h>

#include "base/command_line.h"
#include "desktop/tool/camera_folder.h"
#include "evaluate/comparison.h"
#include "evaluate/evaluation.h"
#include "evaluate/report.h"
#include "evaluate/truth_file.h"

namespace {

constexpr int kEqual = 0;
constexpr int kDifferent = 1;
constexpr int kBarWidth = 40;

/** A bar on the terminal; says nothing when standard error is none. */
class ProgressBar {
public:
    void show(double seconds, double length) {
        const int permille = length > 0 ? static_cast<int>(seconds / length * 1000) : 0;
        if (!m_terminal || permille == m_shown) {
            return;
        }
        m_shown = permille;
        const int filled = permille * kBarWidth / 1000;
        std::fprintf(stderr, "\r[%s%s] %5.1f s", std::string(static_cast<size_t>(filled), '#').c_str(),
                     std::string(static_cast<size_t>(kBarWidth - filled), '.').c_str(), seconds);
    }
    void clear() const {
        if (m_shown >= 0) {
            std::fprintf(stderr, "\r%*s\r", kBarWidth + 12, "");
        }
    }

private:
    bool m_terminal = isatty(STDERR_FILENO) != 0;
    int m_shown = -1;
};

/** A drawn scene brings its own truth. */
std::string truthOfScene(const std::string& clip) {
    static const std::string kScene = "scene:";
    if (clip.rfind(kScene, 0) != 0) {
        return {};
    }
    const std::filesystem::path truth =
        desktop::packageFolder() / "scenes" / (clip.substr(kScene.size()) + ".truth.json");
    return std::filesystem::exists(truth) ? truth.string() : std::string();
}

int run(EvaluationOptions options, std::string truthFile, const std::string& settingsFile, bool json) {
    if (truthFile.empty()) {
        truthFile = truthOfScene(options.clip);
    }
    std::optional<Truth> truth;
    if (!truthFile.empty()) {
        truth = readTruthFile(truthFile);
        checkTruthIsOf(*truth, options.clip);
        options.settings = truth->settings;
    }
    if (!settingsFile.empty()) {
        options.settings = readSettingsFile(settingsFile);
    }
    ProgressBar bar;
    options.progress = [&bar](double seconds, double length) { bar.show(seconds, length); };
    const auto start = std::chrono::steady_clock::now();
    const Results results = evaluate(options);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    bar.clear();

    const std::vector<std::string> differences = truth ? compare(results, *truth) : std::vector<std::string>();
    std::cout << (json ? jsonReport(results, truth ? &differences : nullptr) : textReport(results));
    if (!json && truth) {
        std::cout << "truth        " << (differences.empty() ? "equal" : "different") << '\n';
        for (const std::string& difference : differences) {
            std::cout << "  " << difference << '\n';
        }
    }
    std::cout.flush();
    std::fprintf(stderr, "speed        %.1f times real time\n", results.clipSeconds / taken.count());
    return differences.empty() ? kEqual : kDifferent;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Runs the application's own analysis over a recorded clip or a drawn scene, as fast as the machine allows, and "
        "prints what it counted. With a truth file: ends with 0 when the counts are equal and 1 when they differ; 2 "
        "means bad usage or unreadable input.",
        "senvo evaluate");
    EvaluationOptions options;
    std::string truthFile;
    std::string settingsFile;
    bool json = false;
    app.add_option("CLIP", options.clip, "A video file, or scene:plaza")->required();
    app.add_option("--truth", truthFile, "Compare with this truth file; its settings are used");
    app.add_option("--settings", settingsFile, "Use the settings of this JSON file");
    app.add_option("--model", options.model,
                   "Model card: a file, a name such as motion, or auto: the best whose network is there, else motion")
        ->capture_default_str();
    app.add_option("--networks", options.networksFolder, "Folder of the network files that the card names");
    app.add_option("--out", options.outFolder,
                   "Keep what was found in this folder: tracks.jsonl, events.jsonl, the archives and the report");
    app.add_flag("--json", json, "Print the results as JSON");
    return perform(app, argc, argv, "senvo evaluate", [&] { return run(options, truthFile, settingsFile, json); });
}

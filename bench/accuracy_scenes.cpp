#include "accuracy_scenes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "accuracy_match.h"
#include "base/temporary_folder.h"
#include "desktop/video/scene/scene.h"
#include "this_build.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kHelp =
    "Usage: ./senvo bench accuracy scenes|clips [--model CARD ...] [--scene NAME ...] [--seeds N] [--first SEED]\n"
    "                                           [--shared DIR]\n"
    "Counts with whole engines and prints the crossings that were missed and invented. scenes: the drawn trials, each\n"
    "with N seeds from SEED on (3 from 101). clips: the recorded ones in DIR/media, networks from DIR/models.\n"
    "CARD: motion, and for clips each network whose files are there, unless named.\n";

struct Options {
    bool clips = false;
    std::vector<std::string> models;
    std::vector<std::string> scenes;
    int seeds = 3;
    int first = 101;
    fs::path shared = this_build::shared();
};

/** What is counted: a source, where its truth lies and the crossings of which time and place are known, if any. */
struct Footage {
    std::string source;
    fs::path truth;
    std::vector<CountedCrossing> crossings;
};

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

Options parse(const std::vector<std::string>& words) {
    Options options;
    options.clips = words.at(0) == "clips";
    for (size_t i = 1; i < words.size(); i += 2) {
        if (i + 1 == words.size()) {
            throw UsageError("expected a value after " + words[i]);
        }
        const std::string& value = words[i + 1];
        if (words[i] == "--model") {
            options.models.push_back(value);
        } else if (words[i] == "--scene") {
            options.scenes.push_back(value);
        } else if (words[i] == "--shared") {
            options.shared = value;
        } else if (words[i] == "--seeds" || words[i] == "--first") {
            const int number = std::atoi(value.c_str());  // NOLINT: what is no number is 0, which is refused
            if (number < 1) {
                throw UsageError("expected a number from 1 on after " + words[i] + ", got " + value);
            }
            (words[i] == "--seeds" ? options.seeds : options.first) = number;
        } else {
            throw UsageError("expected --model, --scene, --seeds, --first or --shared, got " + words[i]);
        }
    }
    return options;
}

Footage trial(const std::string& name, const fs::path& scratch) {
    const std::optional<desktop::Scene> scene = desktop::findScene(name);
    if (!scene) {
        throw UsageError("no scene " + name + "; known: " + desktop::sceneNames());
    }
    Footage footage = {"scene:" + name, scratch / (name + ".truth.json"), {}};
    std::ofstream(footage.truth) << desktop::truthOf(*scene);
    for (const desktop::Crossing& crossing : desktop::crossingsOf(*scene)) {
        footage.crossings.push_back(
            {crossing.seconds, crossing.x / scene->width, crossing.y / scene->height, crossing.enters});
    }
    return footage;
}

/** The crossings of a clip for which there is a list. */
std::vector<CountedCrossing> listedCrossings(const fs::path& list) {
    std::vector<CountedCrossing> crossings;
    std::ifstream file(list);
    if (file) {
        for (const nlohmann::json& crossing : nlohmann::json::parse(file)["crossings"]) {
            crossings.push_back({crossing["seconds"], crossing["x"], -1, true});
        }
    }
    return crossings;
}

std::vector<Footage> clipsIn(const fs::path& media) {
    std::vector<Footage> clips;
    for (const fs::directory_entry& entry : fs::directory_iterator(media)) {
        fs::path truth = entry.path();
        truth.replace_extension(".truth.json");
        fs::path list = entry.path();
        list.replace_extension(".crossings.json");
        if (entry.path().extension() != ".json" && fs::exists(truth)) {
            clips.push_back({entry.path(), truth, listedCrossings(list)});
        }
    }
    std::sort(clips.begin(), clips.end(), [](const auto& a, const auto& b) { return a.source < b.source; });
    return clips;
}

/** The shipped cards whose networks are all there, after the engine that needs none. */
std::vector<std::string> usableCards(const fs::path& networks) {
    std::vector<std::string> cards = {"motion"};
    for (const fs::directory_entry& entry : fs::directory_iterator(this_build::checkout() / "package" / "models")) {
        std::ifstream file(entry.path());
        const nlohmann::json card = nlohmann::json::parse(file);
        const auto files = card.find("network");
        if (files != card.end() && std::all_of(files->begin(), files->end(), [&](const nlohmann::json& name) {
                return fs::exists(networks / name.get<std::string>());
            })) {
            cards.push_back(entry.path().stem());
        }
    }
    std::sort(cards.begin() + 1, cards.end());
    return cards;
}

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

/** The crossings by a truth file's sums, for clips without a list: only net errors can be told. */
int netErrorOf(const fs::path& truth, const std::vector<CountedCrossing>& counted, int& known) {
    std::ifstream file(truth);
    const nlohmann::json document = nlohmann::json::parse(file);
    std::map<bool, int> sums;
    for (const nlohmann::json& counts : document["expected"]["entrance1"]) {
        sums[true] += counts.value("enter", 0);
        sums[false] += counts.value("exit", 0);
    }
    known = sums[true] + sums[false];
    for (const CountedCrossing& crossing : counted) {
        --sums[crossing.enters];
    }
    return std::abs(sums[true]) + std::abs(sums[false]);
}

std::vector<CountedCrossing> count(const Footage& footage, const std::string& model, const Options& options,
                                   const fs::path& scratch) {
    const fs::path program = fs::read_symlink("/proc/self/exe").parent_path() / "senvo-evaluate";
    const std::string command = quoted(program) + " " + quoted(footage.source) + " --truth " + quoted(footage.truth) +
                                " --model " + quoted(model) + " --networks " + quoted(options.shared / "models") +
                                " --out " + quoted(scratch / "out") + " >" + quoted(scratch / "report") + " 2>" +
                                quoted(scratch / "errors");
    const int status = std::system(command.c_str());  // NOLINT: our own program with quoted words
    constexpr int kDifferent = 1 << 8;                // counted, but not what the truth says
    if (status != 0 && status != kDifferent) {
        std::ifstream errors(scratch / "errors");
        std::string text((std::istreambuf_iterator<char>(errors)), std::istreambuf_iterator<char>());
        throw std::runtime_error(footage.source + " with " + model + ": " + text);
    }
    return readCountedCrossings(scratch / "out" / "tracks.jsonl");
}

void printRow(const std::string& model, const std::string& name, const MatchedCounts& counts, bool listed) {
    std::printf("%-18s %-34s %9d", model.c_str(), name.c_str(), counts.known);
    if (listed) {
        std::printf(" %8d %9d", counts.missed, counts.invented);
    } else {
        std::printf(" %8s %9s", "-", "-");
    }
    std::printf(" %10d %6.1f %%\n", counts.netError, counts.known == 0 ? 0.0 : 100.0 * counts.netError / counts.known);
    std::fflush(stdout);
}

void add(MatchedCounts& sum, const MatchedCounts& counts) {
    sum.known += counts.known;
    sum.missed += counts.missed;
    sum.invented += counts.invented;
    sum.netError += counts.netError;
}

void measure(Options options) {
    const TemporaryFolder scratch("accuracy");
    std::map<std::string, std::vector<Footage>> groups;
    if (options.clips) {
        for (Footage& clip : clipsIn(options.shared / "media")) {
            groups[fs::path(clip.source).filename()].push_back(std::move(clip));
        }
    } else {
        for (const std::string& name : options.scenes.empty() ? desktop::trialNames() : options.scenes) {
            for (int seed = options.first; seed < options.first + options.seeds; ++seed) {
                groups[name].push_back(trial(name + "-" + std::to_string(seed), scratch.path()));
            }
        }
    }
    if (options.models.empty()) {
        options.models = options.clips ? usableCards(options.shared / "models") : std::vector<std::string>{"motion"};
    }
    std::printf("%-18s %-34s %9s %8s %9s %10s\n", "engine", options.clips ? "clip" : "scene", "crossings", "missed",
                "invented", "net error");
    for (const std::string& model : options.models) {
        MatchedCounts all;
        for (const auto& [name, footages] : groups) {
            MatchedCounts sum;
            bool listed = true;
            for (const Footage& footage : footages) {
                const std::vector<CountedCrossing> counted = count(footage, model, options, scratch.path());
                MatchedCounts counts = matchCrossings(footage.crossings, counted);
                if (footage.crossings.empty()) {
                    listed = false;
                    counts = {};
                    counts.netError = netErrorOf(footage.truth, counted, counts.known);
                }
                add(sum, counts);
            }
            printRow(model, name, sum, listed);
            add(all, sum);
        }
        printRow(model, "all", all, !options.clips);
    }
}

}  // namespace

int measureEngines(const std::vector<std::string>& words) {
    if (std::find(words.begin(), words.end(), "--help") != words.end()) {
        std::cout << kHelp;
        return 0;
    }
    try {
        measure(parse(words));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "senvo bench accuracy: " << error.what() << '\n';
        return 2;
    }
}

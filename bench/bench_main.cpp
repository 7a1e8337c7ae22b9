#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "accuracy.h"
#include "accuracy_scenes.h"
#include "base/temporary_folder.h"
#include "footprint.h"
#include "topic_process.h"
#include "topics.h"

namespace {

constexpr const char* kHelp =
    "Usage: ./senvo bench [TOPIC ...] [--json] [--repetitions N] [--here]\n"
    "Measures in one run, variants interleaved, and prints medians and ratios. TOPIC: convert, cycle, store,\n"
    "overlay; all four without one; report, archive and ledger, with large files, web, with web servers, and live,\n"
    "with viewers, only by name. Or, alone: footprint, what the application takes of a camera, or accuracy,\n"
    "how well it counts; ./senvo bench accuracy --help tells more.\n"
    "Each topic is a process of its own; with --here a single one runs in this process, as a profiler likes it.\n"
    "Ends with 1 when a figure misses its limit, with 3 when a topic crashes, hangs or leaves a process behind.\n";

constexpr int kMissed = 1;
constexpr int kUnusable = 2;
constexpr int kFaulty = 3;
constexpr std::chrono::minutes kLimit(20);  // ends what hangs; the longest topic takes a tenth of it

struct Options {
    std::vector<std::string> topics;
    bool footprint = false;
    bool json = false;
    bool here = false;
    std::string repetitions = "15";
};

const std::map<std::string, std::vector<Limit> (*)()>& topics() {
    static const std::map<std::string, std::vector<Limit> (*)()> all = {
        {"convert", registerConversion}, {"cycle", registerCycle},   {"store", registerStore},
        {"overlay", registerOverlay},    {"report", registerReport}, {"archive", registerArchive},
        {"ledger", registerLedger},      {"web", registerWeb},       {"live", registerLive}};
    return all;
}

/** Makes a folder one for a camera to run in, with a model file and room for tensor files. */
void makeCameraFolder(const std::filesystem::path& root) {
    const auto model = root / "mnt/flash/usr/local/packages/ostrel_senvo";
    std::filesystem::create_directories(model);
    std::filesystem::create_directories(root / "tmp");
    std::ofstream(model / "detect_960_540_tpu.tflite") << "model";
    setenv("OSTREL_SENVO_ROOT", root.c_str(), 1);
}

/** Measures one topic in this process. */
int measure(const std::string& topic, const Options& chosen) {
    const TemporaryFolder folder("bench");
    makeCameraFolder(folder.path());
    const std::vector<Limit> limits = topics().at(topic)();
    std::string options[] = {"senvo-bench", "--benchmark_enable_random_interleaving=true",
                             "--benchmark_repetitions=" + chosen.repetitions, "--benchmark_min_time=0.1"};
    char* arguments[] = {options[0].data(), options[1].data(), options[2].data(), options[3].data(), nullptr};
    int count = 4;
    benchmark::Initialize(&count, arguments);
    FigureReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const std::vector<Figure> figures = figuresOf(reporter, limits);
    std::cout << (chosen.json ? jsonOf(figures) : textOf(figures));
    const bool good = std::all_of(figures.begin(), figures.end(), [](const Figure& figure) { return figure.good; });
    return good ? 0 : kMissed;
}

/** Measures each topic in a process of its own. */
int measureApart(const Options& chosen) {
    nlohmann::ordered_json figures = nlohmann::ordered_json::array();
    int status = 0;
    for (const std::string& topic : chosen.topics) {
        std::vector<std::string> command = {std::filesystem::read_symlink("/proc/self/exe").string(), topic, "--here",
                                            "--repetitions", chosen.repetitions};
        if (chosen.json) {
            command.emplace_back("--json");
        }
        const TopicEnd end = runTopic(command, kLimit, chosen.json);
        if (!end.fault.empty()) {
            std::cerr << "senvo bench: " << topic << ' ' << end.fault << '\n';
            status = kFaulty;
        } else {
            status = std::max(status, end.status);
            const auto more = nlohmann::ordered_json::parse(end.output, nullptr, false);
            figures.insert(figures.end(), more.begin(), more.end());
        }
    }
    if (chosen.json) {
        std::cout << figures.dump(2) << '\n';
    }
    return status;
}

/** Throws std::invalid_argument, saying what was expected. */
Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "footprint") {
            options.footprint = true;
        } else if (word == "--json") {
            options.json = true;
        } else if (word == "--here") {
            options.here = true;
        } else if (word == "--repetitions" && i + 1 < argc) {
            options.repetitions = argv[++i];
        } else if (topics().contains(word)) {
            options.topics.push_back(word);
        } else {
            throw std::invalid_argument(
                "expected convert, cycle, store, overlay, report, archive, web, live, footprint, --json, --here or "
                "--repetitions N, got " +
                word);
        }
    }
    if (options.footprint && !options.topics.empty()) {
        throw std::invalid_argument("expected footprint alone, got " + options.topics[0] + ", too");
    }
    if (options.here && options.topics.size() != 1) {
        throw std::invalid_argument("expected one topic with --here, got " + std::to_string(options.topics.size()));
    }
    if (options.topics.empty()) {
        options.topics = {"convert", "cycle", "overlay", "store"};
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h")) {
        std::cout << kHelp;
        return 0;
    }
    try {
        if (argc > 2 && argv[1] == std::string("accuracy") &&
            (argv[2] == std::string("scenes") || argv[2] == std::string("clips"))) {
            return measureEngines({argv + 2, argv + argc});
        }
        if (argc > 1 && std::string(argv[1]) == "accuracy") {
            const TemporaryFolder folder("bench");
            makeCameraFolder(folder.path());
            return accuracy::measureAccuracy({argv + 2, argv + argc});
        }
        const Options options = parse(argc, argv);
        if (options.footprint) {
            return measureFootprint(options.json);
        }
        return options.here ? measure(options.topics[0], options) : measureApart(options);
    } catch (const std::invalid_argument& error) {
        std::cerr << "senvo bench: " << error.what() << '\n';
        return kUnusable;
    } catch (const std::exception& error) {
        std::cerr << "senvo bench: " << error.what() << '\n';
        return kFaulty;
    }
}

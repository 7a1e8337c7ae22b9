#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>

#include "footprint.h"
#include "topics.h"

namespace {

constexpr const char* kHelp =
    "Usage: ./senvo bench [TOPIC ...] [--json] [--repetitions N]\n"
    "Measures in one run, variants interleaved, and prints medians and ratios. TOPIC: convert, cycle, store,\n"
    "overlay; all four without one; report and archive, with large files, web, with web servers, and live, with "
    "viewers, only by name. Or, alone: footprint, what the application takes of a camera.\n"
    "Ends with 1 when a figure misses its limit.\n";

/** A camera's folder to run in, a model file and room for tensor files; gone at the end with all that was measured. */
class CameraFolder {
public:
    CameraFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "senvo-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make " + name);
        }
        m_root = name;
        const auto model = m_root / "mnt/flash/usr/local/packages/ostrel_senvo";
        std::filesystem::create_directories(model);
        std::filesystem::create_directories(m_root / "tmp");
        std::ofstream(model / "detect_960_540_tpu.tflite") << "model";
        setenv("OSTREL_SENVO_ROOT", m_root.c_str(), 1);
    }
    ~CameraFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_root, ignored);
    }
    CameraFolder(const CameraFolder&) = delete;
    CameraFolder& operator=(const CameraFolder&) = delete;

private:
    std::filesystem::path m_root;
};

}  // namespace

int main(int argc, char** argv) {
    const std::map<std::string, std::vector<Limit> (*)()> topics = {{"convert", registerConversion},
                                                                    {"cycle", registerCycle},
                                                                    {"store", registerStore},
                                                                    {"overlay", registerOverlay},
                                                                    {"report", registerReport},
                                                                    {"archive", registerArchive},
                                                                    {"web", registerWeb},
                                                                    {"live", registerLive}};
    const std::vector<std::string> onlyByName = {"report", "archive", "web", "live"};
    std::vector<std::string> chosen;
    bool json = false;
    bool footprint = false;
    std::string repetitions = "15";
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--help" || word == "-h") {
            std::cout << kHelp;
            return 0;
        }
        if (word == "footprint") {
            footprint = true;
        } else if (word == "--json") {
            json = true;
        } else if (word == "--repetitions" && i + 1 < argc) {
            repetitions = argv[++i];
        } else if (topics.contains(word)) {
            chosen.push_back(word);
        } else {
            std::cerr << "senvo bench: expected convert, cycle, store, overlay, report, archive, web, live, footprint, "
                         "--json or "
                         "--repetitions N, got "
                      << word << '\n';
            return 2;
        }
    }
    if (footprint) {
        if (!chosen.empty()) {
            std::cerr << "senvo bench: expected footprint alone, got " << chosen[0] << ", too\n";
            return 2;
        }
        try {
            return measureFootprint(json);
        } catch (const std::exception& error) {
            std::cerr << "senvo bench: " << error.what() << '\n';
            return 2;
        }
    }
    if (chosen.empty()) {
        for (const auto& [name, registerTopic] : topics) {
            if (std::find(onlyByName.begin(), onlyByName.end(), name) == onlyByName.end()) {
                chosen.push_back(name);
            }
        }
    }
    const CameraFolder folder;
    std::vector<Limit> limits;
    for (const auto& [name, registerTopic] : topics) {
        if (std::find(chosen.begin(), chosen.end(), name) != chosen.end()) {
            const std::vector<Limit> more = registerTopic();
            limits.insert(limits.end(), more.begin(), more.end());
        }
    }
    std::string options[] = {"senvo-bench", "--benchmark_enable_random_interleaving=true",
                             "--benchmark_repetitions=" + repetitions, "--benchmark_min_time=0.1"};
    char* arguments[] = {options[0].data(), options[1].data(), options[2].data(), options[3].data(), nullptr};
    int count = 4;
    benchmark::Initialize(&count, arguments);
    FigureReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const std::vector<Figure> figures = figuresOf(reporter, limits);
    std::cout << (json ? jsonOf(figures) : textOf(figures));
    for (const Figure& figure : figures) {
        if (!figure.good) {
            return 1;
        }
    }
    return 0;
}

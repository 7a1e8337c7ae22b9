#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "accuracy.h"
#include "this_build.h"

namespace accuracy {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

struct Clip {
    const char* name;
    const char* model;
    int wrong; /**< crossings that may be missing or too many */
};

constexpr Clip kClips[] = {{"one-by-one-person-detection.mp4", "yolo-fastest-xl", 0},
                           {"car-detection.mp4", "motion", 0},
                           {"road.avi", "yolo-fastest-xl", 2},
                           {"road.avi", "fastestdet", 2},
                           {"road.avi", "motion", 2}};

/** What the evaluation beside this program prints of a clip. */
Json evaluated(const fs::path& clip, const fs::path& truth, const std::string& model) {
    const fs::path program = fs::read_symlink("/proc/self/exe").parent_path() / "senvo-evaluate";
    const std::string command = program.string() + " " + clip.string() + " --truth " + truth.string() + " --model " +
                                model + " --networks " + (this_build::shared() / "models").string() +
                                " --json 2>/dev/null";
    const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(command.c_str(), "r"), &pclose);
    std::string text;
    char part[4096];
    while (output && std::fgets(part, sizeof(part), output.get()) != nullptr) {
        text += part;
    }
    Json results = Json::parse(text, nullptr, false);
    if (!results.is_object()) {
        throw std::runtime_error("expected results of " + command + ", got \"" + text.substr(0, 80) + "\"");
    }
    return results;
}

/** Entries or exits of all classes through the first entrance. */
int stepsOf(const Json& results, const char* way) {
    int steps = 0;
    if (results.contains("entrance1")) {
        for (const Json& counts : results["entrance1"]) {
            steps += counts.value(way, 0);
        }
    }
    return steps;
}

}  // namespace

bool measureClips() {
    bool good = true;
    std::printf("%-34s %-18s %10s %10s\n", "clip", "engine", "in", "out");
    for (const Clip& clip : kClips) {
        const fs::path file = this_build::shared() / "media" / clip.name;
        const fs::path truthFile = fs::path(file).replace_extension("truth.json");
        if (!fs::exists(file)) {
            std::printf("%-34s is not at hand\n", clip.name);
            continue;
        }
        const Json truth = Json::parse(std::ifstream(truthFile))["expected"];
        const Json results = evaluated(file, truthFile, clip.model);
        int wrong = 0;
        std::printf("%-34s %-18s", clip.name, clip.model);
        for (const char* way : {"enter", "exit"}) {
            const int expected = stepsOf(truth, way);
            const int counted = stepsOf(results, way);
            wrong += std::abs(counted - expected);
            std::printf(" %4d of %2d", counted, expected);
        }
        std::printf("%s\n", wrong <= clip.wrong ? "" : "  MISSED");
        std::fflush(stdout);
        good = good && wrong <= clip.wrong;
    }
    return good;
}

}  // namespace accuracy

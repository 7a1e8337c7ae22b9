#include "accuracy.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <stdexcept>

#include "desktop/inference/steady/steadying.h"

namespace accuracy {
namespace {

using Boxes = std::vector<desktop::Detection>;

constexpr double kAfterwards = 4;  // seconds of an empty picture at a scene's end
constexpr double kSceneSeconds = 60;
constexpr double kCyclesPerSecond = 10;

constexpr const char* kHelp =
    "Usage: ./senvo bench accuracy [walkers | stander | cost ...] [--seed N] [--scenes N]\n"
    "Counts crossings that are known. walkers: drawn by lot, as a noisy detector sees them, with the steadying stage,\n"
    "without it, and by a plain tracker with a line. stander: who stands on the line for ten minutes. cost: of the\n"
    "stage with 30 objects. All of them without a word. scenes and clips, drawn and recorded ones: scenes --help.\n"
    "--seed takes other lots (1 and the like are those it was tuned on), --scenes so many minutes of each kind.\n"
    "Ends with 1 when a figure misses its limit.\n";

std::vector<Boxes> lookAt(const Scene& scene, const Noise& noise, uint64_t seed) {
    NoisyEye eye(noise, scene, seed);
    std::vector<Boxes> seen;
    for (const std::vector<TrueObject>& objects : scene.cycles) {
        seen.push_back(eye.look(objects));
    }
    for (int i = 0; i < kAfterwards * scene.cyclesPerSecond; ++i) {
        seen.push_back(eye.look({}));
    }
    return seen;
}

template <typename Counter>
Errors countWith(const Scene& scene, const std::vector<Boxes>& seen) {
    Counter counter(scene);
    double seconds = 0;
    for (const Boxes& boxes : seen) {
        counter.cycle(boxes, seconds);
        seconds += 1 / scene.cyclesPerSecond;
    }
    return compareCounts(scene.crossings, counter.counts());
}

/** The application behind the steadying stage. */
class SteadiedCount {
public:
    explicit SteadiedCount(const Scene& scene) : m_application(scene) {}

    void cycle(const Boxes& boxes, double seconds) {
        const auto micros = static_cast<int64_t>(seconds * 1e6);
        const Boxes steadied = m_stage.next(boxes, {micros, kPictureWidth, kPictureHeight, kSensitivity});
        m_application.cycle(steadied, static_cast<double>(m_stage.answered()) / 1e6);
    }

    const std::vector<Count>& counts() const { return m_application.counts(); }

private:
    desktop::Steadying m_stage;
    ApplicationCount m_application;
};

void printErrors(const Errors& errors) {
    std::printf("  %6d %8d %6.1f", errors.missed, errors.invented, errors.perHundred());
}

void printLine(const std::string& name, const Comparison& sums) {
    std::printf("%-12s %9d", name.c_str(), sums.steadied.crossings);
    printErrors(sums.steadied);
    printErrors(sums.bare);
    printErrors(sums.plain);
    std::printf("\n");
}

/** Prints a figure with its limit; whether it is within. */
bool judge(const std::string& what, double figure, double most) {
    const bool good = figure <= most;
    std::printf("%-60s %6.2f  at most %.2f%s\n", what.c_str(), figure, most, good ? "" : "  MISSED");
    return good;
}

bool measureWalkers(uint64_t seed, int scenes) {
    bool good = true;
    for (const Noise& noise : noiseLevels()) {
        std::printf("%-12s %9s  %22s  %22s  %22s\n", (noise.name + " noise").c_str(), "", "with the stage", "without",
                    "plain tracker and line");
        std::printf("%-12s %9s", "", "crossings");
        for (int i = 0; i < 3; ++i) {
            std::printf("  %6s %8s %6s", "missed", "invented", "/100");
        }
        std::printf("\n");
        Comparison all;
        double worst = 0;
        for (int kind = 0; kind < kSceneKinds; ++kind) {
            const auto sceneKind = static_cast<SceneKind>(kind);
            Comparison sum;
            for (int i = 0; i < scenes; ++i) {
                const uint64_t lot = seed * 1000 + static_cast<uint64_t>(i);
                const Comparison one =
                    countScene(makeScene(sceneKind, lot, kSceneSeconds, kCyclesPerSecond), noise, lot);
                sum.steadied += one.steadied;
                sum.bare += one.bare;
                sum.plain += one.plain;
            }
            all.steadied += sum.steadied;
            all.bare += sum.bare;
            all.plain += sum.plain;
            worst = std::max(worst, sum.steadied.perHundred());
            printLine(nameOf(sceneKind), sum);
        }
        printLine("all", all);
        if (noise.name == "typical") {
            good = judge("typical: missed and invented per 100 crossings", all.steadied.perHundred(), 3) && good;
            good = judge("typical: the same in the worst kind of scene", worst, 6) && good;
            good = judge("typical: the same as a share of that without the stage",
                         all.steadied.perHundred() / all.bare.perHundred(), 0.25) &&
                   good;
        }
        if (noise.name == "bad") {
            good = judge("bad: missed and invented per 100 crossings", all.steadied.perHundred(), 10) && good;
        }
        std::printf("\n");
        std::fflush(stdout);
    }
    return good;
}

bool measureStander(uint64_t seed, int scenes) {
    constexpr double kTenMinutes = 600;
    int most = 0;
    for (int i = 0; i < scenes; ++i) {
        most = std::max(most, countStander(seed * 1000 + static_cast<uint64_t>(i), kTenMinutes));
    }
    return judge("stander: counts one way in ten minutes on the line, at most", most, 1);
}

/** Microseconds of a cycle with 30 objects: of the stage, and of the application's with the same boxes. */
bool measureCost() {
    constexpr int kCycles = 600;
    Scene scene = makeScene(SceneKind::Crowd, 1, 1, kCyclesPerSecond);
    ApplicationCount application(scene);
    desktop::Steadying stage;
    Random random(1);
    std::chrono::duration<double, std::micro> stageTime{};
    std::chrono::duration<double, std::micro> applicationTime{};
    for (int cycle = 0; cycle < kCycles; ++cycle) {
        Boxes boxes;
        for (int i = 0; i < 30; ++i) {
            const auto jitter = [&] { return static_cast<float>(0.01 * random.normal()); };
            const float x = 0.08F + 0.16F * static_cast<float>(i % 6) + 0.0005F * static_cast<float>(cycle % 100);
            const float y = 0.1F + 0.18F * static_cast<float>(i / 6) + jitter();
            boxes.push_back({x + jitter(), y, x + 0.06F + jitter(), y + 0.17F, desktop::ObjectClass::Person, 0.6F});
        }
        const auto start = std::chrono::steady_clock::now();
        stage.next(boxes, {cycle * 100000, kPictureWidth, kPictureHeight, kSensitivity});
        const auto between = std::chrono::steady_clock::now();
        application.cycle(boxes, cycle / kCyclesPerSecond);
        stageTime += between - start;
        applicationTime += std::chrono::steady_clock::now() - between;
    }
    std::printf("%-60s %6.2f\n", "cost: the stage's cycle to the application's, 30 objects",
                stageTime / applicationTime);
    return judge("cost: microseconds of the stage's cycle", stageTime.count() / kCycles, 300);
}

}  // namespace

Comparison countScene(const Scene& scene, const Noise& noise, uint64_t seed) {
    const std::vector<Boxes> seen = lookAt(scene, noise, seed);
    return {countWith<SteadiedCount>(scene, seen), countWith<ApplicationCount>(scene, seen),
            countWith<PlainCount>(scene, seen)};
}

int countStander(uint64_t seed, double seconds) {
    const Scene scene = makeStander(seed, seconds, kCyclesPerSecond);
    Noise noise = {"standing"};
    noise.jitter = 0.04;
    NoisyEye eye(noise, scene, seed);
    SteadiedCount counter(scene);
    double now = 0;
    for (const std::vector<TrueObject>& objects : scene.cycles) {
        counter.cycle(eye.look(objects), now);
        now += 1 / kCyclesPerSecond;
    }
    const auto in = std::count_if(counter.counts().begin(), counter.counts().end(),
                                  [](const Count& count) { return count.entering; });
    return static_cast<int>(std::max<std::ptrdiff_t>(in, std::ssize(counter.counts()) - in));
}

int measureAccuracy(const std::vector<std::string>& words) {
    uint64_t seed = 1001;
    int scenes = 12;
    std::vector<std::string> chosen;
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--help" || words[i] == "-h") {
            std::cout << kHelp;
            return 0;
        }
        const bool isLast = i + 1 == words.size();
        if (words[i] == "--seed" && !isLast) {
            seed = std::stoull(words[++i]);
        } else if (words[i] == "--scenes" && !isLast) {
            scenes = std::max(1, std::stoi(words[++i]));
        } else if (words[i] == "walkers" || words[i] == "stander" || words[i] == "cost") {
            chosen.push_back(words[i]);
        } else {
            throw std::runtime_error("accuracy: expected walkers, stander, cost, --seed N or --scenes N, got " +
                                     words[i]);
        }
    }
    const auto isChosen = [&](const char* word) {
        return chosen.empty() || std::find(chosen.begin(), chosen.end(), word) != chosen.end();
    };
    bool good = true;
    good = (!isChosen("walkers") || measureWalkers(seed, scenes)) && good;
    good = (!isChosen("stander") || measureStander(seed, scenes)) && good;
    good = (!isChosen("cost") || measureCost()) && good;
    return good ? 0 : 1;
}

}  // namespace accuracy

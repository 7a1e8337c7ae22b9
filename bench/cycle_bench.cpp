#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "app/application.h"
#include "base/camera_paths.h"
#include "conversion_job.h"
#include "real_frame.h"
#include "scripted_platform.h"
#include "topics.h"

namespace {

constexpr int kObjects = 12;

/** Twelve people in three rows, who step to and fro. */
std::vector<scripted::Candidate> crowd(int step) {
    std::vector<scripted::Candidate> people;
    for (int i = 0; i < kObjects; ++i) {
        const float left = 0.05F + 0.24F * static_cast<float>(i % 4) + 0.01F * static_cast<float>(step % 3);
        const float top = 0.05F + 0.32F * static_cast<float>(i / 4);
        people.push_back({0, 0.9F, top, left, top + 0.2F, left + 0.08F});
    }
    return people;
}

/** A whole application on the scripted platform, whose inference takes no time of its own. */
struct Camera {
    Camera() {
        scripted::reset();
        scripted::offerResolutions(1, {{1280, 720}});
        auto& parameters = scripted::parameters();
        parameters["ModelWidth"] = "960";
        parameters["ModelHeight"] = "540";
        parameters["MainLoopTime"] = "100";
        parameters["Sensitivity"] = "0.35";
        parameters["DetectPersons"] = "true";
        parameters["MinOccupantsForTrigger"] = "1000000";
        parameters["DetectionControlPoints"] = "4";
        parameters["EntrancesControlPoints"] = "4";
        for (int area = 1; area <= 3; ++area) {
            square("Detection" + std::to_string(area));
            square("Occupancy" + std::to_string(area));
        }
        application.init_parameter_controller();
        application.init_ai();
        application.init_event_manager();
        application.init_logic(10);
    }
    static void square(const std::string& area) {
        auto& parameters = scripted::parameters();
        const char* const corners[4][2] = {{"0", "0"}, {"600", "0"}, {"600", "700"}, {"0", "700"}};
        for (size_t corner = 0; corner < 4; ++corner) {
            parameters[area + std::to_string(corner) + "x"] = corners[corner][0];
            parameters[area + std::to_string(corner) + "y"] = corners[corner][1];
        }
        parameters[area + "Active"] = "true";
    }
    Application application;
};

void benchWholeCycle(benchmark::State& state) {
    std::vector<uint8_t> frame = realFrame(1280, 720);
    Camera camera;
    scripted::lendPicture(frame.data());
    int step = 0;
    scripted::onEachJob([&] { return crowd(step++); });
    for (auto _ : state) {
        camera.application.do_one_analysis();
    }
}

void benchLiteralConversion(benchmark::State& state) {
    ConversionJob job{1280, 720, 960, 540, realFrame(1280, 720), std::vector<uint8_t>(size_t{960} * 540 * 3)};
    for (auto _ : state) {
        convertLiterally(job);
        benchmark::ClobberMemory();
    }
}

/** Tracker and areas alone, through the objects of twelve people. */
void benchTrackerAndAreas(benchmark::State& state) {
    ConfigParams config;
    config.i_DetectionControlPoints = config.i_EntrancesControlPoints = 8;
    area_of_interest areas(config);
    const t_Polygon octagon = {{300, 100}, {700, 80},  {1000, 200}, {1100, 400},
                               {900, 650}, {500, 700}, {250, 500},  {200, 300}};
    for (int n = 1; n <= 3; ++n) {
        areas.set_detection(n, octagon);
        areas.set_detection_active(n, true);
        areas.set_entrance(n, octagon);
        areas.set_entrance_active(n, true);
        areas.set_exclusion(n, octagon);
        areas.set_exclusion_active(n, true);
    }
    tracker objects(config);
    objects.init(10);
    std::vector<std::vector<detection>> frames(2);
    for (int step = 0; step < 2; ++step) {
        for (int i = 0; i < kObjects; ++i) {
            detection box;
            box.X = 60 + 300 * (i % 4) + 7 * step;
            box.Y = 40 + 230 * (i / 4);
            box.W = 100;
            box.H = 150;
            frames[static_cast<size_t>(step)].push_back(box);
        }
    }
    size_t step = 0;
    for (auto _ : state) {
        int inside = 0;
        for (const auto& [id, box] : objects.track_rectangles(frames[step++ % 2])) {
            const t_one_locator locator = box.get_locator(false);
            for (int n = 1; n <= 3; ++n) {
                inside += areas.is_detected(n, locator) ? 1 : 0;
                inside += areas.is_in_entrance(n, locator) ? 1 : 0;
            }
            for (const int dx : {0, box.W}) {
                for (const int dy : {0, box.H}) {
                    inside += areas.is_excluded({box.X + dx, box.Y + dy}) ? 1 : 0;
                }
            }
        }
        benchmark::DoNotOptimize(inside);
    }
}

}  // namespace

std::vector<Limit> registerCycle() {
    benchmark::RegisterBenchmark("cycle around the network/ours", benchWholeCycle);
    benchmark::RegisterBenchmark("cycle around the network/literal conversion", benchLiteralConversion);
    benchmark::RegisterBenchmark("tracker and areas, 12 x 12/ours", benchTrackerAndAreas);
    // All that a cycle does, its conversion included, beside what a plain conversion alone takes.
    return {{"cycle around the network", "literal conversion", "", std::nullopt},
            {"cycle around the network", "ours", "literal conversion", 1.2},
            {"tracker and areas, 12 x 12", "ours", "", 20.0}};
}

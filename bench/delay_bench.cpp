#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "app/application.h"
#include "base/camera_paths.h"
#include "fastcgi_client.h"
#include "scripted_platform.h"
#include "topics.h"

/*
 * How much later than its tick an analysis cycle comes while clients upload settings, read reports and reset without a
 * pause, in the real application on the scripted platform.
 */

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPeriod = 50;  // milliseconds
constexpr int kClients = 4;
constexpr std::chrono::seconds kLoad(5);

std::string applicationFolder() {
    return cameraPath("/usr/local/packages/ostrel_senvo");
}

/** Archives of 1,000 periods with all areas and classes. */
void writeArchives() {
    const std::filesystem::path folder = applicationFolder() + "/localdata";
    std::filesystem::create_directories(folder);
    std::filesystem::create_directories(applicationFolder() + "/html");
    for (const char* name : {"CrowdCountTidy.csv", "AverageCrowdCountTidy.csv"}) {
        std::ofstream file(folder / name, std::ios::trunc);
        for (int i = 0; i < 1000 * 27; ++i) {
            const int period = i / 27;
            const std::string minute = std::to_string(10 + period % 50);
            const std::string hour = std::to_string(10 + period / 50 % 14);
            file << "2024-01-" << 10 + period / 700 << ' ' << hour << ':' << minute << ":00,Cam," << i % 27 / 9 << ','
                 << i % 9 << ',' << i % 7 << '\n';
        }
    }
}

void load(const FastCgiClient& service, int number, Clock::time_point end) {
    static const std::vector<std::string> kActions = {"get_occupancy_csv", "reset_occupancy", "follower_flush",
                                                      "get_occupancy_html", "get_logfile_as_csv_text"};
    for (size_t i = 0; Clock::now() < end; ++i) {
        if (number % 2 == 0) {
            const std::string answer = service.get("action=get_all_parameters");
            const std::string document = answer.substr(answer.find("<app>") + 5);
            service.post("action=set_post_parameters", "<root>" + document.substr(0, document.size() - 6) + "</root>");
        } else {
            service.get("action=" + kActions[i % kActions.size()]);
        }
    }
}

/** The longest time between two cycles, less the period. */
double worstDelayUnderLoad() {
    writeArchives();
    scripted::reset();
    scripted::offerResolutions(1, {{640, 360}});
    scripted::parameters()["ModelWidth"] = "640";
    scripted::parameters()["ModelHeight"] = "360";
    scripted::parameters()["MainLoopTime"] = std::to_string(kPeriod);
    scripted::parameters()["PeriodTime"] = "1000";
    Application application;
    std::vector<Clock::time_point> cycles;
    std::atomic<bool> running = false;
    application.onCycle([&] {
        cycles.push_back(Clock::now());
        running = true;
    });
    std::thread process([&application] { application.main(); });
    while (!running) {
        std::this_thread::yield();
    }
    const FastCgiClient service(applicationFolder() + "/html/ostrel_senvo_fcgi.socket");
    const auto end = Clock::now() + kLoad;
    std::vector<std::thread> clients;
    for (int number = 0; number < kClients; ++number) {
        clients.emplace_back([&service, number, end] { load(service, number, end); });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    kill(getpid(), SIGTERM);
    process.join();
    Clock::duration worst = Clock::duration::zero();
    for (size_t i = 1; i < cycles.size(); ++i) {
        worst = std::max(worst, cycles[i] - cycles[i - 1]);
    }
    return std::chrono::duration<double>(worst).count() - kPeriod / 1000.0;
}

void benchWorstDelay(benchmark::State& state) {
    for (auto _ : state) {
        state.SetIterationTime(std::max(1e-6, worstDelayUnderLoad()));
    }
}

}  // namespace

std::vector<Limit> registerDelay() {
    benchmark::RegisterBenchmark("analysis under web load/worst delay of a tick", benchWorstDelay)
        ->UseManualTime()
        ->Iterations(1);
    return {{"analysis under web load", "worst delay of a tick", "", kPeriod * 1000.0}};
}

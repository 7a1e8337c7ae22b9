#include "footprint.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sys/resource.h>
#include <thread>

#include "app/application.h"
#include "base/camera_paths.h"
#include "desktop/parameters/parameter_store.h"
#include "ledger_flash.h"
#include "log/Logger.h"
#include "scripted_platform.h"
#include "scripted_process.h"
#include "test_clock.h"
#include "test_folder.h"
#include "this_build.h"

namespace {

constexpr double kMiB = 1024.0 * 1024.0;
constexpr auto kPatience = std::chrono::minutes(5);  // with a process that hangs
std::string cameraBuild() {
    return this_build::checkout() / "build/camera/";
}

std::string cameraProgram(const char* name) {
    return cameraBuild() + "bin/" + name;
}

struct Footprint {
    const char* what;
    double value;
    double most;
    const char* unit;
    bool good() const { return value <= most; }
};

// --- The program on the camera's processor ---------------------------------------------------------------------------

/** What the camera's build was prepared with, such as "CMAKE_STRIP:FILEPATH". */
std::string prepared(const std::string& what) {
    std::ifstream cache(cameraBuild() + "CMakeCache.txt");
    for (std::string line; std::getline(cache, line);) {
        if (line.rfind(what + "=", 0) == 0) {
            return line.substr(what.size() + 1);
        }
    }
    throw std::runtime_error("expected " + what + " in the cache of build/camera, found none");
}

/** Runs to its end; throws when it fails. */
void run(const std::vector<std::string>& command, const std::filesystem::path& folder) {
    const ProgramResult result = runProgram(command, folder);
    if (result.status != 0) {
        throw std::runtime_error(command[0] + " failed:\n" + result.err);
    }
}

double strippedSize() {
    const TestFolder folder;
    const std::string stripped = folder.path() / "ostrel_senvo";
    run({prepared("CMAKE_STRIP:FILEPATH"), "--strip-all", "-o", stripped, cameraProgram("ostrel_senvo")},
        folder.path());
    return static_cast<double>(std::filesystem::file_size(stripped)) / kMiB;
}

/** The emulator places the program's memory here, apart from its own. */
constexpr uintptr_t kGuestBase = uintptr_t{1} << 40U;
constexpr uintptr_t kGuestSize = uintptr_t{1} << 32U;

/** The real process with a camera's sizes of stream and model, in the emulator. */
pid_t startEmulated(const ScriptedProcess& process, const std::string& frames) {
    char base[32];
    std::snprintf(base, sizeof(base), "0x%zx", static_cast<size_t>(kGuestBase));
    return startProgram({"/usr/bin/env", "qemu-arm", "-B", base, "-L", prepared("SENVO_SYSROOT:PATH"),
                         cameraProgram("ostrel_senvo_scripted"), frames, "1280", "720", "960", "540"},
                        process.folder(), {"OSTREL_SENVO_ROOT=" + process.folder().string()}, {SIGTERM});
}

/** What of the emulated program's memory is resident, in MiB; the emulator's own is left out. */
double residentMemory(pid_t process) {
    std::ifstream maps("/proc/" + std::to_string(process) + "/smaps");
    double kilobytes = 0;
    bool inGuest = false;
    for (std::string line; std::getline(maps, line);) {
        size_t from = 0;
        size_t to = 0;
        long size = 0;
        if (std::sscanf(line.c_str(), "%zx-%zx ", &from, &to) == 2) {
            inGuest = from >= kGuestBase && to <= kGuestBase + kGuestSize;
        } else if (inGuest && std::sscanf(line.c_str(), "Rss: %ld kB", &size) == 1) {
            kilobytes += static_cast<double>(size);
        }
    }
    return kilobytes / 1024.0;
}

/** A month of periods of five minutes, each with a line in every archive. */
void fillArchives(const std::filesystem::path& folder) {
    const std::map<const char*, const char*> lines = {{"CrowdCountTidy.csv", "0,0,1"},
                                                      {"AverageCrowdCountTidy.csv", "0,0,1"},
                                                      {"EntranceActivityTidy.csv", "0,0,1,1"},
                                                      {"OccupancyTidy.csv", "0,1"}};
    for (const auto& [name, fields] : lines) {
        std::ofstream file(folder / "usr/local/packages/ostrel_senvo/localdata" / name);
        for (time_t period = 0; period < time_t{30} * 24 * 12; ++period) {
            file << Logger::timeToString(1704067200 + period * 300) << ",Camera," << fields << '\n';
        }
    }
}

/** Memory while a camera runs and its web service answers, reports over a month among them. */
double steadyMemory() {
    const ScriptedProcess process;
    fillArchives(process.folder());
    Child child(startEmulated(process, "1000"));
    int status = -1;
    int answered = 0;
    double most = 0;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while ((status = child.wait(0)) == -1 && std::chrono::steady_clock::now() < deadline) {
        for (const char* action : {"get_all_parameters", "get_data_panel_info", "get_occupancy_html",
                                   "get_occupancy_csv", "get_logfile_as_plain_text"}) {
            answered += process.answers(action) ? 1 : 0;
        }
        most = std::max(most, residentMemory(child.pid()));
    }
    if (status != 0 || readFile(process.folder() / "out") != "1000\n" || answered < 10 || most == 0) {
        throw std::runtime_error("the emulated process did not analyse 1000 frames and answer:\n" +
                                 readFile(process.folder() / "err"));
    }
    return most;
}

/** Processor time from the start to the first analysed frame, start of the emulator and its translation included. */
double startSeconds() {
    const auto used = [] {
        rusage usage = {};
        getrusage(RUSAGE_CHILDREN, &usage);
        const auto seconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        return seconds(usage.ru_utime) + seconds(usage.ru_stime);
    };
    std::vector<double> starts;
    for (int i = 0; i < 5; ++i) {
        const ScriptedProcess process;
        const double before = used();
        Child child(startEmulated(process, "1"));
        if (child.wait(60000) != 0) {
            throw std::runtime_error("the emulated process did not start:\n" + readFile(process.folder() / "err"));
        }
        starts.push_back(used() - before);
    }
    std::sort(starts.begin(), starts.end());
    return starts[starts.size() / 2];
}

// --- The flash -------------------------------------------------------------------------------------------------------

/** Bytes that the application has handed to files so far; tensors are files, too, but in memory and the platform's. */
int64_t bytesWritten() {
    std::ifstream counters("/proc/self/io");
    for (std::string name; counters >> name;) {
        int64_t value = 0;
        counters >> value;
        if (name == "wchar:") {
            return value - static_cast<int64_t>(scripted::tensorBytes());
        }
    }
    throw std::runtime_error("/proc/self/io does not tell what was written");
}

int64_t archiveBytes() {
    int64_t bytes = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(cameraPath("/usr/local/packages/ostrel_senvo/localdata/"))) {
        bytes += entry.path().extension() == ".csv" ? static_cast<int64_t>(entry.file_size()) : 0;
    }
    return bytes;
}

struct Flash {
    double ratio; /**< all that was written, by the archives' growth */
    double kilobytes;
};

/**
 * A day with the package's own settings, but a period of five minutes: every minute somebody walks in through the
 * entrance and across the area. Runs on a clock of its own.
 */
Flash dayOnTheFlash() {
    constexpr int kMinutes = 24 * 60;
    constexpr int kSteps = 12;
    const TimeZone utc("UTC0");
    const ScriptedProcess folder;
    setenv("OSTREL_SENVO_ROOT", folder.folder().c_str(), 1);
    const WorkingFolder inFolder(folder.folder());  // the log's path is relative
    TestClock clock;
    scripted::reset();
    scripted::offerResolutions(1, {{1280, 720}});
    for (const auto& [name, value] : desktop::readManifestDefaults(this_build::checkout() / "package/manifest.json")) {
        scripted::parameters()[name] = value;
    }
    scripted::parameters()["PeriodTime"] = "5";
    int step = 0;
    scripted::onJob([&](const std::vector<uint8_t>&) -> std::vector<scripted::Candidate> {
        if (step >= kSteps) {
            return {};
        }
        const float bottom = 0.95F - 0.07F * static_cast<float>(step);
        return {{0, 0.9F, bottom - 0.15F, 0.5F, bottom, 0.56F}};
    });
    Application application;
    application.init_parameter_controller();
    application.init_ai();
    application.init_occupancy_controller();
    application.init_event_manager();
    application.init_logic(10);
    const int64_t written = bytesWritten();
    const int64_t kept = archiveBytes();
    for (int minute = 0; minute < kMinutes; ++minute) {
        // At the detector's pace while there is somebody, until they are forgotten; then to the next minute.
        for (step = 0; step < kSteps + 12; ++step) {
            application.thread_function();
            clock.advanceMillis(100);
        }
        clock.advanceMillis(60000 - (kSteps + 12) * 100);
        scripted::sentEvents().clear();
    }
    const auto records = static_cast<double>(archiveBytes() - kept);
    if (records == 0) {
        throw std::runtime_error("nothing was archived in a day");
    }
    applicationLog().flush();
    if (std::filesystem::file_size("localdata/SenvoLog.txt") == 0) {
        throw std::runtime_error("nothing was logged in a day");
    }
    const auto all = static_cast<double>(bytesWritten() - written);
    return {all / records, all / 1024.0};
}

}  // namespace

int measureFootprint(bool json) {
    for (const char* program : {"ostrel_senvo", "ostrel_senvo_scripted"}) {
        if (!std::filesystem::exists(cameraProgram(program))) {
            throw std::runtime_error(std::string("expected the camera's build in build/camera; ") + program +
                                     " is not there");
        }
    }
    const Flash flash = dayOnTheFlash();
    std::cerr << "a day writes " << static_cast<int>(flash.kilobytes) << " kB\n";
    const std::vector<double> days = ledgerOnTheFlash();
    for (const double day : days) {
        std::cerr << "a day at the ledger's bound writes " << day << " MB\n";
    }
    const double day = *std::max_element(days.begin(), days.end());
    const std::vector<Footprint> footprints = {
        {"stripped program", strippedSize(), 1.5, "MiB"},
        {"resident memory, all of it", steadyMemory(), 24, "MiB"},
        {"flash written per day, by the records' bytes", flash.ratio, 2, "x"},
        {"ledger written on a day of 5,000, at its bound", day, 8, "MB"},
        {"processor time to the first frame, emulated", startSeconds(), 1, "s"},
    };
    if (json) {
        nlohmann::ordered_json document = nlohmann::ordered_json::array();
        for (const Footprint& footprint : footprints) {
            document.push_back({{"figure", footprint.what},
                                {"value", footprint.value},
                                {"unit", footprint.unit},
                                {"at_most", footprint.most},
                                {"good", footprint.good()}});
        }
        std::cout << document.dump(2) << '\n';
    } else {
        for (const Footprint& footprint : footprints) {
            std::printf("%-46s %7.2f %-3s at most %5.1f  %s\n", footprint.what, footprint.value, footprint.unit,
                        footprint.most, footprint.good() ? "good" : "MISSED");
        }
    }
    return std::all_of(footprints.begin(), footprints.end(), [](const Footprint& f) { return f.good(); }) ? 0 : 1;
}

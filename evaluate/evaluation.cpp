#include "evaluate/evaluation.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "app/application.h"
#include "base/clock.h"
#include "base/temporary_folder.h"
#include "desktop/events/event_file.h"
#include "desktop/frames/last_fetched.h"
#include "desktop/frames/virtual_time.h"
#include "desktop/tool/camera_folder.h"
#include "log/Logger.h"

namespace {

namespace fs = std::filesystem;

constexpr int64_t kMicrosPerSecond = 1000000;
/** What the clock shows at a clip's first frame: midnight UTC, 1 January 2024. */
constexpr int64_t kClipStartSeconds = 1704067200;
constexpr int64_t kClipStart = kClipStartSeconds * kMicrosPerSecond;

/** The newest errors of the application's log, for a message. */
std::string loggedErrors() {
    std::string errors;
    for (const LogEntry& entry : applicationLog().getLogEntriesFromFile()) {
        if (entry._logLevel == "error") {
            errors += "\n  " + entry._message;
        }
    }
    return errors;
}

void count(const std::vector<one_find>& findings, Results& results) {
    for (const one_find& finding : findings) {
        if (finding.entranceAct == entranceActivity::unknown) {
            continue;
        }
        const auto activity = static_cast<size_t>(finding.entranceAct);
        Counts& counts = results.entrances[activity / 2][class_index_to_label(finding.detect.ClassId)];
        ++(activity % 2 == 0 ? counts.enter : counts.exit);
    }
}

void writeTracks(std::ostream& out, const Application& application, double seconds) {
    nlohmann::ordered_json line = {{"cycle", application.frameCounter()}, {"seconds", seconds}};
    line["picture"] = {application.detector().get_stream_width(), application.detector().get_stream_height()};
    line["occupancy"] = application.metrics().occupancyCount.load();
    line["objects"] = nlohmann::ordered_json::array();
    for (const one_find& finding : application.processing().findings()) {
        const detection& box = finding.detect;
        line["objects"].push_back({{"id", finding.id},
                                   {"class", class_index_to_label(box.ClassId)},
                                   {"score", box.Confidence},
                                   {"box", {box.X, box.Y, box.W, box.H}},
                                   {"locator", {finding.locator.first, finding.locator.second}},
                                   {"footing", static_cast<int>(finding.footing)},
                                   {"seconds", finding.seconds},
                                   {"entrance", static_cast<int>(finding.entrance)},
                                   {"activity", static_cast<int>(finding.entranceAct)}});
    }
    out << line.dump() << '\n';
}

void readAlertChanges(const fs::path& events, std::vector<AlertChange>& changes) {
    static const std::map<std::string, std::string> kAlerts = {{friendlyToKey(alerts::kBreached), "breached"},
                                                               {friendlyToKey(alerts::kArea1), "area1"},
                                                               {friendlyToKey(alerts::kArea2), "area2"},
                                                               {friendlyToKey(alerts::kArea3), "area3"},
                                                               {friendlyToKey(alerts::kOccupancy), "occupancy"}};
    std::ifstream file(events);
    for (std::string line; std::getline(file, line);) {
        const nlohmann::json event = nlohmann::json::parse(line);
        const std::string topic = event["topic"];
        const auto alert = kAlerts.find(topic.substr(topic.rfind('/') + 1));
        if (alert != kAlerts.end()) {
            const std::string time = event["time"];
            const std::tm midnight = {};
            std::tm moment = midnight;
            int milliseconds = 0;
            if (std::sscanf(time.c_str(), "%d-%d-%dT%d:%d:%d.%dZ", &moment.tm_year, &moment.tm_mon, &moment.tm_mday,
                            &moment.tm_hour, &moment.tm_min, &moment.tm_sec, &milliseconds) != 7) {
                throw EvaluationError("an event without a time: " + line);
            }
            moment.tm_year -= 1900;
            moment.tm_mon -= 1;
            const double seconds = static_cast<double>(timegm(&moment) - kClipStartSeconds);
            changes.push_back({seconds + milliseconds / 1000.0, alert->second, event["active"].get<bool>()});
        }
    }
}

void startServices(const EvaluationOptions& options, const desktop::CameraFolder& camera) {
    desktop::DesktopConfig config;
    config.video = options.clip.rfind("scene:", 0) == 0 ? options.clip : fs::absolute(options.clip).string();
    config.pacing = desktop::Pacing::Virtual;
    config.networksFolder = options.networksFolder.empty() ? "" : fs::absolute(options.networksFolder).string();
    config.stateFolder = camera.path().string();
    config.manifest = (desktop::packageFolder() / "manifest.json").string();
    config.nowMicros = clockNowMicros;
    desktop::setDesktopConfig(config);
    setenv("OSTREL_SENVO_ROOT", camera.root().c_str(), 1);
    // The clip's clock knows no time zone: local times in archives are the same on every machine.
    setenv("TZ", "UTC", 1);
    tzset();
}

/** Runs one cycle at the virtual time; false when there was no frame. pictureTime becomes the time of its picture. */
bool runCycle(Application& application, int64_t virtualNow, int64_t& pictureTime) {
    // Until it is known how old the picture is that the cycle is for, as old as the one before.
    pictureTime = std::max(pictureTime, virtualNow - desktop::lastFetched().lag);
    desktop::setVirtualTime(virtualNow);
    const unsigned cyclesBefore = application.frameCounter();
    application.thread_function();
    pictureTime = std::max(pictureTime, virtualNow - desktop::lastFetched().lag);
    return application.frameCounter() != cyclesBefore;
}

void takeResults(const Application& application, double seconds, std::ostream* tracks, Results& results) {
    count(application.processing().findings(), results);
    results.occupancyAtEnd = application.metrics().occupancyCount.load();
    results.crowdMaximum[0] = std::max(results.crowdMaximum[0], application.metrics().crowdCount1.load());
    results.crowdMaximum[1] = std::max(results.crowdMaximum[1], application.metrics().crowdCount2.load());
    results.crowdMaximum[2] = std::max(results.crowdMaximum[2], application.metrics().crowdCount3.load());
    results.clipSeconds = seconds;
    if (tracks != nullptr) {
        writeTracks(*tracks, application, seconds);
    }
}

void runCycles(const EvaluationOptions& options, Application& application, std::ostream* tracks, int64_t& pictureTime,
               Results& results) {
    const int64_t interval = int64_t{application.detector().get_iteration_time()} * 1000;
    const double clipLength = static_cast<double>(desktop::sourceDuration()) / kMicrosPerSecond;
    int64_t virtualNow = -interval;
    const auto seconds = [&pictureTime] { return static_cast<double>(pictureTime) / kMicrosPerSecond; };
    for (int64_t next = desktop::nextFrameTime(); next >= 0; next = desktop::nextFrameTime()) {
        virtualNow = std::max(virtualNow + interval, next);
        if (!runCycle(application, virtualNow, pictureTime)) {
            if (!desktop::sourceError().empty()) {
                break;
            }
            throw EvaluationError("the model failed:" + loggedErrors());
        }
        takeResults(application, seconds(), tracks, results);
        if (options.progress) {
            options.progress(seconds(), clipLength);
        }
    }
    results.cycles = application.frameCounter();
    // What is found may be told later than it is seen: the last frame stays until all is told.
    desktop::holdLastFrame();
    for (const int64_t end = virtualNow; results.cycles > 0 && pictureTime < end;) {
        virtualNow += interval;
        if (!runCycle(application, virtualNow, pictureTime)) {
            break;
        }
        takeResults(application, seconds(), tracks, results);
    }
}

void checkWritten(const std::ostream& file, const fs::path& path) {
    if (!file) {
        throw EvaluationError("cannot write " + path.string());
    }
}

/** Copies a file into a folder; one that does not exist becomes an empty one. */
void keepFile(const fs::path& source, const fs::path& folder) {
    std::ofstream kept(folder / source.filename(), std::ios::trunc);
    if (fs::exists(source) && fs::file_size(source) > 0) {
        kept << std::ifstream(source).rdbuf();
    }
    kept.close();
    checkWritten(kept, folder / source.filename());
}

/** Closes the period that the clip's end cut short, so that the archives hold all of it, and writes the reports. */
void writeReports(OccupancyManager& statistics, const Application& application, const fs::path& out) {
    if (statistics.hasFrames()) {
        statistics.flushLocal(OccupancyRecordBase::getCurrentDateTime(),
                              application.config().cameraInfo.thisCameraName);
    }
    const auto write = [&out](const char* name, const std::string& text) {
        std::ofstream file(out / name, std::ios::trunc);
        file << text;
        file.close();
        checkWritten(file, out / name);
    };
    write("report.csv", statistics.getSummaryReportCSV());
    write("report.html", statistics.getSummaryReportHTML());
}

fs::path preparedOutFolder(const std::string& folder) {
    fs::path out = fs::absolute(folder);
    std::error_code problem;
    fs::create_directories(out, problem);
    if (problem) {
        throw EvaluationError("cannot make the folder " + out.string() + ": " + problem.message());
    }
    return out;
}

Results evaluateIn(const fs::path& folder, const EvaluationOptions& options) {
    const fs::path out = options.outFolder.empty() ? fs::path() : preparedOutFolder(options.outFolder);
    const desktop::ChosenCard chosen = desktop::chooseModelCard(options.model, options.networksFolder);
    std::cerr << "model        " << chosen.card.stem().string() << ", " << chosen.reason << '\n';
    const desktop::CameraFolder camera(folder);
    int64_t pictureTime = 0;
    setClock([&pictureTime] { return kClipStart + pictureTime; });
    startServices(options, camera);
    fs::current_path(camera.application());
    camera.installModel(chosen.card, 960, 540);

    Results results;
    {
        Application application;
        application.init_parameter_controller();
        if (application.init_ai() != 1) {
            throw EvaluationError("cannot analyse " + options.clip + ":" + loggedErrors());
        }
        application.init_occupancy_controller();
        application.init_sensor_aspect_ratio();
        application.init_event_manager();
        application.init_logic(application.config().i_MaxDisappeared);
        if (options.settings) {
            ConfigParams config = application.config();
            applySettings(*options.settings, application.detector().get_stream_width(),
                          application.detector().get_stream_height(), application.detector().get_iteration_time(),
                          config);
            application.applySettings(config);
        }
        std::ofstream tracks;
        if (!out.empty()) {
            tracks.open(out / "tracks.jsonl", std::ios::trunc);
        }
        runCycles(options, application, out.empty() ? nullptr : &tracks, pictureTime, results);
        tracks.close();
        if (!out.empty()) {
            checkWritten(tracks, out / "tracks.jsonl");
            writeReports(application.statistics(), application, out);
        }
    }
    for (const std::string& events : desktop::eventFiles(camera.path() / "events.jsonl")) {
        readAlertChanges(events, results.alertChanges);
        if (!out.empty()) {
            keepFile(events, out);
        }
    }
    if (!out.empty()) {
        for (const fs::directory_entry& entry : fs::directory_iterator(camera.log().parent_path())) {
            if (entry.path().extension() == ".csv") {
                keepFile(entry.path(), out);
            }
        }
    }
    setClock(nullptr);
    if (const std::string error = desktop::sourceError(); !error.empty()) {
        throw EvaluationError(error);
    }
    if (results.cycles == 0) {
        throw EvaluationError(options.clip + ": expected frames, got none");
    }
    return results;
}

}  // namespace

Results evaluate(const EvaluationOptions& options) {
    const fs::path workingFolder = fs::current_path();
    const TemporaryFolder folder("evaluate");
    try {
        Results results = evaluateIn(folder.path(), options);
        fs::current_path(workingFolder);
        return results;
    } catch (...) {
        setClock(nullptr);
        fs::current_path(workingFolder);
        throw;
    }
}

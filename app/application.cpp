#include "app/application.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>
#include <sys/sysinfo.h>
#include <syslog.h>
#include <utility>

#include "app/termination.h"
#include "base/clock.h"
#include "log/Logger.h"

namespace {

constexpr const char* kApplicationName = "ostrel_senvo";
constexpr int kMaxMalfunctions = 10;
constexpr int kMaxInitAi = 10;
constexpr time_t kFirstOccupancyResetCheck = 70;
constexpr time_t kOccupancyResetCheckInterval = 60;

int64_t millisecondsOf(int64_t micros) {
    return micros / 1000000 * 1000 + micros % 1000000 / 1000;
}

struct TimeOfDay {
    int hour;
    int minute;
};

/** Reads "hh:mm"; nothing when the text is no time of day. */
std::optional<TimeOfDay> parseTimeOfDay(const std::string& text) {
    char* afterHour = nullptr;
    const long hour = std::strtol(text.c_str(), &afterHour, 10);
    if (afterHour == text.c_str() || *afterHour != ':') {
        return std::nullopt;
    }
    char* afterMinute = nullptr;
    const long minute = std::strtol(afterHour + 1, &afterMinute, 10);
    if (afterMinute == afterHour + 1 || hour < 0 || hour > 23 || minute < 0 || minute > 59) {
        return std::nullopt;
    }
    return TimeOfDay{static_cast<int>(hour), static_cast<int>(minute)};
}

/**
 * A number for settings: the same for the same ones (FNV-1a, 32 bits; Fowler, Noll, Vo). Passwords are left out, which
 * somebody could try with it.
 */
uint32_t settingsNumber(const ConfigParams& config) {
    uint32_t number = 2166136261U;
    for (const auto& [name, text] : parameter_controller::stored_texts(config)) {
        if (name.ends_with("PWD")) {
            continue;
        }
        for (const char character : name + '=' + text + '\n') {
            number = (number ^ static_cast<uint8_t>(character)) * 16777619U;
        }
    }
    return number;
}

}  // namespace

Application::Application()
    : m_Parameters(m_WebConfig),
      m_Detector(m_Config),
      m_Tracker(m_Config),
      m_Areas(m_Config),
      m_OccupancyManager(m_Config),
      m_Polling(m_Config, m_Metrics, m_LeaderMetrics, m_Followers),
      m_Settings(
          {m_WebConfig, m_Detector, m_Followers, m_Parameters, m_Metrics, m_LeaderMetrics, m_Status,
           [this](const SettingsUpdate& update) { m_BetweenCycles.post([this, update] { takeOver(update); }); }}) {}

Application::~Application() = default;

int Application::main() {
    openlog(kApplicationName, LOG_CONS | LOG_PID, LOG_USER);
    syslog(LOG_INFO,
           "*** Ostrel Senvo log messages are also available by clicking on 'View Log' button on 'Advanced' tab of "
           "Senvo ACAP web page ***");
    logMemoryUsage("Starting Ostrel Senvo");
    m_OccupancyManager.repairArchives();
    m_OccupancyManager.purgeInBackground();
    m_Status = STATUS_STARTING;
    const TerminationWatch watch([this] { handle_sigterm(); });
    init_parameter_controller();
    if (init_ai() != 1) {
        applicationLog().error("main: Failed init_ai");
        m_Status = STATUS_AI_ERROR;
        return -1;
    }
    init_occupancy_controller();
    init_sensor_aspect_ratio();
    init_overlay_manager();
    if (!startWebService()) {
        return -1;
    }
    const int iterationTime = m_Detector.get_iteration_time();
    init_event_manager();
    init_logic(m_Config.i_MaxDisappeared);
    init_ledger();

    GMainLoop* const loop = createMainLoop();
    m_TimerId = g_timeout_add(
        static_cast<guint>(iterationTime),
        [](gpointer self) -> gboolean { return static_cast<Application*>(self)->thread_function() ? TRUE : FALSE; },
        this);
    g_main_loop_run(loop);
    stopWebService();
    m_Ledger.reset();
    logMemoryUsage("Ending Ostrel Senvo");
    // The platform takes the declarations back by itself when the process ends; until then they stay.
    [[maybe_unused]] static const EventManager* const keptToTheEnd = m_Events.release();
    closelog();
    return 0;
}

GMainLoop* Application::createMainLoop() {
    const MutexLock lock(m_loopMutex);
    m_Loop.reset(g_main_loop_new(nullptr, FALSE));
    return m_Loop.get();
}

void Application::handle_sigterm() {
    applicationLog().info("handle_sigterm: was invoked");
    const MutexLock lock(m_loopMutex);
    if (!m_Loop) {
        grateful_dead("gp_Loop is NULL");
    }
    // Quitting from a source of the loop itself also ends a loop that exists but has not begun to run.
    g_idle_add_full(
        G_PRIORITY_HIGH,
        [](gpointer self) -> gboolean {
            static_cast<Application*>(self)->quitMainLoop();
            return G_SOURCE_REMOVE;
        },
        this, nullptr);
}

void Application::quitMainLoop() {
    if (m_TimerId != 0) {
        g_source_remove(m_TimerId);
        m_TimerId = 0;
    }
    const MutexLock lock(m_loopMutex);
    g_main_loop_quit(m_Loop.get());
}

void Application::init_parameter_controller() {
    m_Parameters.init_controller(kApplicationName);
    m_Config = m_Parameters.load_config_params();
    m_WebConfig = m_Config;
    m_Detector.set_sensitivity(m_Config.f_Sensitivity);
    storeAreas();
    const int32_t rotation = m_Parameters.get_rotation();
    m_IsPortrait = rotation == 90 || rotation == 270;
}

void Application::storeAreas() {
    parameter_io::store_points_into_AOI(m_Config, m_Areas);
    parameter_io::store_points_into_exclusions(m_Config, m_Areas);
    parameter_io::store_points_into_occupancies(m_Config, m_Areas);
}

void Application::takeOver(const SettingsUpdate& update) {
    const ConfigParams before = std::exchange(m_Config, update.settings);
    writeSettings(before, update.user);
    if (update.overlays && m_Overlay) {
        m_Overlay->useConfiguredStreams();
    }
    if (update.maxDisappeared) {
        m_Tracker.set_max_disappeared(m_Config.i_MaxDisappeared);
    }
    if (update.detectionAreas) {
        parameter_io::store_points_into_AOI(m_Config, m_Areas);
    }
    if (update.exclusions) {
        parameter_io::store_points_into_exclusions(m_Config, m_Areas);
    }
    if (update.entrances) {
        parameter_io::store_points_into_occupancies(m_Config, m_Areas);
    }
}

void Application::applySettings(const ConfigParams& settings) {
    m_Config = settings;
    m_WebConfig = settings;
    m_Detector.set_sensitivity(m_Config.f_Sensitivity);
    m_Tracker.set_max_disappeared(m_Config.i_MaxDisappeared);
    storeAreas();
    m_Parameters.save_config_params(m_Config);
}

int Application::init_ai() {
    const std::string& model = m_IsPortrait ? m_Config.s_PortraitModelFileName : m_Config.s_LandscapeModelFileName;
    if (!m_Detector.init_larod(kApplicationName, model, static_cast<int>(m_Config.i_ModelWidth),
                               static_cast<int>(m_Config.i_ModelHeight), m_Config.i_MainLoopTime, m_IsPortrait)) {
        return 0;
    }
    m_Config.i_WStream = static_cast<int32_t>(m_Detector.get_stream_width());
    m_Config.i_HStream = static_cast<int32_t>(m_Detector.get_stream_height());
    return 1;
}

void Application::init_occupancy_controller() {
    m_Occupancy.init(0);
}

void Application::init_sensor_aspect_ratio() {
    const std::string ratio = m_Parameters.get_sensor_aspect_ratio();
    applicationLog().info("init_sensor_aspect_ratio: Image sensor aspect ratio: " + ratio);
    g_SensorIs16x9 = ratio != "4:3";
}

void Application::init_overlay_manager() {
    const uint32_t width = m_Detector.get_stream_width();
    const uint32_t height = m_Detector.get_stream_height();
    m_Overlay = std::make_unique<OverlayManager>(m_Config, width, height);
    // The platform names streams by their size before it turns them.
    if (m_IsPortrait) {
        SetApplicationStreamResolution(m_Overlay->info(), height, width);
    }
    m_Overlay->useConfiguredStreams();
}

void Application::init_event_manager() {
    m_Events = std::make_unique<EventManager>();
    m_Events->addEvent(alerts::kBreached);
    m_Events->addEvent(alerts::kArea1);
    m_Events->addEvent(alerts::kArea2);
    m_Events->addEvent(alerts::kArea3);
    m_Events->addEvent(alerts::kOccupancy);
    m_Events->addJSONDataEvent(m_OccupancyManager.getDataMap());
    m_Events->addXMLDataEvent(m_OccupancyManager.getSparseDataMap());
}

void Application::init_logic(int maxDisappeared) {
    m_Tracker.init(maxDisappeared);
    m_Areas.init();
    m_Processing = std::make_unique<DetectionProcessing>(
        DetectionProcessingParts{m_Config, m_Detector, m_Tracker, m_Areas, m_Occupancy, *m_Events, m_OccupancyManager,
                                 m_Metrics, m_LeaderMetrics, m_Followers});
    m_ReadyProcessing = m_Processing.get();
    if (m_Overlay) {
        m_Overlay->showFindings(m_Processing->findings());
    }
    m_Polling.start(clockNow());
    m_NextOccupancyResetCheck = clockNow() + kFirstOccupancyResetCheck;
}

void Application::init_ledger() {
    m_Ledger = std::make_unique<LedgerKeeping>(
        LedgerSettings::fromEnvironment(), SENVO_VERSION, settingsNumber(m_Config), [this](t_one_locator at) {
            int side = 0;
            for (int number = 1; number <= 3; ++number) {
                side =
                    4 * side + (m_Areas.is_in_entrance(number, at) ? 1 : 0) + (m_Areas.is_detected(number, at) ? 2 : 0);
            }
            return side;
        });
    m_Occupancy.init(m_Ledger->firstOccupancy());
    m_Metrics.occupancyCount = m_Occupancy.get_count();
    m_Events->onAlert([this](const std::string& name, bool active, bool byHand) {
        m_Ledger->write("alert", {{"alert", name}, {"active", active}, {"by_hand", byHand}});
    });
    m_OccupancyManager.onPeriod([this](const EndedPeriod& period) { m_Ledger->addPeriod(period); });
    m_ReadyLedger = m_Ledger.get();
}

void Application::writeReset(const char* by, int from, const std::string& user, const std::string& remark) {
    if (LedgerKeeping* const keeping = m_ReadyLedger) {
        keeping->write("reset", {{"by", by}, {"user", user}, {"from", from}, {"to", 0}, {"remark", remark}});
    }
}

void Application::writeSettings(const ConfigParams& before, const std::string& user) {
    if (!m_Ledger) {
        return;
    }
    const std::map<std::string, std::string> old = parameter_controller::stored_texts(before);
    nlohmann::ordered_json changed = nlohmann::ordered_json::array();
    for (const auto& [name, text] : parameter_controller::stored_texts(m_Config)) {
        if (old.at(name) != text) {
            changed.push_back(name);
        }
    }
    if (!changed.empty()) {
        m_Ledger->write("settings",
                        {{"settings", settingsNumber(m_Config)}, {"changed", std::move(changed)}, {"user", user}});
    }
}

void Application::correctOccupancy(int32_t to, const std::string& user, const std::string& remark) {
    m_BetweenCycles.post([this, to, user, remark] { setOccupancy(to, user, remark); });
}

void Application::setOccupancy(int32_t to, const std::string& user, const std::string& remark) {
    if (m_Ledger) {
        m_Ledger->write("corrected",
                        {{"user", user}, {"from", m_Occupancy.get_count()}, {"to", to}, {"remark", remark}});
    }
    m_Occupancy.init(to);
    m_Metrics.occupancyCount = to;
}

/** Ends the process at once; the ledger says why. */
void Application::die(const std::string& reason) {
    if (LedgerKeeping* const keeping = m_ReadyLedger) {
        keeping->write("stop", {{"reason", reason}, {"occupancy", m_Occupancy.get_count()}});
    }
    grateful_dead(reason);
}

ledger::PictureSize Application::pictureSize() const {
    return {static_cast<int32_t>(m_Detector.get_stream_width()), static_cast<int32_t>(m_Detector.get_stream_height())};
}

bool Application::thread_function() {
    try {
        m_BetweenCycles.run();
        m_OccupancyManager.rethrowPurge();
        if (do_one_analysis() != 0) {
            m_Polling.check_follower_status();
            m_Polling.query_follower_cameras();
            reset_occupancy();
        }
    } catch (const std::exception& exception) {
        // Nothing above the main loop could go on from here; the reason must be in the log before the process ends.
        die(std::string("thread_function: ") + exception.what());
    }
    return true;
}

int Application::do_one_analysis() {
    const int64_t start = clockNowMicros();
    if (m_Detector.larod_prepare_data_and_do_ai() != 0) {
        onModelFailure();
        if (m_Ledger) {
            m_Ledger->addFailure();
        }
        return 0;
    }
    m_MalfunctionCounter = 0;
    m_InitAiCounter = 0;
    m_Processing->get_detections();
    m_Processing->monitor_AOI_and_entrances();
    m_Processing->examine_and_update_findings();
    const int occupancyBefore = m_Occupancy.get_count();
    const bool hadCounted = m_OccupancyManager.hasCounted();
    const bool wasReset = std::exchange(m_WasReset, m_Processing->manage_events());
    // The building may stay over its limit for some cycles more, with nobody new here.
    if (m_WasReset && (occupancyBefore > 0 || !wasReset || hadCounted)) {
        writeReset("alert", occupancyBefore);
    }
    m_Processing->update_aoi_and_occupancy_metrics();
    if (m_Ledger) {
        const int32_t now = m_Occupancy.get_count();
        if (const int32_t kept = m_Ledger->add(m_Processing->findings(), pictureSize(), now, m_Status == STATUS_SLOW,
                                               m_Detector.get_iteration_time())) {
            setOccupancy(std::min(now, std::numeric_limits<int32_t>::max() - kept) + kept, "",
                         "kept from the run before");
        }
    }
    m_OccupancyManager.add(m_Processing->findings(), {m_Config.cameraInfo, *m_Events, m_Followers, m_LeaderMetrics});
    if (m_Overlay) {
        m_Overlay->renderFindings();
    }

    const int64_t duration = millisecondsOf(clockNowMicros()) - millisecondsOf(start);
    m_LastCycleMilliseconds = static_cast<int>(duration);
    m_Status = 2 * int64_t{m_Detector.get_iteration_time()} > duration ? statusOfEvents() : STATUS_SLOW;
    ++m_FrameCounter;
    if (m_CycleObserver) {
        m_CycleObserver();
    }
    return 1;
}

void Application::onModelFailure() {
    applicationLog().error("do_one_analysis: Error running model for frame " + std::to_string(m_FrameCounter) +
                           ", malfunction repeated " + std::to_string(m_MalfunctionCounter) + " consecutive frame(s)");
    logMemoryUsage("larod_prepare_data_and_do_ai failure");
    m_Status = STATUS_AI_ERROR;
    if (++m_MalfunctionCounter <= kMaxMalfunctions) {
        return;
    }
    m_MalfunctionCounter = 0;
    const int result = init_ai();
    ++m_InitAiCounter;
    applicationLog().error("do_one_analysis: After reset init_ai. res_init_ai=" + std::to_string(result) +
                           ", initAIcount=" + std::to_string(m_InitAiCounter));
    if (m_InitAiCounter > kMaxInitAi) {
        die("do_one_analysis 10 consecutive initAIcount. Restarting the program.");
    }
}

int Application::statusOfEvents() {
    // Area 3 is asked before area 2: leaders and the page rely on this order.
    struct EventStatus {
        const char* event;
        int status;
    };
    static constexpr EventStatus kOrder[] = {{alerts::kOccupancy, STATUS_OCCUPANCY_EVENT},
                                             {alerts::kArea1, STATUS_AREA1_EVENT},
                                             {alerts::kArea3, STATUS_AREA3_EVENT},
                                             {alerts::kArea2, STATUS_AREA2_EVENT},
                                             {alerts::kBreached, STATUS_AREA_EVENT}};
    for (const EventStatus& entry : kOrder) {
        if (m_Events->isEventStarted(entry.event)) {
            return entry.status;
        }
    }
    return STATUS_RUNNING;
}

void Application::reset_occupancy() {
    if (!m_Config.b_OccupancyAutoResetActive || clockNow() < m_NextOccupancyResetCheck) {
        return;
    }
    const std::tm now = localTime(clockNow());
    if (const std::optional<TimeOfDay> resetTime = parseTimeOfDay(m_Config.str_OccupancyAutoResetTime); !resetTime) {
        logBadResetTime(now);
    } else if (resetTime->minute == now.tm_min && resetTime->hour == now.tm_hour) {
        writeReset("schedule", m_Occupancy.get_count());
        m_Occupancy.reset_count();
        m_OccupancyManager.resetOccupancy();
        applicationLog().info("reset_occupancy: Auto occupancy reset.");
    }
    m_NextOccupancyResetCheck += kOccupancyResetCheckInterval;
}

void Application::logBadResetTime(const std::tm& today) {
    const std::string day = std::to_string(today.tm_year) + "/" + std::to_string(today.tm_yday);
    if (day != m_LastBadResetTimeDay) {
        m_LastBadResetTimeDay = day;
        applicationLog().error("reset_occupancy: OccupancyAutoResetTime is no time of day (hh:mm): \"" +
                               m_Config.str_OccupancyAutoResetTime + "\"; the occupancy is not reset");
    }
}

uint32_t Application::toKilobytes(unsigned long pages, uint32_t pageSize) {
    return (static_cast<uint32_t>(pages) * pageSize) >> 10U;
}

void Application::logMemoryUsage(const std::string& message) {
    struct sysinfo figures = {};
    if (sysinfo(&figures) != 0) {
        applicationLog().error("logMemoryUsage: Failed to retrieve memory information.");
        return;
    }
    const auto kilobytes = [&](unsigned long pages) { return std::to_string(toKilobytes(pages, figures.mem_unit)); };
    applicationLog().info("logMemoryUsage: " + message + " - Total memory: " + kilobytes(figures.totalram) +
                          " kB. Free memory: " + kilobytes(figures.freeram) + " kB.");
}

#pragma once

#include <atomic>
#include <ctime>
#include <functional>
#include <future>
#include <glib.h>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "app/between_cycles.h"
#include "app/ledger_keeping.h"
#include "base/mutex.h"
#include "config/config_params.h"
#include "config/parameter_controller.h"
#include "detection/location_controller_larod.h"
#include "events/event_manager.h"
#include "followers/follower_polling.h"
#include "overlay/overlay_manager.h"
#include "statistics/occupancy_manager.h"
#include "tracking/area_of_interest.h"
#include "tracking/detection_processing.h"
#include "tracking/occupancy_controller.h"
#include "tracking/tracker.h"
#include "web/fastcgi_service.h"
#include "web/parameter_io.h"

/** What the web interface shows of the application's health. */
enum ApplicationStatus : int {
    STATUS_UNKNOWN = 50,
    STATUS_STARTING = 100,
    STATUS_RUNNING = 200,
    STATUS_AI_ERROR = 401,
    STATUS_AREA_EVENT = 500,
    STATUS_OCCUPANCY_EVENT = 501,
    STATUS_AREA1_EVENT = 502,
    STATUS_AREA2_EVENT = 503,
    STATUS_AREA3_EVENT = 504,
    STATUS_SLOW = 600,
};

/**
 * The process itself: brings every component up in a fixed order, runs the analysis cycle on a timer, re-initialises
 * the model after repeated failures and ends the process when that does not help, resets the occupancy once a day.
 *
 * One instance per process; it owns the process-wide components. Everything runs on the thread that calls main(),
 * except where noted: the web service answers on a thread of its own, with its own record of the settings, and hands
 * the analysis what is to change between two cycles.
 */
class Application {
public:
    Application();
    ~Application();

    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    /**
     * The whole life of the process: 0 after an orderly stop, -1 when the model or the web service's thread could not
     * be had.
     */
    int main();

    // The steps of start-up, in their order; main() takes them all, an offline run those that it needs.
    void init_parameter_controller();
    /** Returns 1 on success. Also called to start the model all over. */
    int init_ai();
    void init_occupancy_controller();
    void init_sensor_aspect_ratio();
    void init_overlay_manager();
    void init_event_manager();
    void init_logic(int maxDisappeared);
    void init_ledger();

    /**
     * Takes new settings into force at once, areas and tracker included, and saves them. Between two cycles only.
     */
    void applySettings(const ConfigParams& settings);

    /** Asks for a call after every successful cycle, on the thread of the cycle. */
    void onCycle(std::function<void()> observer) { m_CycleObserver = std::move(observer); }

    /** The web service's thread: serves until the process ends. */
    void webservices_thread_fcn();

    /** One tick: the analysis cycle and, when it ran, what is due besides. Always true: the timer stays. */
    bool thread_function();

    /** One analysis cycle: 1 when it ran, 0 when the model failed on this frame. */
    int do_one_analysis();

    /** Resets the occupancy at the configured time of day; looks once a minute. */
    void reset_occupancy();

    /** Memory in kB, of pages of so many bytes; in 32 bits, as the page and the log's readers know these figures. */
    static uint32_t toKilobytes(unsigned long pages, uint32_t pageSize);

    /** Logs the machine's memory figures. */
    static void logMemoryUsage(const std::string& message);

    /** The status code. Any thread. */
    int status() const { return m_Status; }

    /** Milliseconds that the most recent successful cycle took. Any thread. */
    int lastCycleDuration() const { return m_LastCycleMilliseconds; }

    unsigned frameCounter() const { return m_FrameCounter; }
    const ConfigParams& config() const { return m_Config; }
    const location_controller_larod& detector() const { return m_Detector; }
    const DetectionProcessing& processing() const { return *m_Processing; }
    const MetricsParams& metrics() const { return m_Metrics; }
    EventManager& events() { return *m_Events; }
    occupancy_controller& occupancy() { return m_Occupancy; }
    OccupancyManager& statistics() { return m_OccupancyManager; }

private:
    /** Called for each SIGTERM, on the watch's thread. */
    void handle_sigterm() EXCLUDES(m_loopMutex);
    GMainLoop* createMainLoop() EXCLUDES(m_loopMutex);
    void quitMainLoop();
    void onModelFailure();
    int statusOfEvents();
    void logBadResetTime(const std::tm& today);
    void writeReset(const char* by, int from, const std::string& user = "", const std::string& remark = "");
    void writeSettings(const ConfigParams& before, const std::string& user);
    void correctOccupancy(int32_t to, const std::string& user, const std::string& remark);
    void setOccupancy(int32_t to, const std::string& user, const std::string& remark);
    [[noreturn]] void die(const std::string& reason);
    ledger::PictureSize pictureSize() const;
    void storeAreas();
    void takeOver(const SettingsUpdate& update);
    bool startWebService();
    void stopWebService();

    ConfigParams m_Config;    /**< the analysis's record of the settings */
    ConfigParams m_WebConfig; /**< the web service's, which its uploads change first */
    parameter_controller m_Parameters;
    location_controller_larod m_Detector;
    tracker m_Tracker;
    area_of_interest m_Areas;
    occupancy_controller m_Occupancy;
    std::unique_ptr<EventManager> m_Events;
    OccupancyManager m_OccupancyManager;
    bool m_WasReset = false; /**< by the alert, in the cycle before */
    MetricsParams m_Metrics;
    LeaderMetricsParams m_LeaderMetrics;
    http_request_controller m_Followers;
    std::unique_ptr<DetectionProcessing> m_Processing;
    std::unique_ptr<OverlayManager> m_Overlay;
    std::atomic<DetectionProcessing*> m_ReadyProcessing = nullptr; /**< for the web service, once it is there */
    BetweenCycles m_BetweenCycles;

    std::atomic<int> m_Status = 0;
    std::atomic<int> m_LastCycleMilliseconds = 0;
    FollowerPolling m_Polling;
    parameter_io m_Settings;
    bool m_IsPortrait = false;    /**< the camera is turned by 90 or 270 degrees */
    unsigned m_FrameCounter = 0;  /**< successful cycles since start */
    int m_MalfunctionCounter = 0; /**< consecutive failed model runs */
    int m_InitAiCounter = 0;      /**< consecutive re-initialisations without a successful cycle */
    time_t m_NextOccupancyResetCheck = 0;
    std::function<void()> m_CycleObserver;
    std::string m_LastBadResetTimeDay; /**< the day on which a reset time that is no time was last reported */

    struct UnrefLoop {
        void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
    };
    Mutex m_loopMutex; /**< guards the loop's existence, which SIGTERM asks about from another thread */
    std::unique_ptr<GMainLoop, UnrefLoop> m_Loop GUARDED_BY(m_loopMutex);
    guint m_TimerId = 0;

    std::unique_ptr<LedgerKeeping> m_Ledger;             /**< none in an offline run */
    std::atomic<LedgerKeeping*> m_ReadyLedger = nullptr; /**< for the web service, once it is there */
    std::unique_ptr<fastcgi_service> m_WebService;
    std::future<void> m_WebServiceEnded;
    std::thread m_WebThread;
};

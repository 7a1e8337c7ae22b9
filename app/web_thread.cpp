#include <chrono>
#include <cstdlib>
#include <system_error>

#include "app/application.h"
#include "detection/camera_resolutions.h"
#include "log/Logger.h"

/*
 * The web service's place in the process: its thread, and what its requests may change. The service works on its own
 * record of the settings; alerts raised by hand and uploaded settings reach the analysis between two cycles.
 */

namespace {

constexpr std::chrono::seconds kLastRequestTime(5);

}  // namespace

bool Application::startWebService() {
    m_Settings.CameraResolutionsAsCsv = getCamerasResolutionsAsCsv();
    m_WebService = std::make_unique<fastcgi_service>(FastCgiParts{
        m_WebConfig, m_Settings, m_Detector, m_OccupancyManager, m_Occupancy, m_Metrics, m_LeaderMetrics, m_Status,
        m_LastCycleMilliseconds, m_IsPortrait,
        [this] {
            DetectionProcessing* const processing = m_ReadyProcessing;
            return processing == nullptr ? 0 : processing->reset_total_occupancy(m_WebConfig.cameraInfo);
        },
        [this](const char* name, bool active) {
            m_BetweenCycles.post([this, name, active] {
                active ? m_Events->sendEventStartedManually(name) : m_Events->sendEventStoppedManually(name);
            });
        },
        [this](const std::string& user, const std::string& remark) {
            writeReset("web", m_Occupancy.get_count(), user, remark);
        },
        [this](int32_t to, const std::string& user, const std::string& remark) { correctOccupancy(to, user, remark); },
        [this]() -> LedgerAccess* { return m_ReadyLedger; }});
    try {
        std::promise<void> ended;
        m_WebServiceEnded = ended.get_future();
        m_WebThread = std::thread([this, last = std::move(ended)]() mutable {
            webservices_thread_fcn();
            last.set_value();
        });
    } catch (const std::system_error&) {
        applicationLog().error("main: Failed to create thread");
        m_Status = STATUS_UNKNOWN;
        return false;
    }
    return true;
}

void Application::webservices_thread_fcn() {
    static std::atomic<int> calls = 0;
    applicationLog().info("webservices_thread_fcn: " + std::to_string(calls++));
    if (m_WebService->init() != 0) {
        applicationLog().error("webservices_thread_fcn: Failed to init fastcgi service");
        m_Status = STATUS_UNKNOWN;
        return;
    }
    m_WebService->run();
}

void Application::stopWebService() {
    m_WebService->stop();
    if (m_WebServiceEnded.wait_for(kLastRequestTime) == std::future_status::ready) {
        m_WebThread.join();
        return;
    }
    // A client that neither sends nor reads must not keep the process; what it waits for cannot be torn down under it.
    applicationLog().warning("stopWebService: a request is still being served; ending without it");
    if (m_Ledger) {
        m_Ledger->finish();
    }
    logMemoryUsage("Ending Ostrel Senvo");
    applicationLog().close();
    std::_Exit(EXIT_SUCCESS);
}

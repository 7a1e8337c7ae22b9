#pragma once

#include <atomic>
#include <fcgiapp.h>
#include <functional>
#include <optional>
#include <string>

#include "config/config_params.h"
#include "detection/location_controller_larod.h"
#include "statistics/occupancy_manager.h"
#include "tracking/occupancy_controller.h"
#include "web/ledger_actions.h"
#include "web/parameter_io.h"

/** What the service shows and changes; all outlive it. */
struct FastCgiParts {
    const ConfigParams& config; /**< the web service's own record */
    parameter_io& settings;
    const location_controller_larod& detector;
    OccupancyManager& statistics;
    occupancy_controller& occupancy;
    MetricsParams& metrics;
    const LeaderMetricsParams& leaderMetrics;
    const std::atomic<int>& status;
    const std::atomic<int>& executionTime; /**< milliseconds of the last analysis */
    bool isPortrait;
    std::function<int()> resetTotalOccupancy;                       /**< for this thread */
    std::function<void(const char* name, bool active)> manualAlert; /**< starts or stops an alert by hand */
    /** told who resets the occupancy, and why */
    std::function<void(const std::string& user, const std::string& remark)> beforeReset = {};
    /** sets the occupancy */
    std::function<void(int32_t to, const std::string& user, const std::string& remark)> correctOccupancy = {};
    std::function<LedgerAccess*()> ledger = {}; /**< null while there is none */
};

/**
 * The application's web interface: answers the requests that the camera's web server forwards to a FastCGI socket, one
 * after the other. The query's "action" says what is wanted; several are answered one behind the other.
 *
 * init and run belong to one thread, the web service's; stop may come from another.
 */
class fastcgi_service {
public:
    explicit fastcgi_service(FastCgiParts parts);
    ~fastcgi_service();

    fastcgi_service(const fastcgi_service&) = delete;
    fastcgi_service& operator=(const fastcgi_service&) = delete;

    /** Opens the socket: 0, or 1, logged, on failure. */
    int init();

    /** Serves until stop, or until the socket fails, which is logged; returns 0. */
    int run();

    /** Lets run return once it has answered what it is at. Any thread. */
    void stop();

private:
    void serve();
    void serveAction(const std::string& method, const std::string& action);
    std::string parameter(const char* name) const;

    /** Answers a GET action; 0. An exception of what it asks is logged, and nothing answered. */
    int processGET(const std::string& action);
    /** Answers a POST action: 0, or -1, logged, when it raised an exception. */
    int processPOST(const std::string& action, const std::string& body);
    std::string get_post_body();
    /** Logs for the page: 0, or -1, logged, when the body holds no tags. */
    static int add_post_submit_log(const std::string& body);

    void write(const std::string& text);
    const char* resetOccupancy();
    void announceReset();
    std::string remark() const;
    std::string metrics() const;
    void raiseManualAlert(const std::string& action);

    struct Answer {
        const char* contentType = nullptr; /**< none */
        std::string body = {};
        std::string headers = {}; /**< further ones, each with its end */
        const char* status = "200 OK";
    };
    Answer answerTo(const std::string& action);
    using AskLedger = std::optional<LedgerAnswer> (*)(LedgerAccess&, const LedgerQuestion&);
    /** Sets the occupancy to what the query says; a refusal, logged, when it says no number. */
    Answer correctOccupancy();
    std::optional<Answer> answerOfLedger(AskLedger ask, const std::string& action, const std::string& body = {});
    void write(const Answer& answer);

    FastCgiParts m_parts;
    FCGX_Request m_request = {};
    QueryPairs m_query; /**< of the request */
    std::atomic<int> m_sock = -1;
    std::atomic<bool> m_stopping = false;
};

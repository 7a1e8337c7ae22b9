#include "web/fastcgi_service.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <uriparser/Uri.h>
#include <utility>
#include <vector>

#include "base/camera_paths.h"
#include "base/clock.h"
#include "events/event_manager.h"
#include "log/Logger.h"
#include "web/fastcgi_socket.h"
#include "web/follower_trial.h"
#include "web/metrics_text.h"

namespace {

constexpr const char* kSocketPath = "/usr/local/packages/ostrel_senvo/html/ostrel_senvo_fcgi.socket";
constexpr int kBacklog = 5;
constexpr long kMostBodyBytes = 1L << 20;  // what the web server lets through; a longer length is a lie

constexpr int32_t kMostInside = 1'000'000;  // who comes in afterwards must still be counted
constexpr const char* kPlain = "text/plain";
constexpr const char* kMetricsPath = "/metrics";  // where monitoring systems look
constexpr const char* kXml = "text/xml";

struct ManualAlert {
    const char* action;
    const char* alert;
    bool active;
};

constexpr std::array<ManualAlert, 10> kManualAlerts = {{
    {"manual_breached_alert_on", alerts::kBreached, true},
    {"manual_breached_alert_off", alerts::kBreached, false},
    {"manual_area1_alert_on", alerts::kArea1, true},
    {"manual_area1_alert_off", alerts::kArea1, false},
    {"manual_area2_alert_on", alerts::kArea2, true},
    {"manual_area2_alert_off", alerts::kArea2, false},
    {"manual_area3_alert_on", alerts::kArea3, true},
    {"manual_area3_alert_off", alerts::kArea3, false},
    {"manual_occupancy_alert_on", alerts::kOccupancy, true},
    {"manual_occupancy_alert_off", alerts::kOccupancy, false},
}};

struct FreeUri {
    void operator()(UriUriA* uri) const { uriFreeUriMembersA(uri); }
};

/** The pairs of a query, decoded; false when they cannot be told apart. */
bool dissect(const UriUriA& uri, QueryPairs& query) {
    UriQueryListA* list = nullptr;
    int count = 0;
    if (uriDissectQueryMallocA(&list, &count, uri.query.first, uri.query.afterLast) != URI_SUCCESS) {
        return false;
    }
    const std::unique_ptr<UriQueryListA, decltype(&uriFreeQueryListA)> owned(list, uriFreeQueryListA);
    for (const UriQueryListA* pair = list; pair != nullptr; pair = pair->next) {
        query.emplace_back(pair->key, pair->value == nullptr ? "" : pair->value);
    }
    return true;
}

/** Entries and exits of each entrance: "20,12,31,32,0,0". */
std::string passagesText(const MetricsParams& metrics) {
    std::string text;
    for (const std::atomic<int32_t>& count : metrics.passages) {
        text += (text.empty() ? "" : ",") + std::to_string(count);
    }
    return text;
}

std::string followerAgesText(const LeaderMetricsParams& leader) {
    const int64_t now = steadyNow();
    std::string text;
    for (const std::atomic<int64_t>& answered : leader.followerAnswered) {
        const int64_t age = answered == 0 ? -1 : std::max<int64_t>(0, now - answered);
        text += (text.empty() ? "" : ",") + std::to_string(age);
    }
    return text;
}

/** Cuts what a client wants logged to 1 KiB, not within a character: a system log may take minutes over a long line. */
void cutToLogEntry(std::string& text) {
    constexpr size_t kMost = 1024;
    if (text.size() <= kMost) {
        return;
    }
    size_t end = kMost;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    text.resize(end);
}

}  // namespace

fastcgi_service::fastcgi_service(FastCgiParts parts) : m_parts(std::move(parts)) {}

fastcgi_service::~fastcgi_service() {
    if (m_sock >= 0) {
        close(m_sock);
    }
}

int fastcgi_service::init() {
    const std::string path = cameraPath(kSocketPath);
    applicationLog().info("init: Socket: " + path);
    if (FCGX_Init() != 0) {
        applicationLog().error("init: FCGX_Init failed");
        return 1;
    }
    m_sock = openFastCgiSocket(path, kBacklog);
    if (m_sock < 0) {
        return 1;
    }
    if (FCGX_InitRequest(&m_request, m_sock, 0) != 0) {
        applicationLog().error("init: FCGX_InitRequest failed");
        FCGX_Free(&m_request, m_sock);
        m_sock = -1;
        return 1;
    }
    return 0;
}

int fastcgi_service::run() {
    while (!m_stopping && FCGX_Accept_r(&m_request) == 0) {
        try {
            serve();
        } catch (const std::exception& exception) {
            applicationLog().error(std::string("run: ") + exception.what());
        }
    }
    if (!m_stopping) {
        applicationLog().error("run: Failed to accept requests; none are answered from here on");
    }
    FCGX_Free(&m_request, 1);
    return 0;
}

void fastcgi_service::stop() {
    m_stopping = true;
    if (m_sock >= 0) {
        shutdown(m_sock, SHUT_RDWR);
    }
}

std::string fastcgi_service::parameter(const char* name) const {
    const char* const value = FCGX_GetParam(name, m_request.envp);
    return value == nullptr ? "" : value;
}

void fastcgi_service::write(const std::string& text) {
    FCGX_PutStr(text.data(), static_cast<int>(text.size()), m_request.out);
}

void fastcgi_service::serve() {
    const std::string uriText = parameter("REQUEST_URI");
    const std::string method = parameter("REQUEST_METHOD");
    UriUriA uri = {};
    const char* error = nullptr;
    if (uriParseSingleUriA(&uri, uriText.c_str(), &error) != URI_SUCCESS) {
        write("Failed to parse URI");
        return;
    }
    const std::unique_ptr<UriUriA, FreeUri> members(&uri);
    m_query.clear();
    if (uriText == kMetricsPath || uriText.rfind(std::string(kMetricsPath) + "?", 0) == 0) {
        serveAction(method, "get_metrics");  // whatever else the query asks for
        FCGX_Finish_r(&m_request);
        return;
    }
    if (!dissect(uri, m_query)) {
        write("Failed to parse query");
        return;
    }
    for (const auto& [key, value] : m_query) {
        if (key == "action") {
            serveAction(method, value);
        }
    }
    FCGX_Finish_r(&m_request);
}

void fastcgi_service::serveAction(const std::string& method, const std::string& action) {
    if (method == "GET") {
        processGET(action);
    } else if (method == "POST") {
        processPOST(action, get_post_body());
    } else {
        write("Only GET and POST supported. Method " + method + " not supported");
    }
}

std::string fastcgi_service::get_post_body() {
    const long length = std::strtol(parameter("CONTENT_LENGTH").c_str(), nullptr, 10);
    std::string body;
    if (length > kMostBodyBytes) {
        applicationLog().error("get_post_body: expected at most " + std::to_string(kMostBodyBytes) +
                               " bytes, got a content length of " + std::to_string(length));
        return body;
    }
    if (length > 0) {
        body.reserve(static_cast<size_t>(length));
    }
    for (long i = 0; i < length; ++i) {
        // The end of a body that is shorter than it says reads as -1, the last character of all.
        body += static_cast<char>(FCGX_GetChar(m_request.in));
    }
    return body;
}

void fastcgi_service::write(const Answer& answer) {
    write(std::string("Status: ") + answer.status + "\r\n" + answer.headers);
    if (answer.contentType != nullptr) {
        write(std::string("Content-Type: ") + answer.contentType + "\r\n");
    }
    write("\r\n");
    write(answer.body);
}

int fastcgi_service::processGET(const std::string& action) {
    if (m_parts.config.b_VerboseLog) {
        applicationLog().info("processGET: : " + action);
    }
    try {
        write(answerTo(action));
    } catch (const std::exception& exception) {
        applicationLog().error("processGET: Exception from " + action + ": " + exception.what());
    }
    return 0;
}

fastcgi_service::Answer fastcgi_service::answerTo(const std::string& action) {
    using Body = std::function<std::string(fastcgi_service&)>;
    struct Action {
        const char* name;
        const char* contentType;
        Body body;
    };
    using Self = fastcgi_service&;
    static const std::vector<Action> kActions = {
        {"get_status_string", kPlain, [](Self s) { return parameter_io::status_to_string(s.m_parts.status); }},
        {"get_is_portrait", kPlain, [](Self s) { return std::string(s.m_parts.isPortrait ? "1" : "0"); }},
        {"get_status_code", kPlain, [](Self s) { return std::to_string(s.m_parts.status); }},
        {"get_execution_time", kPlain, [](Self s) { return std::to_string(s.m_parts.executionTime); }},
        {"get_all_parameters", kXml, [](Self s) { return s.m_parts.settings.get_parameters(); }},
        {"get_total_crowd", kPlain, [](Self s) { return std::to_string(s.m_parts.leaderMetrics.totalCrowdCount); }},
        // The building's total, unlike areas 2 and 3: what leaders and pages have always been given here.
        {"get_crowd_1", kPlain, [](Self s) { return std::to_string(s.m_parts.leaderMetrics.totalCrowdCount); }},
        {"get_crowd_2", kPlain, [](Self s) { return std::to_string(s.m_parts.metrics.crowdCount2); }},
        {"get_crowd_3", kPlain, [](Self s) { return std::to_string(s.m_parts.metrics.crowdCount3); }},
        {"get_occupancy_count", kPlain, [](Self s) { return std::to_string(s.m_parts.metrics.occupancyCount); }},
        {"get_passages", kPlain, [](Self s) { return passagesText(s.m_parts.metrics); }},
        {"get_about", "application/json", [](Self) { return aboutText(); }},
        {"get_metrics", kMetricsType, [](Self s) { return s.metrics(); }},
        {"get_follower_ages", kPlain, [](Self s) { return followerAgesText(s.m_parts.leaderMetrics); }},
        {"get_total_occupancy", kPlain, [](Self s) { return std::to_string(s.m_parts.leaderMetrics.totalOccupancy); }},
        {"reset_occupancy", kPlain, [](Self s) { return std::string(s.resetOccupancy()); }},
        {"reset_total_occupancy", kPlain,
         [](Self s) {
             // The result as one character, not as its digits; clients ignore it.
             s.announceReset();
             std::string result(1, static_cast<char>(s.m_parts.resetTotalOccupancy()));
             applicationLog().info("processGET: Total occupancy reset.");
             return result;
         }},
        {"get_occupancy_csv", "text/csv", [](Self s) { return s.m_parts.statistics.getSummaryReportCSV(); }},
        {"get_report_csv_str", kPlain, [](Self s) { return s.m_parts.statistics.getSummaryReportCSV(); }},
        {"get_data_panel_info", kXml, [](Self s) { return s.m_parts.settings.get_data_panel_info(); }},
        {"follower_flush", kPlain, [](Self s) { return s.m_parts.statistics.followerFlush(s.m_parts.config); }},
        {"get_occupancy_html", "text/html", [](Self s) { return s.m_parts.statistics.getSummaryReportHTML(); }},
        {"get_analysis_resolution", kPlain, [](Self s) { return s.m_parts.detector.getAnalysisResolution(); }},
        {"get_logfile_as_serialized_text", kPlain, [](Self) { return applicationLog().getSerializedLogContents(); }},
        {"get_logfile_as_plain_text", kPlain, [](Self) { return applicationLog().getPlainLogContents(); }},
        {"get_logfile_as_csv_text", kPlain, [](Self) { return applicationLog().getCSVLogContents(); }},
        {"get_newest_log", kPlain, [](Self) { return applicationLog().getNewestSerializedContents(); }},
        {"clear_logfile", kPlain,
         [](Self) {
             applicationLog().clear();
             return std::string("Log file cleared.");
         }},
    };
    for (const Action& known : kActions) {
        if (action == known.name) {
            return {known.contentType, known.body(*this)};
        }
    }
    if (std::optional<Answer> answer = answerOfLedger(answerFromLedger, action)) {
        return *answer;
    }
    raiseManualAlert(action);
    return {};
}

std::optional<fastcgi_service::Answer> fastcgi_service::answerOfLedger(AskLedger ask, const std::string& action,
                                                                       const std::string& body) {
    LedgerAccess* const access = m_parts.ledger ? m_parts.ledger() : nullptr;
    if (access == nullptr) {
        return isOfLedger(action)
                   ? std::optional(Answer{kPlain, "the ledger is not open yet\n", "", "503 Service Unavailable"})
                   : std::nullopt;
    }
    try {
        const ledger::PictureSize picture = {static_cast<int32_t>(m_parts.detector.get_stream_width()),
                                             static_cast<int32_t>(m_parts.detector.get_stream_height())};
        std::optional<LedgerAnswer> answer =
            ask(*access, {action, m_query, body, parameter("REMOTE_USER"), m_parts.config, picture});
        return answer ? std::optional(Answer{answer->contentType, std::move(answer->body), std::move(answer->headers),
                                             answer->status})
                      : std::nullopt;
    } catch (const std::invalid_argument& question) {
        return Answer{kPlain, std::string(question.what()) + "\n", "", "400 Bad Request"};
    }
}

std::string fastcgi_service::metrics() const {
    const LedgerAccess* const access = m_parts.ledger ? m_parts.ledger() : nullptr;
    return metricsText({access != nullptr ? access->totals() : ledger::RunTotals(), m_parts.config,
                        m_parts.metrics.occupancyCount, m_parts.executionTime});
}

/** What the request says of why. */
std::string fastcgi_service::remark() const {
    std::string text = valueOf(m_query, "remark");
    cutToLogEntry(text);
    return text;
}

void fastcgi_service::announceReset() {
    if (m_parts.beforeReset) {
        m_parts.beforeReset(parameter("REMOTE_USER"), remark());
    }
}

const char* fastcgi_service::resetOccupancy() {
    announceReset();
    m_parts.metrics.occupancyCount = 0;
    m_parts.occupancy.reset_count();
    m_parts.statistics.resetOccupancy();
    applicationLog().info("processGET: This camera occupancy reset.");
    return "0";
}

void fastcgi_service::raiseManualAlert(const std::string& action) {
    const auto* const known = std::find_if(kManualAlerts.begin(), kManualAlerts.end(),
                                           [&](const ManualAlert& entry) { return action == entry.action; });
    if (known != kManualAlerts.end()) {
        m_parts.manualAlert(known->alert, known->active);
    }
}

int fastcgi_service::processPOST(const std::string& action, const std::string& body) {
    const char* const kFailed = "Status: 400 Bad Request\r\n";
    const char* const kDone = "Status: 200 OK\r\n";
    if (action == "set_post_parameters") {
        try {
            write(m_parts.settings.set_post_parameters(body, parameter("REMOTE_USER")) != 0 ? kFailed : kDone);
        } catch (const std::exception&) {
            applicationLog().error("processPOST: Exception from processPOST trying to set post parameters.");
            return -1;
        }
    } else if (action == "use_followers") {
        m_parts.settings.store_data_into_http_request_controller();
        applicationLog().info("processPOST: The followers of the settings are asked.");
        write(kDone);
    } else if (action == "correct_occupancy") {
        write(correctOccupancy());
        return 0;
    } else if (action == "post_submit_log") {
        try {
            write(add_post_submit_log(body) != 0 ? kFailed : kDone);
        } catch (const std::exception&) {
            applicationLog().error("processPOST: Exception from add_post_submit_log.");
            return -1;
        }
    } else if (const std::optional<Answer> answer = answerOfLedger(answerPostToLedger, action, body)) {
        write(*answer);
        return 0;
    }
    write("\r\n");
    return 0;
}

fastcgi_service::Answer fastcgi_service::correctOccupancy() {
    try {
        const int64_t to = numberOf(valueOf(m_query, "to"), 0, kMostInside, "to");
        if (m_parts.correctOccupancy) {
            m_parts.correctOccupancy(static_cast<int32_t>(to), parameter("REMOTE_USER"), remark());
        }
        applicationLog().info("processPOST: This camera occupancy corrected to " + std::to_string(to) + ".");
    } catch (const std::invalid_argument& question) {
        applicationLog().error(std::string("processPOST: correct_occupancy: ") + question.what());
        return {kPlain, std::string(question.what()) + "\n", "", "400 Bad Request"};
    }
    return {};
}

int fastcgi_service::add_post_submit_log(const std::string& body) {
    std::map<std::string, std::string> values = parameter_io::parseXMLData_no_dependency(body);
    if (values.empty()) {
        applicationLog().error("add_post_submit_log: Failed to parse XML payload");
        return -1;
    }
    const std::string& severity = values["log_severity"];
    std::string& entry = values["log_entry"];
    cutToLogEntry(entry);
    if (severity == "info") {
        applicationLog().info(entry);
    } else if (severity == "warning") {
        applicationLog().warning(entry);
    } else if (severity == "error") {
        applicationLog().error(entry);
    }
    return 0;
}

#include "web/fastcgi_service.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <sys/stat.h>
#include <thread>

#include "canned_server.h"
#include "events/event_manager.h"
#include "fastcgi_client.h"
#include "scripted_followers.h"
#include "web_fixture.h"

namespace {

using Texts = std::vector<std::string>;

/** What this program has told the system log. */
class SystemLog {
public:
    static void add(const char* format, va_list values) {
        std::string text(1 << 20U, '\0');
        const int length = std::vsnprintf(text.data(), text.size(), format, values);
        text.resize(static_cast<size_t>(std::max(0, length)));
        const std::lock_guard lock(s_mutex);
        s_texts.push_back(std::move(text));
    }
    static Texts all() {
        const std::lock_guard lock(s_mutex);
        return s_texts;
    }
    /** Those of one letter only, which was logged for a test. */
    static Texts of(char letter) {
        const std::lock_guard lock(s_mutex);
        Texts found;
        std::copy_if(s_texts.begin(), s_texts.end(), std::back_inserter(found), [letter](const std::string& text) {
            return !text.empty() && text.find_first_not_of(letter) == std::string::npos;
        });
        return found;
    }

private:
    static inline std::mutex s_mutex;  // guards what follows
    static inline Texts s_texts;
};

}  // namespace

// In place of the C library's, which would write to the console where no daemon listens.
extern "C" void syslog(int /*priority*/, const char* format, ...) {
    va_list values;
    va_start(values, format);
    SystemLog::add(format, values);
    va_end(values);
}

// What that becomes where the compiler fortifies.
extern "C" void __syslog_chk(int priority, int flag, const char* format, ...);
extern "C" void __syslog_chk(int /*priority*/, int /*flag*/, const char* format, ...) {
    va_list values;
    va_start(values, format);
    SystemLog::add(format, values);
    va_end(values);
}

namespace {

TEST(SystemLogOfALog, HasItsEndAndTheBlankLineBehindIt) {
    const TestFolder folder;
    { const Logger log("qqq", (folder.path() / "log.txt").string()); }
    const Texts texts = SystemLog::all();
    ASSERT_GE(texts.size(), 2U);
    EXPECT_EQ(Texts(texts.end() - 2, texts.end()), (Texts{"STOPPING qqq", ""}));
}

/** The service on its own thread, asked through its socket. */
class Service : public WebFixture {
protected:
    Service() {
        m_parts.emplace(FastCgiParts{m_config, m_settings, m_detector, m_statistics, m_occupancy, m_metrics,
                                     m_leaderMetrics, m_status, m_executionTime, true,
                                     [this] {
                                         ++m_totalResets;
                                         return 0;
                                     },
                                     [this](const char* name, bool active) {
                                         m_alerts.push_back(std::string(name) + (active ? " on" : " off"));
                                     }});
        m_service.emplace(*m_parts);
        EXPECT_EQ(m_service->init(), 0);
        m_thread = std::thread([this] { EXPECT_EQ(m_service->run(), 0); });
    }
    ~Service() override {
        m_service->stop();
        m_thread.join();
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    std::string socketPath() const {
        return (m_log.folder() / "usr/local/packages/ostrel_senvo/html/ostrel_senvo_fcgi.socket").string();
    }
    FastCgiClient client() const { return FastCgiClient(socketPath()); }
    std::string get(const std::string& action) const { return client().get("action=" + action); }
    static std::string plain(const std::string& body) {
        return "Status: 200 OK\r\nContent-Type: text/plain\r\n\r\n" + body;
    }

    /** A person who has just come in. */
    static one_find entering() {
        one_find person;
        person.detect = around(10, 10);
        person.entranceAct = entranceActivity::enterEntrance1;
        return person;
    }

    occupancy_controller m_occupancy;
    OccupancyManager m_statistics{m_config};
    EventManager m_events;
    ScriptedFollowers m_noFollowers;
    std::atomic<int> m_executionTime = 37;
    std::atomic<int> m_totalResets = 0;
    Texts m_alerts;
    std::optional<FastCgiParts> m_parts;
    std::optional<fastcgi_service> m_service;
    std::thread m_thread;
};

TEST_F(Service, AnswersEveryGetAction) {
    m_leaderMetrics.totalCrowdCount = 21;
    m_leaderMetrics.totalOccupancy = 22;
    m_metrics.crowdCount1 = 1;
    m_metrics.crowdCount2 = 2;
    m_metrics.crowdCount3 = -3;
    m_metrics.occupancyCount = 2147483647;
    m_metrics.passages[0] = 20;
    m_metrics.passages[5] = 7;
    m_leaderMetrics.followerAnswered[1] = m_clock.now() - 75;
    m_leaderMetrics.followerAnswered[9] = m_clock.now() + 1;
    const struct {
        const char* action;
        std::string answer;
    } cases[] = {
        {"get_status_string", plain("Running")},
        {"get_is_portrait", plain("1")},
        {"get_status_code", plain("200")},
        {"get_execution_time", plain("37")},
        {"get_all_parameters", "Status: 200 OK\r\nContent-Type: text/xml\r\n\r\n" + m_settings.get_parameters()},
        {"get_total_crowd", plain("21")},
        {"get_crowd_1", plain("21")},
        {"get_crowd_2", plain("2")},
        {"get_crowd_3", plain("-3")},
        {"get_occupancy_count", plain("2147483647")},
        {"get_passages", plain("20,0,0,0,0,7")},
        {"get_follower_ages", plain("-1,75,-1,-1,-1,-1,-1,-1,-1,0")},
        {"get_total_occupancy", plain("22")},
        {"get_data_panel_info", "Status: 200 OK\r\nContent-Type: text/xml\r\n\r\n" + m_settings.get_data_panel_info()},
        {"get_analysis_resolution", plain("960x540")},
        {"no_such_action", "Status: 200 OK\r\n\r\n"},
        {"", "Status: 200 OK\r\n\r\n"},
    };
    for (const auto& [action, answer] : cases) {
        EXPECT_EQ(get(action), answer) << action;
    }
}

TEST_F(Service, AnswersWhereMonitoringSystemsLookNothingElse) {
    const auto ask = [this](const std::string& uri) {
        return client().request({{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", uri}}, "");
    };
    m_metrics.occupancyCount = 5;
    const std::string metrics = get("get_metrics");
    EXPECT_EQ(
        metrics.rfind("Status: 200 OK\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n\r\n# HELP ", 0), 0U)
        << metrics;
    EXPECT_NE(metrics.find("\nsenvo_occupancy 5\n"), std::string::npos);
    EXPECT_NE(metrics.find("\nsenvo_cycle_duration_seconds 0.037\n"), std::string::npos);
    EXPECT_EQ(ask("/metrics"), metrics);
    EXPECT_EQ(ask("/metrics?action=reset_occupancy"), metrics);
    EXPECT_EQ(m_metrics.occupancyCount, 5) << "and does nothing of what else it is asked for";
    EXPECT_EQ(ask("/metricsx?action=get_execution_time"), plain("37"));
}

TEST_F(Service, TellsAgesOfFollowersHoweverTheClockIsSet) {
    for (const time_t set : {m_clock.now() - 3600, m_clock.now() + 86400}) {
        m_clock.set(set);
        m_leaderMetrics.followerAnswered[0] = steadyNow();
        m_clock.advance(20);
        EXPECT_EQ(get("get_follower_ages"), plain("20,-1,-1,-1,-1,-1,-1,-1,-1,-1")) << set;
    }
}

/** What supervises a leader says so after each start; nothing is written, so that nobody's settings can be lost. */
TEST_F(Service, AsksTheFollowersOfTheSettingsWhenToldTo) {
    CannedServer camera(CannedServer::saying("17"));
    m_config.cameraInfo.followerActive[3] = true;
    m_config.cameraInfo.followerIPAddress[3] = camera.address();
    EXPECT_EQ(m_followers.get_occupancy_from_followerip(camera.address()), -1);
    const size_t calls = scripted::parameterCalls().size();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(client().post("action=use_followers", ""), "Status: 200 OK\r\n\r\n");
    }
    EXPECT_EQ(m_followers.get_occupancy_from_followerip(camera.address()), 17);
    EXPECT_EQ(scripted::parameterCalls().size(), calls);
}

TEST_F(Service, CutsWhatAClientWantsLogged) {
    const struct {
        const char* label;
        std::string entry;
        std::string logged;
    } cases[] = {{"as long as may be", std::string(1024, 'x'), std::string(1024, 'x')},
                 {"longer", std::string(900'000, 'x'), std::string(1024, 'x')},
                 {"within a character", std::string(1023, 'x') + "\xC3\xA4", std::string(1023, 'x')},
                 {"behind a character", std::string(1022, 'x') + "\xC3\xA4y", std::string(1022, 'x') + "\xC3\xA4"}};
    for (const auto& [label, entry, logged] : cases) {
        applicationLog().clear();
        client().post("action=post_submit_log",
                      "<root><log_severity>error</log_severity><log_entry>" + entry + "</log_entry></root>");
        EXPECT_EQ(LogCapture::ofLevel("error"), std::vector<std::string>{logged}) << label;
    }
}

TEST_F(Service, CutsNothingElseForTheSystemLog) {
    client().post("action=post_submit_log", "<root><log_severity>warning</log_severity><log_entry>" +
                                                std::string(900'000, 'q') + "</log_entry></root>");
    EXPECT_EQ(SystemLog::of('q'), Texts{std::string(1024, 'q')});
    const Texts whole = {std::string(100'000, 'w'), std::string(100'000, 'w'), std::string(100'000, 'w')};
    applicationLog().info(whole[0]);
    applicationLog().warning(whole[0]);
    applicationLog().error(whole[0]);
    EXPECT_EQ(SystemLog::of('w'), whole);
}

TEST_F(Service, ServesTheNewestOfTheLog) {
    applicationLog().warning("newest");
    EXPECT_TRUE(get("get_newest_log").ends_with("|ostrel_senvo|warning|newest\n"));
}

TEST_F(Service, SaysThatItsLedgerIsNotOpenYet) {
    for (const char* action :
         {"get_ledger", "get_counts", "occupancy_before", "stays", "heat", "why", "ledger_answer"}) {
        EXPECT_EQ(get(action).rfind("Status: 503 ", 0), 0U) << action;
    }
    for (const char* action : {"recount", "hand_count"}) {
        EXPECT_EQ(client().post(std::string("action=") + action, "{}").rfind("Status: 503 ", 0), 0U) << action;
    }
}

TEST_F(Service, ResetsTheOccupancy) {
    m_metrics.occupancyCount = 5;
    m_occupancy.init(5);
    m_statistics.add({entering()}, {m_config.cameraInfo, m_events, m_noFollowers, m_leaderMetrics});
    ASSERT_EQ(m_statistics.getDataMap()["Occupancy_Person"], "1");
    EXPECT_EQ(get("reset_occupancy"), plain("0"));
    EXPECT_EQ(m_statistics.getDataMap()["Occupancy_Person"], "0");
    EXPECT_EQ(m_metrics.occupancyCount, 0);
    EXPECT_EQ(m_occupancy.get_count(), 0);
    EXPECT_EQ(LogCapture::count("info: processGET: This camera occupancy reset."), 1);
}

TEST_F(Service, AnswersAResetOfTheTotalWithOneRawCharacter) {
    EXPECT_EQ(get("reset_total_occupancy"), plain(std::string(1, '\0')));
    EXPECT_EQ(m_totalResets, 1);
    EXPECT_EQ(LogCapture::count("info: processGET: Total occupancy reset."), 1);
}

TEST_F(Service, ServesTheReports) {
    m_config.b_Detection1Active = true;
    m_statistics.flushLocal("2024-01-01 00:01:00", "Cam");
    const std::string csv = m_statistics.getSummaryReportCSV();
    EXPECT_NE(csv.find("2024-01-01 00:01:00"), std::string::npos);
    EXPECT_EQ(get("get_occupancy_csv"), "Status: 200 OK\r\nContent-Type: text/csv\r\n\r\n" + csv);
    EXPECT_EQ(get("get_report_csv_str"), plain(csv));
    EXPECT_EQ(get("get_occupancy_html"),
              "Status: 200 OK\r\nContent-Type: text/html\r\n\r\n" + m_statistics.getSummaryReportHTML());
}

TEST_F(Service, HandsItsTalliesToALeaderOnce) {
    m_config = {};
    m_config.b_Detection1Active = m_config.b_DetectPersons = true;
    one_find standing = entering();
    standing.footing = footings::in_AOI1_briefly;
    m_statistics.add({standing}, {m_config.cameraInfo, m_events, m_noFollowers, m_leaderMetrics});
    EXPECT_EQ(get("follower_flush"), plain("1\n,,0,0,1\n0\n1\n,,0,1\n1\n,,0,0,1\n"));
    EXPECT_EQ(get("follower_flush"), plain("1\n,,0,0,0\n0\n1\n,,0,1\n1\n,,0,0,0\n")) << "but who is inside stays";
}

TEST_F(Service, ServesTheLog) {
    applicationLog().info("a \"quoted\" line");
    EXPECT_TRUE(get("get_logfile_as_serialized_text").ends_with("|ostrel_senvo|info|a \"quoted\" line\n"));
    EXPECT_TRUE(get("get_logfile_as_plain_text").ends_with(" ostrel_senvo info a \"quoted\" line\n"));
    const std::string csv = get("get_logfile_as_csv_text");
    EXPECT_TRUE(csv.ends_with(",ostrel_senvo,info,\"a \"quoted\" line\"\n"));
    EXPECT_EQ(csv.rfind("Status: 200 OK\r\nContent-Type: text/plain\r\n\r\n", 0), 0U);
    EXPECT_EQ(get("clear_logfile"), plain("Log file cleared."));
    EXPECT_EQ(get("get_logfile_as_plain_text"), plain(""));
}

TEST_F(Service, RaisesAlertsByHand) {
    for (const char* alert : {"breached", "area1", "area2", "area3", "occupancy"}) {
        EXPECT_EQ(get(std::string("manual_") + alert + "_alert_on"), "Status: 200 OK\r\n\r\n");
        EXPECT_EQ(get(std::string("manual_") + alert + "_alert_off"), "Status: 200 OK\r\n\r\n");
    }
    EXPECT_EQ(get("manual_area4_alert_on"), "Status: 200 OK\r\n\r\n");
    EXPECT_EQ(m_alerts,
              (Texts{"Ostrel Senvo Breached on", "Ostrel Senvo Breached off", "Ostrel Senvo Area 1 Alert on",
                     "Ostrel Senvo Area 1 Alert off", "Ostrel Senvo Area 2 Alert on", "Ostrel Senvo Area 2 Alert off",
                     "Ostrel Senvo Area 3 Alert on", "Ostrel Senvo Area 3 Alert off", "Ostrel Senvo Occupancy Alert on",
                     "Ostrel Senvo Occupancy Alert off"}));
}

TEST_F(Service, LogsRequestsWhenAskedTo) {
    get("get_status_code");
    EXPECT_EQ(LogCapture::countContaining("processGET: : "), 0);
    m_config.b_VerboseLog = true;
    get("get_status_code");
    EXPECT_EQ(LogCapture::count("info: processGET: : get_status_code"), 1);
}

TEST_F(Service, AnswersSeveralActionsOneBehindTheOther) {
    EXPECT_EQ(client().get("action=get_status_code&x=1&action=get_execution_time"), plain("200") + plain("37"));
    EXPECT_EQ(client().get("x=get_status_code&Action=get_status_code&action2=get_status_code"), "");
    EXPECT_EQ(client().get("action=get%5Fstatus%5fcode"), plain("200"));
    EXPECT_EQ(client().get("action"), "Status: 200 OK\r\n\r\n") << "an action without a value";
    std::string query = "a=1";
    for (int i = 0; i < 10000; ++i) {
        query += "&a=" + std::to_string(i);
    }
    EXPECT_EQ(client().get(query + "&action=get_status_code"), plain("200"));
}

TEST_F(Service, SaysWhenAnAddressOrAMethodIsNone) {
    const auto ask = [this](const std::string& method, const std::string& uri) {
        return client().request({{"REQUEST_METHOD", method}, {"REQUEST_URI", uri}}, "");
    };
    EXPECT_EQ(ask("GET", "/x?action=[get_status_code]"), "Failed to parse URI");
    EXPECT_EQ(ask("GET", "/x y?action=get_status_code"), "Failed to parse URI");
    EXPECT_EQ(ask("GET", "/x"), "Failed to parse query");
    EXPECT_EQ(ask("PUT", "/x?action=get_status_code"), "Only GET and POST supported. Method PUT not supported");
    EXPECT_EQ(ask("", "/x?action=get_status_code"), "Only GET and POST supported. Method  not supported");
    EXPECT_EQ(client().request({}, ""), "Failed to parse query");
    EXPECT_EQ(get("get_status_code"), plain("200"));
}

TEST_F(Service, TakesSettings) {
    std::string document = m_settings.get_parameters();
    document = "<root>" + document.substr(5, document.size() - 11) + "</root>";
    const std::string sensitivity = "<Sensitivity>0.000000<";
    document.replace(document.find(sensitivity), sensitivity.size(), "<Sensitivity>0.625000<");
    EXPECT_EQ(client().post("action=set_post_parameters", document), "Status: 200 OK\r\n\r\n");
    EXPECT_FLOAT_EQ(m_config.f_Sensitivity, 0.625F);
    EXPECT_EQ(client().post("action=set_post_parameters", "no tags"), "Status: 400 Bad Request\r\n\r\n");
    EXPECT_EQ(client().post("action=set_post_parameters", "<root><a>1</a></root>"), "") << "no number: no answer";
    EXPECT_EQ(LogCapture::count("error: processPOST: Exception from processPOST trying to set post parameters."), 1);
    m_config.i_MainLoopTime = 0;
    EXPECT_EQ(client().post("action=set_post_parameters", document), "") << "a period of 0 is an error as any other";
    EXPECT_EQ(client().post("action=other", "<root></root>"), "\r\n");
    EXPECT_EQ(get("get_status_code"), plain("200"));
}

TEST_F(Service, LogsForThePage) {
    const auto submit = [this](const std::string& severity, const std::string& entry) {
        return client().post(
            "action=post_submit_log",
            "<root><log_severity>" + severity + "</log_severity><log_entry>" + entry + "</log_entry></root>");
    };
    for (const char* severity : {"info", "warning", "error"}) {
        EXPECT_EQ(submit(severity, std::string("from the page: ") + severity), "Status: 200 OK\r\n\r\n");
        EXPECT_EQ(LogCapture::count(std::string(severity) + ": from the page: " + severity), 1);
    }
    EXPECT_EQ(submit("debug", "not kept"), "Status: 200 OK\r\n\r\n");
    EXPECT_EQ(LogCapture::countContaining("not kept"), 0);
    EXPECT_EQ(client().post("action=post_submit_log", "<>"), "Status: 400 Bad Request\r\n\r\n");
    EXPECT_EQ(LogCapture::count("error: add_post_submit_log: Failed to parse XML payload"), 1);
}

TEST_F(Service, LetsNobodyMakeUpLinesOfTheLog) {
    m_config.b_VerboseLog = true;
    get("x%0D%0A2024-01-01%2000:00:00%7Costrel_senvo%7Cerror%7Cmade%20up");
    client().post("action=post_submit_log",
                  "<root><log_severity>info</log_severity><log_entry>a\n2024-01-01 00:00:00|b|"
                  "error|made up</log_entry></root>");
    applicationLog().flush();
    const Texts lines = applicationLog().getLogLines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_TRUE(lines.end()[-2].ends_with("|info|processGET: : x  2024-01-01 00:00:00|ostrel_senvo|error|made up"));
    EXPECT_TRUE(lines.end()[-1].ends_with("|info|a 2024-01-01 00:00:00|b|error|made up"));
}

TEST_F(Service, ReadsABodyOfTheLengthThatItSays) {
    const std::string body = "<root><log_severity>info</log_severity><log_entry>0123456789";
    EXPECT_EQ(client().post("action=post_submit_log", body, std::to_string(body.size() - 5)), "Status: 200 OK\r\n\r\n");
    EXPECT_EQ(LogCapture::count("info: 01234"), 1);
    EXPECT_EQ(client().post("action=post_submit_log", body, std::to_string(body.size() + 2)), "Status: 200 OK\r\n\r\n");
    EXPECT_EQ(LogCapture::count("info: 0123456789\xFF\xFF"), 1) << "the end of the stream reads as -1";
    for (const char* length : {"-1", "", "x", "0", "2147483647", "99999999999999999999"}) {
        EXPECT_EQ(client().post("action=post_submit_log", body, length), "Status: 400 Bad Request\r\n\r\n") << length;
    }
    EXPECT_EQ(client().post("action=post_submit_log", std::string("<root>\0<log_severity>info</log_severity>", 40)),
              "Status: 200 OK\r\n\r\n");
}

TEST_F(Service, OutlivesAReportOverADamagedArchive) {
    const std::filesystem::path archive =
        m_log.folder() / "usr/local/packages/ostrel_senvo/localdata/CrowdCountTidy.csv";
    std::ofstream(archive) << "2024-01-01 00:01:00,Cam,0,0,many\n";
    EXPECT_EQ(get("get_occupancy_csv"), "");
    const Texts errors = LogCapture::ofLevel("error");
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0].rfind("processGET: Exception from get_occupancy_csv: ", 0), 0U) << errors[0];
    EXPECT_EQ(get("get_status_code"), plain("200"));
}

TEST_F(Service, OutlivesClientsThatGoAway) {
    client().abandon("");
    client().abandon(FastCgiClient::beginning());
    client().abandon(FastCgiClient::beginning().substr(0, 5));
    client().abandon(std::string(1000, '\xEE'));
    client().abandon(std::string(1000, '\0'));
    EXPECT_EQ(get("get_status_code"), plain("200"));
}

TEST_F(Service, OutlivesLengthsWhoseSumHasNoRoomIn32Bits) {
    // A name and a value of 2 GB each, as both lengths are written; together with two zeros they are 0 in 32 bits.
    const std::string most = "\xFF\xFF\xFF\xFF";
    for (const std::string& lengths : {most + most, most + std::string("\x80\0\0\1", 4), std::string("\1", 1) + most}) {
        client().abandon(FastCgiClient::beginning() +
                         FastCgiClient::variables(lengths + std::string(size_t{1} << 20U, 'x')));
        EXPECT_EQ(get("get_status_code"), plain("200"));
    }
}

TEST_F(Service, SaysWhenItsSocketFails) {
    for (int fd = 3; fd < 1024; ++fd) {
        sockaddr_storage name = {};
        socklen_t size = sizeof(name);
        int listening = 0;
        socklen_t flagSize = sizeof(listening);
        if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &flagSize) == 0 && listening != 0 &&
            getsockname(fd, reinterpret_cast<sockaddr*>(&name), &size) == 0 && name.ss_family == AF_UNIX) {
            shutdown(fd, SHUT_RDWR);
        }
    }
    m_thread.join();
    EXPECT_EQ(LogCapture::ofLevel("error"), Texts{"run: Failed to accept requests; none are answered from here on"});
    m_thread = std::thread([] {});
}

TEST_F(Service, AnswersManyClientsOneAfterTheOther) {
    std::vector<std::thread> clients;
    std::atomic<int> right = 0;
    constexpr int kClients = 8;
    constexpr int kRequests = 50;
    clients.reserve(kClients);
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back([&] {
            for (int request = 0; request < kRequests; ++request) {
                right += get("get_execution_time") == plain("37") ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : clients) {
        thread.join();
    }
    EXPECT_EQ(right, kClients * kRequests);
}

TEST_F(Service, LetsEverybodyConnect) {
    struct stat entry = {};
    ASSERT_EQ(stat(socketPath().c_str(), &entry), 0);
    EXPECT_TRUE(S_ISSOCK(entry.st_mode));
    EXPECT_EQ(entry.st_mode & 07777U, 0777U);
}

class ServiceStart : public WebFixture {
protected:
    FastCgiParts parts() {
        return {m_config,        m_settings, m_detector,      m_statistics, m_occupancy,      m_metrics,
                m_leaderMetrics, m_status,   m_executionTime, false,        [] { return 0; }, [](const char*, bool) {}};
    }
    std::filesystem::path html() const { return m_log.folder() / "usr/local/packages/ostrel_senvo/html"; }

    occupancy_controller m_occupancy;
    OccupancyManager m_statistics{m_config};
    std::atomic<int> m_executionTime = 0;
};

TEST_F(ServiceStart, FailsWithoutAFolderForTheSocket) {
    std::filesystem::remove_all(html());
    EXPECT_EQ(fastcgi_service(parts()).init(), 1);
    EXPECT_EQ(LogCapture::countContaining("error: init: cannot open a socket in " + html().string()), 1);
}

TEST_F(ServiceStart, TakesOverTheSocketOfAProcessBefore) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(fastcgi_service(parts()).init(), 0);
    }
    EXPECT_TRUE(std::filesystem::is_socket(html() / "ostrel_senvo_fcgi.socket"));
}

TEST_F(ServiceStart, TakesAFolderWhoseNameIsLongerThanASocketAddress) {
    const std::filesystem::path root = m_log.folder() / std::string(100, 'a') / "with:colons:9000";
    std::filesystem::create_directories(root / "usr/local/packages/ostrel_senvo/html");
    setenv("OSTREL_SENVO_ROOT", root.c_str(), 1);
    EXPECT_EQ(fastcgi_service(parts()).init(), 0);
    EXPECT_TRUE(std::filesystem::is_socket(root / "usr/local/packages/ostrel_senvo/html/ostrel_senvo_fcgi.socket"));
}

TEST_F(ServiceStart, EndsWhenItIsStoppedBeforeItRuns) {
    fastcgi_service service(parts());
    ASSERT_EQ(service.init(), 0);
    service.stop();
    EXPECT_EQ(service.run(), 0);
}

}  // namespace

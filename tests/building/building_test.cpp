#include <map>

#include "running_camera.h"
#include "web/parameter_io.h"

namespace {

using Tags = std::map<std::string, std::string>;

Tags tagsOf(const std::string& document) {
    return parameter_io::parseXMLData_no_dependency("<root>" + document + "</root>");
}

std::string bodyOf(const Tags& tags) {
    std::string body = "<root>";
    for (const auto& [tag, value] : tags) {
        body += "<" + tag + ">" + value + "</" + tag + ">";
    }
    return body + "</root>";
}

/** Detection area 1 over the whole picture, or none; every class; the first report after a minute is the only one. */
Tags settingsOf(const CameraAccess& camera, const std::string& name, bool watching) {
    Tags tags = tagsOf(camera.get("get_all_parameters"));
    const char* const kCorners[] = {"0", "0", "1", "0", "1", "1", "0", "1"};
    for (size_t i = 0; i < std::size(kCorners); ++i) {
        tags["Detection1_" + std::to_string(i)] = kCorners[i];
    }
    tags["DetectionControlPoints"] = "4";
    tags["Detection1_Active"] = watching ? "1" : "0";
    for (const char* area : {"Detection2", "Detection3", "Exclusion1", "Exclusion2", "Exclusion3"}) {
        tags[std::string(area) + "_Active"] = "0";
    }
    for (const char* kind : {"Persons", "Cars", "Bicycles", "Buses"}) {
        tags[std::string("Detect") + kind] = "1";
    }
    tags["CamName"] = name;
    tags["RepInt"] = "600";
    return tags;
}

bool upload(const CameraAccess& camera, const Tags& tags) {
    const HttpAnswer answer = camera.post("set_post_parameters", bodyOf(tags));
    return answer.status == 200 && answer.body.empty();
}

/** A leader and two followers on the drawn scene, asked over HTTP as people and programs do. */
class Building : public testing::Test {
protected:
    static Tags panelOf(const CameraAccess& leader) { return tagsOf(leader.get("get_data_panel_info")); }

    /** Whether a follower runs, whatever its alerts. */
    static bool answers(const CameraAccess& leader, int follower) {
        const std::string status = panelOf(leader)["StatusCam_" + std::to_string(follower)];
        return status == "Running" || status == "Slow" || status.find(" event active") != std::string::npos;
    }

    TestFolder m_folder;
    RunningCamera m_leader{m_folder.path() / "leader"};
    RunningCamera m_first{m_folder.path() / "first"};
    RunningCamera m_second{m_folder.path() / "second"};
};

void expectEveryGetAction(const CameraAccess& camera) {
    // The application names no type for these; the web server then says this one.
    static constexpr const char* kNone = "text/html";
    const struct {
        const char* action;
        const char* contentType;
        const char* body; /**< as a regular expression */
    } cases[] = {
        {"get_status_string", "text/plain", "[A-Z][a-z0-9A-Z ]+"},
        {"get_is_portrait", "text/plain", "0"},
        {"get_status_code", "text/plain", "[1-6][0-9]{2}"},
        {"get_execution_time", "text/plain", "[0-9]+"},
        {"get_all_parameters", "text/xml", "<app><MinNumber.*</CamName></app>"},
        {"get_total_crowd", "text/plain", "[0-9]+"},
        {"get_crowd_1", "text/plain", "[0-9]+"},
        {"get_crowd_2", "text/plain", "0"},
        {"get_crowd_3", "text/plain", "0"},
        {"get_occupancy_count", "text/plain", "[0-9]+"},
        {"get_passages", "text/plain", "[0-9]+(,[0-9]+){5}"},
        {"get_metrics", "text/plain; version=0.0.4; charset=utf-8",
         "# HELP senvo_build_info [^]*\nsenvo_occupancy [^]*"},
        {"get_follower_ages", "text/plain", "-?[0-9]+(,-?[0-9]+){9}"},
        {"get_about", "application/json",
         R"(\{"application":"ostrel_senvo","version":"[^"]+","time":"[^"]+Z","zone":"[^"]*","offset":-?\d+\})"},
        {"get_total_occupancy", "text/plain", "[0-9]+"},
        {"reset_occupancy", "text/plain", "0"},
        {"get_occupancy_csv", "text/csv", "Date[^]*"},
        {"get_report_csv_str", "text/plain", "Date[^]*"},
        {"get_data_panel_info", "text/xml", "<app><TotalOcc>.*</StatusCam_10></app>"},
        {"follower_flush", "text/plain", "([0-9,]+\n)+"},
        {"get_occupancy_html", "text/html", "<[^]*>\n?"},
        {"get_analysis_resolution", "text/plain", "1280x720"},
        {"get_logfile_as_serialized_text", "text/plain", "([^|\n]*\\|[^|\n]*\\|[^|\n]*\\|[^\n]*\n)+"},
        {"get_logfile_as_plain_text", "text/plain", "[^]*ostrel_senvo warning STARTING ostrel_senvo\n[^]*"},
        {"get_logfile_as_csv_text", "text/plain", "[^]*,ostrel_senvo,warning,\"STARTING ostrel_senvo\"\n[^]*"},
        {"clear_logfile", "text/plain", "Log file cleared\\."},
        {"manual_breached_alert_on", kNone, ""},
        {"manual_breached_alert_off", kNone, ""},
        {"manual_area1_alert_on", kNone, ""},
        {"manual_area1_alert_off", kNone, ""},
        {"manual_area2_alert_on", kNone, ""},
        {"manual_area2_alert_off", kNone, ""},
        {"manual_area3_alert_on", kNone, ""},
        {"manual_area3_alert_off", kNone, ""},
        {"manual_occupancy_alert_on", kNone, ""},
        {"manual_occupancy_alert_off", kNone, ""},
        {"no_such_action", kNone, ""},
    };
    for (const auto& [action, contentType, body] : cases) {
        const HttpAnswer answer = camera.ask(action);
        EXPECT_EQ(answer.status, 200) << action;
        EXPECT_EQ(answer.contentType, contentType) << action;
        EXPECT_TRUE(std::regex_match(answer.body, std::regex(body))) << action << ": " << answer.body.substr(0, 200);
    }
    const HttpAnswer total = camera.ask("reset_total_occupancy");
    EXPECT_EQ(total.status, 200);
    EXPECT_EQ(total.body, std::string(1, '\0'));
}

void expectEveryPostAction(const CameraAccess& camera) {
    const std::string entry = "<root><log_severity>warning</log_severity><log_entry>from the page</log_entry></root>";
    EXPECT_EQ(camera.post("post_submit_log", entry).status, 200);
    EXPECT_NE(camera.get("get_logfile_as_plain_text").find(" ostrel_senvo warning from the page\n"), std::string::npos);
    EXPECT_EQ(camera.post("post_submit_log", "nothing").status, 400);
    EXPECT_EQ(camera.post("set_post_parameters", "nothing").status, 400);
    EXPECT_EQ(camera.post("set_post_parameters", "<root><Sensitivity>x</Sensitivity></root>").status, 500);
    EXPECT_EQ(camera.post("no_such_action", "x").status, 200);
    EXPECT_EQ(camera.ask("get_status_code", {"-X", "DELETE"}).status, 500) << "its answer is no HTTP";
}

/** Whether the leader's totals are what it and its followers say; they change while they are asked. */
bool totalsAgree(const CameraAccess& leader, const std::vector<CameraAccess>& followers) {
    int crowd = std::stoi(tagsOf(leader.get("get_data_panel_info"))["AOICam_0"]);
    int occupancy = std::stoi(leader.get("get_occupancy_count"));
    for (const CameraAccess& follower : followers) {
        crowd += std::stoi(follower.get("get_total_crowd"));
        occupancy += std::stoi(follower.get("get_occupancy_count"));
    }
    return crowd == std::stoi(leader.get("get_total_crowd")) &&
           occupancy == std::stoi(leader.get("get_total_occupancy"));
}

TEST_F(Building, AddsItsCamerasUp) {
    const CameraAccess leader = m_leader.access();
    const CameraAccess first = m_first.access();
    const CameraAccess second = m_second.access();
    expectEveryGetAction(first);
    expectEveryPostAction(first);
    ASSERT_TRUE(upload(first, settingsOf(first, "Gate", true)));
    ASSERT_TRUE(upload(second, settingsOf(second, "Yard", true)));
    Tags tags = settingsOf(leader, "Hall", true);
    const RunningCamera* const followers[] = {&m_first, &m_second};
    for (size_t i = 0; i < std::size(followers); ++i) {
        const std::string follower = "FO" + std::to_string(i + 1) + "_";
        tags[follower + "Active"] = "1";
        tags[follower + "Name"] = i == 0 ? "Gate" : "Yard";
        tags[follower + "IP"] = followers[i]->address();
        tags[follower + "Login"] = "operator";
        tags[follower + "Pwd"] = followers[i]->password;
    }
    ASSERT_TRUE(upload(leader, tags));

    // Settings act: with an area over everything somebody is in it, without one nobody.
    EXPECT_TRUE(eventually([&] { return panelOf(first)["AOICam_0"] > "0"; }));
    ASSERT_TRUE(upload(first, settingsOf(first, "Gate", false)));
    EXPECT_TRUE(eventually([&] { return panelOf(first)["AOICam_0"] == "0"; }));
    EXPECT_EQ(panelOf(first)["ActiveCam_0"], "0");
    ASSERT_TRUE(upload(first, settingsOf(first, "Gate", true)));

    EXPECT_TRUE(eventually([&] { return answers(leader, 1); }));
    EXPECT_TRUE(eventually([&] { return std::stoi(leader.get("get_total_crowd")) > 0; }));
    EXPECT_TRUE(eventually([&] { return totalsAgree(leader, {first, second}); }));

    // The first period is over: all three stand under one date, once the last of the four archives is written.
    const auto hasAll = [](const std::string& report) {
        const std::vector<std::string> columns = {"AOI1_Person_Hall", "AOI1_Person_Gate", "AOI1_Person_Yard"};
        return std::all_of(columns.begin(), columns.end(),
                           [&](const std::string& column) { return report.find(column) != std::string::npos; });
    };
    std::string report;
    EXPECT_TRUE(eventually([&] { return hasAll(report = leader.get("get_report_csv_str")); })) << report;
    EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 2) << report;

    EXPECT_EQ(m_second.stop(), 0);
    EXPECT_TRUE(eventually([&] { return panelOf(leader)["StatusCam_2"] == "No connection error"; }));
    EXPECT_TRUE(eventually([&] { return panelOf(leader)["AOICam_2"] == "0"; })) << "it is no longer asked";
    EXPECT_TRUE(eventually([&] { return totalsAgree(leader, {first}); }));
    m_second.start(second.address().substr(second.address().find(':') + 1));
    EXPECT_TRUE(eventually([&] { return answers(leader, 2); }));
    EXPECT_TRUE(eventually([&] { return totalsAgree(leader, {first, second}); }));

    for (const CameraAccess* camera : {&leader, &first, &second}) {
        const std::string log = camera->get("get_logfile_as_plain_text");
        for (const RunningCamera* running : {&m_leader, &m_first, &m_second}) {
            EXPECT_EQ(log.find(running->password), std::string::npos);
        }
    }
    EXPECT_EQ(m_leader.stop(), 0);
    EXPECT_EQ(m_first.stop(), 0);
    EXPECT_EQ(m_second.stop(), 0);
    EXPECT_EQ(m_leader.errors(), "") << "nothing was started again";
}

}  // namespace

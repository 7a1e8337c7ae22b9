#include <array>

#include "camera_and_front.h"

namespace {

/** Who gets through the web server to the application. */
class Doors : public CameraAndFront {
protected:
    static std::string service(const std::string& query) { return url("/local/ostrel_senvo/webservices.cgi?" + query); }
    static int ask(const std::string& query, const std::vector<std::string>& headers,
                   std::vector<std::string> more = {}) {
        for (const std::string& header : headers) {
            more.insert(more.end(), {"-H", header});
        }
        return curl(service(query), loginAnd(more)).status;
    }
};

/** Headers by which a browser is known. */
const std::array<std::string, 5> kOfBrowsers = {"User-Agent: Mozilla/5.0 (X11; Linux x86_64)",
                                                "Sec-Fetch-Mode: navigate", "Sec-Fetch-Dest: image",
                                                "Sec-Fetch-Site: same-origin", "Sec-Fetch-User: ?1"};

TEST_F(Doors, LetBrowsersChangeThingsOnlyFromTheCamerasPage) {
    const std::string own = "http://" + s_camera->address();
    std::vector<std::string> signs(kOfBrowsers.begin(), kOfBrowsers.end());
    signs.push_back("Origin: " + own);
    signs.push_back("Referer: " + own + "/local/ostrel_senvo/index.html");
    for (const char* action : {"reset_occupancy", "reset_total_occupancy", "clear_logfile", "follower_flush",
                               "manual_breached_alert_on", "manual_breached_alert_off", "nobody_knows_this_one", ""}) {
        const std::string query = std::string("action=") + action;
        for (const std::string& sign : signs) {
            EXPECT_EQ(ask(query, {sign}), 403) << action << ", " << sign;
        }
        EXPECT_EQ(ask(query, {kOfBrowsers[0], "X-Senvo-Page: 0"}), 403) << action;
        EXPECT_EQ(ask(query, {kOfBrowsers[0], "X-Senvo-Page: 1"}), 200) << action;
        EXPECT_EQ(ask(query, {}), 200) << action << ", a program";
    }
    for (const char* action : {"set_post_parameters", "post_submit_log", "get_status_code"}) {
        const std::string query = std::string("action=") + action;
        EXPECT_EQ(ask(query, {kOfBrowsers[0]}, {"--data", "x"}), 403) << action;
        EXPECT_NE(ask(query, {kOfBrowsers[0], "X-Senvo-Page: 1"}, {"--data", "x"}), 403) << action;
        EXPECT_NE(ask(query, {}, {"--data", "x"}), 403) << action << ", a program";
    }
}

TEST_F(Doors, LetBrowsersReadWithoutTheHeader) {
    for (const char* action : {"get_status_code", "get_occupancy_csv", "get_occupancy_html", "get_all_parameters",
                               "get_logfile_as_plain_text", "get_logfile_as_csv_text"}) {
        EXPECT_EQ(ask(std::string("action=") + action, {kOfBrowsers[0], "Sec-Fetch-Site: same-origin"}), 200) << action;
    }
}

TEST_F(Doors, JudgeEveryActionAsTheApplicationReadsIt) {
    const struct {
        const char* label;
        std::string query;
        int status;
    } cases[] = {
        {"behind a harmless one", "action=get_status_code&action=reset_occupancy", 403},
        {"before a harmless one", "action=reset_occupancy&action=get_status_code", 403},
        {"the key encoded", "%61ction=reset_occupancy", 403},
        {"the value encoded", "action=reset%5foccupancy", 403},
        {"both, in capitals", "%61%63tion=%72eset%5Foccupancy", 403},
        {"a harmless one that goes on", "action=get_status_code%20", 403},
        {"another key", "Action=reset_occupancy&action=get_status_code", 200},
        {"a harmless one encoded", "action=get%5fstatus%5Fcode&x=1", 200},
        {"several harmless ones", "action=get_crowd_2&action=get_crowd_3", 200},
        {"behind empty pairs", "&&x&=&action=reset_occupancy", 403},
        {"a value with a sign of equality", "action=get_status_code=reset_occupancy", 403},
        {"a question mark within", "x=?action=get_status_code&action=reset_occupancy", 403},
    };
    for (const auto& [label, query, status] : cases) {
        EXPECT_EQ(ask(query, {kOfBrowsers[0]}), status) << label;
    }
}

TEST_F(Doors, RefuseWhatOtherPagesReferTo) {
    const std::string own = "http://" + s_camera->address();
    const struct {
        const char* label;
        std::string referer;
        int status;
    } cases[] = {{"another site", "http://evil.example/page", 403},
                 {"another port", "http://127.0.0.1:1/", 403},
                 {"another scheme", "https://" + s_camera->address() + "/", 403},
                 {"a name that begins like ours", own + ".evil.example/", 403},
                 {"ours as a login", own + "@evil.example/", 403},
                 {"the page", own + "/local/ostrel_senvo/index.html", 200},
                 {"its origin", own, 200}};
    for (const auto& [label, referer, status] : cases) {
        EXPECT_EQ(ask("action=get_status_code", {"Referer: " + referer}), status) << label;
        EXPECT_EQ(ask("action=reset_occupancy", {"Referer: " + referer, "X-Senvo-Page: 1"}), status) << label;
    }
    EXPECT_EQ(curl(url("/live/image.jpg"), loginAnd({"-H", "Referer: http://evil.example/"})).status, 403);
    EXPECT_EQ(curl(url("/"), loginAnd({"-H", "Referer: http://elsewhere.example/"})).status, 301)
        << "a link to the page";
}

}  // namespace

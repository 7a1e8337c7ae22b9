#include <algorithm>
#include <set>

#include "camera_and_front.h"
#include "this_build.h"

namespace {

constexpr const char* kPassword = "see but do not touch";

/** What those may do who have no more than a viewer's account. */
class Roles : public CameraAndFront {
protected:
    static void SetUpTestSuite() {
        CameraAndFront::SetUpTestSuite();
        EXPECT_EQ(setPassword({"--user", "vera", "--role", "viewer"}).status, 0);
        EXPECT_EQ(setPassword({"--user", "otto", "--role", "operator"}).status, 0);
    }
    static ProgramResult setPassword(std::vector<std::string> options, const std::string& password = kPassword) {
        const TestFolder folder;
        writeFile(folder.path() / "in", password + "\n");
        std::string words =
            "exec " + this_build::program("senvo-camera") + " password --state '" + s_camera->state().string() + "'";
        for (const std::string& option : options) {
            words += " '" + option + "'";
        }
        return runProgram({"/bin/sh", "-c", words + " <in"}, folder.path());
    }
    static HttpAnswer askAs(const std::string& user, const std::string& path, std::vector<std::string> more = {}) {
        more.insert(more.end(), {"--digest", "-u", user + ":" + kPassword});
        return curl(url(path), more);
    }
    static std::string service(const std::string& action) {
        return "/local/ostrel_senvo/webservices.cgi?action=" + action;
    }
    static void TearDownTestSuite() { CameraAndFront::TearDownTestSuite(); }
};

/** Every action that the application answers, by its source. */
std::set<std::string> actionsOfTheApplication() {
    const std::string source = readFile(this_build::checkout().string() + "/web/fastcgi_service.cpp");
    std::set<std::string> actions;
    const std::regex quoted("\"((get|reset|clear|manual|follower|set|post)_[a-z0-9_]+)\"");
    for (std::sregex_iterator found(source.begin(), source.end(), quoted); found != std::sregex_iterator(); ++found) {
        actions.insert((*found)[1]);
    }
    return actions;
}

const std::set<std::string> kForViewers = {
    "get_status_string",      "get_is_portrait",     "get_status_code",    "get_execution_time",
    "get_total_crowd",        "get_crowd_1",         "get_crowd_2",        "get_crowd_3",
    "get_occupancy_count",    "get_total_occupancy", "get_passages",       "get_follower_ages",
    "get_occupancy_csv",      "get_report_csv_str",  "get_occupancy_html", "get_data_panel_info",
    "get_analysis_resolution"};

TEST_F(Roles, AreKeptActionByAction) {
    const std::set<std::string> actions = actionsOfTheApplication();
    ASSERT_GT(actions.size(), kForViewers.size() + 10);
    for (const std::string& action : kForViewers) {
        EXPECT_TRUE(actions.contains(action)) << action << " is there";
    }
    for (const std::string& action : actions) {
        EXPECT_EQ(askAs("vera", service(action)).status, kForViewers.contains(action) ? 200 : 403) << action;
        EXPECT_EQ(askAs("vera", service(action), {"--data", "x"}).status, 403) << action << ", posted";
        EXPECT_EQ(askAs("otto", service(action)).status, 200) << action;
    }
    for (const char* query : {"nobody_knows_this_one", "", "get_status_code&action=reset_occupancy",
                              "get_status_code&%61ction=clear%5flogfile", "get_crowd_2&action="}) {
        EXPECT_EQ(askAs("vera", service(query)).status, 403) << query;
    }
    EXPECT_EQ(askAs("vera", "/local/ostrel_senvo/webservices.cgi").status, 403) << "no action";
    EXPECT_EQ(askAs("vera", service("get_crowd_2&action=get_crowd_3")).status, 200);
    EXPECT_EQ(askAs("vera", service("get_counts")).status, 200);
    EXPECT_EQ(askAs("vera", service("get_ledger")).status, 200);
    EXPECT_EQ(askAs("vera", "/local/ostrel_senvo/index.html").status, 200);
    EXPECT_EQ(askAs("vera", "/live/image.jpg").status, 200);
}

TEST_F(Roles, AreToldToThePage) {
    const auto roleOf = [](const char* user) {
        return askAs(user, service("get_status_code"))
            .headers.find(std::string("X-Senvo-Role: ") + (std::string(user) == "vera" ? "viewer" : "operator"));
    };
    EXPECT_NE(roleOf("vera"), std::string::npos);
    EXPECT_NE(roleOf("otto"), std::string::npos);
    EXPECT_EQ(curl(url("/")).headers.find("X-Senvo-Role"), std::string::npos) << "to nobody else";
}

TEST_F(Roles, AreThoseOfTheUserWhoseLoginItIs) {
    const std::string other = "Authorization: Digest username=\"otto\", username=\"vera\", realm=\"Ostrel Senvo\"";
    for (const char* header : {"Authorization: Digest username=\"vera\\\", username=\\\"otto\"",
                               "Authorization: Digest realm=\"username=otto\", username=\"vera\""}) {
        EXPECT_NE(curl(url(service("reset_occupancy")), {"-H", header}).status, 200) << header;
    }
    EXPECT_NE(curl(url(service("reset_occupancy")), {"-H", other}).status, 200);
}

TEST_F(Roles, AndPasswordsAreSetOnlyAsTheyShould) {
    const struct {
        const char* label;
        std::vector<std::string> options;
        std::string password;
        const char* said;
    } cases[] = {
        {"a short password", {}, "123456789", "expected a password of 10 characters or more"},
        {"letters count, not bytes", {}, "äöüäöüäöü", "got one of 9 characters"},
        {"a new user without a role", {"--user", "nina"}, kPassword, "expected a role"},
        {"an unknown role", {"--user", "nina", "--role", "king"}, kPassword, "--role"},
        {"a name with a colon", {"--user", "a:b", "--role", "viewer"}, kPassword, "expected a user's name"},
        {"no name", {"--user", "", "--role", "viewer"}, kPassword, "expected a user's name"},
        {"the operator as a viewer", {"--role", "viewer"}, kPassword, "expected the role operator"},
    };
    for (const auto& [label, options, password, said] : cases) {
        const ProgramResult result = setPassword(options, password);
        EXPECT_EQ(result.status, 2) << label;
        EXPECT_NE(result.err.find(said), std::string::npos) << label << ": " << result.err;
    }
    EXPECT_EQ(curl(url("/"), login()).status, 301) << "the operator's password stays";
    EXPECT_EQ(setPassword({"--user", "nina", "--role", "operator"}).status, 0);
    EXPECT_EQ(askAs("nina", service("get_all_parameters")).status, 200);
    EXPECT_EQ(setPassword({"--user", "nina", "--role", "viewer"}).status, 0);
    EXPECT_EQ(askAs("nina", service("get_all_parameters")).status, 403) << "from now on";
    EXPECT_EQ(setPassword({"--user", "nina"}).status, 0);
    EXPECT_EQ(askAs("nina", service("get_all_parameters")).status, 403) << "a role stays";
}

/** Many logins at once; how each was answered. */
std::multiset<int> answersToMany(const std::string& url, int count) {
    const TestFolder folder;
    std::string words;
    for (int i = 0; i < count; ++i) {
        words +=
            "curl -s -o /dev/null -w '%{http_code} ' --noproxy '*' --interface 127.0.0.9 --max-time 60 -H "
            "'Authorization: Digest username=\"operator\", realm=\"Ostrel Senvo\", nonce=\"x\", uri=\"/\", "
            "response=\"0\"' '" +
            url + "' >" + std::to_string(i) + " & ";
    }
    runProgram({"/bin/sh", "-c", words + "wait"}, folder.path());
    std::multiset<int> answers;
    for (int i = 0; i < count; ++i) {
        const std::string text = readFile(folder.path() / std::to_string(i));
        answers.insert(text.empty() ? 0 : std::stoi(text));
    }
    return answers;
}

TEST_F(Roles, FailedLoginsOfAnAddressAreSlowed) {
    for (int i = 0; i < 3; ++i) {
        answersToMany(url("/"), 10);  // the first may all be tried before the first has failed
    }
    const auto start = std::chrono::steady_clock::now();
    const std::multiset<int> answers = answersToMany(url("/"), 60);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
    EXPECT_LE(answers.size() - answers.count(429), static_cast<size_t>(seconds.count()) + 2) << "one a second";
    EXPECT_GT(answers.count(429), 0U);
    EXPECT_EQ(curl(url("/"), login()).status, 301) << "another address";
    EXPECT_EQ(curl(url("/"), {"--interface", "127.0.0.9"}).status, 401) << "a first challenge is no failure";
}

}  // namespace

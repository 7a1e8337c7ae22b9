#include <algorithm>
#include <set>

#include "camera_and_front.h"
#include "digest.h"
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
    const std::string folder = this_build::checkout().string() + "/web/";
    const std::string source = readFile(folder + "fastcgi_service.cpp") + readFile(folder + "ledger_actions.cpp");
    std::set<std::string> actions;
    const std::regex named(
        "action == \"([a-z0-9_]+)\"|\"((get|reset|clear|manual|follower|set|post|use)_[a-z0-9_]+)\"");
    for (std::sregex_iterator found(source.begin(), source.end(), named); found != std::sregex_iterator(); ++found) {
        actions.insert((*found)[1].matched ? (*found)[1] : (*found)[2]);
    }
    return actions;
}

const std::set<std::string> kForViewers = {"get_status_string",
                                           "get_is_portrait",
                                           "get_status_code",
                                           "get_execution_time",
                                           "get_total_crowd",
                                           "get_crowd_1",
                                           "get_crowd_2",
                                           "get_crowd_3",
                                           "get_occupancy_count",
                                           "get_total_occupancy",
                                           "get_passages",
                                           "get_follower_ages",
                                           "get_about",
                                           "get_metrics",
                                           "get_occupancy_csv",
                                           "get_report_csv_str",
                                           "get_occupancy_html",
                                           "get_data_panel_info",
                                           "get_analysis_resolution",
                                           "get_counts",
                                           "get_ledger",
                                           "occupancy_before",
                                           "stays",
                                           "heat",
                                           "why",
                                           "ledger_answer"};

TEST_F(Roles, AreKeptActionByAction) {
    const std::set<std::string> actions = actionsOfTheApplication();
    ASSERT_GT(actions.size(), kForViewers.size() + 10);
    for (const std::string& action : kForViewers) {
        EXPECT_TRUE(actions.contains(action)) << action << " is there";
    }
    for (const std::string& action : actions) {
        // Some want more than their name: what counts is that the application has been asked.
        const int viewers = askAs("vera", service(action)).status;
        EXPECT_EQ(viewers == 403, !kForViewers.contains(action)) << action << ": " << viewers;
        EXPECT_EQ(askAs("vera", service(action), {"--data", "x"}).status, 403) << action << ", posted";
        const int operators = askAs("otto", service(action)).status;
        EXPECT_TRUE(operators == 200 || operators == 202 || operators == 400) << action << ": " << operators;
    }
    for (const char* query : {"nobody_knows_this_one", "", "get_status_code&action=reset_occupancy",
                              "get_status_code&%61ction=clear%5flogfile", "get_crowd_2&action="}) {
        EXPECT_EQ(askAs("vera", service(query)).status, 403) << query;
    }
    EXPECT_EQ(askAs("vera", "/local/ostrel_senvo/webservices.cgi").status, 403) << "no action";
    EXPECT_EQ(askAs("vera", service("get_crowd_2&action=get_crowd_3")).status, 200);
    EXPECT_EQ(askAs("vera", "/local/ostrel_senvo/index.html").status, 200);
    EXPECT_EQ(askAs("vera", "/live/image.jpg").status, 200);
    for (const char* path : {"/live/image.jpg", "/local/ostrel_senvo/index.html", "/"}) {
        EXPECT_EQ(askAs("vera", path, {"--data", "x"}).status, 403) << path << ", posted";
    }
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

/** What is answered to a login that is wrong, from an address of its own, since failures slow it. */
TEST_F(Roles, AreToldToNobodyWhoHasNotLoggedIn) {
    int address = 20;
    for (const char* action : {"get_status_code", "get_all_parameters", "reset_occupancy", "nobody_knows_this_one"}) {
        for (const char* user : {"operator", "otto", "vera", "nobody"}) {
            const std::string uri = service(action);
            const std::string login = std::string("Digest username=\"") + user + "\", " +
                                      digestOf(nonceOf(s_camera->address()), user, "a guess, and one more", "GET", uri);
            const HttpAnswer answer = curl(
                url(uri), {"--interface", "127.0.0." + std::to_string(address++), "-H", "Authorization: " + login});
            EXPECT_EQ(answer.status, 401) << user << ", " << action;
        }
    }
    EXPECT_EQ(askAs("vera", service("reset_occupancy")).status, 403) << "to herself";
}

/** What a login of vera's is answered when it is right, but says more than one name. */
TEST_F(Roles, AreThoseOfTheUserWhoseLoginItIs) {
    const auto statusOf = [](const std::string& action, const std::string& before, const std::string& behind) {
        const std::string uri = service(action);
        const std::string login =
            before + digestOf(nonceOf(s_camera->address()), "vera", kPassword, "GET", uri) + behind;
        return curl(url(uri), {"-H", "Authorization: " + login}).status;
    };
    const struct {
        const char* label;
        const char* before;
        const char* behind;
        int seeing; /**< the answer to what viewers may ask for; 0: that is no matter */
    } cases[] = {
        {"her name alone", "Digest username=\"vera\", ", "", 200},
        {"a small d", "digest username=\"vera\", ", "", 200},
        {"another name before", "Digest username=\"otto\", username=\"vera\", ", "", 0},
        {"another name behind", "Digest username=\"vera\", ", ", username=\"otto\"", 0},
        {"another name in a value", "Digest opaque=\"username=\\\"otto\\\"\", username=\"vera\", ", "", 0},
        {"another name in another way", "Digest username=\"vera\", ", ", username*=UTF-8''otto", 0},
        {"another name in capitals", "Digest USERNAME=\"otto\", username=\"vera\", ", "", 0},
    };
    for (const auto& [label, before, behind, seeing] : cases) {
        EXPECT_NE(statusOf("reset_occupancy", before, behind), 200) << label;
        EXPECT_TRUE(seeing == 0 || statusOf("get_status_code", before, behind) == seeing) << label;
    }
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

/** Many of the same login at once, from an address of their own; how each was answered. */
std::multiset<int> answersToMany(const std::string& url, int count, const std::string& address,
                                 const std::string& login) {
    const TestFolder folder;
    std::string words;
    for (int i = 0; i < count; ++i) {
        words += "curl -s -o /dev/null -w '%{http_code} ' --noproxy '*' --interface " + address +
                 " --max-time 60 -H 'Authorization: " + login + "' '" + url + "' >" + std::to_string(i) + " & ";
    }
    runProgram({"/bin/sh", "-c", words + "wait"}, folder.path());
    std::multiset<int> answers;
    for (int i = 0; i < count; ++i) {
        const std::string text = readFile(folder.path() / std::to_string(i));
        answers.insert(text.empty() ? 0 : std::stoi(text));
    }
    return answers;
}

/** Whether wrong logins of an address are answered no more than once a second. */
void expectSlowed(const std::string& url, const std::string& address, const std::string& login) {
    for (int i = 0; i < 3; ++i) {
        answersToMany(url, 10, address, login);  // the first may all be tried before the first has failed
    }
    const auto start = std::chrono::steady_clock::now();
    const std::multiset<int> answers = answersToMany(url, 60, address, login);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
    EXPECT_LE(answers.size() - answers.count(429), static_cast<size_t>(seconds.count()) + 2) << "one a second";
    EXPECT_GT(answers.count(429), 0U);
}

TEST_F(Roles, FailedLoginsOfAnAddressAreSlowed) {
    expectSlowed(url("/"), "127.0.0.9",
                 "Digest username=\"operator\", realm=\"Ostrel Senvo\", nonce=\"x\", uri=\"/\", response=\"0\"");
    EXPECT_EQ(curl(url("/"), login()).status, 301) << "another address";
    EXPECT_EQ(curl(url("/"), {"--interface", "127.0.0.9"}).status, 401) << "a first challenge is no failure";
}

/** Whoever has a login that is right must not be able to guess another's beside it. */
TEST_F(Roles, FailedLoginsAreSlowedThoughAnotherOneIsRight) {
    const struct {
        const char* address;
        const char* method; /**< as the login names it */
        const char* cnonce; /**< what stands before the server's number */
    } cases[] = {{"127.0.0.10", "digest", ""}, {"127.0.0.11", "digest", "cnonce=\"c\", "}};
    for (const auto& [address, method, cnonce] : cases) {
        const std::string nonce = nonceOf(s_camera->address());
        const auto loginOf = [&, method = method, cnonce = cnonce](const std::string& user,
                                                                   const std::string& password) {
            return std::string(method) + " " + cnonce + "username=\"" + user + "\", " +
                   digestOf(nonce, user, password, "GET", "/");
        };
        const HttpAnswer right =
            curl(url("/"), {"--interface", address, "-H", "Authorization: " + loginOf("vera", kPassword)});
        EXPECT_EQ(right.status, 301) << address;
        expectSlowed(url("/"), address, loginOf("operator", "a guess, and one more"));
    }
}

}  // namespace

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>

#include "base/unique_fd.h"
#include "kept_lines.h"
#include "scripted_process.h"

/* The ledger of a process that is asked, and killed. */

namespace {

/** A process that goes on and can be asked. */
class LedgerOfAskedProcess : public testing::Test {
protected:
    void start(const char* keepSeconds = nullptr) {
        if (keepSeconds != nullptr) {
            setenv("OSTREL_SENVO_KEEP_OCCUPANCY", keepSeconds, 1);
        }
        m_child.emplace(m_process.start());
        unsetenv("OSTREL_SENVO_KEEP_OCCUPANCY");
        while (m_process.answer("occupancy_before").rfind("Status: 200 ", 0) != 0) {
            ASSERT_EQ(m_child->wait(1), -1) << "ended by itself: " << readFile(m_process.folder() / "err");
        }
    }
    void TearDown() override {
        kill();
        EXPECT_EQ(faultsOf(linesIn(m_process.folder() / kLedger)), "");
    }
    void kill() {
        ::kill(m_child->pid(), SIGKILL);
        m_child->wait(-1);
    }
    void post(const std::string& query, const std::string& body, const char* status) const {
        const std::string answer = m_process.service().post(query, body);
        EXPECT_EQ(answer.substr(0, answer.find("\r\n")), std::string("Status: ") + status) << query;
    }
    std::string bodyOf(const std::string& action) const {
        const std::string answer = m_process.answer(action);
        const size_t head = answer.find("\r\n\r\n");
        return head == std::string::npos ? "" : answer.substr(head + 4);
    }
    nlohmann::json before() const { return nlohmann::json::parse(bodyOf("occupancy_before")); }
    std::vector<nlohmann::json> linesOf(const std::string& kind) const {
        std::vector<nlohmann::json> lines = linesIn(m_process.folder() / kLedger);
        std::erase_if(lines, [&](const nlohmann::json& line) { return line["kind"] != kind; });
        return lines;
    }
    /** Waits for the cycle in which something posted is done. */
    nlohmann::json waitFor(const std::string& kind, size_t number) const {
        while (linesOf(kind).size() < number) {
            std::this_thread::yield();
        }
        return linesOf(kind)[number - 1];
    }

    ScriptedProcess m_process;
    std::optional<Child> m_child;
};

TEST_F(LedgerOfAskedProcess, CorrectsTheOccupancyAndTellsOfItAfterAKill) {
    start();
    EXPECT_EQ(before()["ended"], "none");
    EXPECT_TRUE(before()["occupancy"].is_null());
    post("action=correct_occupancy&to=16&remark=counted%20by%20hand", "", "200 OK");
    const nlohmann::json corrected = waitFor("corrected", 1);
    EXPECT_EQ(corrected["to"], 16);
    EXPECT_EQ(corrected["remark"], "counted by hand");
    for (const char* const wrong : {"", "&to=", "&to=-1", "&to=1000001", "&to=2147483648", "&to=1x"}) {
        post(std::string("action=correct_occupancy") + wrong, "", "400 Bad Request");
    }
    EXPECT_TRUE(m_process.service()
                    .post("action=correct_occupancy&to=-1", "")
                    .ends_with("\r\n\r\nexpected to from 0 to 1000000, got \"-1\"\n"));
    const int64_t occupancy = std::stoll(bodyOf("get_occupancy_count"));
    EXPECT_GE(occupancy, 16) << "somebody may have come in since";
    kill();
    start();
    EXPECT_EQ(before()["ended"], "killed");
    EXPECT_GE(before()["occupancy"], 16);
    EXPECT_GE(before()["gap"], 0);
    EXPECT_EQ(linesOf("start").back()["occupancy"], 0) << "it begins with nobody";
}

TEST_F(LedgerOfAskedProcess, BeginsAnewWhereItsFilesAreRemoved) {
    start();
    const nlohmann::json before = linesOf("start").front();
    std::filesystem::remove_all(m_process.folder() / kLedger);
    const auto log = [this] { return readFile(m_process.folder() / "localdata/SenvoLog.txt"); };
    while (log().find("a new ledger begins") == std::string::npos) {
        bodyOf("get_ledger");  // has the newest lines synced, where there are any
    }
    post("action=correct_occupancy&to=7", "", "200 OK");
    EXPECT_NE(waitFor("corrected", 1)["epoch"], before["epoch"]);
    EXPECT_EQ(linesOf("start").size(), 0U) << "no run begins";
}

TEST_F(LedgerOfAskedProcess, HasItsEndWhileAClientHangs) {
    std::string log;
    // A process may end before it has looked at the client at all.
    for (size_t ends = 1; log.find("a request is still being served") == std::string::npos; ++ends) {
        ASSERT_LE(ends, 20U) << log;
        start();
        const UniqueFd hanging(m_process.service().stay(FastCgiClient::beginning()));
        ::kill(m_child->pid(), SIGTERM);
        EXPECT_EQ(m_child->wait(-1), 0);
        EXPECT_EQ(linesOf("stop").size(), ends);
        log = readFile(m_process.folder() / "localdata/SenvoLog.txt");
    }
    start();
    EXPECT_EQ(before()["ended"], "stopped in order");
}

TEST_F(LedgerOfAskedProcess, GoesOnWithTheOccupancyWhenToldTo) {
    start();
    post("action=correct_occupancy&to=1000", "", "200 OK");
    waitFor("corrected", 1);
    kill();
    start("3600");
    EXPECT_GE(linesOf("start").back()["occupancy"], 1000);
    EXPECT_GE(std::stoll(bodyOf("get_occupancy_count")), 1000);
}

TEST_F(LedgerOfAskedProcess, NamesWhichSettingsWereChanged) {
    start();
    const int64_t atFirst = linesOf("start").back()["settings"];
    std::string document = bodyOf("get_all_parameters");
    const auto upload = [&](const std::string& from, const std::string& to) {
        const size_t at = document.find(from);
        ASSERT_NE(at, std::string::npos) << document;
        document.replace(at, from.size(), to);
        const size_t begin = document.find('>') + 1;
        post("action=set_post_parameters", "<root>" + document.substr(begin, document.rfind("</") - begin) + "</root>",
             "200 OK");
    };
    // What the first upload changes beside: the store of the test began without values.
    upload("<VerboseLog>0", "<VerboseLog>1");
    const nlohmann::json first = waitFor("settings", 1);
    upload("<VerboseLog>1", "<VerboseLog>0");
    const nlohmann::json second = waitFor("settings", 2);
    EXPECT_EQ(second["changed"], (std::vector<std::string>{"VerboseLog"}));
    EXPECT_NE(second["settings"], first["settings"]);
    upload("<VerboseLog>0", "<VerboseLog>1");
    EXPECT_EQ(waitFor("settings", 3)["settings"], first["settings"]) << "the same again";
    EXPECT_NE(first["settings"], atFirst);
}

TEST_F(LedgerOfAskedProcess, TellsOfAlertsAndResets) {
    start();
    bodyOf("manual_area3_alert_on");
    // The analysis raises others meanwhile.
    const auto isRaisedByHand = [&] {
        const std::vector<nlohmann::json> alerts = linesOf("alert");
        return std::any_of(alerts.begin(), alerts.end(), [](const nlohmann::json& alert) {
            return alert["by_hand"] == true && alert["active"] == true;
        });
    };
    while (!isRaisedByHand()) {
        ASSERT_EQ(m_child->wait(1), -1) << "ended by itself: " << readFile(m_process.folder() / "err");
    }
    m_process.service().request(
        {{"REQUEST_METHOD", "POST"},
         {"REQUEST_URI", "/webservices.cgi?action=correct_occupancy&to=1000&remark=a%20bus%20came"},
         {"CONTENT_LENGTH", "0"},
         {"REMOTE_USER", "bob"}},
        "");
    const nlohmann::json corrected = waitFor("corrected", 1);
    EXPECT_EQ(corrected["user"], "bob") << corrected;
    EXPECT_EQ(corrected["remark"], "a bus came") << corrected;
    EXPECT_LT(corrected["from"], 900) << corrected;
    EXPECT_EQ(corrected["to"], 1000) << corrected;
    int resets = 0;
    for (const char* const action : {"reset_occupancy", "reset_total_occupancy"}) {
        m_process.service().request(
            {{"REQUEST_METHOD", "GET"},
             {"REQUEST_URI", "/webservices.cgi?action=" + std::string(action) + "&remark=all%20went%20home"},
             {"REMOTE_USER", "ann"}},
            "");
        const nlohmann::json byWeb = waitFor("reset", static_cast<size_t>(++resets));
        EXPECT_EQ(byWeb["by"], "web") << byWeb;
        EXPECT_EQ(byWeb["user"], "ann") << byWeb;
        EXPECT_EQ(byWeb["remark"], "all went home") << byWeb;
        EXPECT_GE(byWeb["from"], resets == 1 ? 900 : 0) << "somebody may have left since";
        EXPECT_EQ(byWeb["to"], 0) << byWeb;
    }
    bodyOf("reset_occupancy");
    EXPECT_EQ(waitFor("reset", 3)["remark"], "");
}

TEST_F(LedgerOfAskedProcess, CountsAgainTellsWhyAndKeepsACountByHand) {
    start();
    const auto answerOf = [&](const std::string& answer) {
        std::string head = answer.substr(0, answer.find("\r\n"));
        nlohmann::json body = nlohmann::json::parse(answer.substr(answer.find("\r\n\r\n") + 4));
        while (head == "Status: 202 Accepted") {
            const std::string later = m_process.answer("ledger_answer&job=" + body["job"].dump());
            head = later.substr(0, later.find("\r\n"));
            body = nlohmann::json::parse(later.substr(later.find("\r\n\r\n") + 4));
        }
        EXPECT_EQ(head, "Status: 200 OK");
        return body;
    };
    const nlohmann::json reasons = answerOf(m_process.answer("why"));
    EXPECT_TRUE(reasons["crossings"].is_array()) << reasons;
    EXPECT_TRUE(answerOf(m_process.answer("heat"))["cells"].is_array());
    const nlohmann::json recounted =
        answerOf(m_process.service().post("action=recount", R"({"entrance1":[[0,0],[0.5,0],[0.5,1],[0,1]]})"));
    EXPECT_TRUE(recounted["counts"].is_array()) << recounted;
    post("action=recount", "no settings", "400 Bad Request");
    const std::string begin = "2026-11-22T09:00:00.000Z";
    const std::string end = "2026-11-22T09:01:00.000Z";
    post("action=hand_count", R"({"begin":")" + begin + R"(","end":")" + end + R"(","taps":[]})", "200 OK");
    EXPECT_EQ(waitFor("hand_count", 1)["begin"], begin);
    post("action=hand_count", R"({"begin":")" + end + R"(","end":")" + begin + R"(","taps":[]})", "400 Bad Request");
    EXPECT_EQ(linesOf("hand_count").size(), 1U);
}

/** The answers to the actions of one request. */
std::vector<std::string> answersIn(const std::string& answer) {
    std::vector<std::string> answers;
    const std::string begin = "Status: ";
    for (size_t at = answer.find(begin); at != std::string::npos;) {
        const size_t next = answer.find(begin, at + 1);
        answers.push_back(answer.substr(at, next == std::string::npos ? next : next - at));
        at = next;
    }
    return answers;
}

TEST_F(LedgerOfAskedProcess, AnswersSeveralQuestionsInTurnFromTheKeysOfTheirRequest) {
    start();
    const std::vector<std::string> answers = answersIn(m_process.service().get(
        "kinds=start%2Cstop&limit=1&newest=1&action=get_ledger&action=why&entrance=9&action=get_counts&step=fortnight&"
        "action=occupancy_before&action=get_status_code&limit=7"));
    ASSERT_EQ(answers.size(), 5U);
    const std::string ledger = answers[0];
    EXPECT_EQ(ledger.rfind("Status: 200 OK\r\nX-Ledger-Next: ", 0), 0U) << ledger;
    const std::vector<nlohmann::json> lines = ::linesOf(ledger.substr(ledger.find("\r\n\r\n") + 4));
    ASSERT_EQ(lines.size(), 1U) << "of two limits the first";
    EXPECT_EQ(lines[0]["kind"], "start");
    EXPECT_EQ(answers[1],
              "Status: 400 Bad Request\r\nContent-Type: text/plain\r\n\r\n"
              "expected entrance from 0 to 3, got \"9\"\n");
    EXPECT_EQ(answers[2],
              "Status: 400 Bad Request\r\nContent-Type: text/plain\r\n\r\n"
              "expected a step of quarter, hour, day, week, month or year, got \"fortnight\"\n");
    EXPECT_EQ(answers[3].rfind("Status: 200 OK\r\nContent-Type: application/json\r\n\r\n{\"ended\":\"none\"", 0), 0U);
    EXPECT_EQ(answers[4].rfind("Status: 200 OK\r\nContent-Type: text/plain\r\n\r\n", 0), 0U);
    const std::vector<std::string> posted = answersIn(
        m_process.service().post("to=5&action=hand_count&action=correct_occupancy&remark=two%20at%20once",
                                 R"({"begin":"2026-11-22T09:00:00.000Z","end":"2026-11-22T09:01:00.000Z","taps":[]})"));
    ASSERT_EQ(posted.size(), 2U);
    EXPECT_EQ(posted[0].rfind("Status: 200 OK\r\n", 0), 0U);
    EXPECT_EQ(posted[1].rfind("Status: 200 OK\r\n", 0), 0U);
    EXPECT_EQ(waitFor("hand_count", 1)["taps"], nlohmann::json::array());
    EXPECT_EQ(waitFor("corrected", 1)["remark"], "two at once");
}

}  // namespace

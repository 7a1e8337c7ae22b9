#include "ledger_keeping.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <sstream>
#include <thread>

#include "counts.h"
#include "ledger_schema.h"
#include "log_capture.h"
#include "recount.h"
#include "running_application.h"
#include "scripted_process.h"
#include "slow_build.h"
#include "test_clock.h"
#include "unique_fd.h"

/* The ledger of a running application, and of one that was killed. */

namespace {

std::vector<nlohmann::json> linesOf(const std::string& text) {
    std::vector<nlohmann::json> lines;
    std::istringstream all(text);
    for (std::string line; std::getline(all, line);) {
        lines.push_back(ledger::parseLine(line));
    }
    return lines;
}

/** All lines in a folder, in the order of its files. */
std::vector<nlohmann::json> linesIn(const std::filesystem::path& folder) {
    std::string text;
    for (const std::string& name : ledger::openFolder(folder.string())->list()) {
        text += ledger::fileOf(name) ? readFile(folder / name) : "";
    }
    return linesOf(text);
}

std::vector<std::string> kindsOf(const std::vector<nlohmann::json>& lines) {
    std::vector<std::string> kinds;
    for (const nlohmann::json& line : lines) {
        kinds.push_back(line["kind"]);
    }
    return kinds;
}

/** What the schema has against these lines. */
std::string faultsOf(const std::vector<nlohmann::json>& lines) {
    std::string text;
    for (const nlohmann::json& line : lines) {
        text += line.dump() + "\n";
    }
    return schemaFaults(text);
}

constexpr const char* kLedger = "usr/local/packages/ostrel_senvo/localdata/ledger";

TEST(LedgerOfAProcess, TellsOfItsStartItsEndAndWhatItSaw) {
    const ScriptedProcess process;
    for (const char* const before : {"none", "stopped in order"}) {
        Child child(process.start("50"));
        ASSERT_EQ(child.wait(-1), 0) << readFile(process.folder() / "err");
        const std::vector<nlohmann::json> lines = linesIn(process.folder() / kLedger);
        const std::vector<std::string> kinds = kindsOf(lines);
        const int runs = std::string(before) == "none" ? 1 : 2;
        for (const char* const kind : {"start", "object", "stop"}) {
            EXPECT_EQ(std::count(kinds.begin(), kinds.end(), kind), runs) << kind;
        }
        EXPECT_GE(std::count(kinds.begin(), kinds.end(), "watched"), runs) << "more where a minute ends meanwhile";
        const auto start = std::find(kinds.rbegin(), kinds.rend(), "start");
        EXPECT_EQ(lines[static_cast<size_t>(kinds.rend() - start - 1)]["last_run"], before);
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i]["seq"], i + 1);
        }
        EXPECT_EQ(faultsOf(lines), "");
    }
}

TEST(LedgerOfAProcess, HasNoGapAfterKills) {
    const ScriptedProcess process;
    constexpr int kKills = 10;
    std::mt19937 random(1);
    for (int kill = 0; kill < kKills; ++kill) {
        Child child(process.start());
        // Whenever the next few lines are there.
        const size_t enough = linesIn(process.folder() / kLedger).size() + 1 + random() % 2;
        while (linesIn(process.folder() / kLedger).size() < enough) {
            ASSERT_EQ(child.wait(1), -1) << "ended by itself: " << readFile(process.folder() / "err");
        }
        ::kill(child.pid(), SIGKILL);
        child.wait(-1);
    }
    const std::vector<nlohmann::json> lines = linesIn(process.folder() / kLedger);
    std::vector<std::string> ends;
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i]["seq"], i + 1);
        EXPECT_EQ(lines[i]["epoch"], lines[0]["epoch"]);
        if (lines[i]["kind"] == "start") {
            ends.push_back(lines[i]["last_run"]);
        }
    }
    ASSERT_EQ(ends.size(), static_cast<size_t>(kKills));
    EXPECT_EQ(ends[0], "none");
    EXPECT_EQ(std::count(ends.begin(), ends.end(), "killed"), kKills - 1);
}

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

/** The application with its ledger, in this process. */
class LedgerOfAnApplication : public RunningApplication {
protected:
    LedgerOfAnApplication() { scripted::parameters()["ThisDeviceCameraName"] = "Front door"; }

    void begin() {
        start();
        m_application.init_ledger();
    }
    void tick(int64_t millis) {
        m_clock.advanceMillis(millis);
        EXPECT_TRUE(m_application.thread_function());
    }
    /** The lines of a kind, without heads. */
    std::vector<nlohmann::json> linesOf(const std::string& kind) const {
        std::vector<nlohmann::json> lines = linesIn(m_log.folder() / kLedger);
        EXPECT_EQ(faultsOf(lines), "");
        std::erase_if(lines, [&](const nlohmann::json& line) { return line["kind"] != kind; });
        for (nlohmann::json& line : lines) {
            for (const char* const member : {"seq", "epoch", "t", "kind"}) {
                line.erase(member);
            }
        }
        return lines;
    }
    /** Has the picture's right half as entrance 1. */
    static void guardTheRightHalf() {
        const std::map<std::string, std::string> corners = {{"0x", "32"}, {"1x", "64"}, {"2x", "64"},      {"2y", "36"},
                                                            {"3x", "32"}, {"3y", "36"}, {"Active", "true"}};
        for (const auto& [name, value] : corners) {
            scripted::parameters()["Occupancy1" + name] = value;
        }
        scripted::parameters()["EntrancesControlPoints"] = "4";
    }
    /** From now on somebody walks, from a place in the picture's width on, so far in each of 15 cycles. */
    static void walk(float from, float pace) {
        scripted::onJob([from, pace, step = 0](const std::vector<uint8_t>&) mutable {
            const float x = from + pace * static_cast<float>(step++);
            const scripted::Candidate walker = {
                .classId = 0, .score = 0.9F, .ymin = 0.2F, .xmin = x, .ymax = 0.6F, .xmax = x + 0.15F};
            return step < 15 ? std::vector<scripted::Candidate>{walker} : std::vector<scripted::Candidate>();
        });
    }
    static std::vector<nlohmann::json> reset(const char* by, int from) {
        const nlohmann::json line = {{"by", by}, {"user", ""}, {"from", from}, {"to", 0}, {"remark", ""}};
        return std::vector<nlohmann::json>(1, line);
    }

    TimeZone m_zone{"CET-1"};
};

TEST_F(LedgerOfAnApplication, TellsOfAResetBySchedule) {
    scripted::parameters()["OccupancyAutoResetActive"] = "true";
    scripted::parameters()["OccupancyAutoResetTime"] = "23:15";
    begin();  // at 23:13:20
    m_application.occupancy().init(9);
    tick(99'000);
    EXPECT_EQ(linesOf("reset"), std::vector<nlohmann::json>());
    tick(31'000);
    EXPECT_EQ(linesOf("reset"), reset("schedule", 9));
    EXPECT_EQ(m_application.occupancy().get_count(), 0);
}

TEST_F(LedgerOfAnApplication, TellsOfAResetByAlert) {
    scripted::parameters()["ResetByOccupanyCount"] = "true";
    scripted::parameters()["MinOccupantsForTrigger"] = "0";
    begin();
    m_application.occupancy().init(9);
    for (int cycle = 0; cycle < 3; ++cycle) {
        tick(1'000);
        EXPECT_EQ(linesOf("reset"), reset("alert", 9)) << "in cycle " << cycle;
    }
    m_application.occupancy().init(4);
    tick(1'000);
    EXPECT_EQ(linesOf("reset").size(), 2U);
    EXPECT_EQ(linesOf("reset").back(), reset("alert", 4)[0]);
}

TEST_F(LedgerOfAnApplication, TellsOfAResetByAlertThatClearedTalliesWhileNobodyWasInside) {
    scripted::parameters()["ResetByOccupanyCount"] = "true";
    scripted::parameters()["MinOccupantsForTrigger"] = "0";
    guardTheRightHalf();
    begin();
    tick(1'000);
    EXPECT_EQ(linesOf("reset"), reset("alert", 0)) << "with the alert's begin, which stays";
    // Whoever goes out of an empty building is a tally, which the next cycle clears.
    walk(0.75F, -0.05F);
    for (int cycle = 0; cycle < 20; ++cycle) {
        tick(1'000);
    }
    EXPECT_EQ(linesOf("crossing").size(), 1U);
    const std::vector<nlohmann::json> resets = linesOf("reset");
    ASSERT_EQ(resets.size(), 2U);
    EXPECT_EQ(resets[1], reset("alert", 0)[0]);
    std::vector<std::string> kinds = kindsOf(linesIn(m_log.folder() / kLedger));
    std::erase_if(kinds, [](const std::string& kind) { return kind != "crossing" && kind != "reset"; });
    EXPECT_EQ(kinds, (std::vector<std::string>{"reset", "crossing", "reset"}));
}

TEST_F(LedgerOfAnApplication, TellsOfItsPeriods) {
    guardTheRightHalf();
    begin();
    // Somebody walks in; then the camera stalls for half of the minute.
    walk(0.1F, 0.05F);
    for (int cycle = 0; cycle < 30; ++cycle) {
        tick(1'000);
    }
    tick(30'000);
    const std::vector<nlohmann::json> periods = linesOf("period");
    ASSERT_EQ(periods.size(), 1U);
    nlohmann::json period = periods[0];
    EXPECT_EQ(period["tallies"]["Entrance1_Entrances_Person"], 1) << period;
    EXPECT_EQ(period["tallies"]["Entrance1_Exits_Person"], 0) << period;
    period.erase("tallies");
    // The first cycle is a second behind the start.
    const nlohmann::json expected = {{"begin", "2023-11-14T22:13:20.000Z"},
                                     {"end", "2023-11-14T22:14:20.000Z"},
                                     {"offset", 3600},
                                     {"archived", "2023-11-14 23:14:20"},
                                     {"camera", "Front door"},
                                     {"coverage", 29.0 / 60}};
    EXPECT_EQ(period, expected);
    for (int cycle = 0; cycle < 15 * 60; ++cycle) {
        tick(1'000);
    }
    const nlohmann::json next = linesOf("period").back();
    EXPECT_EQ(next["begin"], "2023-11-14T22:14:20.000Z");
    EXPECT_EQ(next["end"], "2023-11-14T22:29:20.000Z");
    EXPECT_EQ(next["coverage"], 1.0);
    EXPECT_EQ(next["tallies"]["Entrance1_Entrances_Person"], 0);
}

/** A keeping of the test's own. */
class LedgerKeepingTest : public testing::Test {
protected:
    LedgerSettings settings(int32_t syncSeconds = 3'600) const {
        return {(m_log.folder() / "ledger").string(), int64_t{1} << 20, syncSeconds};
    }
    static int nowhere(t_one_locator) { return 0; }

    LogCapture m_log;
};

/** The lines from a number on that a power cut would leave. */
std::string safeLines(LedgerKeeping& keeping, int64_t fromSeq) {
    keeping.makeSafe();
    return keeping.book().lines(fromSeq, keeping.book().safeSeq(), 10'000);
}

TEST_F(LedgerKeepingTest, HandsOutOnlyWhatAPowerCutWouldLeave) {
    LedgerKeeping keeping(settings(), "1", 0, nowhere);
    keeping.write("reset", {{"by", "web"}});
    const std::vector<nlohmann::json> lines = linesOf(safeLines(keeping, 1));
    EXPECT_LE(lines.size(), 3U);
    EXPECT_GE(keeping.book().safeSeq(), static_cast<int64_t>(lines.size()));
}

TEST_F(LedgerKeepingTest, AnswersWhileItIsWrittenAndKept) {
    LedgerKeeping keeping(settings(1), "1", 0, nowhere);
    std::atomic<bool> isWriting = true;
    std::thread writer([&] {
        for (int i = 0; i < 2'000; ++i) {
            keeping.write("crossing", {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}});
        }
        isWriting = false;
    });
    int64_t next = 1;
    while (isWriting || next <= keeping.book().end().seq) {
        for (const nlohmann::json& line : linesOf(safeLines(keeping, next))) {
            EXPECT_EQ(line["seq"], next);
            ++next;
        }
        keeping.index().update(10'000);
        EXPECT_TRUE(keeping.index().quarters(0, 1).empty());
    }
    writer.join();
    EXPECT_EQ(next, 2'003) << "the start and its clock first";
}

/** Somebody on the way from left to right, over a threshold at 200; 16 cycles long. */
one_find walkerIn(int cycle) {
    constexpr int kCycles = 16;
    one_find walker;
    walker.id = cycle / kCycles;
    walker.detect.ClassId = 0;
    walker.locator = {110 + 12 * (cycle % kCycles), 100};
    walker.entrance = walker.locator.first > 200 ? entrances::in_entrance1 : entrances::not_in_entrance;
    walker.entranceAct = cycle % kCycles == kCycles / 2 ? static_cast<entranceActivity>(0) : entranceActivity::unknown;
    return walker;
}

TEST_F(LedgerKeepingTest, TellsAWayByTheClockThatItsCrossingWasToldBy) {
    TestClock clock;
    const int64_t begin = int64_t{clock.now()} * 1000;
    {
        LedgerKeeping keeping(settings(), "1", 0, [](t_one_locator at) { return at.first > 200 ? 1 : 0; });
        // Somebody sets the clock behind the crossing, while they walk on.
        for (int cycle = 0; cycle < 16; ++cycle) {
            clock.advanceMillis(100);
            if (cycle == 12) {
                clock.set(clock.now() + 3'600);
            }
            keeping.add({walkerIn(cycle)}, {640, 360}, 0, false);
        }
    }
    ConfigParams areas;
    areas.i_EntrancesControlPoints = 4;
    areas.i_Occupancy1 = {200, 0, 640, 0, 640, 360, 200, 360};
    areas.b_Occupancy1Active = areas.b_DetectPersons = true;
    const std::unique_ptr<ledger::Disk> disk = ledger::openFolder(settings().folder);
    const auto counted = [&](int64_t from) {
        const inquiry::Span span = {from, from + 60'000};
        const inquiry::Recounted again = inquiry::recountOf(
            inquiry::chunksOf(*disk, inquiry::readToRecount(span)), [&](ledger::PictureSize) { return areas; }, span);
        EXPECT_EQ(again.counts, again.recorded);
        return again.recorded.size();
    };
    EXPECT_EQ(counted(begin), 1U);
    EXPECT_EQ(counted(begin + 3'600'000), 0U);
}

TEST_F(LedgerKeepingTest, AnswersQuestionsAndCountsAgainWhileItIsWritten) {
    constexpr int kWalkers = kSlow ? 100 : 300;
    TestClock clock;
    LedgerKeeping keeping(settings(1), "1", 0, [](t_one_locator at) { return at.first > 200 ? 1 : 0; });
    ConfigParams areas;
    areas.i_EntrancesControlPoints = 4;
    areas.i_Occupancy1 = {200, 0, 640, 0, 640, 360, 200, 360};
    areas.b_Occupancy1Active = areas.b_DetectPersons = true;
    const inquiry::SettingsFor settingsFor = [&](ledger::PictureSize) { return areas; };
    std::atomic<bool> isWriting = true;
    // The analysis, which writes; beside it the ledger's own thread syncs and indexes.
    std::thread analysis([&] {
        for (int cycle = 0; cycle < 16 * kWalkers; ++cycle) {
            clock.advanceMillis(100);
            keeping.add({walkerIn(cycle)}, {640, 360}, 0, false);
        }
        isWriting = false;
    });
    // A long answer, which has a thread of its own.
    std::thread recount([&] {
        int64_t before = 0;
        do {
            const inquiry::Recounted again = inquiry::recountOf(inquiry::chunksOf(keeping.book(), {}), settingsFor, {});
            const int64_t recorded = again.recorded.empty() ? 0 : again.recorded.begin()->second;
            const int64_t counted = again.counts.empty() ? 0 : again.counts.begin()->second;
            // Whoever is on the way has no path yet.
            EXPECT_LE(std::abs(recorded - counted), 1);
            EXPECT_GE(recorded, before) << "of lines that were there before";
            before = recorded;
        } while (isWriting);
    });
    // Requests.
    int64_t next = 1;
    int64_t crossings = 0;
    const auto askAll = [&] {
        for (const nlohmann::json& line : linesOf(safeLines(keeping, next))) {
            EXPECT_EQ(line["seq"], next);
            ++next;
        }
        keeping.index().update(1 << 20);
        int64_t counted = 0;
        const int64_t now = int64_t{clock.now()} * 1000;
        for (const ledger::CountsRow& row :
             ledger::countsOf(keeping.index(), {now - 86'400'000, now + 900'000, ledger::Step::Hour, {}, ""})) {
            for (const auto& [key, count] : row.counts) {
                counted += count;
            }
        }
        EXPECT_GE(counted, crossings);
        crossings = counted;
    };
    while (isWriting) {
        askAll();
    }
    analysis.join();
    recount.join();
    while (next <= keeping.book().end().seq) {
        askAll();
    }
    EXPECT_EQ(crossings, kWalkers);
}

TEST_F(LedgerKeepingTest, AnswersWhileItsOldestLinesGo) {
    constexpr int kWalkers = 100;
    TestClock clock;
    LedgerSettings small = settings(1);
    small.mostBytes = 16'000;  // their crossings alone take more
    LedgerKeeping keeping(small, "1", 0, [](t_one_locator at) { return at.first > 200 ? 1 : 0; });
    std::atomic<bool> isWriting = true;
    std::thread analysis([&] {
        for (int cycle = 0; cycle < 16 * kWalkers; ++cycle) {
            clock.advanceMillis(100);
            keeping.add({walkerIn(cycle)}, {640, 360}, 0, false);
        }
        isWriting = false;
    });
    std::thread recount([&] {
        do {
            const inquiry::Recounted again = inquiry::recountOf(inquiry::chunksOf(keeping.book(), {}),
                                                                [](ledger::PictureSize) { return ConfigParams(); }, {});
            EXPECT_TRUE(again.counts.empty()) << "without an area";
        } while (isWriting);
    });
    int64_t last = 0;
    while (isWriting || last < keeping.book().end().seq || keeping.book().files().front().firstSeq == 1) {
        for (const nlohmann::json& line : linesOf(safeLines(keeping, last + 1))) {
            EXPECT_GT(line["seq"], last);
            last = line["seq"];
        }
        keeping.index().update(1 << 20);
        for (const auto& [number, quarter] : keeping.index().quarters(0, std::numeric_limits<int64_t>::max())) {
            for (const auto& [key, count] : quarter.crossings) {
                EXPECT_LE(count, kWalkers);
            }
        }
    }
    analysis.join();
    recount.join();
}

/** A machine whose clock was lost with its power: it learns the time from others. */
class LedgerAfterAPowerCut : public LedgerKeepingTest {
protected:
    static constexpr int64_t kNoon = 1'800'000'000'000;

    ledger::ClockSources sources(const char* boot) {
        ledger::ClockSources sources;
        sources.boot = boot;
        sources.monoMillis = [this] { return m_mono; };
        sources.wallMicros = [this] { return (m_zero + m_mono) * 1000; };
        sources.isSynchronised = [this] { return m_isSynchronised; };
        return sources;
    }
    std::unique_ptr<LedgerKeeping> start(const char* boot, int32_t keepSeconds) {
        LedgerSettings kept = settings();
        kept.keepOccupancySeconds = keepSeconds;
        return std::make_unique<LedgerKeeping>(kept, "1", 0, nowhere, sources(boot));
    }
    /** A run that ends at noon with 16 inside, and another one `gapSeconds` later, which knows no time. */
    std::unique_ptr<LedgerKeeping> startLater(int64_t gapSeconds) {
        m_zero = kNoon - 5'000'000;
        m_mono = 5'000'000;
        m_isSynchronised = true;
        auto before = start("first", 0);
        before->add({}, {640, 360}, 16, false);
        before.reset();
        m_mono = 20'000;
        m_noon = kNoon + 1000 * gapSeconds - m_mono;  // what the machine's start was in truth
        m_zero = 0;
        m_isSynchronised = false;
        return start("second", 600);
    }
    /** From now on the time is known. */
    void synchronise() {
        m_zero = m_noon;
        m_isSynchronised = true;
    }

    int64_t m_mono = 0;
    int64_t m_zero = 0;
    int64_t m_noon = 0;
    bool m_isSynchronised = true;
};

TEST_F(LedgerAfterAPowerCut, GoesOnWithTheOccupancyOnceTheClockTellsHowLongAgoThatWas) {
    struct Case {
        int64_t gapSeconds;
        int32_t expected;
        const char* setBy;
    };
    for (const auto& [gapSeconds, expected, setBy] :
         {Case{599, 16, ""}, Case{600, 0, ""}, Case{-1, 0, ""}, Case{120, 0, "reset"}, Case{120, 0, "corrected"}}) {
        SCOPED_TRACE(std::to_string(gapSeconds) + setBy);
        std::filesystem::remove_all(settings().folder);
        const std::unique_ptr<LedgerKeeping> keeping = startLater(gapSeconds);
        EXPECT_EQ(keeping->firstOccupancy(), 0);
        EXPECT_EQ(keeping->lastRun().gapMillis, std::nullopt);
        EXPECT_EQ(keeping->add({}, {640, 360}, 2, false), 0) << "it does not know yet";
        if (*setBy != '\0') {
            keeping->write(setBy, {{"to", 3}});
        }
        m_mono += 90'000;
        synchronise();
        EXPECT_EQ(keeping->add({}, {640, 360}, 2, false), expected);
        EXPECT_EQ(keeping->lastRun().gapMillis, 1000 * gapSeconds) << "until the start, not until it was known";
        EXPECT_EQ(keeping->add({}, {640, 360}, 2, false), 0) << "once";
    }
}

TEST_F(LedgerAfterAPowerCut, BelievesNoClockThatNobodySet) {
    const std::unique_ptr<LedgerKeeping> keeping = startLater(120);
    m_zero = m_noon;      // as it was saved when the power went
    m_mono += 3'600'000;  // after ten minutes without word of synchronisation it is taken as it is
    EXPECT_EQ(keeping->add({}, {640, 360}, 2, false), 0);
    EXPECT_EQ(linesIn(settings().folder).back()["synchronised"], false);
    EXPECT_EQ(keeping->lastRun().gapMillis, std::nullopt);
}

TEST_F(LedgerAfterAPowerCut, LearnsTheTimeAlsoWhileTheModelFails) {
    const std::unique_ptr<LedgerKeeping> keeping = startLater(120);
    synchronise();
    keeping->addFailure();
    EXPECT_EQ(keeping->lastRun().gapMillis, 120'000);
    EXPECT_EQ(linesIn(settings().folder).back()["kind"], "clock");
    EXPECT_EQ(keeping->add({}, {640, 360}, 2, false), 16);
}

TEST_F(LedgerKeepingTest, TellsAtItsEndWhatSomebodySetSinceTheLastCycle) {
    const auto occupancyAfter = [&](const char* kind) {
        std::filesystem::remove_all(settings().folder);
        {
            LedgerKeeping keeping(settings(), "1", 0, nowhere);
            keeping.add({}, {640, 360}, 7, false);
            keeping.write(kind, {{"to", 5}});
        }
        return linesIn(settings().folder).back()["occupancy"];
    };
    EXPECT_EQ(occupancyAfter("corrected"), 5);
    EXPECT_EQ(occupancyAfter("reset"), 5);
    EXPECT_EQ(occupancyAfter("settings"), 7);
}

TEST_F(LedgerKeepingTest, LogsARefusedLineOnceAMinute) {
    TestClock clock;
    // A file stands where the folder should be.
    writeFile(m_log.folder() / "ledger", "");
    LedgerKeeping keeping(settings(), "1", 0, nowhere);
    keeping.write("reset", {});
    keeping.write("reset", {});
    const auto logged = [&] {
        return LogCapture::count("error: LedgerKeeping: cannot write to " + (m_log.folder() / "ledger").string() +
                                 ": Not a directory; 0 lines are lost so far");
    };
    EXPECT_EQ(logged(), 1);
    clock.advance(60);
    keeping.write("reset", {});
    EXPECT_EQ(logged(), 2);
}

TEST_F(LedgerKeepingTest, TakesItsSizeFromTheEnvironment) {
    setenv("OSTREL_SENVO_LEDGER_MIB", "2048", 1);
    setenv("OSTREL_SENVO_LEDGER_SYNC", "soon", 1);
    const LedgerSettings settings = LedgerSettings::fromEnvironment();
    unsetenv("OSTREL_SENVO_LEDGER_MIB");
    unsetenv("OSTREL_SENVO_LEDGER_SYNC");
    EXPECT_EQ(settings.mostBytes, int64_t{2048} << 20);
    EXPECT_EQ(settings.syncSeconds, 300);
    EXPECT_EQ(
        LogCapture::count("error: fromEnvironment: expected OSTREL_SENVO_LEDGER_SYNC from 1 to 3600, got \"soon\""), 1);
}

}  // namespace

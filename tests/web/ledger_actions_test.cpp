#include "web/ledger_actions.h"

#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "canned_server.h"
#include "ledger_access.h"
#include "ledger_schema.h"

/* What else is asked of a ledger, and what is refused. */

namespace {

TEST(LedgerActions, SayWhatIsWrongWithAQuestion) {
    Access access;
    const struct {
        const char* action;
        QueryPairs query;
        const char* refusal;
    } cases[] = {
        {"get_ledger", {{"since", "17"}}, "expected since=EPOCH:SEQ, got \"17\""},
        {"get_ledger", {{"limit", "0"}}, "expected limit from 1 to 100000, got \"0\""},
        {"get_ledger", {{"limit", "-1"}}, "expected limit from 1 to 100000, got \"-1\""},
        {"get_ledger", {{"limit", "ten"}}, "expected limit from 1 to 100000, got \"ten\""},
        {"get_ledger", {{"since", "e1:-1"}}, "expected the number in since from 0 to 9223372036854775806, got \"-1\""},
        {"get_ledger", {{"newest", "2"}}, "expected newest from 0 to 1, got \"2\""},
        {"get_ledger",
         {{"kinds", "crossing,crosing"}},
         "expected kinds, joined by commas, of alert, clock, corrected, crossing, cut, hand_count, object, period, "
         "reset, settings, start, stop, watched, got \"crosing\""},
        {"get_ledger",
         {{"from", "2026-11-23"}, {"to", "2026-11-22"}},
         "expected to behind from, got 2026-11-23T00:00:00.000Z and 2026-11-22T00:00:00.000Z"},
        {"get_ledger", {{"zone", "Moon"}}, "expected a time zone such as Europe/Berlin, got \"Moon\""},
        {"stays", {{"zone", "Moon"}}, "expected a time zone such as Europe/Berlin, got \"Moon\""},
        {"why", {{"zone", "Moon"}}, "expected a time zone such as Europe/Berlin, got \"Moon\""},
        {"heat",
         {{"to", "2026-02-30"}},
         "expected a time such as 2026-11-22 or 2026-11-22T07:00:00Z, got \"2026-02-30\""},
        {"why", {{"entrance", "-1"}}, "expected entrance from 0 to 3, got \"-1\""},
        {"get_counts",
         {{"from", "2026-11-23"}, {"to", "2026-11-22"}, {"zone", "UTC"}},
         "expected to behind from, got 2026-11-23T00:00:00.000Z and 2026-11-22T00:00:00.000Z"},
        {"get_counts", {{"step", "0"}}, "expected a step of quarter, hour, day, week, month or year, got \"0\""},
        {"get_counts",
         {{"by", "entrance,door"}},
         "expected by=entrance, direction or class, joined by commas, got \"door\""},
        {"ledger_answer", {{"job", "0"}}, "expected job from 1 to 9223372036854775807, got \"0\""},
        {"recount", {}, "expected a POST of recount, got a GET"},
        {"hand_count", {}, "expected a POST of hand_count, got a GET"},
        {"ledger_answer", {}, "expected job from 1 to 9223372036854775807, got \"\""},
        {"get_ledger", {{"from", "noon"}}, "expected a time such as 2026-11-22 or 2026-11-22T07:00:00Z, got \"noon\""},
        {"get_counts",
         {{"step", "fortnight"}},
         "expected a step of quarter, hour, day, week, month or year, got \"fortnight\""},
        {"get_counts", {{"zone", "Moon"}}, "expected a time zone such as Europe/Berlin, got \"Moon\""},
    };
    for (const auto& [action, query, refusal] : cases) {
        try {
            answerFromLedger(access, {action, query});
            ADD_FAILURE() << action << " took what should be refused with " << refusal;
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), refusal);
        }
    }
    EXPECT_FALSE(answerFromLedger(access, {"get_status_code", {}}));
}

/** Somebody who comes in through entrance 1, at x 100, and stays in area 1 for a second. */
void comeIn(Access& access, const std::string& minute, int object) {
    const std::string begin = minute + ":00.000Z";
    access.add(minute + ":00.200Z", "crossing",
               {{"entrance", 1},
                {"direction", "in"},
                {"class", "Person"},
                {"object", object},
                {"before", {120, 50}},
                {"after", {80, 50}},
                {"size", {640, 360}}});
    access.add(minute + ":03.000Z", "object",
               {{"object", object},
                {"class", "Person"},
                {"first", begin},
                {"last", minute + ":01.200Z"},
                {"part", 1},
                {"ended", true},
                {"size", {640, 360}},
                {"begin", begin},
                {"path", {{0, 140, 50}, {100, 120, 50}, {200, 80, 50}, {1200, 20, 50, 9}}},
                {"areas", {{{"area", 1}, {"enter", minute + ":00.200Z"}, {"leave", minute + ":01.200Z"}}}}});
}

constexpr const char* kSettings =
    R"({"entrance1":[[0,0],[0.15625,0],[0.15625,1],[0,1]],"detection1":[[0,0],[0.15625,0],[0.15625,1],[0,1]]})";

LedgerQuestion aboutTheDay(const char* action, const std::string& body = "") {
    return {action, {{"from", "2026-11-22"}, {"to", "2026-11-23"}, {"zone", "UTC"}}, body};
}

TEST(AskedLedger, CountsAgainWithOtherSettings) {
    Access access;
    comeIn(access, "2026-11-21T09:00", 1);
    comeIn(access, "2026-11-22T09:00", 2);
    comeIn(access, "2026-11-22T10:00", 3);
    const LedgerAnswer same = ask(access, aboutTheDay("recount", kSettings), true);
    EXPECT_STREQ(same.contentType, "application/json");
    EXPECT_EQ(same.body,
              R"({"from":"2026-11-22T00:00:00.000Z","to":"2026-11-23T00:00:00.000Z",)"
              R"("counts":[{"entrance":1,"direction":"in","class":"Person","count":2}],)"
              R"("recorded":[{"entrance":1,"direction":"in","class":"Person","count":2}],)"
              R"("objects":2,"without_path":0,"in_view":0,)"
              R"("stays":[{"area":1,"class":"Person","visits":2,"average":1.0,"median":1.0,"longest":1.0}]})");
    // Nobody came as far as this line.
    const nlohmann::json farther = nlohmann::json::parse(
        ask(access, aboutTheDay("recount", R"({"entrance2":[[0,0],[0.01,0],[0.01,1],[0,1]]})"), true).body);
    EXPECT_EQ(farther["counts"], nlohmann::json::array());
    EXPECT_EQ(farther["recorded"][0]["count"], 2);
}

TEST(AskedLedger, TellsStaysHeatAndWhy) {
    Access access;
    comeIn(access, "2026-11-22T09:00", 1);
    EXPECT_EQ(
        nlohmann::json::parse(ask(access, aboutTheDay("stays")).body)["stays"],
        nlohmann::json::parse(R"([{"area":1,"class":"Person","visits":1,"average":1.0,"median":1.0,"longest":1.0}])"));
    const nlohmann::json heat = nlohmann::json::parse(ask(access, aboutTheDay("heat")).body);
    EXPECT_EQ(heat["columns"], 32);
    EXPECT_EQ(heat["rows"], 18);
    EXPECT_EQ(heat["cells"][0]["hour"], 9);
    LedgerQuestion why = aboutTheDay("why");
    why.query.emplace_back("entrance", "1");
    why.picture = {320, 180};
    why.settings.i_EntrancesControlPoints = 4;
    why.settings.i_Occupancy1 = {0, 0, 50, 0, 50, 180, 0, 180};
    why.settings.b_Occupancy1Active = true;
    const nlohmann::json reasons = nlohmann::json::parse(ask(access, why).body);
    ASSERT_EQ(reasons["crossings"].size(), 1U);
    EXPECT_EQ(reasons["crossings"][0]["rule"], "was outside every entrance, then in entrance 1: in");
}

TEST(AskedLedger, SaysWhatItCannotRead) {
    Access access;
    comeIn(access, "2026-11-21T23:58", 1);
    comeIn(access, "2026-11-22T09:00", 2);
    access.makeSafe();
    const std::string name = "000000000003-2026-11-22.ndjson";
    const std::string aside = "000000000009-2026-11-22.ndjson.unreadable";
    access.put(aside);
    access.put("000000000009-2026-11-24.ndjson.unreadable");
    access.spoil(name);
    for (const char* const action : {"get_counts", "stays", "heat", "why", "recount"}) {
        const bool isPost = action == std::string("recount");
        const nlohmann::json answer =
            nlohmann::json::parse(ask(access, aboutTheDay(action, isPost ? kSettings : ""), isPost).body);
        EXPECT_EQ(answer.value("unreadable", nlohmann::json()), nlohmann::json({name, aside})) << action;
    }
}

TEST(AskedLedger, RefusesToReadForMinutes) {
    Access access;
    for (int64_t seq = 1; seq <= 256; ++seq) {
        access.put(ledger::fileName(seq, "2026-11-20", false), "", uintmax_t{1} << 20U);
    }
    access.put("000000001000-2026-11-22.ndjson",
               ledger::lineText({1000, "e1", {*ledger::utcOf("2026-11-22T08:00:00.000Z"), "", 0}, "start"}, ""));
    access.reopen();
    for (const char* const action : {"stays", "heat", "why", "recount"}) {
        const bool isPost = action == std::string("recount");
        LedgerQuestion question = aboutTheDay(action, isPost ? kSettings : "");
        EXPECT_STREQ(ask(access, question, isPost).status, "200 OK") << action;
        question.query[0].second = "2026-11-20";
        question.query[1].second = "2026-11-21";
        try {
            ask(access, question, isPost);
            ADD_FAILURE() << "took " << action;
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(),
                         "expected a time of which the ledger has less than 256 MiB, got one with 256; ask for less "
                         "time")
                << action;
        }
    }
}

TEST(TestFollower, AsksTheOneOfTheSlotAsItIsStored) {
    CannedServer server(CannedServer::saying("200"));
    Access access;
    LedgerQuestion question = {"test_follower", {{"slot", "10"}}};
    question.settings.cameraInfo.followerIPAddress[9] = server.address();
    const nlohmann::json told = nlohmann::json::parse(ask(access, question).body);
    EXPECT_EQ(told["counts"], true);
    for (const char* const slot : {"", "0", "1", "11", "x"}) {
        question.query[0].second = slot;
        EXPECT_THROW(answerFromLedger(access, question), std::invalid_argument) << slot;
    }
}

TEST(AskedLedger, TellsWhyOfADayOfAnyZone) {
    Access access;
    comeIn(access, "2026-10-25T22:30", 1);
    // Clocks go back by an hour, by two, and by three.
    const struct {
        const char* zone;
        const char* from;
        const char* to;
        size_t crossings;
    } days[] = {{"Europe/Berlin", "2026-10-25", "2026-10-26", 1},
                {"Antarctica/Troll", "2026-10-25", "2026-10-26", 1},
                {"Antarctica/Casey", "2023-03-09", "2023-03-10", 0}};
    for (const auto& [zone, from, to, crossings] : days) {
        const LedgerQuestion why = {"why", {{"from", from}, {"to", to}, {"zone", zone}}};
        EXPECT_EQ(nlohmann::json::parse(ask(access, why).body)["crossings"].size(), crossings) << zone;
    }
}

TEST(AskedLedger, KeepsACountByHand) {
    Access access;
    const char* const count =
        R"({"begin":"2026-11-22T09:00:00.000Z","end":"2026-11-22T09:10:00.000Z","phone_offset":-120,"remark":"rain",)"
        R"("taps":[{"t":"2026-11-22T09:00:07.100Z","entrance":1,"direction":"in"}]})";
    EXPECT_STREQ(ask(access, {"hand_count", {}, count, "ann"}, true).status, "200 OK");
    const std::string line = access.book().lines(1, 1, 10'000);
    const std::string body = R"("kind":"hand_count","user":"ann","begin":"2026-11-22T09:00:00.000Z",)"
                             R"("end":"2026-11-22T09:10:00.000Z","phone_offset":-120,"remark":"rain",)"
                             R"("taps":[{"t":"2026-11-22T09:00:07.100Z","entrance":1,"direction":"in"}]})";
    EXPECT_NE(line.find(body), std::string::npos) << line;
    EXPECT_EQ(schemaFaults(line), "");
    for (const auto& [part, other] :
         std::map<std::string, std::string>{{"\"begin\":\"2026-11-22T09:00:00.000Z\"", "\"begin\":9"},
                                            {"09:10:00.000Z", "10:00:00.001Z"},
                                            {"\"entrance\":1", "\"entrance\":4"},
                                            {"\"in\"", "\"up\""},
                                            {"09:00:07.100Z", "08:59:59.999Z"},
                                            {"-120", "\"late\""},
                                            {"\"rain\"", "7"},
                                            {"\"rain\"", "\"rain\",\"light\":\"noon\""},
                                            {"\"rain\"", "\"rain\",\"light\":1"},
                                            {"[{\"t\"", "[7,{\"t\""}}) {
        std::string wrong = count;
        wrong.replace(wrong.find(part), part.size(), other);
        EXPECT_THROW(answerPostToLedger(access, {"hand_count", {}, wrong}), std::invalid_argument) << wrong;
    }
    EXPECT_THROW(answerPostToLedger(access, {"hand_count", {}, "[]"}), std::invalid_argument);
    EXPECT_EQ(access.book().end().seq, 1) << "what was refused is not kept";
    std::string lit = count;
    lit.replace(lit.find("\"rain\""), 6, "\"rain\",\"light\":\"lamps\"");
    EXPECT_STREQ(ask(access, {"hand_count", {}, lit, "ann"}, true).status, "200 OK");
    const std::string second = access.book().lines(2, 2, 10'000);
    EXPECT_NE(second.find(R"("remark":"rain","light":"lamps","taps":[)"), std::string::npos) << second;
    EXPECT_EQ(schemaFaults(second), "");
}

TEST(AskedLedger, RefusesQuestionsThatMakeNoSense) {
    Access access;
    const std::string longer = "expected a day at most, got 2026-11-22T00:00:00.000Z to 2026-11-24T00:00:00.000Z";
    const struct {
        LedgerQuestion question;
        bool isPost;
        std::string refusal;
    } cases[] = {
        {{"why", {{"from", "2026-11-22"}, {"to", "2026-11-24"}, {"zone", "UTC"}}}, false, longer},
        {{"why", {{"entrance", "4"}}}, false, "expected entrance from 0 to 3, got \"4\""},
        {{"stays", {{"from", "2026-11-22"}, {"to", "2026-11-22"}, {"zone", "UTC"}}},
         false,
         "expected to behind from, got 2026-11-22T00:00:00.000Z and 2026-11-22T00:00:00.000Z"},
        {{"heat", {{"zone", "Moon"}}}, false, "expected a time zone such as Europe/Berlin, got \"Moon\""},
        {{"ledger_answer", {{"job", "7"}}},
         false,
         "expected the number of an answer that is being made, or was in the last two minutes and not fetched yet, "
         "got 7"},
        {{"recount", {}, "{"}, true, "expected settings as JSON, got 1 bytes that are none"},
        {{"recount", {}, R"({"entrance1":[[0,0]]})"},
         true,
         "\"entrance1\": expected 3 to 8 corners [x, y], got [[0,0]]"},
    };
    for (const auto& [question, isPost, refusal] : cases) {
        try {
            ask(access, question, isPost);
            ADD_FAILURE() << "took " << question.action << ", expected " << refusal;
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(error.what(), refusal);
        }
    }
}

TEST(OccupancyBefore, TellsWhatTheLedgerKnows) {
    Access access;
    EXPECT_EQ(answerFromLedger(access, {"occupancy_before", {}})->body,
              R"({"ended":"none","at":null,"gap":null,"occupancy":null,"lost":[]})");
    access.before.ending = "killed";
    access.before.lastLine = ledger::Moment{*ledger::utcOf("2026-11-22T05:35:01.420Z"), "", 0};
    access.before.gapMillis = 41'900;
    access.before.occupancy = 16;
    access.before.openPeriod[{1, "in", "Person"}] = 3;
    EXPECT_EQ(answerFromLedger(access, {"occupancy_before", {}})->body,
              R"({"ended":"killed","at":"2026-11-22T05:35:01.420Z","gap":41,"occupancy":16,)"
              R"("lost":[{"entrance":1,"direction":"in","class":"Person","count":3}]})");
}

}  // namespace

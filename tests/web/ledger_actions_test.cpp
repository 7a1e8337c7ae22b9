#include "ledger_actions.h"

#include <algorithm>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "canned_server.h"
#include "ledger_schema.h"
#include "test_clock.h"
#include "test_folder.h"

namespace {

/** A ledger in a folder, written by the test. */
class Access : public LedgerAccess {
public:
    explicit Access(int64_t mostBytes = int64_t{1} << 30) : m_mostBytes(mostBytes) { m_book.open(); }

    void add(const std::string& utc, const std::string& kind, const nlohmann::ordered_json& body) {
        m_now = {*ledger::utcOf(utc), "", 0};
        m_book.append(kind, body);
    }
    /** A line from before the clock was known. */
    void addUndated() { addUndated(1, "crossing", {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}}); }
    void addUndated(int64_t mono, const std::string& kind, const nlohmann::ordered_json& body) {
        m_now = {0, "boot", mono};
        m_book.append(kind, body);
    }
    void cross(const std::string& utc, const char* direction = "in") {
        add(utc, "crossing", {{"entrance", 1}, {"direction", direction}, {"class", "Person"}});
    }

    [[nodiscard]] const ledger::Ledger& book() const override { return m_book; }
    void makeSafe() override { m_book.keep(); }
    [[nodiscard]] ledger::LastRun lastRun() const override { return before; }
    ledger::Index& index() override { return m_index; }

    void write(const std::string& kind, const nlohmann::ordered_json& body) override { m_book.append(kind, body); }
    AnswerJobs& jobs() override { return m_jobs; }
    [[nodiscard]] std::string archive() const override { return m_folder.path() / "EntranceActivityTidy.csv"; }

    /** Makes a file of the ledger one that cannot be read. */
    void spoil(const std::string& name) const {
        std::filesystem::remove(m_folder.path() / "ledger" / name);
        std::filesystem::create_directory(m_folder.path() / "ledger" / name);
    }
    /** Puts a file beside the ledger's. */
    void put(const std::string& name, const std::string& text = "", uintmax_t bytes = 0) const {
        const std::filesystem::path path = m_folder.path() / "ledger" / name;
        writeFile(path, text);
        std::filesystem::resize_file(path, std::max<uintmax_t>(bytes, text.size()));
    }
    /** The application is started again. */
    void reopen() { m_book.open(); }

    ledger::LastRun before;

private:
    const int64_t m_mostBytes;
    TestFolder m_folder;
    ledger::Moment m_now;
    std::unique_ptr<ledger::Disk> m_disk = ledger::openFolder((m_folder.path() / "ledger").string());
    ledger::Ledger m_book{*m_disk, {m_mostBytes, [this] { return m_now; }, [] { return std::string("e1"); }}};
    ledger::Index m_index{*m_disk, m_book};
    AnswerJobs m_jobs;
};

/** Asks, and asks again where an answer takes its time. */
LedgerAnswer ask(Access& access, const LedgerQuestion& question, bool isPost = false) {
    LedgerAnswer answer = *(isPost ? answerPostToLedger : answerFromLedger)(access, question);
    while (std::string(answer.status) == "202 Accepted") {
        const auto job = nlohmann::json::parse(answer.body).at("job").get<int64_t>();
        answer = *answerFromLedger(access, {"ledger_answer", {{"job", std::to_string(job)}}});
    }
    return answer;
}

/** The value of a header of an answer. */
std::string headerOf(const LedgerAnswer& answer, const std::string& name) {
    const size_t at = answer.headers.find(name + ": ");
    const size_t begin = at + name.size() + 2;
    return at == std::string::npos ? "" : answer.headers.substr(begin, answer.headers.find("\r\n", at) - begin);
}

std::vector<int64_t> numbersOf(const std::string& lines) {
    std::vector<int64_t> numbers;
    std::istringstream text(lines);
    for (std::string line; std::getline(text, line);) {
        const std::optional<ledger::LineHead> head = ledger::headOf(line);
        EXPECT_TRUE(head) << line;
        numbers.push_back(head ? head->seq : 0);
    }
    return numbers;
}

using Numbers = std::vector<int64_t>;

TEST(GetLedger, GivesTheNewestWithoutASyncToWhoeverCanLoseThem) {
    Access access;
    access.cross("2026-11-22T08:00:00.000Z");
    const LedgerAnswer newest = *answerFromLedger(access, {"get_ledger", {{"newest", "1"}}});
    EXPECT_EQ(numbersOf(newest.body), (Numbers{1}));
    EXPECT_EQ(headerOf(newest, "X-Ledger-Next"), "e1:1");
    EXPECT_EQ(access.book().safeSeq(), 0) << "nothing was synced for it";
    EXPECT_EQ(numbersOf(answerFromLedger(access, {"get_ledger", {{"newest", "0"}}})->body), (Numbers{1}));
    EXPECT_EQ(access.book().safeSeq(), 1);
}

TEST(GetLedger, GivesAReaderExactlyWhatItMissed) {
    Access access;
    for (int i = 0; i < 10; ++i) {
        access.cross("2026-11-22T08:00:00.000Z");
    }
    const LedgerAnswer all = *answerFromLedger(access, {"get_ledger", {}});
    EXPECT_STREQ(all.contentType, "application/x-ndjson");
    EXPECT_EQ(numbersOf(all.body), (Numbers{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    EXPECT_EQ(headerOf(all, "X-Ledger-Next"), "e1:10");
    const LedgerAnswer some = *answerFromLedger(access, {"get_ledger", {{"since", "e1:4"}, {"limit", "3"}}});
    EXPECT_EQ(numbersOf(some.body), (Numbers{5, 6, 7}));
    EXPECT_EQ(headerOf(some, "X-Ledger-Next"), "e1:7");
    EXPECT_EQ(headerOf(some, "X-Ledger-End"), "e1:10");
    const LedgerAnswer none = *answerFromLedger(access, {"get_ledger", {{"since", "e1:10"}}});
    EXPECT_EQ(none.body, "");
    EXPECT_EQ(headerOf(none, "X-Ledger-Next"), "e1:10");
    const LedgerAnswer other = *answerFromLedger(access, {"get_ledger", {{"since", "e0:400"}, {"limit", "1"}}});
    EXPECT_EQ(numbersOf(other.body), (Numbers{1})) << "another ledger's reader begins at the beginning";
}

TEST(GetLedger, PicksByKindAndTime) {
    Access access;
    for (int day = 20; day < 24; ++day) {
        const std::string date = "2026-11-" + std::to_string(day);
        access.cross(date + "T08:00:00.000Z");
        access.add(date + "T08:01:00.000Z", "watched", {{"minute", date + "T08:00:00.000Z"}, {"seconds", 60}});
        access.cross(date + "T23:30:00.000Z", "out");
    }
    const struct {
        const char* name;
        QueryPairs query;
        Numbers numbers;
        const char* next;
    } cases[] = {
        {"a kind", {{"kinds", "watched"}}, {2, 5, 8, 11}, "e1:12"},
        {"two kinds", {{"kinds", "watched,crossing"}, {"limit", "2"}}, {1, 2}, "e1:2"},
        {"from a day on", {{"from", "2026-11-23"}}, {10, 11, 12}, "e1:12"},
        {"a day of a zone",
         {{"from", "2026-11-22"}, {"to", "2026-11-23"}, {"zone", "Europe/Berlin"}, {"kinds", "crossing"}},
         {6, 7},
         "e1:12"},
        {"a day that is gone on from", {{"from", "2026-11-21"}, {"since", "e1:9"}, {"to", "2026-11-23"}}, {}, "e1:12"},
    };
    for (const auto& [name, query, numbers, next] : cases) {
        const LedgerAnswer answer = *answerFromLedger(access, {"get_ledger", query});
        EXPECT_EQ(numbersOf(answer.body), numbers) << name;
        EXPECT_EQ(headerOf(answer, "X-Ledger-Next"), next) << name;
    }
}

TEST(GetLedger, HasTheUndatedLinesOfADayThatStandInTheFileBefore) {
    constexpr size_t kUndated = 300;
    using FirstAndMany = std::pair<int64_t, size_t>;
    Access access;
    access.addUndated();
    access.cross("2026-11-21T08:00:00.000Z");
    for (size_t i = 0; i < kUndated; ++i) {
        access.addUndated();
    }
    access.cross("2026-11-22T08:00:00.000Z");
    access.addUndated();
    const auto from = [&](const char* day) {
        const Numbers numbers = numbersOf(answerFromLedger(access, {"get_ledger", {{"from", day}}})->body);
        return FirstAndMany(numbers.empty() ? 0 : numbers.front(), numbers.size());
    };
    EXPECT_EQ(from("2026-11-22"), FirstAndMany(3, kUndated + 2)) << "from behind the last dated line of the day before";
    EXPECT_EQ(from("2026-11-23"), FirstAndMany(4 + kUndated, 1));
    EXPECT_EQ(from("2026-11-21"), FirstAndMany(1, kUndated + 4)) << "of which nothing was known";
}

TEST(GetLedger, GetsAReaderPastAFileThatCannotBeRead) {
    const auto headers = [](const LedgerAnswer& answer) {
        return headerOf(answer, "X-Ledger-Next") + " " + headerOf(answer, "X-Ledger-Unreadable");
    };
    Access access;
    for (const char* const day : {"20", "21", "22"}) {
        access.cross(std::string("2026-11-") + day + "T08:00:00.000Z");
        access.cross(std::string("2026-11-") + day + "T09:00:00.000Z");
    }
    const std::string second = "000000000003-2026-11-21.ndjson";
    const std::string third = "000000000005-2026-11-22.ndjson";
    EXPECT_EQ(headers(*answerFromLedger(access, {"get_ledger", {}})), "e1:6 ");
    access.spoil(second);
    for (const char* const since : {"e1:0", "e1:2", "e1:3"}) {
        const LedgerAnswer answer = *answerFromLedger(access, {"get_ledger", {{"since", since}}});
        EXPECT_EQ(numbersOf(answer.body), (since == std::string("e1:0") ? Numbers{1, 2, 5, 6} : Numbers{5, 6}));
        EXPECT_EQ(headers(answer), "e1:6 " + second) << since;
    }
    access.spoil(third);
    const LedgerAnswer last = *answerFromLedger(access, {"get_ledger", {{"since", "e1:3"}}});
    EXPECT_EQ(last.body, "");
    EXPECT_EQ(headers(last), "e1:6 " + second + ", " + third);
    EXPECT_EQ(headers(*answerFromLedger(access, {"get_ledger", {{"since", "e1:6"}}})), "e1:6 ");
    const std::string aside = "000000000002-2026-11-20.ndjson.unreadable";
    access.put(aside);
    EXPECT_EQ(headers(*answerFromLedger(access, {"get_ledger", {{"since", "e1:1"}, {"limit", "1"}}})), "e1:2 " + aside);
    EXPECT_EQ(headers(*answerFromLedger(access, {"get_ledger", {{"since", "e1:0"}, {"limit", "1"}}})), "e1:1 ");
}

TEST(GetLedger, GivesNothingThatWasDamagedSinceItWasWritten) {
    const std::string first = "000000000001-2026-11-20.ndjson";
    const struct {
        const char* what;
        std::string good;
        std::string bad;
    } cases[] = {{"a byte behind the head", "\"in\"", "\x07in\""}, {"a hole", "{\"seq\":2", std::string(8, '\0')}};
    for (const auto& [what, good, bad] : cases) {
        Access access;
        for (const char* const hour : {"08", "09", "10"}) {
            access.cross(std::string("2026-11-20T") + hour + ":00:00.000Z", hour == std::string("09") ? "in" : "out");
        }
        access.cross("2026-11-21T08:00:00.000Z");
        std::string text = access.book().lines(1, 3, 1 << 20);
        text.replace(text.find(good), good.size(), bad);
        access.put(first, text);
        const LedgerAnswer answer = *answerFromLedger(access, {"get_ledger", {}});
        EXPECT_EQ(numbersOf(answer.body), (Numbers{1, 3, 4})) << what;
        EXPECT_EQ(headerOf(answer, "X-Ledger-Unreadable"), first) << what;
        EXPECT_EQ(headerOf(answer, "X-Ledger-Next"), "e1:4") << what;
        const LedgerAnswer behind = *answerFromLedger(access, {"get_ledger", {{"since", "e1:2"}}});
        EXPECT_EQ(numbersOf(behind.body), (Numbers{3, 4})) << what;
        EXPECT_EQ(headerOf(behind, "X-Ledger-Unreadable"), "") << what;
    }
}

TEST(GetLedger, GivesAMebibyteAtMostAndLosesNothing) {
    Access access;
    constexpr int kLines = 40;
    for (int i = 0; i < kLines; ++i) {
        access.add("2026-11-22T08:00:00.000Z", "object", {{"path", std::string(100'000, 'x')}});
    }
    std::string since = "e1:0";
    Numbers numbers;
    int answers = 0;
    for (; answers < 100; ++answers) {
        const LedgerAnswer answer = *answerFromLedger(access, {"get_ledger", {{"since", since}}});
        if (answer.body.empty()) {
            break;
        }
        EXPECT_LE(answer.body.size(), size_t{1} << 20U);
        for (const int64_t number : numbersOf(answer.body)) {
            numbers.push_back(number);
        }
        since = headerOf(answer, "X-Ledger-Next");
    }
    EXPECT_EQ(answers, 4);
    ASSERT_EQ(numbers.size(), static_cast<size_t>(kLines));
    EXPECT_EQ(numbers.back(), kLines);
}

TEST(GetCounts, CountsPerStepOfAZone) {
    Access access;
    access.cross("2026-11-22T08:00:00.000Z");
    access.cross("2026-11-22T08:30:00.000Z", "out");
    access.cross("2026-11-22T08:45:00.000Z");
    for (int minute = 10; minute < 40; ++minute) {
        const std::string begin = "2026-11-22T08:" + std::to_string(minute) + ":00.000Z";
        access.add(begin, "watched", {{"minute", begin}, {"seconds", 60}});
    }
    const LedgerAnswer answer = ask(access, {"get_counts",
                                             {{"from", "2026-11-22T08:00:00"},
                                              {"to", "2026-11-22T10:00:00"},
                                              {"step", "hour"},
                                              {"zone", "Europe/Berlin"}}});
    EXPECT_STREQ(answer.contentType, "application/json");
    EXPECT_EQ(answer.body,
              R"({"known_from":"2026-11-22T08:00:00.000Z","rows":[)"
              R"({"begin":"2026-11-22T08:00:00+01:00","end":"2026-11-22T09:00:00+01:00","coverage":null,"counts":[]},)"
              R"({"begin":"2026-11-22T09:00:00+01:00","end":"2026-11-22T10:00:00+01:00","coverage":0.5,"counts":[)"
              R"({"entrance":1,"direction":"out","count":1},{"entrance":1,"direction":"in","count":2}]}]})");
}

TEST(GetCounts, LeavesOutNothingThatTheIndexHasNotReadYet) {
    Access access;
    for (int i = 0; i < 5; ++i) {
        access.cross("2026-11-22T08:00:00.000Z");
        access.add("2026-11-22T08:00:00.000Z", "object", {{"path", std::string(100'000, 'x')}});
    }
    access.cross("2026-11-22T08:00:00.000Z");
    const LedgerQuestion question = {"get_counts",
                                     {{"from", "2026-11-22T08:00:00"}, {"to", "2026-11-22T09:00:00"}, {"zone", "UTC"}}};
    EXPECT_EQ(nlohmann::json::parse(ask(access, question).body)["rows"][0]["counts"][0]["count"], 6);
}

TEST(GetCounts, IsOfTheLastDayWhenNothingElseIsSaid) {
    const TestClock clock(*ledger::utcOf("2026-11-22T12:00:00.000Z") / 1000);
    Access access;
    access.cross("2026-11-21T11:59:59.999Z");
    access.cross("2026-11-21T12:00:00.000Z");
    const nlohmann::json answer =
        nlohmann::json::parse(ask(access, {"get_counts", {{"step", "year"}, {"zone", "UTC"}}}).body);
    ASSERT_EQ(answer["rows"].size(), 1U);
    EXPECT_EQ(answer["rows"][0]["counts"][0]["count"], 1);
}

TEST(GetLedger, KnowsEveryKindThatIsDescribed) {
    const nlohmann::json schema = nlohmann::json::parse(readFile(this_build::checkout() / "docs/ledger.schema.json"));
    const auto kinds = schema.at("properties").at("kind").at("enum").get<std::vector<std::string>>();
    Access access;
    for (const std::string& kind : kinds) {
        EXPECT_NO_THROW(answerFromLedger(access, {"get_ledger", {{"kinds", kind}}})) << kind;
    }
    EXPECT_EQ(kinds.size(), 13U);
}

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

TEST(AskedLedger, HasTheArchiveForWhatWasBeforeIt) {
    const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    Access access;
    access.cross("2026-07-02T08:00:00.000Z");
    // Summer time, a follower, and a period that the ledger has as well.
    writeFile(access.archive(),
              "2026-07-01 10:00:00,Door,0,0,3,2\n2026-07-01 10:00:00,Follower,0,0,50,50\nnothing\n"
              "2026-07-01 10:15:00,Door,1,2,0,4\n2026-07-02 12:00:00,Door,0,0,1,0\n");
    LedgerQuestion question = {
        "get_counts",
        {{"from", "2026-07-01"}, {"to", "2026-07-03"}, {"step", "hour"}, {"by", "direction"}, {"zone", "UTC"}}};
    question.settings.cameraInfo.thisCameraName = "Door";
    std::map<std::string, std::string> counts;
    const nlohmann::json answer = nlohmann::json::parse(ask(access, question).body);
    for (const nlohmann::json& row : answer["rows"]) {
        if (!row["counts"].empty()) {
            counts[row["begin"]] = row["counts"].dump() + row["coverage"].dump();
        }
    }
    const std::map<std::string, std::string> expected = {
        {"2026-07-01T07:00:00+00:00", R"([{"count":2,"direction":"out"},{"count":3,"direction":"in"}]null)"},
        {"2026-07-01T08:00:00+00:00", R"([{"count":4,"direction":"out"}]null)"},
        {"2026-07-02T08:00:00+00:00", R"([{"count":1,"direction":"in"}]0.0)"}};
    EXPECT_EQ(counts, expected);
}

TEST(AskedLedger, HasTheArchiveAlsoUnderTheNameThatTheCameraHadThen) {
    const TimeZone zone("UTC");
    Access access;
    access.add("2026-07-02T08:00:00.000Z", "start", {});
    access.add("2026-07-02T08:15:00.000Z", "period",
               {{"archived", "2026-07-02 08:15:00"}, {"camera", "Old"}, {"tallies", nlohmann::ordered_json::object()}});
    writeFile(access.archive(),
              "2026-07-01 10:00:00,Old,0,0,3,0\n2026-07-01 10:00:00,Follower,0,0,50,0\n"
              "2026-07-01 11:00:00,New,0,0,4,0\n");
    LedgerQuestion question = {
        "get_counts", {{"from", "2026-07-01"}, {"to", "2026-07-02"}, {"step", "day"}, {"by", ""}, {"zone", "UTC"}}};
    question.settings.cameraInfo.thisCameraName = "New";
    EXPECT_EQ(nlohmann::json::parse(ask(access, question).body)["rows"][0]["counts"],
              nlohmann::json::parse(R"([{"count":7}])"));
}

TEST(AskedLedger, HasWhatItBeganWithOnceWhateverClockDatedTheArchive) {
    const TimeZone zone("UTC");
    constexpr int64_t kMinute = 60'000;
    // The camera's clock was right, and nobody knew; or it was not.
    for (const char* const archived : {"2026-07-02 08:05:00", "2026-07-01 22:05:00"}) {
        Access access;
        access.addUndated(kMinute, "start", {});
        access.addUndated(2 * kMinute, "crossing",
                          {{"entrance", 1},
                           {"direction", "in"},
                           {"class", "Person"},
                           {"object", 1},
                           {"before", {120, 50}},
                           {"after", {80, 50}},
                           {"size", {640, 360}}});
        access.addUndated(
            5 * kMinute, "period",
            {{"archived", archived}, {"camera", "Door"}, {"tallies", {{"Entrance1_Entrances_Person", 1}}}});
        access.add("2026-07-02T08:10:00.000Z", "clock", {{"boot", "boot"}, {"mono", 10 * kMinute}});
        writeFile(access.archive(), std::string("2026-07-01 20:00:00,Door,0,0,4,0\n") + archived + ",Door,0,0,1,0\n");
        LedgerQuestion question = {
            "get_counts", {{"from", "2026-07-01"}, {"to", "2026-07-03"}, {"step", "day"}, {"by", ""}, {"zone", "UTC"}}};
        question.settings.cameraInfo.thisCameraName = "Door";
        const nlohmann::json answer = nlohmann::json::parse(ask(access, question).body);
        EXPECT_EQ(answer["known_from"], "2026-07-02T08:01:00.000Z") << archived;
        EXPECT_EQ(answer["rows"][0]["counts"], nlohmann::json::parse(R"([{"count":4}])")) << archived;
        EXPECT_EQ(answer["rows"][1]["counts"], nlohmann::json::parse(R"([{"count":1}])")) << archived;
    }
}

TEST(AskedLedger, HasTheArchiveForWhatWasCutFromIt) {
    constexpr int kHours = 48;
    const TimeZone zone("UTC");
    Access access(150'000);
    std::string archived;
    for (int hour = 0; hour < kHours; ++hour) {
        const std::string begin = ledger::utcText(*ledger::utcOf("2026-07-01T00:00:00.000Z") + 3'600'000 * hour);
        // More in each hour than in the one before.
        for (int i = 0; i <= hour; ++i) {
            access.add(begin.substr(0, 14) + std::to_string(10 + i) + ":00.000Z", "crossing",
                       {{"entrance", 1},
                        {"direction", "in"},
                        {"class", "Person"},
                        {"object", i},
                        {"before", {120, 50}},
                        {"after", {80, 50}},
                        {"size", {640, 360}}});
        }
        std::string date = begin.substr(0, 14) + "59:59";
        date[10] = ' ';
        access.add(begin.substr(0, 14) + "59:59.000Z", "period",
                   {{"archived", date}, {"camera", "Door"}, {"tallies", {{"Entrance1_Entrances_Person", hour + 1}}}});
        archived += date + ",Door,0,0," + std::to_string(hour + 1) + ",0\n";
    }
    writeFile(access.archive(), archived);
    while (access.book().files().front().firstSeq == 1) {
        access.makeSafe();
    }
    const std::vector<std::string> kinds = [&] {
        std::vector<std::string> first;
        std::istringstream lines(access.book().lines(1, access.book().end().seq, 1 << 20));
        for (std::string line; std::getline(lines, line) && first.size() < 2;) {
            first.push_back(ledger::headOf(line)->kind);
        }
        return first;
    }();
    ASSERT_EQ(kinds, (std::vector<std::string>{"crossing", "crossing"})) << "cut within a period";
    LedgerQuestion question = {
        "get_counts", {{"from", "2026-07-01"}, {"to", "2026-07-03"}, {"step", "hour"}, {"by", ""}, {"zone", "UTC"}}};
    question.settings.cameraInfo.thisCameraName = "Door";
    const nlohmann::json answer = nlohmann::json::parse(ask(access, question).body);
    ASSERT_EQ(answer["rows"].size(), static_cast<size_t>(kHours));
    int unknown = 0;
    for (int hour = 0; hour < kHours; ++hour) {
        const nlohmann::json& row = answer["rows"][static_cast<size_t>(hour)];
        EXPECT_EQ(row["counts"], nlohmann::json::parse(R"([{"count":)" + std::to_string(hour + 1) + "}]")) << row;
        unknown += row["coverage"].is_null() ? 1 : 0;
    }
    EXPECT_GT(unknown, 0);
    EXPECT_LT(unknown, kHours);
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

TEST(AnswerJobs, GiveANumberWhereAnAnswerTakesLong) {
    AnswerJobs jobs;
    std::promise<void> goOn;
    const int64_t slow = jobs.post([waits = goOn.get_future().share()](const std::atomic<bool>&) {
        waits.wait();
        return std::string("slow");
    });
    EXPECT_GT(slow, 0);
    EXPECT_EQ(jobs.take(slow), std::nullopt);
    std::set<int64_t> numbers;
    for (int i = 0; i < 8; ++i) {
        numbers.insert(jobs.post([](const std::atomic<bool>&) { return std::string("next"); }));
    }
    EXPECT_EQ(numbers.size(), 8U);
    EXPECT_GT(*numbers.rbegin() - *numbers.begin(), 1'000) << "whoever has one does not know the others'";
    EXPECT_THROW(jobs.post([](const std::atomic<bool>&) { return std::string(); }), std::invalid_argument);
    goOn.set_value();
    std::optional<std::string> answer;
    while (!(answer = jobs.take(slow))) {
    }
    EXPECT_EQ(answer, "slow");
    EXPECT_THROW(jobs.take(slow), std::invalid_argument) << "it was fetched";
    while (!(answer = jobs.take(*numbers.begin()))) {
    }
    EXPECT_EQ(answer, "next");
}

/** The number of an answer of so many bytes that is being made. */
int64_t post(AnswerJobs& jobs, size_t bytes) {
    return jobs.post([bytes](const std::atomic<bool>&) { return std::string(bytes, 'x'); });
}

/** Fetches an answer; those before it are made then. */
size_t fetch(AnswerJobs& jobs, int64_t number) {
    for (;;) {
        if (const std::optional<std::string> answer = jobs.take(number)) {
            return answer->size();
        }
    }
}

TEST(AnswerJobs, AreKeptForTwoMinutes) {
    TestClock clock;
    AnswerJobs jobs;
    const int64_t first = post(jobs, 1);
    const int64_t second = post(jobs, 2);
    EXPECT_EQ(fetch(jobs, post(jobs, 3)), 3U);
    clock.advance(120);
    EXPECT_EQ(fetch(jobs, first), 1U);
    clock.advanceMillis(1);
    EXPECT_THROW(jobs.take(second), std::invalid_argument);
}

TEST(AnswerJobs, KeepSixteenMebibytes) {
    constexpr size_t kSix = size_t{6} << 20U;
    AnswerJobs jobs;
    const int64_t numbers[] = {post(jobs, kSix), post(jobs, kSix), post(jobs, kSix)};
    EXPECT_EQ(fetch(jobs, post(jobs, 1)), 1U);
    EXPECT_THROW(jobs.take(numbers[0]), std::invalid_argument) << "the oldest";
    EXPECT_EQ(fetch(jobs, numbers[1]), kSix);
    EXPECT_EQ(fetch(jobs, numbers[2]), kSix);
    const int64_t tooLong = post(jobs, 3 * kSix);
    try {
        fetch(jobs, tooLong);
        ADD_FAILURE() << "such an answer is kept";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(),
                     "expected a question whose answer has at most 16777216 bytes, got one with 18874368; "
                     "ask for longer steps or less time");
    }
}

TEST(AnswerJobs, EndWhileOneIsUnderWay) {
    std::promise<void> begun;
    auto jobs = std::make_unique<AnswerJobs>();
    jobs->post([&begun](const std::atomic<bool>& stop) {
        begun.set_value();
        while (!stop) {
            std::this_thread::yield();
        }
        return std::string();
    });
    bool isMade = false;
    jobs->post([&isMade](const std::atomic<bool>&) {
        isMade = true;
        return std::string();
    });
    begun.get_future().wait();
    jobs.reset();
    EXPECT_FALSE(isMade);
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

#include "ledger_actions.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "test_clock.h"
#include "test_folder.h"

namespace {

/** A ledger in a folder, written by the test. */
class Access : public LedgerAccess {
public:
    Access() { m_book.open(); }

    void add(const std::string& utc, const std::string& kind, const nlohmann::ordered_json& body) {
        m_now = {*ledger::utcOf(utc), "", 0};
        m_book.append(kind, body);
    }
    void cross(const std::string& utc, const char* direction = "in") {
        add(utc, "crossing", {{"entrance", 1}, {"direction", direction}, {"class", "Person"}});
    }

    std::string safeLines(int64_t fromSeq, int64_t mostBytes) override {
        m_book.keep();
        return m_book.lines(fromSeq, m_book.safeSeq(), mostBytes);
    }
    [[nodiscard]] const ledger::Ledger& book() const override { return m_book; }
    [[nodiscard]] const ledger::LastRun& lastRun() const override { return before; }
    const ledger::Index& index() override {
        while (!m_index.update(1 << 20)) {
        }
        return m_index;
    }

    ledger::LastRun before;

private:
    TestFolder m_folder;
    ledger::Moment m_now;
    std::unique_ptr<ledger::Disk> m_disk = ledger::openFolder((m_folder.path() / "ledger").string());
    ledger::Ledger m_book{*m_disk, {int64_t{1} << 30, [this] { return m_now; }, [] { return std::string("e1"); }}};
    ledger::Index m_index{*m_disk, m_book};
};

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

TEST(GetLedger, GivesAReaderExactlyWhatItMissed) {
    Access access;
    for (int i = 0; i < 10; ++i) {
        access.cross("2026-11-22T08:00:00.000Z");
    }
    const LedgerAnswer all = *answerFromLedger(access, "get_ledger", {});
    EXPECT_STREQ(all.contentType, "application/x-ndjson");
    EXPECT_EQ(numbersOf(all.body), (Numbers{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    EXPECT_EQ(headerOf(all, "X-Ledger-Next"), "e1:10");
    const LedgerAnswer some = *answerFromLedger(access, "get_ledger", {{"since", "e1:4"}, {"limit", "3"}});
    EXPECT_EQ(numbersOf(some.body), (Numbers{5, 6, 7}));
    EXPECT_EQ(headerOf(some, "X-Ledger-Next"), "e1:7");
    EXPECT_EQ(headerOf(some, "X-Ledger-End"), "e1:10");
    const LedgerAnswer none = *answerFromLedger(access, "get_ledger", {{"since", "e1:10"}});
    EXPECT_EQ(none.body, "");
    EXPECT_EQ(headerOf(none, "X-Ledger-Next"), "e1:10");
    const LedgerAnswer other = *answerFromLedger(access, "get_ledger", {{"since", "e0:400"}, {"limit", "1"}});
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
        const LedgerAnswer answer = *answerFromLedger(access, "get_ledger", query);
        EXPECT_EQ(numbersOf(answer.body), numbers) << name;
        EXPECT_EQ(headerOf(answer, "X-Ledger-Next"), next) << name;
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
        const LedgerAnswer answer = *answerFromLedger(access, "get_ledger", {{"since", since}});
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
    const LedgerAnswer answer = *answerFromLedger(
        access, "get_counts",
        {{"from", "2026-11-22T08:00:00"}, {"to", "2026-11-22T10:00:00"}, {"step", "hour"}, {"zone", "Europe/Berlin"}});
    EXPECT_STREQ(answer.contentType, "application/json");
    EXPECT_EQ(answer.body,
              R"({"known_from":"2026-11-22T08:00:00.000Z","rows":[)"
              R"({"begin":"2026-11-22T08:00:00+01:00","end":"2026-11-22T09:00:00+01:00","coverage":null,"counts":[]},)"
              R"({"begin":"2026-11-22T09:00:00+01:00","end":"2026-11-22T10:00:00+01:00","coverage":0.5,"counts":[)"
              R"({"entrance":1,"direction":"out","count":1},{"entrance":1,"direction":"in","count":2}]}]})");
}

TEST(GetCounts, IsOfTheLastDayWhenNothingElseIsSaid) {
    const TestClock clock(*ledger::utcOf("2026-11-22T12:00:00.000Z") / 1000);
    Access access;
    access.cross("2026-11-21T11:59:59.999Z");
    access.cross("2026-11-21T12:00:00.000Z");
    const nlohmann::json answer =
        nlohmann::json::parse(answerFromLedger(access, "get_counts", {{"step", "year"}, {"zone", "UTC"}})->body);
    ASSERT_EQ(answer["rows"].size(), 1U);
    EXPECT_EQ(answer["rows"][0]["counts"][0]["count"], 1);
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
        {"get_ledger", {{"limit", "ten"}}, "expected limit from 1 to 100000, got \"ten\""},
        {"get_ledger", {{"from", "noon"}}, "expected a time such as 2026-11-22 or 2026-11-22T07:00:00Z, got \"noon\""},
        {"get_counts",
         {{"step", "fortnight"}},
         "expected a step of quarter, hour, day, week, month or year, got \"fortnight\""},
        {"get_counts", {{"zone", "Moon"}}, "expected a time zone such as Europe/Berlin, got \"Moon\""},
    };
    for (const auto& [action, query, refusal] : cases) {
        try {
            answerFromLedger(access, action, query);
            ADD_FAILURE() << action << " took " << query[0].second;
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), refusal);
        }
    }
    EXPECT_FALSE(answerFromLedger(access, "get_status_code", {}));
}

TEST(OccupancyBefore, TellsWhatTheLedgerKnows) {
    Access access;
    EXPECT_EQ(answerFromLedger(access, "occupancy_before", {})->body,
              R"({"ended":"none","at":null,"gap":null,"occupancy":null,"lost":[]})");
    access.before.ending = "killed";
    access.before.lastLine = ledger::Moment{*ledger::utcOf("2026-11-22T05:35:01.420Z"), "", 0};
    access.before.gapMillis = 41'900;
    access.before.occupancy = 16;
    access.before.openPeriod[{1, "in", "Person"}] = 3;
    EXPECT_EQ(answerFromLedger(access, "occupancy_before", {})->body,
              R"({"ended":"killed","at":"2026-11-22T05:35:01.420Z","gap":41,"occupancy":16,)"
              R"("lost":[{"entrance":1,"direction":"in","class":"Person","count":3}]})");
}

}  // namespace

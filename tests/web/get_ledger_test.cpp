#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "ledger_access.h"
#include "test_folder.h"
#include "this_build.h"
#include "web/ledger_actions.h"

/* How a reader gets every line once. */

namespace {

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

TEST(GetLedger, KnowsEveryKindThatIsDescribed) {
    const nlohmann::json schema = nlohmann::json::parse(readFile(this_build::checkout() / "docs/ledger.schema.json"));
    const auto kinds = schema.at("properties").at("kind").at("enum").get<std::vector<std::string>>();
    Access access;
    for (const std::string& kind : kinds) {
        EXPECT_NO_THROW(answerFromLedger(access, {"get_ledger", {{"kinds", kind}}})) << kind;
    }
    EXPECT_EQ(kinds.size(), 13U);
}

}  // namespace

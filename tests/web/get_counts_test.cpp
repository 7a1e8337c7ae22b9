#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ledger_access.h"
#include "test_clock.h"
#include "web/ledger_actions.h"

/* Counts per step of a zone, from the ledger and, before it began, from the archive. */

namespace {

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

}  // namespace

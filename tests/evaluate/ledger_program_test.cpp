#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ledger/ledger.h"
#include "program.h"
#include "test_folder.h"
#include "this_build.h"

/* What people ask a ledger from the command line. */

namespace {

using Words = std::vector<std::string>;

/** A ledger of two days in which somebody comes in each morning, at x 100 of 640, and out again. */
class LedgerProgram : public testing::Test {
protected:
    LedgerProgram() {
        m_book.open();
        add("2026-11-21T08:00:00.000Z", "start", {{"version", "1"}});
        for (const std::string day : {"2026-11-21", "2026-11-22"}) {
            cross(day + "T09:00:00.200Z", "in", 120, 80);
            cross(day + "T09:00:00.300Z", "out", 80, 120);
            add(day + "T09:00:02.000Z", "object",
                {{"object", 7},
                 {"class", "Person"},
                 {"first", day + "T09:00:00.000Z"},
                 {"last", day + "T09:00:00.400Z"},
                 {"part", 1},
                 {"ended", true},
                 {"size", {640, 360}},
                 {"begin", day + "T09:00:00.000Z"},
                 {"path", {{0, 140, 50}, {100, 120, 50}, {200, 80, 50}, {300, 120, 50}, {400, 150, 50}}},
                 {"areas", nlohmann::json::array()}});
        }
    }

    void add(const std::string& utc, const std::string& kind, const nlohmann::ordered_json& body) {
        m_now = {*ledger::utcOf(utc), "", 0};
        ASSERT_TRUE(m_book.append(kind, body));
    }
    void cross(const std::string& utc, const char* direction, int before, int after) {
        add(utc, "crossing",
            {{"entrance", 1},
             {"direction", direction},
             {"class", "Person"},
             {"object", 7},
             {"before", {before, 50}},
             {"after", {after, 50}},
             {"size", {640, 360}},
             {"followed", 0.2},
             {"occupancy", 1}});
    }

    ProgramResult run(Words arguments) const {
        arguments.insert(arguments.begin(), this_build::program("senvo-ledger"));
        return runProgram(arguments, m_folder.path());
    }
    /** Asks about the ledger, in UTC. */
    ProgramResult ask(Words arguments) const {
        arguments.insert(arguments.end(), {"--ledger", "ledger"});
        return run(std::move(arguments));
    }
    void file(const std::string& name, const std::string& text) const { writeFile(m_folder.path() / name, text); }

    TestFolder m_folder;
    ledger::Moment m_now;
    std::unique_ptr<ledger::Disk> m_disk = ledger::openFolder((m_folder.path() / "ledger").string());
    ledger::Ledger m_book{*m_disk, {int64_t{1} << 20, [this] { return m_now; }, [] { return std::string("e1"); }}};
};

TEST_F(LedgerProgram, ExportsCrossingsAsATable) {
    const ProgramResult result =
        ask({"export", "--format", "csv", "--zone", "UTC", "--from", "2026-11-22", "--to", "2026-11-23"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "t,epoch,seq,entrance,direction,class,object,followed,occupancy\n"
              "2026-11-22T09:00:00.200Z,e1,5,1,in,Person,7,0.2,1\n"
              "2026-11-22T09:00:00.300Z,e1,6,1,out,Person,7,0.2,1\n");
}

TEST_F(LedgerProgram, ExportsLinesAsTheyAre) {
    const ProgramResult all = ask({"export"});
    EXPECT_EQ(all.status, 0) << all.err;
    EXPECT_EQ(all.out, m_book.lines(1, 7, 1 << 20));
    const ProgramResult some =
        ask({"export", "--kinds", "start,object", "--to", "2026-11-22T10:00:00", "--zone", "Europe/Berlin"});
    EXPECT_EQ(some.out, m_book.lines(1, 1, 1 << 20) + m_book.lines(4, 4, 1 << 20)) << "9:00 is 10:00 there";
}

TEST_F(LedgerProgram, ExportsNothingThatWasDamagedSinceItWasWritten) {
    const std::string name = m_disk->list().at(0);
    std::string text = *m_disk->read(name, 0, 1 << 20);
    text[text.find("\"in\"")] = '\x07';
    m_disk->replace(name, text);
    const ProgramResult all = ask({"export"});
    EXPECT_EQ(all.status, 0) << all.err;
    EXPECT_EQ(all.out, m_book.lines(1, 1, 1 << 20) + m_book.lines(3, 7, 1 << 20));
}

TEST_F(LedgerProgram, ExportsLinesFromBeforeTheClockWasKnown) {
    const auto addUndated = [&](const char* boot, const char* direction) {
        m_now = {0, boot, 30'000};
        m_book.append("crossing", {{"entrance", 1}, {"direction", direction}, {"class", "Person"}, {"object", 1}});
    };
    addUndated("lost", "out");
    addUndated("b1", "in");
    add("2026-11-24T08:01:00.000Z", "clock", {{"boot", "b1"}, {"mono", 60'000}, {"synchronised", true}});
    const Words day = {"--zone", "UTC", "--from", "2026-11-24", "--to", "2026-11-25"};
    const auto asked = [&](Words arguments) {
        arguments.insert(arguments.end(), day.begin(), day.end());
        const ProgramResult result = ask(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out;
    };
    EXPECT_EQ(asked({"export"}), m_book.lines(9, 10, 1 << 20)) << "as they are";
    EXPECT_EQ(asked({"export", "--format", "csv"}),
              "t,epoch,seq,entrance,direction,class,object,followed,occupancy\n"
              "2026-11-24T08:00:30.000Z,e1,9,1,in,Person,1,,\n");
    const ProgramResult all = ask({"export", "--format", "csv"});
    EXPECT_NE(all.out.find("\n,e1,8,1,out,Person,1,,\n"), std::string::npos) << "nobody knows when";
}

TEST_F(LedgerProgram, SaysWhatItCannotReadAndLeavesItOut) {
    file("same.json", R"({"entrance1": [[0, 0], [0.15625, 0], [0.15625, 1], [0, 1]]})");
    const std::string behind = m_book.lines(5, 7, 1 << 20);
    const std::string name = m_disk->list().at(0);
    std::filesystem::remove(m_folder.path() / "ledger" / name);
    std::filesystem::create_directory(m_folder.path() / "ledger" / name);
    const std::string aside = "000000000001-2026-11-20.ndjson.unreadable";
    file("ledger/" + aside, "");
    const auto missing = [](const std::string& file) {
        return "senvo ledger: cannot read " + file + "; what it holds is left out\n";
    };
    const ProgramResult all = ask({"export"});
    EXPECT_EQ(all.status, 1);
    EXPECT_EQ(all.out, behind);
    EXPECT_EQ(all.err, missing(aside) + missing(name));
    const ProgramResult recount = ask({"recount", "--settings", "same.json"});
    EXPECT_EQ(recount.status, 1);
    EXPECT_EQ(recount.err, missing(aside) + missing(name));
    EXPECT_EQ(nlohmann::json::parse(recount.out, nullptr, false)["objects"], 1);
    const ProgramResult day = ask({"export", "--from", "2026-11-22", "--zone", "UTC"});
    EXPECT_EQ(day.status, 0) << day.err;
    EXPECT_EQ(day.out, behind) << "of which nothing is missing";
}

TEST_F(LedgerProgram, ChecksAndSaysWhatIsWrong) {
    const ProgramResult fine = ask({"check"});
    EXPECT_EQ(fine.status, 0) << fine.out << fine.err;
    EXPECT_EQ(fine.out, "");
    const std::string name = m_disk->list().at(0);
    const std::string text = *m_disk->read(name, 0, 1 << 20);
    const size_t second = text.find('\n') + 1;
    m_disk->replace(name, text.substr(0, second) + text.substr(text.find('\n', second) + 1));
    const ProgramResult gap = ask({"check"});
    EXPECT_EQ(gap.status, 1);
    EXPECT_EQ(gap.out, name + ": lines 2 to 2 are missing, and no line says that they were cut\n");
}

TEST_F(LedgerProgram, CountsAgainWithOtherSettings) {
    file("same.json", R"({"entrance1": [[0, 0], [0.15625, 0], [0.15625, 1], [0, 1]]})");
    file("nobody.json", R"({"entrance1": [[0, 0], [0.01, 0], [0.01, 1], [0, 1]]})");
    const auto countsOf = [&](const Words& arguments) {
        const ProgramResult result = ask(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return nlohmann::json::parse(result.out, nullptr, false);
    };
    const nlohmann::json same = countsOf({"recount", "--settings", "same.json"});
    EXPECT_EQ(same["counts"], same["recorded"]);
    EXPECT_EQ(same["objects"], 2);
    ASSERT_EQ(same["counts"].size(), 2U);
    EXPECT_EQ(same["counts"][0]["count"], 2);
    const nlohmann::json day =
        countsOf({"recount", "--settings", "same.json", "--from", "2026-11-22", "--zone", "UTC"});
    EXPECT_EQ(day["counts"][0]["count"], 1);
    const nlohmann::json nobody = countsOf({"recount", "--settings", "nobody.json"});
    EXPECT_EQ(nobody["counts"], nlohmann::json::array());
    EXPECT_EQ(nobody["recorded"], same["recorded"]);
}

TEST_F(LedgerProgram, CountsTracksAgain) {
    file("same.json", R"({"entrance1": [[0, 0], [0.15625, 0], [0.15625, 1], [0, 1]]})");
    std::string tracks;
    for (const int x : {140, 120, 80}) {
        tracks += nlohmann::json({{"seconds", (140 - x) / 100.0},
                                  {"picture", {640, 360}},
                                  {"objects", {{{"id", 1}, {"class", "Car"}, {"locator", {x, 9}}, {"activity", 100}}}}})
                      .dump() +
                  "\n";
    }
    file("tracks.jsonl", tracks);
    file("classes.json", R"({"entrance1": [[0, 0], [0.15625, 0], [0.15625, 1], [0, 1]], "classes": ["Car"]})");
    const ProgramResult result = run({"recount", "--settings", "classes.json", "--tracks", "tracks.jsonl"});
    EXPECT_EQ(result.status, 0) << result.err;
    const nlohmann::json told = nlohmann::json::parse(result.out, nullptr, false);
    ASSERT_EQ(told["counts"].size(), 1U) << result.out;
    EXPECT_EQ(told["counts"][0]["direction"], "in");
    EXPECT_EQ(told["counts"][0]["class"], "Car");
    file("tracks.jsonl", tracks + "no cycle\n");
    const ProgramResult bad = run({"recount", "--settings", "classes.json", "--tracks", "tracks.jsonl"});
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(bad.err,
              "senvo ledger: tracks.jsonl, line 4: expected a cycle of tracks.jsonl, got a line that is no JSON "
              "object\n");
    EXPECT_EQ(bad.out, "");
    file("tracks.jsonl", tracks + "{\"seconds\":" + std::string(1 << 20, ' '));
    const ProgramResult endless = run({"recount", "--settings", "classes.json", "--tracks", "tracks.jsonl"});
    EXPECT_EQ(endless.status, 2);
    EXPECT_EQ(endless.err,
              "senvo ledger: tracks.jsonl, line 4: expected a cycle of tracks.jsonl, got a line of 1048576 bytes or "
              "more\n");
    const ProgramResult folder = run({"recount", "--settings", "classes.json", "--tracks", "ledger"});
    EXPECT_EQ(folder.status, 2);
    EXPECT_EQ(folder.err, "senvo ledger: cannot read ledger\n");
}

TEST_F(LedgerProgram, EndsWithTwoAndTheReason) {
    file("bad.json", "{\"colour\": 1}");
    const std::map<std::string, Words> cases = {
        {"expected a ledger's folder, got nowhere, which is none", {"export", "--ledger", "nowhere"}},
        {"expected --to behind --from", {"export", "--ledger", "ledger", "--from", "2026-11-22", "--to", "2026-11-21"}},
        {"expected a time such as", {"export", "--ledger", "ledger", "--from", "noon"}},
        {"expected a time zone such as", {"export", "--ledger", "ledger", "--from", "2026-11-22", "--zone", "Moon"}},
        {"expected kinds, joined by commas, of alert, clock, corrected, crossing, cut, hand_count, object, period, "
         "reset, settings, start, stop, watched, got \"crosing\"",
         {"export", "--ledger", "ledger", "--kinds", "start,crosing"}},
        {"expected --kinds crossing, or none, for the table of crossings, got watched",
         {"export", "--ledger", "ledger", "--format", "csv", "--kinds", "watched"}},
        {"--format", {"export", "--ledger", "ledger", "--format", "xml"}},
        {"bad.json: unknown setting \"colour\"", {"recount", "--ledger", "ledger", "--settings", "bad.json"}},
        {"--from excludes --tracks", {"recount", "--tracks", "t", "--from", "2026-11-22", "--settings", "bad.json"}},
        {"--settings is required", {"recount", "--ledger", "ledger"}},
    };
    for (const auto& [said, arguments] : cases) {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, 2) << said;
        EXPECT_NE(result.err.find(said), std::string::npos) << result.err;
        EXPECT_EQ(result.out, "") << said;
    }
}

}  // namespace

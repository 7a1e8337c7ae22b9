#include "inquiry/check.h"

#include <gtest/gtest.h>

#include "program.h"
#include "statistics/occupancy_records.h"
#include "test_folder.h"
#include "wandering.h"

namespace inquiry {
namespace {

class LedgerCheck : public testing::Test {
protected:
    LedgerCheck() {
        m_camera.run(500);
        m_camera.flush("2026-11-22 08:00:00");
        m_camera.run(500);
        m_camera.flush("2026-11-22 08:15:00");
        m_camera.stop();
    }

    std::string name() { return m_camera.disk.list().at(0); }
    std::string content() { return *m_camera.disk.read(name(), 0, int64_t{1} << 30); }
    /** What a ledger with that content has wrong. */
    std::vector<std::string> faultsOf(const std::string& content) {
        m_camera.disk.replace(name(), content);
        return check(m_camera.disk, "").faults;
    }

    Wandering m_camera{11};
};

TEST_F(LedgerCheck, IsSilentAboutAWholeOne) {
    const Checked checked = check(m_camera.disk, "");
    EXPECT_EQ(checked.faults, std::vector<std::string>());
    EXPECT_EQ(checked.crossings, sumOf(m_camera.counted));
    EXPECT_EQ(checked.periods, 2);
    EXPECT_GT(checked.lines, checked.crossings);
}

TEST_F(LedgerCheck, FindsWhatIsMissingDoubleOrNoLine) {
    const std::string whole = content();
    const size_t first = whole.find("\"kind\":\"crossing\"");
    const size_t begin = whole.rfind('\n', first) + 1;
    const size_t end = whole.find('\n', first) + 1;
    const std::string number =
        std::to_string(ledger::headOf(std::string_view(whole).substr(begin, end - 1 - begin))->seq);
    const auto missing = faultsOf(whole.substr(0, begin) + whole.substr(end));
    ASSERT_EQ(missing.size(), 1U) << "the period's sum is explained by the gap";
    EXPECT_EQ(missing[0],
              name() + ": lines " + number + " to " + number + " are missing, and no line says that they were cut");
    const auto twice = faultsOf(whole.substr(0, end) + whole.substr(begin));
    ASSERT_FALSE(twice.empty());
    EXPECT_EQ(twice[0], name() + ": line " + number + " comes behind line " + number);
    const auto torn = faultsOf(whole.substr(0, begin) + "{\"seq\":" + whole.substr(begin));
    ASSERT_FALSE(torn.empty());
    EXPECT_NE(torn[0].find("something that is no line"), std::string::npos);
}

TEST_F(LedgerCheck, FindsAHole) {
    std::string changed = content();
    const size_t hole = changed.size() / 2;
    changed.replace(hole, 4096, std::string(4096, '\0'));
    const auto faults = faultsOf(changed);
    ASSERT_GE(faults.size(), 2U);
    EXPECT_NE(faults[0].find("something that is no line"), std::string::npos);
    EXPECT_NE(faults[1].find("are missing, and no line says that they were cut"), std::string::npos);
    visitLines(chunksOf(m_camera.disk, {}), [](const ledger::LineHead&, std::string_view line) {
        EXPECT_EQ(line.find('\0'), std::string_view::npos) << "what is handed out is a line";
        return true;
    });
}

TEST_F(LedgerCheck, FindsASumThatIsNone) {
    std::string changed = content();
    const size_t first = changed.find("\"direction\":\"in\"");
    changed.replace(first, 16, "\"direction\":\"ou\"");
    const auto faults = faultsOf(changed);
    ASSERT_EQ(faults.size(), 1U);
    EXPECT_NE(faults[0].find("are not the sum of its crossings"), std::string::npos);
}

TEST(LedgerCheckOfAReset, FindsASumThatIsNoneBehindIt) {
    const auto faults = [](const char* first, const char* second) {
        FailingPower disk(1);
        int64_t seq = 0;
        std::string lines;
        const auto add = [&](const char* time, const char* kind, const nlohmann::ordered_json& body) {
            const int64_t utc = *ledger::utcOf("2026-11-22T" + std::string(time) + "Z");
            lines += ledger::lineText({++seq, "epoch", {utc, "", 0}, kind}, ledger::bodyText(body));
        };
        const nlohmann::ordered_json in = {{"entrance", 1},     {"direction", "in"},   {"class", "Person"},
                                           {"object", 1},       {"before", {120, 50}}, {"after", {80, 50}},
                                           {"size", {640, 360}}};
        add("08:00:00.000", "start", {{"version", "1"}});
        add("08:01:00.000", "crossing", in);
        add("08:02:00.000", "reset", {{"by", "web"}});
        add(first, "crossing", in);
        add(second, "crossing", in);
        add("08:15:00.000", "period",
            {{"offset", 0},
             {"archived", "2026-11-22 08:15:00"},
             {"camera", "Door"},
             {"tallies", {{"Entrance1_Entrances_Person", 1}}}});
        disk.replace("000000000001-2026-11-22.ndjson", lines);
        return check(disk, "").faults.size();
    };
    EXPECT_EQ(faults("08:02:00.100", "08:05:00.000"), 0U) << "the same cycle's may be on either side";
    EXPECT_EQ(faults("08:02:00.100", "08:02:00.200"), 0U);
    EXPECT_EQ(faults("08:04:00.000", "08:05:00.000"), 1U) << "one of these is in no tally";
}

TEST_F(LedgerCheck, FindsWhatCannotBeRead) {
    m_camera.disk.replace("000000000001-2026-11-21.ndjson.unreadable", "?");
    EXPECT_EQ(check(m_camera.disk, "").faults,
              (std::vector<std::string>{
                  "000000000001-2026-11-21.ndjson.unreadable was set aside, since it could not be read"}));
    m_camera.disk.setUnreadable(true);
    EXPECT_EQ(check(m_camera.disk, "").faults.at(0), "cannot read " + name());
}

TEST_F(LedgerCheck, TellsOfAnotherEpochOnceWhereItBegins) {
    std::string lines = content();
    const int64_t last = m_camera.book().end().seq;
    for (int64_t seq = last + 1; seq <= last + 3; ++seq) {
        lines += ledger::lineText({seq, "other", {m_camera.time(), "", 0}, "reset"}, R"("by":"web")");
    }
    const auto faults = faultsOf(lines);
    ASSERT_EQ(faults.size(), 1U);
    EXPECT_NE(faults[0].find("line " + std::to_string(last + 1) + " is of the epoch other"), std::string::npos);
}

TEST_F(LedgerCheck, AcceptsAGapThatACutTells) {
    std::string lines;
    int64_t removed = 0;
    visitLines(chunksOf(m_camera.disk, {}), [&](const ledger::LineHead& head, std::string_view line) {
        if (head.kind == "object") {
            ++removed;
        } else {
            lines += std::string(line) + '\n';
        }
        return true;
    });
    ASSERT_GT(removed, 10);
    const int64_t last = m_camera.book().end().seq;
    EXPECT_FALSE(faultsOf(lines).empty());
    const std::string cut = ledger::lineText(
        {last + 1, "epoch", {m_camera.time(), "", 0}, "cut"},
        R"("removed":"object","from":1,"through":)" + std::to_string(last) + R"(,"lines":)" + std::to_string(removed));
    EXPECT_EQ(faultsOf(lines + cut), std::vector<std::string>());
    // A line of another kind, lost among them.
    const size_t at = lines.find(R"("kind":"watched")");
    ASSERT_NE(at, std::string::npos);
    const size_t begin = lines.rfind('\n', at) + 1;
    lines.erase(begin, lines.find('\n', at) + 1 - begin);
    EXPECT_EQ(faultsOf(lines + cut), (std::vector<std::string>{"between the lines 1 and " + std::to_string(last) + " " +
                                                               std::to_string(removed + 1) + " are missing, of which " +
                                                               std::to_string(removed) + " were cut"}));
}

TEST_F(LedgerCheck, ComparesWithTheArchive) {
    std::string archive = "2026-11-21 07:45:00,Door,0,0,5,5\n2026-11-22 08:15:00,Follower,0,0,99,99";
    const auto& tallies = m_camera.lastPeriod;
    const auto count = [&](const std::string& name) {
        const auto found = tallies.find(name);
        return found == tallies.end() ? 0 : found->second;
    };
    const auto row = [&](size_t entrance, size_t object) {
        const std::string zone = entranceNames.at(entrance);
        return "2026-11-22 08:15:00,Door," + std::to_string(entrance) + "," + std::to_string(object) + "," +
               std::to_string(count(zone + "_Entrances_" + objectNames.at(object))) + "," +
               std::to_string(count(zone + "_Exits_" + objectNames.at(object)));
    };
    for (const size_t entrance : {size_t{1}, size_t{0}}) {
        for (size_t object = objectNames.size(); object-- > 0;) {
            const bool isKept =
                tallies.contains(std::string(entranceNames.at(entrance)) + "_Exits_" + objectNames.at(object));
            archive += isKept ? "\n" + row(entrance, object) : "";
        }
    }
    const TestFolder folder;
    const std::string path = folder.path() / "EntranceActivityTidy.csv";
    writeFile(path, archive + "\n");
    const Checked fine = check(m_camera.disk, path);
    EXPECT_EQ(fine.faults, std::vector<std::string>());
    EXPECT_EQ(fine.archived, 1);
    writeFile(path, archive + "1\n");
    const Checked wrong = check(m_camera.disk, path);
    ASSERT_EQ(wrong.faults.size(), 1U);
    EXPECT_NE(wrong.faults[0].find("2026-11-22 08:15:00 has "), std::string::npos);
    ASSERT_NE(count("Entrance1_Entrances_Person"), 0);
    writeFile(path, archive.substr(0, archive.rfind('\n') + 1));
    const Checked less = check(m_camera.disk, path);
    ASSERT_FALSE(less.faults.empty());
    EXPECT_NE(less.faults[0].find("2026-11-22 08:15:00 has no row for Entrance1_"), std::string::npos);
    EXPECT_FALSE(check(m_camera.disk, folder.path() / "none").faults.empty());
}

TEST_F(LedgerCheck, ComparesPeriodsThatEndInTheSameSecondOfLocalTime) {
    const auto archived = [&] {
        const auto count = [&](const char* name) { return std::to_string(m_camera.lastPeriod.at(name)); };
        return "2026-10-25 02:15:00,Door,0,0," + count("Entrance1_Entrances_Person") + "," +
               count("Entrance1_Exits_Person") + "\n";
    };
    // In the night in which an hour comes twice.
    m_camera.run(500);
    m_camera.flush("2026-10-25 02:15:00");
    const std::string first = archived();
    m_camera.run(700);
    m_camera.flush("2026-10-25 02:15:00");
    const std::string second = archived();
    ASSERT_NE(first, second);
    const TestFolder folder;
    const std::string path = folder.path() / "EntranceActivityTidy.csv";
    const struct {
        const char* label;
        std::string archive;
        size_t faults;
    } cases[] = {{"both", first + second, 0},
                 {"the first, after a kill", first, 0},
                 {"the second", second, 0},
                 {"more than there were", first + second + second, 2}};
    for (const auto& [label, archive, faults] : cases) {
        writeFile(path, archive);
        EXPECT_EQ(check(m_camera.disk, path).faults.size(), faults) << label;
    }
}

}  // namespace
}  // namespace inquiry

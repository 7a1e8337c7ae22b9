#include "ledger.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "failing_power.h"
#include "index.h"
#include "slow_build.h"
#include "test_folder.h"

namespace ledger {
namespace {

constexpr int64_t kMidnight = 1'795'305'600'000;  // 2026-11-22
constexpr int64_t kDay = 86'400'000;

/** A ledger whose clock the test moves. */
class Machine {
public:
    explicit Machine(Disk& disk, int64_t mostBytes = int64_t{1} << 30) : m_disk(disk), m_mostBytes(mostBytes) {
        start();
    }

    /** Starts the application again. */
    std::string start() {
        m_ledger =
            std::make_unique<Ledger>(m_disk, LedgerOptions{m_mostBytes, [this] { return now; },
                                                           [this] { return "epoch" + std::to_string(++m_epochs); }});
        return m_ledger->open();
    }

    bool add(const std::string& kind = "crossing") { return m_ledger->append(kind, {{"note", ++m_note}}); }

    Ledger& ledger() { return *m_ledger; }

    Moment now = {kMidnight, "", 0};

private:
    Disk& m_disk;
    const int64_t m_mostBytes;
    std::unique_ptr<Ledger> m_ledger;
    int m_epochs = 0;
    int m_note = 0;
};

/** Every line's text by its number, read in pieces. */
std::map<int64_t, std::string> textsOf(const Ledger& book) {
    std::map<int64_t, std::string> texts;
    for (int64_t next = 1; next <= book.end().seq;) {
        std::istringstream piece(book.lines(next, book.end().seq, 4096));
        std::string line;
        while (std::getline(piece, line)) {
            const std::optional<LineHead> head = headOf(line);
            EXPECT_TRUE(head) << line;
            texts[head ? head->seq : 0] = line;
        }
        const int64_t last = texts.empty() ? 0 : texts.rbegin()->first;
        if (last < next) {
            break;
        }
        next = last + 1;
    }
    return texts;
}

std::vector<nlohmann::json> allLines(const Ledger& book) {
    std::vector<nlohmann::json> lines;
    for (const auto& [seq, text] : textsOf(book)) {
        lines.push_back(parseLine(text));
        EXPECT_FALSE(lines.back().is_discarded()) << text;
    }
    return lines;
}

/** The gaps between lines' numbers that no cut explains. */
std::string unexplainedGaps(const std::map<int64_t, std::string>& texts) {
    std::vector<std::pair<int64_t, int64_t>> cuts;
    int64_t expected = 1;
    std::vector<std::pair<int64_t, int64_t>> missing;
    for (const auto& [seq, text] : texts) {
        if (expected < seq) {
            missing.emplace_back(expected, seq - 1);
        }
        expected = seq + 1;
        if (text.find(R"("kind":"cut")") != std::string::npos) {
            const nlohmann::json cut = parseLine(text);
            cuts.emplace_back(cut["from"], cut["through"]);
        }
    }
    for (auto [from, through] : missing) {
        for (int64_t reached = 0; from <= through; from = reached) {
            reached = from;
            for (const auto& [first, last] : cuts) {
                reached = first <= from ? std::max(reached, last + 1) : reached;
            }
            if (reached == from) {
                return std::to_string(from) + ".." + std::to_string(through);
            }
        }
    }
    return "";
}

std::string unexplainedGaps(const Ledger& book) {
    return unexplainedGaps(textsOf(book));
}

TEST(Ledger, NumbersItsLinesOverRestartsAndDays) {
    FailingPower disk(1);
    Machine machine(disk);
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(machine.add());
        machine.now.utcMillis += kDay / 4;
        EXPECT_EQ(machine.start(), "");
    }
    EXPECT_EQ(disk.list().size(), 3U) << "two days and a half";
    const std::vector<nlohmann::json> lines = allLines(machine.ledger());
    ASSERT_EQ(lines.size(), 10U);
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i]["seq"], i + 1);
        EXPECT_EQ(lines[i]["epoch"], "epoch1");
        EXPECT_EQ(lines[i]["note"], i + 1);
    }
    EXPECT_EQ(lines[5]["t"], "2026-11-23T06:00:00.000Z");
}

TEST(Ledger, GoesOnWhenTheClockIsSetBack) {
    FailingPower disk(1);
    Machine machine(disk);
    for (const int64_t day : {5, 3, 5, 0}) {
        machine.now.utcMillis = kMidnight + day * kDay;
        ASSERT_TRUE(machine.add());
    }
    machine.start();
    EXPECT_EQ(machine.ledger().end().seq, 4);
    EXPECT_EQ(unexplainedGaps(machine.ledger()), "");
    EXPECT_EQ(allLines(machine.ledger()).size(), 4U);
}

TEST(Ledger, HasAnotherEpochInAWipedFolder) {
    FailingPower disk(1);
    Machine machine(disk);
    machine.add();
    for (const std::string& name : disk.list()) {
        disk.remove(name);
    }
    machine.start();
    machine.add();
    EXPECT_EQ(machine.ledger().end().epoch, "epoch2");
    EXPECT_EQ(machine.ledger().end().seq, 1);
}

TEST(Ledger, SetsAsideWhatCannotBeReadAndGoesOn) {
    FailingPower disk(1);
    Machine machine(disk);
    machine.add();
    machine.ledger().keep();
    machine.now.utcMillis += kDay;
    machine.add();
    machine.ledger().keep();
    const std::vector<std::string> before = disk.list();
    ASSERT_EQ(before.size(), 2U);
    std::vector<std::string> texts;
    for (const std::string& name : before) {
        texts.push_back(*disk.read(name, 0, 1 << 20));
    }
    disk.setUnreadable(true);
    EXPECT_NE(machine.start().find(before[1] + ", which cannot be read and was set aside"), std::string::npos);
    machine.add();
    disk.setUnreadable(false);
    for (size_t i = 0; i < before.size(); ++i) {
        EXPECT_EQ(disk.read(before[i] + ".unreadable", 0, 1 << 20), texts[i]);
    }
    EXPECT_EQ(allLines(machine.ledger()).at(0)["epoch"], "epoch2") << "none was there to go on with";
}

TEST(Ledger, KeepsWhatAFullDiskRefusedUntilThereIsRoom) {
    FailingPower disk(1);
    Machine machine(disk);
    machine.add();
    disk.setFull(true);
    EXPECT_FALSE(machine.add());
    machine.now.utcMillis += kDay;
    EXPECT_FALSE(machine.add());
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(machine.ledger().end().seq, 1);
    disk.setFull(false);
    EXPECT_TRUE(machine.ledger().keep());
    const std::vector<nlohmann::json> lines = allLines(machine.ledger());
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[1]["t"], "2026-11-22T00:00:00.000Z") << "the time at which it happened";
    EXPECT_EQ(machine.ledger().droppedLines(), 0);
}

TEST(Ledger, DropsTheOldestOfWhatWaitsBeyondAMebibyte) {
    FailingPower disk(1);
    Machine machine(disk);
    disk.setFull(true);
    for (int i = 0; i < 5; ++i) {
        machine.ledger().append("crossing", {{"note", std::string(300'000, 'x')}, {"number", i}});
    }
    disk.setFull(false);
    machine.ledger().keep();
    const std::vector<nlohmann::json> lines = allLines(machine.ledger());
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0]["number"], 2);
    EXPECT_EQ(lines[0]["seq"], 1);
    EXPECT_EQ(machine.ledger().droppedLines(), 2);
}

TEST(Ledger, RemovesObjectsBeforeAllElseAndSaysSo) {
    FailingPower disk(1);
    constexpr int64_t kMost = 30'000;
    Machine machine(disk, kMost);
    for (int day = 0; day < 20; ++day) {
        for (int i = 0; i < 10; ++i) {
            machine.add("crossing");
            machine.add("object");
        }
        machine.now.utcMillis += kDay;
        ASSERT_TRUE(machine.ledger().keep());
    }
    EXPECT_EQ(unexplainedGaps(machine.ledger()), "");
    int64_t bytes = 0;
    for (const LedgerFile& file : machine.ledger().files()) {
        bytes += file.bytes;
        EXPECT_EQ(file.bytes, disk.size(file.name)) << file.name;
    }
    EXPECT_LE(bytes, kMost);
    EXPECT_GE(bytes, kMost / 2);
    // Every crossing is there, and the newest objects.
    std::map<std::string, int> count;
    std::string firstObject;
    for (const nlohmann::json& line : allLines(machine.ledger())) {
        ++count[line["kind"]];
        if (line["kind"] == "object" && firstObject.empty()) {
            firstObject = line["t"];
        }
    }
    EXPECT_EQ(count["crossing"], 200);
    EXPECT_EQ(count["object"] % 10, 0);
    EXPECT_GT(count["object"], 0);
    EXPECT_EQ(firstObject.substr(0, 10), utcDay(machine.now.utcMillis - count["object"] / 10 * kDay));
    // The same again after a restart.
    const int64_t end = machine.ledger().end().seq;
    machine.start();
    EXPECT_EQ(machine.ledger().end().seq, end);
    EXPECT_EQ(unexplainedGaps(machine.ledger()), "");
}

TEST(Ledger, LeavesFilesAsTheyAreThatHoldNoObjects) {
    FailingPower disk(1);
    Machine machine(disk, 2'000);
    for (int day = 0; day < 6; ++day) {
        for (int line = 0; line < 5; ++line) {
            machine.add();
        }
        machine.now.utcMillis += kDay;
    }
    EXPECT_TRUE(machine.ledger().keep());
    const std::vector<LedgerFile> files = machine.ledger().files();
    ASSERT_GT(files.size(), 1U);
    EXPECT_GT(files.front().firstSeq, 1) << "the oldest have gone";
    for (const LedgerFile& file : files) {
        EXPECT_EQ(file.version, 0) << file.name << ": its index stays good";
    }
}

TEST(Ledger, HandsOutWholeLinesFromAnyNumberOn) {
    FailingPower disk(1);
    Machine machine(disk);
    for (int i = 0; i < 3000; ++i) {
        machine.add();
        machine.now.utcMillis += kDay / 1000;
    }
    for (const int64_t from : {1, 2, 999, 1000, 1001, 2500, 3000}) {
        const std::string text = machine.ledger().lines(from, 3000, 1000);
        EXPECT_LE(text.size(), 1000U);
        EXPECT_EQ(headOf(text.substr(0, text.find('\n')))->seq, from);
    }
    EXPECT_EQ(machine.ledger().lines(3001, 4000, 1000), "");
    const std::string few = machine.ledger().lines(10, 12, 1 << 20);
    EXPECT_EQ(std::count(few.begin(), few.end(), '\n'), 3);
    EXPECT_NE(machine.ledger().lines(5, 5, 1), "") << "one line at least, however long";
}

TEST(Ledger, WorksInARealFolder) {
    const TestFolder folder;
    const std::unique_ptr<Disk> disk = openFolder((folder.path() / "ledger").string());
    Machine machine(*disk, 20'000);
    for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(machine.add(i % 2 == 0 ? "object" : "crossing"));
        machine.now.utcMillis += kDay / 20;
        ASSERT_TRUE(machine.ledger().keep());
    }
    EXPECT_EQ(unexplainedGaps(machine.ledger()), "");
    const int64_t end = machine.ledger().end().seq;
    EXPECT_EQ(machine.ledger().safeSeq(), end);
    std::ofstream(folder.path() / "ledger" / machine.ledger().files().back().name, std::ios::app) << "{\"seq\":";
    EXPECT_NE(machine.start(), "");
    EXPECT_EQ(machine.ledger().end().seq, end);
    EXPECT_TRUE(machine.add());
    EXPECT_EQ(unexplainedGaps(machine.ledger()), "");
}

TEST(Ledger, SurvivesThePowerCutAtAnyMoment) {
    constexpr int kCuts = kSlow ? 1'000 : 10'000;
    FailingPower disk(7);
    constexpr int64_t kMost = 4'000;
    Machine machine(disk, kMost);
    std::mt19937 random(11);
    for (int cut = 0; cut < kCuts; ++cut) {
        for (auto step = random() % 30; step > 0; --step) {
            switch (random() % 8) {
                case 0:
                    machine.now.utcMillis += kDay;
                    break;
                case 1:
                    machine.ledger().keep();
                    break;
                case 2:
                    disk.setFull(random() % 4 == 0);
                    break;
                default:
                    machine.add(random() % 2 == 0 ? "object" : "crossing");
            }
        }
        disk.setFull(false);
        const int64_t safeSeq = machine.ledger().safeSeq();
        const std::map<int64_t, std::string> before = textsOf(machine.ledger());
        disk.cutPower();
        machine.start();
        ASSERT_GE(machine.ledger().end().seq, safeSeq) << "cut " << cut;
        const std::map<int64_t, std::string> after = textsOf(machine.ledger());
        ASSERT_EQ(unexplainedGaps(after), "") << "cut " << cut;
        for (const auto& [seq, text] : after) {
            const auto at = before.find(seq);
            ASSERT_TRUE(at == before.end() || at->second == text) << "cut " << cut << ": " << text;
        }
    }
}

/** A folder that tests remove, and what is counted in it. */
class WipedFolder : public testing::Test {
protected:
    int64_t crossings() {
        while (!m_index.update(1 << 20)) {
        }
        int64_t count = 0;
        for (const auto& [number, quarter] : m_index.quarters(0, std::numeric_limits<int64_t>::max())) {
            for (const auto& [key, crossings] : quarter.crossings) {
                count += crossings;
            }
        }
        return count;
    }
    void cross(int times) {
        for (int i = 0; i < times; ++i) {
            EXPECT_TRUE(
                m_machine.ledger().append("crossing", {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}}));
        }
    }

    const TestFolder m_folder;
    const std::filesystem::path m_path = m_folder.path() / "ledger";
    const std::unique_ptr<Disk> m_disk = openFolder(m_path.string());
    Machine m_machine{*m_disk};
    Index m_index{*m_disk, m_machine.ledger()};
};

TEST_F(WipedFolder, BeginsANewLedgerAlsoWhileTheApplicationRuns) {
    const auto wipeAll = [this] { std::filesystem::remove_all(m_path); };
    const auto wipeFiles = [this] {
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
            std::filesystem::remove(entry.path());
        }
    };
    const std::function<void()> wipes[] = {wipeAll, wipeFiles};
    for (const std::function<void()>& wipe : wipes) {
        for (const int daysBefore : {1, 3}) {
            for (const int linesBetween : {0, 2}) {
                for (int day = 0; day < daysBefore; ++day) {
                    m_machine.now.utcMillis += kDay;
                    cross(10);
                    EXPECT_TRUE(m_machine.ledger().keep());
                }
                const std::string before = m_machine.ledger().end().epoch;
                crossings();
                wipe();
                cross(linesBetween);
                m_machine.ledger().keep();
                cross(3);
                EXPECT_TRUE(m_machine.ledger().keep());
                const Position end = m_machine.ledger().end();
                EXPECT_NE(end.epoch, before);
                EXPECT_EQ(end.seq, 3);
                EXPECT_EQ(allLines(m_machine.ledger()).size(), 3U);
                EXPECT_EQ(crossings(), 3);
                Machine again(*m_disk);
                EXPECT_EQ(again.ledger().end().epoch, end.epoch);
                EXPECT_EQ(again.ledger().end().seq, 3);
            }
        }
    }
}

TEST_F(WipedFolder, IsNoneWhereAFileIsLeft) {
    for (int day = 0; day < 3; ++day) {
        m_machine.now.utcMillis += kDay;
        cross(10);
        EXPECT_TRUE(m_machine.ledger().keep());
    }
    const Position before = m_machine.ledger().end();
    std::filesystem::remove(m_path / m_machine.ledger().files().back().name);
    cross(1);
    m_machine.ledger().keep();
    EXPECT_EQ(m_machine.ledger().end().epoch, before.epoch);
    EXPECT_EQ(m_machine.ledger().end().seq, before.seq + 1);
}

}  // namespace
}  // namespace ledger

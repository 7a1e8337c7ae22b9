#include "ledger/ledger.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "failing_power.h"
#include "inquiry/check.h"
#include "ledger_machine.h"
#include "test_folder.h"

namespace ledger {
namespace {

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

TEST(Ledger, GivesNoLineTheNameOfOneThatWasSetAside) {
    DiskWithABadFile disk(1);
    Machine machine(disk);
    machine.add();
    machine.now.utcMillis += kDay;
    machine.add();
    machine.ledger().keep();
    disk.bad = machine.ledger().files().back().name;
    machine.start();
    machine.add();
    const std::vector<nlohmann::json> lines = allLines(machine.ledger());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0]["epoch"], "epoch1");
    EXPECT_EQ(lines[1]["seq"], 2) << "as the one that was set aside";
    EXPECT_EQ(lines[1]["epoch"], "epoch2");
    disk.bad.clear();
    EXPECT_EQ(machine.start(), "");
    machine.add();
    EXPECT_EQ(allLines(machine.ledger()).back()["epoch"], "epoch2") << "which goes on from there";
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

TEST(Ledger, AddsNothingBehindATornEndThatCannotBeCutOff) {
    FailingPower disk(1);
    Machine machine(disk);
    machine.add();
    machine.add();
    EXPECT_TRUE(machine.ledger().keep());
    disk.append(machine.ledger().files().back().name, R"({"seq":3,"epo)");
    disk.setUncuttable(true);
    EXPECT_NE(machine.start(), "");
    machine.add();
    EXPECT_TRUE(machine.ledger().keep());
    EXPECT_EQ(allLines(machine.ledger()).size(), 3U);
    machine.start();
    machine.add();
    EXPECT_EQ(allLines(machine.ledger()).size(), 4U);
    EXPECT_EQ(machine.ledger().end().seq, 4);
}

/** What a bad byte, or a page that never reached the disk, makes of a file. */
struct Damage {
    const char* label;
    int64_t from;    /**< the first line that it touches */
    int64_t through; /**< the last */
    size_t bytes;    /**< from the middle of the first one on; 0: through the middle of the last */
    char with;
};

TEST(Ledger, KeepsGoodLinesBehindDamagedOnes) {
    constexpr int64_t kLines = 1'000;
    const Damage damages[] = {{"a bad byte in the last line but one", kLines - 1, kLines - 1, 1, '\x01'},
                              {"one that leaves it a line, but no JSON", kLines - 1, kLines - 1, 1, '"'},
                              {"a hole far from the end", 20, 60, 0, '\0'},
                              {"a hole at the begin", 1, 9, 0, '\0'}};
    for (const auto& [label, from, through, bytes, with] : damages) {
        FailingPower disk(1);
        Machine machine(disk);
        for (int64_t i = 0; i < kLines; ++i) {
            machine.ledger().append("watched", {{"note", std::string(600, 'x')}});
        }
        ASSERT_TRUE(machine.ledger().keep());
        const std::string name = machine.ledger().files().back().name;
        std::string content = *disk.read(name, 0, int64_t{1} << 30);
        const auto middleOf = [&](int64_t seq) { return content.find("\"seq\":" + std::to_string(seq) + ",") + 300; };
        const size_t first = middleOf(from);
        const size_t count = bytes == 0 ? middleOf(through) - first : bytes;
        content.replace(first, count, std::string(count, with));
        disk.replace(name, content);
        // On another day.
        machine.now.utcMillis += kDay;
        const std::string said = "lines " + std::to_string(from) + " to " + std::to_string(through);
        EXPECT_NE(machine.start().find(said), std::string::npos) << label;
        EXPECT_TRUE(machine.add("watched"));
        const std::map<int64_t, std::string> texts = textsOf(machine.ledger());
        EXPECT_EQ(static_cast<int64_t>(texts.size()), kLines - (through - from + 1) + 2) << label;
        EXPECT_EQ(texts.rbegin()->first, kLines + 2) << label << ": no number comes again";
        EXPECT_EQ(unexplainedGaps(machine.ledger()), "") << label;
        EXPECT_EQ(inquiry::check(disk, "").faults, std::vector<std::string>()) << label;
        EXPECT_EQ(machine.start(), "") << label << ": all is well";
        EXPECT_EQ(machine.ledger().end().seq, kLines + 2) << label << ": told once";
    }
}

TEST(Ledger, KeepsTheNextDaysLinesWhereTheLastDaysEndIsLost) {
    FailingPower disk(1);
    Machine machine(disk);
    for (int i = 0; i < 3; ++i) {
        machine.add();
    }
    const std::string first = machine.ledger().files().back().name;
    machine.now.utcMillis += kDay;
    machine.add();
    disk.truncate(first, *disk.size(first) - 1);
    EXPECT_NE(machine.start().find("lines 3 to 3"), std::string::npos);
    machine.add();
    std::vector<int64_t> numbers;
    for (const nlohmann::json& line : allLines(machine.ledger())) {
        numbers.push_back(line["seq"]);
    }
    EXPECT_EQ(numbers, (std::vector<int64_t>{1, 2, 4, 5, 6}));
    EXPECT_EQ(unexplainedGaps(machine.ledger()), "");
}

TEST(Ledger, LeavesDamageThatItCannotMendToTheNextStart) {
    FailingPower disk(1);
    Machine machine(disk);
    for (int i = 0; i < 3; ++i) {
        machine.add("watched");
    }
    ASSERT_TRUE(machine.ledger().keep());
    const std::string name = machine.ledger().files().back().name;
    std::string content = *disk.read(name, 0, 10'000);
    content[content.find('\n') + 20] = '\0';
    disk.replace(name, content);
    disk.setFull(true);
    machine.start();
    EXPECT_EQ(disk.read(name, 0, 10'000), content);
    EXPECT_EQ(allLines(machine.ledger()).size(), 2U) << "readers get past it";
    EXPECT_FALSE(machine.ledger().keep());
    disk.setFull(false);
    EXPECT_TRUE(machine.ledger().keep());
    EXPECT_EQ(unexplainedGaps(machine.ledger()), "") << "told as soon as there is room";
    machine.start();
    EXPECT_EQ(inquiry::check(disk, "").faults, std::vector<std::string>());
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
    const auto halfRewritten = folder.path() / "ledger" / "000000000001-2026-11-22.ndjson.new";
    std::ofstream(halfRewritten) << "half of what retention was to leave";
    EXPECT_NE(machine.start(), "");
    EXPECT_FALSE(std::filesystem::exists(halfRewritten)) << "nobody would ever remove it";
    EXPECT_EQ(machine.ledger().end().seq, end);
    EXPECT_TRUE(machine.add());
    EXPECT_EQ(unexplainedGaps(machine.ledger()), "");
}

}  // namespace
}  // namespace ledger

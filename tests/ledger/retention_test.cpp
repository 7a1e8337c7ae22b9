#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "failing_power.h"
#include "ledger_machine.h"

namespace ledger {
namespace {

TEST(LedgerRetention, RemovesObjectsBeforeAllElseAndSaysSo) {
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

TEST(LedgerRetention, GoesOnWhereAFileCannotBeReadOrIsGone) {
    constexpr int64_t kMost = 20'000;
    for (const bool isGone : {false, true}) {
        DiskWithABadFile disk(1);
        Machine machine(disk, kMost);
        for (int day = 0; day < 40; ++day) {
            for (int i = 0; i < 10; ++i) {
                machine.add("crossing");
                machine.add("object");
            }
            machine.now.utcMillis += kDay;
            EXPECT_TRUE(machine.ledger().keep()) << day;
            if (day == 1 && isGone) {
                disk.remove(machine.ledger().files().front().name);
            } else if (day == 1) {
                disk.bad = machine.ledger().files().front().name;
            }
        }
        int64_t bytes = 0;
        for (const std::string& name : disk.list()) {
            bytes += *disk.size(name);
        }
        EXPECT_LE(bytes, kMost) << isGone;
        EXPECT_GT(machine.ledger().files().front().firstSeq, 1) << isGone;
    }
}

TEST(LedgerRetention, CountsTheSmallFilesOfTheIndex) {
    FailingPower disk(1);
    constexpr int64_t kMost = 100'000;
    Machine machine(disk, kMost);
    Index index(disk, machine.ledger());
    for (int day = 0; day < 60; ++day) {
        for (int quarter = 0; quarter < 24; ++quarter) {
            machine.now.utcMillis += kDay / 24;
            ASSERT_TRUE(
                machine.ledger().append("crossing", {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}}));
        }
        ASSERT_TRUE(machine.ledger().keep());
        index.update(kMost);
        index.save();
        machine.ledger().leaveRoom(index.savedBytes());
    }
    ASSERT_TRUE(machine.ledger().keep());
    int64_t bytes = 0;
    int64_t ofIndex = 0;
    for (const std::string& name : disk.list()) {
        bytes += *disk.size(name);
        ofIndex += name.ends_with(".index") ? *disk.size(name) : 0;
    }
    EXPECT_GT(ofIndex, kMost / 20);
    EXPECT_EQ(index.savedBytes(), ofIndex);
    EXPECT_LE(bytes, kMost);
    EXPECT_GT(bytes, kMost / 2);
    // Also where it was there before.
    machine.start();
    Index again(disk, machine.ledger());
    again.update(kMost);
    EXPECT_EQ(again.savedBytes(), ofIndex);
}

TEST(LedgerRetention, RemovesWhatCouldNotBeReadBeforeAllElse) {
    FailingPower disk(1);
    constexpr int64_t kMost = 10'000;
    const std::string names[] = {"000000000001-2026-11-20.ndjson.unreadable",
                                 "000000000900-2026-11-21.ndjson.unreadable"};
    for (const std::string& name : names) {
        disk.append(name, std::string(4'000, '?'));
    }
    Machine machine(disk, kMost);
    const auto isThere = [&](const std::string& name) { return disk.size(name).has_value(); };
    const auto fillUpTo = [&](int64_t bytes) {
        do {
            machine.add();
        } while (machine.ledger().files().back().bytes < bytes);
        EXPECT_TRUE(machine.ledger().keep());
    };
    // 8,000 and 500, then 2,500; what may hold objects does not count twice here.
    fillUpTo(500);
    EXPECT_TRUE(isThere(names[0]) && isThere(names[1]));
    machine.now.utcMillis += kDay;
    fillUpTo(1'000);
    EXPECT_TRUE(isThere(names[0]) && isThere(names[1]));
    machine.now.utcMillis += kDay;
    fillUpTo(1'000);
    EXPECT_FALSE(isThere(names[0])) << "the older one";
    EXPECT_TRUE(isThere(names[1]));
    EXPECT_EQ(allLines(machine.ledger()).front()["seq"], 1);
    // Also after a start: with 4,000 there is room for 6,000.
    machine.start();
    for (int file = 0; file < 4; ++file) {
        machine.now.utcMillis += kDay;
        fillUpTo(1'000);
    }
    EXPECT_FALSE(isThere(names[1]));
    EXPECT_EQ(allLines(machine.ledger()).front()["seq"], 1);
}

TEST(LedgerRetention, LeavesFilesAsTheyAreThatHoldNoObjects) {
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

TEST(LedgerRetention, TellsACutOnceHoweverOftenTheDeedFails) {
    FailingPower disk(1);
    Machine machine(disk, 3'000);
    for (int day = 0; day < 6; ++day) {
        for (int line = 0; line < 5; ++line) {
            machine.add("object");
        }
        machine.now.utcMillis += kDay;
    }
    const auto cuts = [&] {
        const std::vector<nlohmann::json> lines = allLines(machine.ledger());
        return std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line["kind"] == "cut"; });
    };
    disk.setRoomForLinesOnly(true);
    for (int i = 0; i < 50; ++i) {
        EXPECT_FALSE(machine.ledger().keep());
        EXPECT_EQ(cuts(), 1) << i;
    }
    // Those who cross while the disk takes nothing at all lose nothing to words about cuts.
    disk.setFull(true);
    machine.add();
    for (int i = 0; i < 20'000; ++i) {
        EXPECT_FALSE(machine.ledger().keep());
    }
    EXPECT_EQ(machine.ledger().droppedLines(), 0);
    disk.setFull(false);
    disk.setRoomForLinesOnly(false);
    EXPECT_TRUE(machine.ledger().keep());
    EXPECT_EQ(unexplainedGaps(machine.ledger()), "");
    EXPECT_EQ(allLines(machine.ledger()).back()["kind"], "cut");
}

/** Counts what retention writes: the contents of files that are replaced. */
class CountingDisk : public FailingPower {
public:
    using FailingPower::FailingPower;

    bool replace(const std::string& name, std::string_view content) override {
        replaced += static_cast<int64_t>(content.size());
        return FailingPower::replace(name, content);
    }

    int64_t replaced = 0;
};

TEST(LedgerRetention, RewritesNoMoreThanThreeQuartersOfWhatComes) {
    // Objects are half of each day's N + N bytes, and a day has a file. A day adds twice its 2 N to what retention
    // weighs; a file whose objects go weighs N instead of 4 N, for N bytes written. That makes 4/3 N bytes a day: 2/3
    // of what comes. Without the double weight a day's 2 N would take two files, and their 2 N bytes.
    CountingDisk disk(1);
    Machine machine(disk, 80'000);
    int64_t appended = 0;
    for (int days = 0; days < 20;) {
        const int64_t before = disk.replaced;
        for (int i = 0; i < 10; ++i) {
            machine.add("crossing");
            machine.add("object");
        }
        const int64_t day = machine.ledger().files().back().bytes;
        machine.now.utcMillis += kDay;
        ASSERT_TRUE(machine.ledger().keep());
        if (before == 0) {
            disk.replaced = std::min<int64_t>(disk.replaced, 1);  // only from the first one on
        } else {
            appended += day;
            ++days;
        }
    }
    EXPECT_GT(disk.replaced, appended / 2) << "retention was at work";
    EXPECT_LE(disk.replaced, appended * 3 / 4);
}

}  // namespace
}  // namespace ledger

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>

#include "ledger_machine.h"
#include "test_folder.h"

namespace ledger {
namespace {

/** A folder that tests remove, and what is counted in it. */
class WipedFolder : public testing::Test {
protected:
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
                crossingsIn(m_index);
                wipe();
                cross(linesBetween);
                m_machine.ledger().keep();
                const std::string begun = m_machine.ledger().end().epoch;
                EXPECT_NE(begun, "") << "somebody may ask before the first line";
                EXPECT_NE(begun, before);
                cross(3);
                EXPECT_TRUE(m_machine.ledger().keep());
                const Position end = m_machine.ledger().end();
                EXPECT_EQ(end.epoch, begun);
                EXPECT_EQ(end.seq, 3);
                EXPECT_EQ(allLines(m_machine.ledger()).size(), 3U);
                EXPECT_EQ(crossingsIn(m_index), 3);
                Machine again(*m_disk);
                EXPECT_EQ(again.ledger().end().epoch, end.epoch);
                EXPECT_EQ(again.ledger().end().seq, 3);
            }
        }
    }
}

TEST_F(WipedFolder, IsNoticedAlsoWhereADayBeganSince) {
    for (const int linesBefore : {0, 2}) {
        cross(10);
        EXPECT_TRUE(m_machine.ledger().keep());
        cross(linesBefore);  // not synced yet
        const std::string before = m_machine.ledger().end().epoch;
        std::filesystem::remove_all(m_path);
        m_machine.now.utcMillis += kDay;
        cross(1);
        EXPECT_TRUE(m_machine.ledger().keep());
        EXPECT_NE(m_machine.ledger().end().epoch, before);
        cross(3);
        EXPECT_TRUE(m_machine.ledger().keep());
        EXPECT_EQ(m_machine.ledger().end().seq, 3);
        EXPECT_EQ(crossingsIn(m_index), 3);
        Machine again(*m_disk);
        EXPECT_EQ(again.ledger().end().epoch, m_machine.ledger().end().epoch);
        EXPECT_EQ(allLines(again.ledger()).size(), 3U);
    }
}

TEST_F(WipedFolder, IsNoneWhereAFileIsLeft) {
    for (int day = 0; day < 3; ++day) {
        m_machine.now.utcMillis += kDay;
        cross(10);
        EXPECT_TRUE(m_machine.ledger().keep());
    }
    crossingsIn(m_index);
    for (const int linesBetween : {1, 0}) {
        const Position before = m_machine.ledger().end();
        cross(5);  // not synced yet
        std::filesystem::remove(m_path / m_machine.ledger().files().back().name);
        cross(linesBetween);
        EXPECT_TRUE(m_machine.ledger().keep());
        cross(1);
        EXPECT_TRUE(m_machine.ledger().keep());
        EXPECT_EQ(m_machine.ledger().end().epoch, before.epoch);
        EXPECT_EQ(m_machine.ledger().end().seq, before.seq + 5 + linesBetween + 1);
        m_index.save();
        EXPECT_EQ(crossingsIn(m_index), 20 + linesBetween + 1) << "what is there";
    }
}

}  // namespace
}  // namespace ledger

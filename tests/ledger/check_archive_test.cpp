#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <utility>

#include "failing_power.h"
#include "inquiry/check.h"
#include "ledger/line.h"
#include "program.h"
#include "test_folder.h"

/* Whether the ledger has a period for each of the archive's. */

namespace inquiry {
namespace {

/** The lines of a ledger, an hour before local time, and an archive. */
class ArchivedPeriods : public testing::Test {
protected:
    void add(const char* time, const std::string& kind, const nlohmann::ordered_json& body = {}) {
        const int64_t utc = *ledger::utcOf("2026-11-22T" + std::string(time) + ".000Z");
        m_lines += ledger::lineText({++m_seq, "epoch", {utc, "", 0}, kind}, ledger::bodyText(body));
    }
    void addPeriod(const char* time, const char* archived) {
        add(time, "period",
            {{"offset", 3600},
             {"archived", "2026-11-22 " + std::string(archived)},
             {"camera", "Door"},
             {"tallies", {{"Entrance1_Entrances_Person", 0}, {"Entrance1_Exits_Person", 0}}}});
        addArchived(archived);
    }
    void addArchived(const std::string& time, const char* camera = "Door", const char* day = "2026-11-22") {
        m_archive += day + (" " + time) + "," + camera + ",0,0,0,0\n";
    }

    /** From 8:00 to 8:50 local time; what more there is comes between 8:30 and 8:45. */
    template <typename More>
    void live(const More& more) {
        add("07:00:00", "start");
        addPeriod("07:15:00", "08:15:00");
        addPeriod("07:30:00", "08:30:00");
        more();
        addPeriod("07:45:00", "08:45:00");
        add("07:50:00", "watched");
    }

    std::vector<std::string> faults() {
        FailingPower disk(1);
        disk.replace("000000000001-2026-11-22.ndjson", m_lines);
        const std::string path = m_folder.path() / "archive";
        writeFile(path, m_archive);
        std::vector<std::string> found = check(disk, path).faults;
        for (std::string& fault : found) {
            fault = fault.starts_with(path) ? fault.substr(path.size()) : fault;
        }
        return found;
    }

    TestFolder m_folder;
    std::string m_lines;
    std::string m_archive;
    int64_t m_seq = 0;
};

using Faults = std::vector<std::string>;

TEST_F(ArchivedPeriods, AreMissedWhereTheLedgerWasKept) {
    live([this] { addArchived("08:40:00"); });
    EXPECT_EQ(faults(), Faults{": no line of the ledger tells of the period that ended 2026-11-22 08:40:00"});
}

TEST_F(ArchivedPeriods, AreMissedBeforeTheFirstAndBehindTheLastThatItHas) {
    addArchived("08:05:00");
    live([] {});
    addArchived("08:49:00");
    EXPECT_EQ(faults(), (Faults{": no line of the ledger tells of the period that ended 2026-11-22 08:05:00",
                                ": no line of the ledger tells of the period that ended 2026-11-22 08:49:00"}));
}

TEST_F(ArchivedPeriods, AreNotMissedBeforeTheLedgerBeganAndBehindItsEnd) {
    addArchived("23:55:00", "Door", "2026-11-21");
    addArchived("07:55:00");
    live([] {});
    addArchived("08:55:00");
    EXPECT_EQ(faults(), Faults());
}

TEST_F(ArchivedPeriods, AreNotMissedWhereARunEnded) {
    live([this] {
        addArchived("08:40:00");
        add("07:41:00", "start", {{"last_run", "killed"}});
    });
    EXPECT_EQ(faults(), Faults());
}

TEST_F(ArchivedPeriods, AreNotMissedWhileTheApplicationWasStopped) {
    live([this] {
        add("07:31:00", "stop");
        addArchived("08:40:00");  // by one that kept no ledger
        add("07:41:00", "start");
    });
    EXPECT_EQ(faults(), Faults());
}

TEST_F(ArchivedPeriods, AreMissedWhereOnlyPathsWereCut) {
    live([this] {
        addArchived("08:40:00");
        m_seq += 10;
    });
    add("07:51:00", "cut", {{"removed", "object"}, {"from", 4}, {"through", 13}});
    EXPECT_EQ(faults(), Faults{": no line of the ledger tells of the period that ended 2026-11-22 08:40:00"});
    add("07:52:00", "cut", {{"removed", "all"}, {"from", 4}, {"through", 13}});
    EXPECT_EQ(faults(), Faults()) << "the ledger's own period may have gone with them";
}

TEST_F(ArchivedPeriods, OfFollowersAndOfAWrongClockAreNotMissed) {
    live([this] {
        addArchived("08:40:00", "Follower");
        addArchived("09:40:00");
    });
    EXPECT_EQ(faults(), Faults());
}

}  // namespace
}  // namespace inquiry

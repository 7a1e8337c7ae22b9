#include <chrono>
#include <condition_variable>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

#include "camera_statistics.h"
#include "no_threads.h"
#include "scripted_followers.h"
#include "scripted_platform.h"
#include "slow_build.h"
#include "statistics/occupancy_manager.h"
#include "test_clock.h"

namespace {

constexpr time_t kDay = 86400;
constexpr time_t kStart = 1704067200;  // 2024-01-01 00:00:00
constexpr time_t kDue = kStart + 30 * kDay;

constexpr const char* kFiles[] = {"CrowdCountTidy.csv", "EntranceActivityTidy.csv", "OccupancyTidy.csv",
                                  "AverageCrowdCountTidy.csv"};

/**
 * The clock as a gate: reading a record asks for the time, so that a purge on another thread can be held within a
 * file. Threads other than the one that made the gate wait at their call of the chosen number.
 */
class Gate {
public:
    explicit Gate(const TestClock& clock) {
        setClock([this, &clock] {
            pass();
            return int64_t{clock.now()} * 1000000;
        });
    }
    ~Gate() { open(); }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    void closeAt(int call) {
        const std::lock_guard lock(m_mutex);
        m_closedAt = call;
        m_calls = 0;
    }
    void open() {
        {
            const std::lock_guard lock(m_mutex);
            m_closedAt = 0;
        }
        m_changed.notify_all();
    }

    /** Waits until somebody waits at the gate; false when nobody comes. */
    bool awaitSomebody() {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::minutes(2), [this] { return m_waiting > 0; });
    }

    /** Threads that asked for the time, but for the gate's own. */
    std::set<std::thread::id> threads() {
        const std::lock_guard lock(m_mutex);
        return m_threads;
    }

private:
    void pass() {
        if (std::this_thread::get_id() == m_owner) {
            return;
        }
        std::unique_lock lock(m_mutex);
        m_threads.insert(std::this_thread::get_id());
        if (++m_calls == m_closedAt) {
            ++m_waiting;
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return m_closedAt == 0; });
            --m_waiting;
        }
    }

    const std::thread::id m_owner = std::this_thread::get_id();
    std::mutex m_mutex; /**< guards all that follows */
    std::condition_variable m_changed;
    int m_closedAt = 0;
    int m_calls = 0;
    int m_waiting = 0;
    std::set<std::thread::id> m_threads;
};

/** Whether something comes true before a time that is long on any machine. */
bool becomes(const std::function<bool()>& condition) {
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > giveUp) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

class BackgroundPurge : public CameraStatistics {
protected:
    BackgroundPurge() { m_manager->purgeInBackground(); }
    /** The manager's thread may be held at the gate. */
    ~BackgroundPurge() override {
        m_gate.open();
        m_manager.reset();
    }

    /** Lines of an archive: so many numbers, all 0. */
    static std::string line(const std::string& name, const std::string& date, const std::string& camera) {
        return date + "," + camera + ",0,0" + (name == kFiles[1] ? ",0,0" : name == kFiles[2] ? "" : ",0") + "\n";
    }
    void flush() { m_manager->add({}, {m_camera, m_events, m_followers, m_leaderMetrics}); }

    Gate m_gate{m_clock};
    ScriptedFollowers m_followers;
};

const std::string kOld = "2021-12-31 00:00:00";
const std::string kKept = "2023-12-31 00:00:00";
const std::string kFlushed = "2024-01-31 00:00:00";

TEST_F(BackgroundPurge, IsWaitedForByNobodyAndReadersSeeItDone) {
    for (const char* const file : kFiles) {
        std::ofstream(path(file)) << line(file, kOld, "Old") << line(file, kKept, "Cam") << "no record\n"
                                  << line(file, kOld, "Later");
    }
    m_clock.set(kDue);
    m_gate.closeAt(2);
    flush();
    ASSERT_TRUE(m_gate.awaitSomebody());
    for (const char* const file : kFiles) {
        EXPECT_EQ(content(file), line(file, kOld, "Old") + line(file, kKept, "Cam") + "no record\n" +
                                     line(file, kOld, "Later") + line(file, kFlushed, "Cam"))
            << "not purged yet: " << file;
    }
    const std::string report = m_manager->getSummaryReportCSV();
    EXPECT_EQ(report.find("Old"), std::string::npos) << report;
    EXPECT_EQ(report.find("Later"), std::string::npos) << report;
    EXPECT_NE(report.find("\n" + kKept), std::string::npos) << report;
    EXPECT_NE(report.find("\n" + kFlushed), std::string::npos) << report;
    const auto dates = [](const auto& records) {
        std::vector<std::string> found;
        for (const auto& record : records) {
            found.push_back(record.dateTime);
        }
        return found;
    };
    m_clock.advance(10);
    const std::vector<std::string> seen = {kKept, kFlushed /* of the line that is no record */, kFlushed};
    EXPECT_EQ(dates(m_manager->getArchivedCrowdCountRecords()), seen);
    EXPECT_EQ(dates(m_manager->getArchivedEntranceActivityRecords()), seen);
    EXPECT_EQ(dates(m_manager->getArchivedOccupancyObjectRecords()), seen);
    EXPECT_EQ(dates(m_manager->getArchivedAverageCrowdCountRecords()), seen);

    m_clock.advance(290);
    flush();  // while the first file is half read
    m_gate.open();
    for (const char* const file : kFiles) {
        const std::string blank = file == kFiles[1]   ? ",,100,100,0,0\n"
                                  : file == kFiles[2] ? ",,100,0\n"
                                                      : ",,100,100,0\n";
        const std::string expected = line(file, kKept, "Cam") + kFlushed + blank + line(file, kFlushed, "Cam") +
                                     line(file, "2024-01-31 00:05:00", "Cam");
        EXPECT_TRUE(becomes([&] { return content(file) == expected; })) << file << ":\n" << content(file);
    }
    EXPECT_EQ(m_manager->getSummaryReportCSV().find(report), 0U) << "the report goes on from the one before";
    EXPECT_EQ(m_gate.threads().size(), 1U) << "one file at a time";
}

TEST_F(BackgroundPurge, ThatThrowsIsToldOnceItHas) {
    std::ofstream(path(kFiles[2])) << line(kFiles[2], kOld, "Old") << "d,Cam,x,0\n";
    std::ofstream(path(kFiles[3])) << line(kFiles[3], kOld, "Old");
    m_clock.set(kDue);
    flush();
    EXPECT_TRUE(becomes([&] {
        try {
            m_manager->rethrowPurge();
            return false;
        } catch (const std::invalid_argument&) {
            return true;
        }
    }));
    EXPECT_NO_THROW(m_manager->rethrowPurge()) << "once";
    EXPECT_TRUE(becomes([&] { return content(kFiles[3]) == line(kFiles[3], kFlushed, "Cam"); }))
        << "the archives behind it are purged";
    EXPECT_EQ(content(kFiles[2]), line(kFiles[2], kOld, "Old") + "d,Cam,x,0\n" + line(kFiles[2], kFlushed, "Cam"));
}

TEST_F(BackgroundPurge, IsGivenUpAtTheEnd) {
    std::string before;
    for (int i = 0; i < 1000; ++i) {
        before += line(kFiles[0], kOld, "Old");
    }
    std::ofstream(path("Archive.csv")) << before;
    RecordArchive<CrowdCountRecord> archive("Archive.csv");
    std::optional<PurgeQueue> queue;
    queue.emplace();
    archive.purgeOn(*queue);
    std::atomic<const std::atomic<bool>*> stop = nullptr;
    queue->post([&stop](const std::atomic<bool>& ofTheQueue) { stop = &ofTheQueue; });
    m_clock.set(kDue);
    m_gate.closeAt(500);
    archive.purgeArchive();
    ASSERT_TRUE(m_gate.awaitSomebody());
    std::thread ending([&queue] { queue.reset(); });
    EXPECT_TRUE(becomes([&stop] { return stop.load()->load(); }));
    m_gate.open();
    ending.join();
    EXPECT_EQ(content("Archive.csv"), before);
    EXPECT_FALSE(std::filesystem::exists(path("Archive.csv") + ".new"));
}

TEST_F(BackgroundPurge, IsTriedAgainWhenNoThreadCanBeStarted) {
    std::ofstream(path("Archive.csv")) << line(kFiles[0], kOld, "Old");
    RecordArchive<CrowdCountRecord> archive("Archive.csv");
    PurgeQueue queue;
    archive.purgeOn(queue);
    m_clock.set(kDue);
    {
        const NoThreads noThreads;
        EXPECT_THROW(archive.purgeArchive(), std::system_error);
    }
    EXPECT_EQ(archive.getNextPurgeDate(), kDue) << "it is still due";
    ASSERT_FALSE(archive.pendingPurge()) << "readers see what is there";
    archive.purgeArchive();
    EXPECT_TRUE(becomes([&] { return content("Archive.csv").empty(); }));
    archive.clearArchive();  // waits for nothing more
}

/** An archive that is purged again and again while it is appended to and read. */
TEST_F(BackgroundPurge, LosesNothingThatIsAppendedMeanwhile) {
    RecordArchive<CrowdCountRecord> archive("Archive.csv");
    PurgeQueue queue;
    archive.purgeOn(queue);
    archive.setPurgeHorizon(0);
    archive.setPurgeInterval(0);
    const auto record = [](int number) {
        return CrowdCountRecord(OccupancyRecordBase::timeToString(kStart + number), "Cam", aoi::aoi1, objects::person,
                                number);
    };
    std::atomic<int> done = 0;
    const int flushes = kSlow ? 300 : 3000;
    std::thread reader([&] {
        while (done < flushes) {
            const int before = done;
            int last = 0;
            for (const CrowdCountRecord& each : archive.getRecords()) {
                ASSERT_TRUE(last == 0 || each.count == last + 1) << each.count << " after " << last;
                last = each.count;
            }
            ASSERT_GE(last, before) << "an appended record is gone";
        }
    });
    for (int number = 1; number <= flushes; ++number) {
        m_clock.set(kStart + number - 50);  // keeps the last fifty
        archive.setNextPurgeDate(kStart);
        archive.addRecords({record(number)}, number > 50);
        done = number;
    }
    reader.join();
    archive.clearArchive();  // waits
    archive.addRecords({record(1)}, false);
    EXPECT_EQ(archive.getRecords().size(), 1U);
    EXPECT_EQ(LogCapture::ofLevel("error"), std::vector<std::string>{});
}

}  // namespace

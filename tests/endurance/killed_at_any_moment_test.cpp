#include "killed_writer.h"
#include "log_capture.h"
#include "statistics/record_archive.h"
#include "test_clock.h"

namespace {

constexpr time_t kStart = 1704067200;  // 2024-01-01 00:00:00
constexpr time_t kDay = 86400;

/** Appends flushes of three lines and purges all but the last hundred lines, one second apart. */
class Archives : public Writer {
public:
    explicit Archives(bool purges) : m_purges(purges) {}

    void write() override {
        for (int next = m_progress->done + 1;; next += 3) {
            std::vector<EntranceActivityRecord> flush;
            for (int number = next; number < next + 3; ++number) {
                flush.emplace_back(OccupancyRecordBase::timeToString(kStart + number), "Cam", entrance::entrance1,
                                   objects::person, number, number);
            }
            m_progress->begun = next + 2;
            m_archive.addRecords(flush, true);
            m_progress->done = next + 2;
            if (m_purges) {
                m_progress->purgeBegun = next - 100;
                m_archive.purgeBefore(kStart + next - 100);
                m_progress->purgeDone = next - 100;
            }
        }
    }

    void check() override {
        m_archive.repair();
        std::vector<int> numbers;
        const std::vector<EntranceActivityRecord> records = m_archive.getRecords();
        for (const EntranceActivityRecord& record : records) {
            numbers.push_back(record.entranceCount);
            EXPECT_EQ(record.dateTime, OccupancyRecordBase::timeToString(kStart + record.entranceCount));
            if (record.exitCount != record.entranceCount && !m_torn.contains(record.entranceCount)) {
                EXPECT_EQ(&record, &records.back()) << "only the last line can be torn";
                m_torn.insert(record.entranceCount);
            }
        }
        const int purged = std::max(m_first, m_progress->purgeDone.load());
        const int purging = std::max(m_first, m_progress->purgeBegun.load());
        m_first = numbers.empty() || numbers.front() != purging ? purged : purging;
        expectInOrder(numbers, m_first);
        if (!m_purges && numbers.size() > 3000) {
            m_archive.clearArchive();
            m_first = m_progress->done + 1;
        }
    }

private:
    const bool m_purges;
    int m_first = 1;
    RecordArchive<EntranceActivityRecord> m_archive{"EntranceActivityTidy.csv"};
};

/** Appends single lines, one a second, while a queue purges all but the last hundred of them without a pause. */
class PurgedArchives : public Writer {
public:
    explicit PurgedArchives(TestClock& clock) : m_clock(clock) {}

    void write() override {
        PurgeQueue queue;
        m_archive.purgeOn(queue);
        m_archive.setPurgeHorizon(0);
        for (int next = m_progress->done + 1;; ++next) {
            m_clock.set(kStart + next - 100);
            m_archive.setNextPurgeDate(kStart - 100);
            m_progress->begun = next;
            m_progress->purgeBegun = next;
            m_archive.addRecords(
                {{OccupancyRecordBase::timeToString(kStart + next), "Cam", aoi::aoi1, objects::person, next}}, true);
            m_progress->done = next;
        }
    }

    void check() override {
        m_archive.repair();
        std::vector<int> numbers;
        for (const CrowdCountRecord& record : m_archive.getRecords()) {
            const bool isNext = numbers.empty() || record.count == numbers.back() + 1;
            // A line that was torn within its number is the last of its run and has a shorter one.
            numbers.push_back(isNext ? record.count : numbers.back() + 1);
            if (!isNext) {
                m_torn.insert(numbers.back());
            }
        }
        ASSERT_FALSE(numbers.empty() && m_progress->done > 0) << "the last hundred stay";
        const int first = numbers.empty() ? 1 : numbers.front();
        ASSERT_GE(first, m_first);
        ASSERT_LE(first, std::max(1, m_progress->begun - 99)) << "a line younger than the horizon was purged";
        m_first = first;
        expectInOrder(numbers, first);
    }

private:
    TestClock& m_clock;
    int m_first = 1;
    RecordArchive<CrowdCountRecord> m_archive{"CrowdCountTidy.csv"};
};

/** Logs lines of 50 kB on ever new days, so that every twentieth of them shortens the file. */
class Logs : public Writer {
public:
    explicit Logs(TestClock& clock) : m_clock(clock) {}

    void write() override {
        Logger log("app", "SenvoLog.txt");
        for (int next = m_progress->done + 1;; ++next) {
            m_clock.advance(kDay + 1);
            m_progress->begun = next;
            log.warning(message(next));
            m_progress->done = next;
        }
    }

    void check() override {
        const Logger log("app", "SenvoLog.txt");
        std::vector<int> numbers;
        int lastTorn = 0;
        size_t size = 0;
        for (const LogEntry& entry : log.getLogEntriesFromFile()) {
            ASSERT_EQ(entry._appName, "app");
            size += entry.serialize().size();
            if (!entry._message.starts_with("line ")) {
                EXPECT_LT(entry._message.size(), 300U) << "lines of the log itself are short";
                continue;
            }
            EXPECT_EQ(lastTorn, 0) << "only the last line can be torn";
            // A line that was torn within its number has a shorter one.
            const int number = numbers.empty() ? std::stoi(entry._message.substr(5)) : numbers.back() + 1;
            numbers.push_back(number);
            if (entry._message != message(number) && !m_torn.contains(number)) {
                EXPECT_TRUE(message(number).starts_with(entry._message)) << entry._message.substr(0, 50);
                m_torn.insert(number);
                lastTorn = number;
            }
        }
        const bool shortened = !numbers.empty() && numbers.front() != m_first;
        if (shortened) {
            EXPECT_GT(numbers.front(), m_first);
            EXPECT_GT(size, 1048576U) << "shortened to less than what is to be kept";
            m_first = numbers.front();
        }
        expectInOrder(numbers, m_first);
    }

private:
    static std::string message(int number) {
        return "line " + std::to_string(number) + std::string(50'000, ' ') + "end";
    }

    TestClock& m_clock;
    int m_first = 1;
};

class KilledAtAnyMoment : public testing::Test {
protected:
    const TimeZone m_utc{"UTC0"};
    const LogCapture m_folder;
    TestClock m_clock{kStart};
};

TEST_F(KilledAtAnyMoment, AppendingLosesNothingThatWasFlushed) {
    Archives archives(false);
    killAtAnyMoment(archives, 4000);
}

TEST_F(KilledAtAnyMoment, PurgingLosesNothingThatWasFlushed) {
    Archives archives(true);
    killAtAnyMoment(archives, 6000);
}

TEST_F(KilledAtAnyMoment, PurgingBesideTheAppendsLosesNothingThatWasFlushed) {
    PurgedArchives archives(m_clock);
    killAtAnyMoment(archives, 6000);
}

TEST_F(KilledAtAnyMoment, RotatingTheLogLosesNothingThatWasFlushed) {
    Logs logs(m_clock);
    killAtAnyMoment(logs, 20000);
}

}  // namespace

#include <atomic>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sched.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "desktop_config.h"
#include "log_capture.h"
#include "parameter_controller.h"
#include "record_archive.h"
#include "sanitized.h"
#include "shared.h"
#include "test_clock.h"

/*
 * A process that writes without a pause is killed at a random moment, again and again over the same files; each time a
 * start has to find everything that was finished before, in order and once, and at most one torn line.
 */

namespace {

constexpr time_t kStart = 1704067200;  // 2024-01-01 00:00:00
constexpr time_t kDay = 86400;

/** Numbers of what a writer has begun and finished. */
struct Progress {
    std::atomic<int> begun = 0;
    std::atomic<int> done = 0;
    std::atomic<int> purgeBegun = 0;
    std::atomic<int> purgeDone = 0;
};

/** One kind of file, its writer and what has to be found of its work. */
class Writer {
public:
    virtual ~Writer() = default;

    /** In the child: writes for ever. */
    virtual void write() = 0;

    /** In the parent: starts over what the child left, and checks it. */
    virtual void check() = 0;

    /** Whether the child was in the midst of something. */
    bool wasAtWork() const {
        return m_progress->begun != m_progress->done || m_progress->purgeBegun != m_progress->purgeDone;
    }

    /** Lines that were torn, and passed for whole ones. */
    size_t torn() const { return m_torn.size(); }

protected:
    /** Numbers in order without a gap, from first to what was finished or begun; returns the last. */
    void expectInOrder(const std::vector<int>& numbers, int first) {
        for (size_t i = 0; i < numbers.size(); ++i) {
            ASSERT_EQ(numbers[i], first + static_cast<int>(i));
        }
        const int next = first + static_cast<int>(numbers.size());
        EXPECT_GT(next, m_progress->done) << "a line that was flushed is gone";
        EXPECT_LE(next, m_progress->begun + 1);
        m_progress->begun = m_progress->done = next - 1;
        m_progress->purgeDone = m_progress->purgeBegun = first;
    }

    const Shared<Progress> m_progress;
    std::set<int> m_torn;
};

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

/** Saves all settings over and over, every number the number of the save. */
class Settings : public Writer {
public:
    Settings() {
        desktop::DesktopConfig config;
        desktop::setDesktopConfig(config);
        parameter_controller store(m_config);
        store.init_controller("ostrel_senvo");
        store.save_config_params(numbered(0));
    }

    void write() override {
        parameter_controller store(m_config);
        store.init_controller("ostrel_senvo");
        for (int next = m_progress->done + 1;; ++next) {
            m_progress->begun = next;
            store.save_config_params(numbered(next));
            m_progress->done = next;
        }
    }

    void check() override {
        parameter_controller store(m_config);
        store.init_controller("ostrel_senvo");
        const ConfigParams found = store.load_config_params();
        // In the order in which they are saved: those of the last save first, then those of the one before.
        std::vector<int> numbers;
        numbers.insert(numbers.end(), found.i_Exclusion1.begin(), found.i_Exclusion1.end());
        numbers.push_back(found.i_DetectionControlPoints);
        numbers.insert(numbers.end(), found.i_Detection1.begin(), found.i_Detection1.end());
        numbers.push_back(found.i_MinNumberOfPeopleForTrigger);
        numbers.push_back(static_cast<int>(found.f_Sensitivity));
        numbers.push_back(number(found.str_DetectionOverlay));
        numbers.push_back(found.i_MaxDisappeared);
        numbers.insert(numbers.end(), found.i_Occupancy3.begin(), found.i_Occupancy3.end());
        numbers.push_back(number(found.str_OccupancyAutoResetTime));
        numbers.push_back(found.cameraInfo.i_PeriodTime);
        for (const std::string& password : found.cameraInfo.followerPassword) {
            numbers.push_back(number(password));
        }
        EXPECT_TRUE(std::is_sorted(numbers.rbegin(), numbers.rend()));
        EXPECT_GE(numbers.back(), m_progress->done) << "a setting that was saved is gone";
        EXPECT_GE(numbers.back(), numbers.front() - 1) << "of two saves at most";
        EXPECT_LE(numbers.front(), std::max(m_half, m_progress->begun.load()));
        m_half = numbers.front();
        m_progress->begun = m_progress->done = numbers.back();
    }

private:
    static ConfigParams numbered(int save) {
        ConfigParams config;
        config.i_Exclusion1.fill(save);
        config.i_DetectionControlPoints = save;
        config.i_Detection1.fill(save);
        config.i_MinNumberOfPeopleForTrigger = save;
        config.f_Sensitivity = static_cast<float>(save);
        config.str_DetectionOverlay = text(save);
        config.i_MaxDisappeared = save;
        config.i_Occupancy3.fill(save);
        config.str_OccupancyAutoResetTime = text(save);
        config.cameraInfo.i_PeriodTime = save;
        config.cameraInfo.followerPassword.fill(text(save));
        return config;
    }

    /** A text that shows when part of it is missing. */
    static std::string text(int save) { return std::to_string(save) + std::string(500, '.') + "end"; }
    static int number(const std::string& value) {
        const int save = std::atoi(value.c_str());
        EXPECT_EQ(value, text(save));
        return save;
    }

    const ConfigParams m_config;
    int m_half = 0; /**< a save that a kill cut short earlier */
};

struct KillCase {
    const char* label;
    int longest; /**< microseconds until the kill at most */
    std::unique_ptr<Writer> (*make)(TestClock& clock);
};

class KilledAtAnyMoment : public testing::TestWithParam<KillCase> {};

TEST_P(KilledAtAnyMoment, LosesNothingThatWasFlushed) {
    const int rounds = kSanitized ? 40 : 500;
    const int longest = GetParam().longest * (kSanitized ? 10 : 1);
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const TimeZone utc("UTC0");
    const LogCapture folder;
    TestClock clock(kStart);
    const std::unique_ptr<Writer> writer = GetParam().make(clock);
    int atWork = 0;
    for (int round = 0; round < rounds && !testing::Test::HasFailure(); ++round) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            writer->write();
            _exit(1);
        }
        const timespec moment = {0, std::uniform_int_distribution<long>(0, longest * 1000L)(random)};
        nanosleep(&moment, nullptr);
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself with " << status;
        atWork += writer->wasAtWork() ? 1 : 0;
        writer->check();
    }
    std::cout << GetParam().label << ": killed " << rounds << " times, " << atWork << " of them at work, "
              << writer->torn() << " torn lines passed for whole ones\n";
    EXPECT_GT(atWork, rounds / 20) << "the moments have to fall into the work";
}

INSTANTIATE_TEST_SUITE_P(
    Table, KilledAtAnyMoment,
    testing::Values(KillCase{"appends", 4000,
                             [](TestClock&) -> std::unique_ptr<Writer> { return std::make_unique<Archives>(false); }},
                    KillCase{"purges", 6000,
                             [](TestClock&) -> std::unique_ptr<Writer> { return std::make_unique<Archives>(true); }},
                    KillCase{"log rotations", 20000,
                             [](TestClock& clock) -> std::unique_ptr<Writer> { return std::make_unique<Logs>(clock); }},
                    KillCase{"settings saves", 20000,
                             [](TestClock&) -> std::unique_ptr<Writer> { return std::make_unique<Settings>(); }}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

}  // namespace

#pragma once

#include <atomic>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "statistics/archive_file.h"
#include "statistics/occupancy_records.h"
#include "statistics/purge_cut.h"
#include "statistics/purge_queue.h"

/**
 * One kind of statistic record in one CSV file on the camera's flash: a record a line, the newest at the end.
 *
 * Appends are whole or not at all, except that a killed process may leave one torn last line, which repair() mends at
 * the next start; where the disk does not let it, every append tries again before it adds anything. File errors lose
 * the records at hand and are logged, at most once a minute for all archives; they never fail the caller. Main-loop
 * thread, except for what says otherwise.
 */
class RecordArchiveBase {
public:
    /** fileName: within the package's folder localdata, which must exist. The first purge is due 30 days from now. */
    explicit RecordArchiveBase(const std::string& fileName);
    virtual ~RecordArchiveBase() = default;

    RecordArchiveBase(const RecordArchiveBase&) = delete;
    RecordArchiveBase& operator=(const RecordArchiveBase&) = delete;

    const std::string& path() const { return archiveFilename; }

    time_t getNextPurgeDate() const { return nextPurgeDate; }
    void setNextPurgeDate(time_t date) { nextPurgeDate = date; }
    int getPurgeInterval() const { return purgeInterval; }
    void setPurgeInterval(int days) { purgeInterval = days; }
    int getPurgeHorizon() const { return purgeHorizon; }
    void setPurgeHorizon(int days) { purgeHorizon = days; }

    /** Moves the next purge on by the interval and returns its date. */
    time_t incrementNextPurgeDate();

    /** Empties the file. */
    void clearArchive();

    /** Purges when that is due, once however late it is; on the queue, if there is one. */
    void purgeArchive() EXCLUDES(m_mutex);

    /** Hands purges that are due on to a queue, from now on. It has to be gone before the archive is. */
    void purgeOn(PurgeQueue& queue) { m_queue = &queue; }

    /** The purge that was handed on and is not done: readers take the file as if it were. Any thread. */
    std::optional<PurgeCut> pendingPurge() const EXCLUDES(m_mutex);

    /** Removes the records older than the horizon. */
    virtual bool purgeRecords() = 0;

protected:
    static constexpr time_t kSecondsPerDay = 86400;

    /** The moment that many days ago, by the time that records would be given now. */
    static time_t daysAgo(int days);

    /** Purges the file. Any thread; when stop becomes true, it may give up and leave the file as it was. */
    virtual void purgeFile(const PurgeCut& cut, const std::atomic<bool>& stop) = 0;

    /** Waits until what was handed on is done: the file is the caller's alone. */
    void awaitPurge() const EXCLUDES(m_mutex);

private:
    void endPurge() EXCLUDES(m_mutex);

    const std::string archiveFilename;
    time_t nextPurgeDate;   /**< at or after which the next purge runs; not kept across restarts */
    int purgeInterval = 30; /**< days between purges */
    int purgeHorizon = 750; /**< age in days beyond which records go */
    PurgeQueue* m_queue = nullptr;

    mutable Mutex m_mutex; /**< guards m_pending */
    mutable ConditionVariable m_purged;
    std::optional<PurgeCut> m_pending GUARDED_BY(m_mutex);
};

template <typename T>
class RecordArchive : public RecordArchiveBase {
public:
    using RecordArchiveBase::RecordArchiveBase;

    /** Appends the records and, when asked to, purges if that is due. Always true. */
    bool addRecords(const std::vector<T>& records, bool purge) {
        std::string lines;
        for (const T& record : records) {
            lines += record.serialize() + '\n';
        }
        if (!m_isWhole) {
            m_isWhole = archive_file::repairLastLine(path(), isRecord);
        }
        if (m_isWhole) {
            m_isWhole = archive_file::append(path(), lines);
        }
        if (purge) {
            purgeArchive();
        }
        return true;
    }

    /**
     * All records in file order, without those that a purge is about to remove. Any thread. A line with another number
     * of fields gives a default record, dated now; a number that is none throws what std::stoi throws.
     */
    std::vector<T> getRecords() const {
        std::vector<T> records;
        // Asked for before the file is opened: a purge that ends in between does no harm.
        const std::optional<PurgeCut> purge = pendingPurge();
        DateReader date;
        // Made once: asking for the time in the machine's zone costs more than reading a line.
        T dated;
        dated.dateTime = purge ? purge->now : dated.dateTime;
        archive_file::forEachLine(path(), [&](const std::string& line) {
            T record = dated;
            record.deserialize(line);
            if (!purge || purge->before <= date.read(record.dateTime)) {
                records.push_back(std::move(record));
            }
        });
        return records;
    }

    bool purgeRecords() override { return purgeByDaysAgo(getPurgeHorizon()); }

    bool purgeByDaysAgo(int days) { return purgeBefore(daysAgo(days)); }

    /** Removes the records before a moment; lines of another shape become default records dated now. True. */
    bool purgeBefore(time_t cutOff) {
        awaitPurge();
        purgeFile({cutOff, OccupancyRecordBase::getCurrentDateTime()}, false);
        return true;
    }

    /**
     * Mends what a killed process left: a last line without its end is completed when it parses, and else dropped.
     * False when the disk does not allow it.
     */
    bool repair() {
        awaitPurge();
        m_isWhole = archive_file::repair(path(), isRecord);
        return m_isWhole;
    }

private:
    static T parse(const std::string& line, const std::string& now) {
        T record;
        if (!record.deserialize(line)) {
            record.dateTime = now;
        }
        return record;
    }

    static bool isRecord(const std::string& line) {
        try {
            return T().deserialize(line);
        } catch (const std::logic_error&) {
            return false;
        }
    }

    void purgeFile(const PurgeCut& cut, const std::atomic<bool>& stop) override {
        struct Stopped {};
        DateReader date;
        try {
            archive_file::rewrite(path(), [&](const std::string& line, std::string& kept) {
                if (stop) {
                    throw Stopped();
                }
                const T record = parse(line, cut.now);
                if (cut.before <= date.read(record.dateTime)) {
                    kept = record.serialize();
                    return true;
                }
                return false;
            });
        } catch (const Stopped&) {
            return;
        }
    }

    bool m_isWhole = true; /**< false while the last line may lack its end */
};

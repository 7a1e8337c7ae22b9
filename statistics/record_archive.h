#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "archive_file.h"
#include "occupancy_records.h"

/**
 * One kind of statistic record in one CSV file on the camera's flash: a record a line, the newest at the end.
 *
 * Appends are whole or not at all, except that a killed process may leave one torn last line, which repair() mends at
 * the next start; where the disk does not let it, every append tries again before it adds anything. File errors lose
 * the records at hand and are logged, at most once a minute for all archives; they never fail the caller. Main-loop
 * thread, except for getRecords.
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

    /** Purges when that is due, once however late it is. */
    void purgeArchive();

    /** Removes the records older than the horizon. */
    virtual bool purgeRecords() = 0;

protected:
    static constexpr time_t kSecondsPerDay = 86400;

private:
    const std::string archiveFilename;
    time_t nextPurgeDate;   /**< at or after which the next purge runs; not kept across restarts */
    int purgeInterval = 30; /**< days between purges */
    int purgeHorizon = 750; /**< age in days beyond which records go */
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
        if (m_isWhole || repair()) {
            m_isWhole = archive_file::append(path(), lines);
        }
        if (purge) {
            purgeArchive();
        }
        return true;
    }

    /**
     * All records in file order. A line with another number of fields gives a default record, dated now; a number that
     * is none throws what std::stoi throws.
     */
    std::vector<T> getRecords() const {
        std::vector<T> records;
        archive_file::forEachLine(path(), [&](const std::string& line) { records.push_back(parse(line)); });
        return records;
    }

    bool purgeRecords() override { return purgeByDaysAgo(getPurgeHorizon()); }

    bool purgeByDaysAgo(int days) {
        // Through the text form and back, so that the cut-off is read as the records' own dates are.
        const time_t now = OccupancyRecordBase::stringToTime(OccupancyRecordBase::getCurrentDateTime());
        return purgeBefore(now - days * kSecondsPerDay);
    }

    /** Removes the records before a moment; lines of another shape become default records dated now. True. */
    bool purgeBefore(time_t cutOff) {
        DateReader date;
        archive_file::rewrite(path(), [&](const std::string& line, std::string& kept) {
            const T record = parse(line);
            if (cutOff <= date.read(record.dateTime)) {
                kept = record.serialize();
                return true;
            }
            return false;
        });
        return true;
    }

    /**
     * Mends what a killed process left: a last line without its end is completed when it parses, and else dropped.
     * False when the disk does not allow it.
     */
    bool repair() {
        m_isWhole = archive_file::repair(path(), [](const std::string& line) {
            try {
                return T().deserialize(line);
            } catch (const std::logic_error&) {
                return false;
            }
        });
        return m_isWhole;
    }

private:
    static T parse(const std::string& line) {
        T record;
        record.deserialize(line);
        return record;
    }

    /** Reads dates, remembering the last: the lines of one flush share theirs. */
    class DateReader {
    public:
        time_t read(const std::string& text) {
            if (text != m_text) {
                m_text = text;
                m_time = OccupancyRecordBase::stringToTime(text);
            }
            return m_time;
        }

    private:
        std::string m_text;
        time_t m_time = 0;
    };

    bool m_isWhole = true; /**< false while the last line may lack its end */
};

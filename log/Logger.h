#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <sys/types.h>
#include <vector>

#include "base/mutex.h"
#include "base/unique_fd.h"

/** The severity of a log line; written as "info", "warning" and "error". */
enum class LogLevel {
    Info = 0,
    Warning = 1,
    Error = 2
};

/** One line of the application log. */
struct LogEntry {
    std::string _dateTime; /**< local time, "YYYY-MM-DD hh:mm:ss" */
    std::string _appName;
    std::string _logLevel; /**< the written level */
    std::string _message;

    /** The form kept in the file: the four texts joined by bars. */
    std::string serialize() const;

    /** The form for people: joined by blanks. */
    std::string serializeAsPlainText() const;

    /** Joined by commas, the message wrapped in double quotes; nothing inside the message is escaped. */
    std::string serializeAsCSV() const;

    /**
     * Reads the stored form. The first three pieces are date, name and level; the message is what follows the last
     * bar, so a message with bars of its own keeps only its end. A line without a bar is all message.
     */
    static LogEntry deserialize(const std::string& line);
};

/**
 * The application's own log file, so that a user can read the application's history on the web page; every line also
 * goes to the system log.
 *
 * Warnings and errors reach the file at once; up to 100 informational lines may wait in memory. File errors lose lines
 * silently: logging never throws and never fails its caller. A message is one line in the file: control characters
 * become blanks. All operations may be called from any thread.
 */
class Logger {
public:
    /**
     * Mends the file after a process that was killed: a last line without its end is completed when it has all its
     * fields, and dropped, with a line that says so, when it has not. Logs the start of the application. The file's
     * folder must exist for anything to be kept.
     */
    Logger(std::string appName, std::string logfilePath);

    /** Logs the stop, unless close() did. */
    ~Logger();

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    void info(const std::string& message);
    void warning(const std::string& message);
    void error(const std::string& message);

    /** Writes the waiting entries to the file, and once a day looks whether the file has grown too long. */
    void flush();

    /**
     * Logs the stop and writes everything out; for ways out of the process that run no destructors. What is logged
     * later goes to the system log only.
     */
    void close();

    /** Forgets the waiting entries and empties the file. */
    void clear();

    /** Size of the file in bytes, -1 when it cannot be opened. */
    int64_t getLogFileSize() const;

    /** Every line of the file, in order, without line ends. */
    std::vector<std::string> getLogLines() const;

    /** Every line of the file, in order, parsed. */
    std::vector<LogEntry> getLogEntriesFromFile() const;

    /** The whole log, one line per entry, in the stored, the plain and the CSV form. They flush first. */
    std::string getSerializedLogContents();
    std::string getPlainLogContents();
    std::string getCSVLogContents();

    /** The newest lines of the log in the stored form, those that fit into 1 MiB. Flushes first. */
    std::string getNewestSerializedContents();

    static std::string getCurrentDateTime();
    static std::string timeToString(time_t time);

private:
    void addLogEntry(LogLevel level, const std::string& message) EXCLUDES(m_mutex);
    void addWaiting(LogLevel level, const std::string& message) REQUIRES(m_mutex);
    void writeLast(const std::string& message) EXCLUDES(m_mutex);
    void flushLast() EXCLUDES(m_mutex);
    bool isPurgeDue() REQUIRES(m_mutex);
    void writeWaiting() REQUIRES(m_mutex);
    void incrementNextPurgeDate() REQUIRES(m_mutex);
    void purge() EXCLUDES(m_mutex);
    void shorten() EXCLUDES(m_mutex);
    void tellOfPurge(const char* which) EXCLUDES(m_mutex);

    /** A file that others go on writing to, and how much of it there is now. */
    struct Reading {
        UniqueFd file;
        off_t size = 0;
    };
    Reading openToRead() const EXCLUDES(m_mutex);
    std::string contents(std::string (LogEntry::*form)() const);

    const std::string _appName;
    const std::string _logfilePath;
    const int _minSize = 1048576;      /**< bytes to keep when purging */
    const int _maxSize = 2097152;      /**< file size in bytes at which a purge happens */
    const int _purgeCheckInterval = 1; /**< days between purge checks */

    mutable Mutex m_mutex; /**< guards the waiting entries and the file; never held across a sync */
    std::vector<LogEntry> _logEntries GUARDED_BY(m_mutex); /**< entries not yet written to the file */
    time_t _nextPurgeCheckDate GUARDED_BY(m_mutex);        /**< earliest time of the next purge check */
    bool m_purging GUARDED_BY(m_mutex) = false;            /**< entries wait while the file is being replaced */
    bool m_flushWanted GUARDED_BY(m_mutex) = false;        /**< flush() was called while the file was being replaced */
    ConditionVariable m_purged;                            /**< the file was replaced */
    bool m_cleared GUARDED_BY(m_mutex) = false;            /**< clear() was called while the file was being replaced */
    bool m_closed GUARDED_BY(m_mutex) = false;             /**< the stop was logged */
};

/** The application's one log, "ostrel_senvo" in "./localdata/SenvoLog.txt"; made before main, destroyed at exit. */
Logger& applicationLog();

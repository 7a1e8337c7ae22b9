#include "Logger.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <syslog.h>
#include <utility>

#include "atomic_file.h"
#include "clock.h"
#include "line_file.h"

namespace {

constexpr size_t kMaxWaitingEntries = 100;
constexpr time_t kSecondsPerDay = 86400;

const char* writtenLevel(LogLevel level) {
    static constexpr std::array<const char*, 3> kNames = {"info", "warning", "error"};
    return kNames[static_cast<size_t>(level)];
}

std::vector<std::string> readLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(std::move(line));
    }
    return lines;
}

int64_t fileSize(const std::string& path) {
    std::ifstream file(path, std::ios::ate | std::ios::binary);
    return file ? static_cast<int64_t>(file.tellg()) : -1;
}

/** Whether a stored line has all its fields. */
bool isWhole(const std::string& line) {
    return std::count(line.begin(), line.end(), '|') >= 3;
}

/** The message on one line: clients and followers have a say in some, and must not make up entries of their own. */
std::string oneLine(std::string message) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; };
    std::replace_if(message.begin(), message.end(), isControl, ' ');
    return message;
}

/** Index of the oldest line to keep: where the lengths, added up from the end, first exceed minSize. */
size_t firstLineToKeep(const std::vector<std::string>& lines, size_t minSize) {
    if (lines.empty()) {
        return 0;
    }
    size_t total = lines.back().size();
    for (size_t i = lines.size() - 1; i-- > 0;) {
        total += lines[i].size();
        if (total > minSize) {
            return i;
        }
    }
    return lines.size() - 1;
}

}  // namespace

std::string LogEntry::serialize() const {
    return _dateTime + "|" + _appName + "|" + _logLevel + "|" + _message;
}

std::string LogEntry::serializeAsPlainText() const {
    return _dateTime + " " + _appName + " " + _logLevel + " " + _message;
}

std::string LogEntry::serializeAsCSV() const {
    return _dateTime + "," + _appName + "," + _logLevel + ",\"" + _message + "\"";
}

LogEntry LogEntry::deserialize(const std::string& line) {
    LogEntry entry;
    const std::array<std::string*, 3> fields = {&entry._dateTime, &entry._appName, &entry._logLevel};
    size_t start = 0;
    size_t found = 0;
    for (size_t bar = line.find('|'); bar != std::string::npos; bar = line.find('|', start)) {
        if (found < fields.size()) {
            *fields[found++] = line.substr(start, bar - start);
        }
        start = bar + 1;
    }
    entry._message = line.substr(start);
    return entry;
}

Logger::Logger(std::string appName, std::string logfilePath)
    : _appName(std::move(appName)), _logfilePath(std::move(logfilePath)), _nextPurgeCheckDate(clockNow()) {
    {
        const MutexLock lock(m_mutex);
        incrementNextPurgeDate();
    }
    const Mending mending = mendLines(_logfilePath, isWhole);
    warning("STARTING " + _appName);
    if (!mending.dropped.empty()) {
        warning("Logger: Dropped the torn last line of the log: \"" + mending.dropped.substr(0, 200) + "\"");
    }
}

Logger::~Logger() {
    close();
}

void Logger::close() {
    const std::string message = "STOPPING " + _appName;
    {
        const MutexLock lock(m_mutex);
        if (m_closed) {
            return;
        }
        addWaiting(LogLevel::Warning, message);
        addWaiting(LogLevel::Warning, "");
        m_closed = true;
    }
    syslog(LOG_WARNING, "%s", message.c_str());
    m_mutex.lock();
    while (m_purging) {
        m_purged.wait(m_mutex);
    }
    writeWaiting();
    m_mutex.unlock();
}

void Logger::info(const std::string& message) {
    addLogEntry(LogLevel::Info, message);
    syslog(LOG_INFO, "%s", message.c_str());
}

void Logger::warning(const std::string& message) {
    addLogEntry(LogLevel::Warning, message);
    syslog(LOG_WARNING, "%s", message.c_str());
    flush();
}

void Logger::error(const std::string& message) {
    addLogEntry(LogLevel::Error, message);
    syslog(LOG_ERR, "%s", message.c_str());
    flush();
}

void Logger::addLogEntry(LogLevel level, const std::string& message) {
    bool full = false;
    {
        const MutexLock lock(m_mutex);
        addWaiting(level, message);
        full = _logEntries.size() > kMaxWaitingEntries;
    }
    if (full) {
        flush();
    }
}

void Logger::addWaiting(LogLevel level, const std::string& message) {
    // Other threads may still be at work while the process ends: the stop stays the last line.
    if (!m_closed) {
        _logEntries.push_back({getCurrentDateTime(), _appName, writtenLevel(level), oneLine(message)});
    }
}

void Logger::flush() {
    bool purgeNow = false;
    {
        const MutexLock lock(m_mutex);
        if (m_purging) {
            m_flushWanted = true;
            return;
        }
        writeWaiting();
        purgeNow = isPurgeDue();
    }
    if (purgeNow) {
        purge();
    }
}

void Logger::writeWaiting() {
    std::string lines;
    for (const LogEntry& entry : _logEntries) {
        lines += entry.serialize() + '\n';
    }
    appendText(_logfilePath, lines);
    _logEntries.clear();
}

bool Logger::isPurgeDue() {
    if (clockNow() <= _nextPurgeCheckDate) {
        return false;
    }
    incrementNextPurgeDate();
    m_purging = fileSize(_logfilePath) >= _maxSize;
    return m_purging;
}

void Logger::incrementNextPurgeDate() {
    _nextPurgeCheckDate += _purgeCheckInterval * kSecondsPerDay;
}

void Logger::purge() {
    // From here until m_purging falls, nobody else touches the file: entries wait in memory, so that no caller waits
    // for the disk.
    info("Purging log file. Initial log file size=" + std::to_string(fileSize(_logfilePath)) + " bytes.");
    const std::vector<std::string> lines = readLines(_logfilePath);
    std::string kept;
    for (size_t i = firstLineToKeep(lines, static_cast<size_t>(_minSize)); i < lines.size(); ++i) {
        kept += lines[i] + '\n';
    }
    replaceFile(_logfilePath, kept);
    const int64_t finalSize = fileSize(_logfilePath);
    {
        const MutexLock lock(m_mutex);
        m_purging = false;
        if (std::exchange(m_cleared, false)) {
            std::ofstream(_logfilePath, std::ios::trunc).flush();
        }
        if (std::exchange(m_flushWanted, false)) {
            writeWaiting();
        }
    }
    m_purged.notify_all();
    info("Purging log file. Final log file size=" + std::to_string(finalSize) + " bytes.");
}

int64_t Logger::getLogFileSize() const {
    return fileSize(_logfilePath);
}

std::vector<std::string> Logger::getLogLines() const {
    const MutexLock lock(m_mutex);
    return readLines(_logfilePath);
}

std::vector<LogEntry> Logger::getLogEntriesFromFile() const {
    std::vector<LogEntry> entries;
    for (const std::string& line : getLogLines()) {
        entries.push_back(LogEntry::deserialize(line));
    }
    return entries;
}

std::string Logger::contents(std::string (LogEntry::*form)() const) {
    flush();
    std::string text;
    for (const LogEntry& entry : getLogEntriesFromFile()) {
        text += (entry.*form)() + '\n';
    }
    return text;
}

std::string Logger::getSerializedLogContents() {
    return contents(&LogEntry::serialize);
}

std::string Logger::getPlainLogContents() {
    return contents(&LogEntry::serializeAsPlainText);
}

std::string Logger::getCSVLogContents() {
    return contents(&LogEntry::serializeAsCSV);
}

void Logger::clear() {
    const MutexLock lock(m_mutex);
    _logEntries.clear();
    m_cleared = m_purging;
    if (!m_purging) {
        std::ofstream(_logfilePath, std::ios::trunc).flush();
    }
}

std::string Logger::getCurrentDateTime() {
    return timeToString(clockNow());
}

std::string Logger::timeToString(time_t time) {
    const std::tm calendar = localTime(time);
    std::array<char, 80> text = {};
    strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &calendar);
    return text.data();
}

Logger& applicationLog() {
    static Logger logger("ostrel_senvo", "./localdata/SenvoLog.txt");
    return logger;
}

namespace {
// Makes the log before main, as the first line of a run.
[[maybe_unused]] Logger& g_madeBeforeMain = applicationLog();
}  // namespace

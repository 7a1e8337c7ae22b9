#include "log/Logger.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>

#include "base/atomic_file.h"
#include "base/clock.h"
#include "base/line_file.h"

namespace {

constexpr size_t kMaxWaitingEntries = 100;
constexpr time_t kSecondsPerDay = 86400;
constexpr off_t kBlock = off_t{1} << 16U;
constexpr off_t kNewestBytes = off_t{1} << 20U;

const char* writtenLevel(LogLevel level) {
    static constexpr std::array<const char*, 3> kNames = {"info", "warning", "error"};
    return kNames[static_cast<size_t>(level)];
}

/** Visits the lines of a file up to a size, without their ends, a block at a time. */
void forEachLine(int file, off_t size, const std::function<void(std::string_view line)>& visit) {
    std::string block(kBlock, '\0');
    std::string begun;  // of a line that reaches beyond a block
    for (off_t at = 0; at < size;) {
        const auto wanted = static_cast<size_t>(std::min<off_t>(size - at, kBlock));
        const ssize_t got = pread(file, block.data(), wanted, at);
        if (got <= 0) {
            break;
        }
        at += got;
        std::string_view rest(block.data(), static_cast<size_t>(got));
        for (size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
            begun += rest.substr(0, end);
            visit(begun);
            begun.clear();
            rest.remove_prefix(end + 1);
        }
        begun += rest;
    }
    if (!begun.empty()) {
        visit(begun);
    }
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

/** Visits the line ends of a file from its end to its beginning, until told to stop. */
void forEachLineEndBackwards(int file, off_t size, const std::function<bool(off_t at)>& visit) {
    std::string block(kBlock, '\0');
    for (off_t end = size; end > 0;) {
        const off_t begin = std::max<off_t>(0, end - kBlock);
        const ssize_t got = pread(file, block.data(), static_cast<size_t>(end - begin), begin);
        for (off_t at = begin + got; got > 0 && at-- > begin;) {
            if (block[static_cast<size_t>(at - begin)] == '\n' && !visit(at)) {
                return;
            }
        }
        end = got > 0 ? begin : 0;
    }
}

/** Where the oldest line to keep begins: where the lengths, added up from the end, first exceed minSize. */
off_t startOfLinesToKeep(int file, off_t size, off_t minSize) {
    std::optional<off_t> lastLine;
    std::optional<off_t> kept;
    off_t total = 0;
    off_t lineEnd = size;
    const auto addLine = [&](off_t begin) {
        total += lineEnd - begin;
        if (lastLine && total > minSize) {
            kept = begin;
        }
        lastLine = lastLine ? lastLine : begin;
        return !kept;
    };
    forEachLineEndBackwards(file, size, [&](off_t at) {
        const bool goOn = at + 1 == size || addLine(at + 1);
        lineEnd = at;
        return goOn;
    });
    if (!kept && size > 0) {
        addLine(0);
    }
    return kept.value_or(lastLine.value_or(0));
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
    {
        const MutexLock lock(m_mutex);
        if (m_closed) {
            return;
        }
        m_closed = true;
    }
    writeLast("STOPPING " + _appName);
    writeLast("");
    flushLast();
}

void Logger::writeLast(const std::string& message) {
    syslog(LOG_WARNING, "%s", message.c_str());
    try {
        const MutexLock lock(m_mutex);
        addWaiting(LogLevel::Warning, message);
    } catch (const std::exception& exception) {
        // Without memory for the line the process ends all the same.
        syslog(LOG_ERR, "writeLast: %s", exception.what());
    }
    flushLast();
}

void Logger::flushLast() {
    bool purgeNow = false;
    try {
        const MutexLock lock(m_mutex);
        while (m_purging) {
            m_purged.wait(m_mutex);
        }
        writeWaiting();
        purgeNow = isPurgeDue();
    } catch (const std::exception& exception) {
        syslog(LOG_ERR, "flushLast: %s", exception.what());
    }
    if (purgeNow) {
        purge();
    }
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
        // Other threads may still be at work while the process ends: the stop stays the last line.
        if (m_closed) {
            return;
        }
        addWaiting(level, message);
        full = _logEntries.size() > kMaxWaitingEntries;
    }
    if (full) {
        flush();
    }
}

void Logger::addWaiting(LogLevel level, const std::string& message) {
    _logEntries.push_back({getCurrentDateTime(), _appName, writtenLevel(level), oneLine(message)});
}

void Logger::flush() {
    bool purgeNow = false;
    {
        const MutexLock lock(m_mutex);
        if (m_purging) {
            m_flushWanted = true;
            return;
        }
        if (m_closed) {
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
    const auto attempt = [](const auto& step) {
        try {
            step();
        } catch (const std::exception& exception) {
            // Without memory for it, say: the log goes on as it is.
            syslog(LOG_ERR, "purge: %s", exception.what());
        }
    };
    attempt([this] {
        tellOfPurge("Initial");
        shorten();
    });
    attempt([this] {
        const MutexLock lock(m_mutex);
        m_purging = false;
        if (std::exchange(m_cleared, false)) {
            std::ofstream(_logfilePath, std::ios::trunc).flush();
        }
        if (std::exchange(m_flushWanted, false)) {
            writeWaiting();
        }
    });
    m_purged.notifyAll();
    attempt([this] { tellOfPurge("Final"); });
}

void Logger::tellOfPurge(const char* which) {
    const std::string message = std::string("Purging log file. ") + which +
                                " log file size=" + std::to_string(fileSize(_logfilePath)) + " bytes.";
    syslog(LOG_INFO, "%s", message.c_str());
    const MutexLock lock(m_mutex);
    addWaiting(LogLevel::Info, message);
}

void Logger::shorten() {
    const UniqueFd file(open(_logfilePath.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (!file || fstat(file.get(), &status) != 0) {
        return;
    }
    const off_t begin = startOfLinesToKeep(file.get(), status.st_size, _minSize);
    std::string kept(static_cast<size_t>(status.st_size - begin), '\0');
    for (size_t have = 0; have < kept.size();) {
        const ssize_t got = pread(file.get(), &kept[have], kept.size() - have, begin + static_cast<off_t>(have));
        if (got <= 0) {
            return;
        }
        have += static_cast<size_t>(got);
    }
    if (!kept.ends_with('\n')) {
        kept += '\n';
    }
    replaceFile(_logfilePath, kept);
}

int64_t Logger::getLogFileSize() const {
    return fileSize(_logfilePath);
}

Logger::Reading Logger::openToRead() const {
    // Lines are whole while the lock is held; what is appended later is left to the next reader.
    const MutexLock lock(m_mutex);
    Reading reading{UniqueFd(open(_logfilePath.c_str(), O_RDONLY | O_CLOEXEC)), 0};
    struct stat status = {};
    if (reading.file && fstat(reading.file.get(), &status) == 0) {
        reading.size = status.st_size;
    }
    return reading;
}

std::vector<std::string> Logger::getLogLines() const {
    const Reading reading = openToRead();
    std::vector<std::string> lines;
    forEachLine(reading.file.get(), reading.size, [&](std::string_view line) { lines.emplace_back(line); });
    return lines;
}

std::vector<LogEntry> Logger::getLogEntriesFromFile() const {
    const Reading reading = openToRead();
    std::vector<LogEntry> entries;
    forEachLine(reading.file.get(), reading.size,
                [&](std::string_view line) { entries.push_back(LogEntry::deserialize(std::string(line))); });
    return entries;
}

std::string Logger::contents(std::string (LogEntry::*form)() const) {
    flush();
    const Reading reading = openToRead();
    // One piece from the start: a text that grows by doubling would need room for two of it.
    size_t size = 0;
    const auto visit = [&](const std::function<void(const std::string& text)>& take) {
        forEachLine(reading.file.get(), reading.size,
                    [&](std::string_view line) { take((LogEntry::deserialize(std::string(line)).*form)()); });
    };
    visit([&](const std::string& text) { size += text.size() + 1; });
    std::string all;
    all.reserve(size);
    visit([&](const std::string& text) { all.append(text).append("\n"); });
    return all;
}

std::string Logger::getNewestSerializedContents() {
    flush();
    const Reading reading = openToRead();
    const off_t earliest = std::max<off_t>(0, reading.size - kNewestBytes);
    off_t begin = earliest == 0 ? 0 : reading.size;
    if (earliest > 0) {
        // The line that reaches across the limit is left out.
        forEachLineEndBackwards(reading.file.get(), reading.size, [&](off_t at) {
            begin = at + 1 >= earliest ? at + 1 : begin;
            return at >= earliest;
        });
    }
    std::string text(static_cast<size_t>(reading.size - begin), '\0');
    const ssize_t got = pread(reading.file.get(), text.data(), text.size(), begin);
    text.resize(static_cast<size_t>(std::max<ssize_t>(0, got)));
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

#include "archive_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "Logger.h"
#include "clock.h"
#include "mutex.h"
#include "unique_fd.h"

namespace archive_file {
namespace {

constexpr time_t kSecondsBetweenReports = 60;
constexpr off_t kTailStep = 4096;

/** Says that archives cannot be written, at most once a minute: on a full disk every flush fails. */
void reportFailure(const char* function, const std::string& path, int reason) {
    static Mutex mutex;  // guards nextReport
    static time_t nextReport = 0;
    const time_t now = clockNow();
    {
        const MutexLock lock(mutex);
        // A clock that was set back must not silence the report for long.
        if (now < nextReport && nextReport - now <= kSecondsBetweenReports) {
            return;
        }
        nextReport = now + kSecondsBetweenReports;
    }
    applicationLog().error(std::string(function) + ": Cannot write " + path + " : " + strerror(reason) +
                           ". Counting goes on, records are lost until it can.");
}

bool writeAll(int fd, const char* text, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, text, size);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        text += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

off_t sizeOf(int fd) {
    struct stat status = {};
    return fstat(fd, &status) == 0 ? status.st_size : 0;
}

/** A file written beside another one, which it replaces when all of it is on the disk. */
class Replacement {
public:
    explicit Replacement(const std::string& path)
        : m_path(path),
          m_beside(path + ".new"),
          m_file(open(m_beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {}
    ~Replacement() {
        if (!m_done) {
            unlink(m_beside.c_str());
        }
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    explicit operator bool() const { return static_cast<bool>(m_file); }

    bool add(const std::string& line) {
        m_buffer += line;
        m_buffer += '\n';
        return m_buffer.size() < kBufferSize || writeBuffer();
    }

    bool replace() {
        m_done = writeBuffer() && fsync(m_file.get()) == 0 && rename(m_beside.c_str(), m_path.c_str()) == 0;
        return m_done;
    }

private:
    static constexpr size_t kBufferSize = size_t{1} << 18U;

    bool writeBuffer() {
        const bool written = writeAll(m_file.get(), m_buffer.data(), m_buffer.size());
        m_buffer.clear();
        return written;
    }

    const std::string m_path;
    const std::string m_beside;
    UniqueFd m_file;
    std::string m_buffer;
    bool m_done = false;
};

/** Where the last line begins, and its text; nothing when the file is empty or its last line has its end. */
struct LastLine {
    off_t start;
    std::string text;
};

std::optional<LastLine> unendedLastLine(int fd) {
    const off_t size = sizeOf(fd);
    std::string tail;
    for (off_t start = size; start > 0;) {
        const off_t from = std::max<off_t>(0, start - kTailStep);
        std::string piece(static_cast<size_t>(start - from), '\0');
        if (pread(fd, piece.data(), piece.size(), from) != static_cast<ssize_t>(piece.size())) {
            return std::nullopt;
        }
        tail = piece + tail;
        start = from;
        if (tail.back() == '\n') {
            return std::nullopt;
        }
        if (const size_t newline = tail.rfind('\n'); newline != std::string::npos) {
            return LastLine{start + static_cast<off_t>(newline) + 1, tail.substr(newline + 1)};
        }
    }
    return size == 0 ? std::nullopt : std::optional(LastLine{0, tail});
}

}  // namespace

void append(const std::string& path, const std::string& text) {
    const UniqueFd file(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    if (!file) {
        reportFailure("append", path, errno);
        return;
    }
    const off_t before = sizeOf(file.get());
    if (!writeAll(file.get(), text.data(), text.size())) {
        const int reason = errno;
        // Part of a flush is worth nothing, and a torn line would spoil the next one.
        [[maybe_unused]] const int cut = ftruncate(file.get(), before);
        reportFailure("append", path, reason);
        return;
    }
    fdatasync(file.get());
}

void forEachLine(const std::string& path, const LineVisitor& visit) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        visit(line);
    }
}

void rewrite(const std::string& path, const LineFilter& filter) {
    Replacement replacement(path);
    bool written = static_cast<bool>(replacement);
    int reason = errno;
    std::string kept;
    forEachLine(path, [&](const std::string& line) {
        if (filter(line, kept) && written) {
            written = replacement.add(kept);
            reason = errno;
        }
    });
    if (written && !replacement.replace()) {
        written = false;
        reason = errno;
    }
    if (!written) {
        reportFailure("rewrite", path, reason);
    }
}

void repairLastLine(const std::string& path, const std::function<bool(const std::string& line)>& parses) {
    const UniqueFd file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    const std::optional<LastLine> torn = file ? unendedLastLine(file.get()) : std::nullopt;
    if (!torn) {
        return;
    }
    if (parses(torn->text)) {
        if (pwrite(file.get(), "\n", 1, sizeOf(file.get())) != 1) {
            reportFailure("repairLastLine", path, errno);
        }
        return;
    }
    applicationLog().warning("repairLastLine: Dropped the torn last line of " + path + ": \"" +
                             torn->text.substr(0, 200) + "\"");
    if (ftruncate(file.get(), torn->start) != 0) {
        reportFailure("repairLastLine", path, errno);
    }
}

}  // namespace archive_file

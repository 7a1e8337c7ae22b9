#include "archive_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "Logger.h"
#include "atomic_file.h"
#include "clock.h"
#include "line_file.h"
#include "line_reader.h"
#include "mutex.h"

namespace archive_file {
namespace {

constexpr time_t kSecondsBetweenReports = 60;

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

/** Held while lines are written, though not while they are brought to the disk: a reader never sees half of them. */
Mutex& halfWritten() {
    static Mutex mutex;  // guards the ends of the archives' files
    return mutex;
}

}  // namespace

bool append(const std::string& path, const std::string& text) {
    UniqueFd file;
    {
        const MutexLock lock(halfWritten());
        file = appendText(path, text);
    }
    const bool kept = file && fdatasync(file.get()) == 0;
    if (!kept) {
        reportFailure("append", path, errno);
    }
    return kept;
}

off_t wholeSize(int fd) {
    const MutexLock lock(halfWritten());
    struct stat status = {};
    return fstat(fd, &status) == 0 ? status.st_size : 0;
}

bool forEachLine(const std::string& path, const LineVisitor& visit) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        return errno == ENOENT;
    }
    LineReader reader(file.get(), 0, wholeSize(file.get()));
    for (std::string_view text = reader.lines(); !text.empty(); text = reader.lines()) {
        const size_t size = text.find('\n');
        visit(std::string(text.substr(0, size)));
        reader.skip(size + 1);
    }
    errno = reader.error();
    return reader.error() == 0;
}

void rewrite(const std::string& path, const LineFilter& filter) {
    std::string kept;
    bool changes = false;
    off_t size = 0;
    const bool readable = forEachLine(path, [&](const std::string& line) {
        changes = changes || !filter(line, kept) || kept != line;
        size += static_cast<off_t>(line.size()) + 1;
    });
    struct stat status = {};
    if (readable && !changes && stat(path.c_str(), &status) == 0 && status.st_size == size) {
        return;
    }
    Replacement replacement(path);
    const bool complete = forEachLine(path, [&](const std::string& line) {
        if (filter(line, kept)) {
            replacement.add(kept);
            replacement.add("\n");
        }
    });
    // What could not be read must not be taken for what does not stay.
    if (!readable || !complete || !replacement.replace()) {
        reportFailure("rewrite", path, errno);
    }
}

bool repair(const std::string& path, const std::function<bool(const std::string& line)>& parses) {
    const Mending mending = mendLines(path, parses);
    if (!mending.dropped.empty()) {
        applicationLog().warning("repair: Dropped the torn last line of " + path + ": \"" +
                                 mending.dropped.substr(0, 200) + "\"");
    }
    if (mending.error != 0) {
        reportFailure("repair", path, mending.error);
    }
    return mending.error == 0;
}

}  // namespace archive_file

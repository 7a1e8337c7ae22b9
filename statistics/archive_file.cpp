#include "statistics/archive_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "base/atomic_file.h"
#include "base/clock.h"
#include "base/line_file.h"
#include "base/mutex.h"
#include "log/Logger.h"
#include "statistics/line_reader.h"

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

/** Visits the lines of a part of a file. False, with errno set, when it could not be read to its end. */
bool visitLines(int fd, off_t begin, off_t end, const LineVisitor& visit) {
    LineReader reader(fd, begin, end);
    for (std::string_view text = reader.lines(); !text.empty(); text = reader.lines()) {
        const size_t size = text.find('\n');
        visit(std::string(text.substr(0, size)));
        reader.skip(size + 1);
    }
    errno = reader.error();
    return reader.error() == 0;
}

/** How a file ends. */
struct End {
    off_t size = 0;
    bool isWhole = true; /**< its last line has its end */

    bool operator==(const End&) const = default;
};

/** The same for no file as for an empty one. halfWritten() is held. */
End endOf(const std::string& path) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (!file || fstat(file.get(), &status) != 0 || status.st_size == 0) {
        return {};
    }
    char last = 0;
    return {status.st_size, pread(file.get(), &last, 1, status.st_size - 1) == 1 && last == '\n'};
}

/**
 * Puts the new content in the place of a file that was taken over up to its end. False when it ends elsewhere by now,
 * for which the caller goes back; good falls, with errno set, when it cannot be done at all.
 */
bool replaceUnlessChanged(Replacement& replacement, const std::string& path, const End& done, bool& good) {
    const MutexLock lock(halfWritten());
    if (endOf(path) != done) {
        return false;
    }
    good = replacement.takePlace();
    return good;
}

bool reportMending(const std::string& path, const Mending& mending) {
    if (!mending.dropped.empty()) {
        applicationLog().warning("repair: Dropped the torn last line of " + path + ": \"" +
                                 mending.dropped.substr(0, 200) + "\"");
    }
    if (mending.error != 0) {
        reportFailure("repair", path, mending.error);
    }
    return mending.error == 0;
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
    return file ? visitLines(file.get(), 0, wholeSize(file.get()), visit) : errno == ENOENT;
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
    std::optional<Replacement> replacement(std::in_place, path);
    const auto keep = [&](const std::string& line) {
        if (filter(line, kept)) {
            replacement->add(kept);
            replacement->add("\n");
        }
    };
    // What could not be read must not be taken for what does not stay.
    bool good = readable;
    bool replaced = false;
    for (End done; good && !replaced;) {
        const End end = [&] {
            const MutexLock lock(halfWritten());
            return endOf(path);
        }();
        if (!done.isWhole || end.size < done.size) {
            // A last line without its end was taken over, and has been mended since.
            replacement.emplace(path);
            done = {};
        }
        const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        good = (file ? visitLines(file.get(), done.size, end.size, keep) : errno == ENOENT) && replacement->sync();
        done = end;
        if (good) {
            replaced = replaceUnlessChanged(*replacement, path, done, good);
        }
    }
    if (!replaced) {
        reportFailure("rewrite", path, errno);
        return;
    }
    replacement->syncFolder();
}

bool repair(const std::string& path, const LineJudge& parses) {
    return reportMending(path, mendLines(path, parses));
}

bool repairLastLine(const std::string& path, const LineJudge& parses) {
    const Mending mending = [&] {
        const MutexLock lock(halfWritten());
        return mendLastLine(path, parses);
    }();
    return reportMending(path, mending);
}

}  // namespace archive_file

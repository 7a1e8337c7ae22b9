#include "archive_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <unistd.h>

#include "Logger.h"
#include "atomic_file.h"
#include "clock.h"
#include "line_file.h"
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

}  // namespace

void append(const std::string& path, const std::string& text) {
    const UniqueFd file = appendText(path, text);
    if (!file) {
        reportFailure("append", path, errno);
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
    std::string kept;
    forEachLine(path, [&](const std::string& line) {
        if (filter(line, kept)) {
            replacement.add(kept);
            replacement.add("\n");
        }
    });
    if (!replacement.replace()) {
        reportFailure("rewrite", path, errno);
    }
}

void repair(const std::string& path, const std::function<bool(const std::string& line)>& parses) {
    const Mending mending = mendLines(path, parses);
    if (!mending.dropped.empty()) {
        applicationLog().warning("repair: Dropped the torn last line of " + path + ": \"" +
                                 mending.dropped.substr(0, 200) + "\"");
    }
    if (mending.error != 0) {
        reportFailure("repair", path, mending.error);
    }
}

}  // namespace archive_file

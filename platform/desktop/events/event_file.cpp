#include "desktop/events/event_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>

#include "base/atomic_file.h"
#include "base/mutex.h"
#include "base/unique_fd.h"

namespace desktop {
namespace {

namespace fs = std::filesystem;

constexpr off_t kMostBytes = off_t{10} * 1024 * 1024;
constexpr int kOldest = 9;

off_t sizeOf(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_size : 0;
}

std::string older(const std::string& path, int age) {
    return age == 0 ? path : path + "." + std::to_string(age);
}

/** Gives each file the next number, up to a number that is free: a kill in between may leave such a gap. */
void rotate(const std::string& path) {
    int free = 1;
    while (free < kOldest && fs::exists(older(path, free))) {
        ++free;
    }
    for (std::error_code failed; free > 0 && !failed; --free) {
        fs::rename(older(path, free - 1), older(path, free), failed);
    }
}

bool endsTorn(int file, off_t size) {
    char last = '\n';
    return size > 0 && pread(file, &last, 1, size - 1) == 1 && last != '\n';
}

}  // namespace

std::string appendEvent(const std::string& path, const std::string& line) {
    static Mutex oneWriter;  // guards the files' names and sizes: what is cut back must not be another's line
    const MutexLock lock(oneWriter);
    if (const off_t size = sizeOf(path); size > 0 && size + static_cast<off_t>(line.size()) > kMostBytes) {
        rotate(path);
    }
    const UniqueFd file(open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    if (file.get() < 0) {
        return path + ": " + strerror(errno);
    }
    const off_t before = sizeOf(path);
    if (!writeAll(file.get(), (endsTorn(file.get(), before) ? "\n" : "") + line)) {
        const int reason = errno;
        [[maybe_unused]] const int cut = ftruncate(file.get(), before);
        return path + ": " + strerror(reason);
    }
    return {};
}

std::vector<std::string> eventFiles(const std::string& path) {
    std::vector<std::string> files;
    for (int age = kOldest; age >= 0; --age) {
        if (age == 0 || fs::exists(older(path, age))) {
            files.push_back(older(path, age));
        }
    }
    return files;
}

}  // namespace desktop

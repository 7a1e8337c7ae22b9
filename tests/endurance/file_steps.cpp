#include "file_steps.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "shared.h"

namespace {

static_assert(sizeof(off_t) == sizeof(long), "file sizes travel in one argument of a system call");

constexpr size_t kMostSteps = 4096;

struct Journal {
    struct Entry {
        std::array<char, 64> name;
        size_t bytes;
    };
    std::atomic<size_t> count = 0;
    std::array<Entry, kMostSteps> entries;
};

Journal* g_journal = nullptr;  // only in a child that does its work
std::optional<file_steps::Stop> g_stop;

const char* lastName(const char* path) {
    const char* const slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

/** Writes a step down; true when the process is to die at it. */
bool isLast(const char* call, const char* path, size_t bytes) {
    if (g_journal == nullptr) {
        return false;
    }
    const size_t step = g_journal->count.fetch_add(1);
    if (step < kMostSteps) {
        Journal::Entry& entry = g_journal->entries[step];
        snprintf(entry.name.data(), entry.name.size(), "%s %s", call, lastName(path));
        entry.bytes = bytes;
    }
    return g_stop && step == g_stop->step;
}

bool isLast(const char* call, int fd, size_t bytes = 0) {
    if (g_journal == nullptr) {
        return false;
    }
    std::array<char, PATH_MAX> path = {};
    const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path.data(), path.size() - 1);
    return isLast(call, length < 0 ? "?" : path.data(), bytes);
}

[[noreturn]] void die() {
    kill(getpid(), SIGKILL);
    for (;;) {
        pause();
    }
}

int openFile(const char* path, int flags, mode_t mode) {
    if ((flags & (O_CREAT | O_TRUNC)) != 0 && isLast("open", path, 0)) {
        die();
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

ssize_t writeAt(int fd, const void* data, size_t size, off_t offset) {
    if (isLast("write", fd, size)) {
        syscall(SYS_pwrite64, fd, data, std::min(size, g_stop->bytes), offset);
        die();
    }
    return syscall(SYS_pwrite64, fd, data, size, offset);
}

int cut(int fd, off_t size) {
    if (isLast("cut", fd)) {
        die();
    }
    return static_cast<int>(syscall(SYS_ftruncate, fd, size));
}

mode_t modeOf(int flags, va_list more) {
    return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(more, int)) : 0;
}

}  // namespace

// The calls themselves, in the place of the C library's.
extern "C" {

int open(const char* path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    const mode_t mode = modeOf(flags, more);
    va_end(more);
    return openFile(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    const mode_t mode = modeOf(flags, more);
    va_end(more);
    return openFile(path, flags, mode);
}

ssize_t write(int fd, const void* data, size_t size) {
    if (isLast("write", fd, size)) {
        syscall(SYS_write, fd, data, std::min(size, g_stop->bytes));
        die();
    }
    return syscall(SYS_write, fd, data, size);
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
    return writeAt(fd, data, size, offset);
}

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t offset) {
    return writeAt(fd, data, size, offset);
}

int ftruncate(int fd, off_t size) noexcept {
    return cut(fd, size);
}

int ftruncate64(int fd, off64_t size) noexcept {
    return cut(fd, size);
}

int fsync(int fd) {
    if (isLast("sync", fd)) {
        die();
    }
    return static_cast<int>(syscall(SYS_fsync, fd));
}

int fdatasync(int fd) {
    if (isLast("sync", fd)) {
        die();
    }
    return static_cast<int>(syscall(SYS_fdatasync, fd));
}

int rename(const char* from, const char* to) noexcept {
    if (isLast("rename", from, 0)) {
        die();
    }
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

int unlink(const char* path) noexcept {
    if (isLast("remove", path, 0)) {
        die();
    }
    return unlinkat(AT_FDCWD, path, 0);
}
}

namespace file_steps {

Run run(std::optional<Stop> stop, const std::function<void()>& work) {
    const Shared<Journal> journal;
    const pid_t child = fork();
    if (child == 0) {
        g_stop = stop;
        g_journal = &*journal;
        work();
        g_journal = nullptr;
        _exit(0);
    }
    int status = -1;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        throw std::runtime_error("cannot fork");
    }
    const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    if (!killed && status != 0) {
        throw std::runtime_error("the child failed with status " + std::to_string(status));
    }
    if (journal->count > kMostSteps) {
        throw std::runtime_error("the work takes " + std::to_string(journal->count) + " steps");
    }
    Run result{{}, killed};
    for (size_t i = 0; i < journal->count; ++i) {
        result.steps.push_back({journal->entries[i].name.data(), journal->entries[i].bytes});
    }
    return result;
}

std::vector<std::string> names(const Run& run) {
    std::vector<std::string> all;
    for (const Step& step : run.steps) {
        all.push_back(step.name);
    }
    return all;
}

std::vector<size_t> tears(const Step& step) {
    constexpr size_t kShort = 100;
    constexpr size_t kChosen = 7;
    std::vector<size_t> all = {0};
    for (size_t i = 1; i < (step.bytes <= kShort ? step.bytes : kChosen); ++i) {
        all.push_back(step.bytes <= kShort ? i : step.bytes * i / kChosen);
    }
    if (step.bytes > kShort) {
        all.push_back(1);
        all.push_back(step.bytes - 1);
    }
    if (step.bytes > 0) {
        all.push_back(step.bytes);
    }
    return all;
}

}  // namespace file_steps

#include "line_file.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "atomic_file.h"

namespace {

constexpr off_t kTailStep = 4096;

off_t sizeOf(int fd) {
    struct stat status = {};
    return fstat(fd, &status) == 0 ? status.st_size : 0;
}

/** Where the last line begins, and its text. */
struct LastLine {
    off_t start;
    std::string text;
};

/** Nothing when the file is empty or its last line has its end. */
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

UniqueFd appendText(const std::string& path, const std::string& text) {
    UniqueFd file(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    if (!file) {
        return file;
    }
    const off_t before = sizeOf(file.get());
    if (!writeAll(file.get(), text)) {
        const int reason = errno;
        // A torn line would spoil the next one.
        [[maybe_unused]] const int cut = ftruncate(file.get(), before);
        file.reset();
        errno = reason;
    }
    return file;
}

Mending mendLines(const std::string& path, const std::function<bool(const std::string& line)>& isWhole) {
    unlink(Replacement::beside(path).c_str());
    const UniqueFd file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    const std::optional<LastLine> last = file ? unendedLastLine(file.get()) : std::nullopt;
    if (!last) {
        return {};
    }
    if (isWhole(last->text)) {
        const bool ended = pwrite(file.get(), "\n", 1, sizeOf(file.get())) == 1;
        return {"", ended ? 0 : errno};
    }
    const bool cut = ftruncate(file.get(), last->start) == 0;
    return {last->text, cut ? 0 : errno};
}

#include "base/line_file.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "base/atomic_file.h"

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

bool readAt(int fd, off_t from, std::string& text) {
    return pread(fd, text.data(), text.size(), from) == static_cast<ssize_t>(text.size());
}

/** Where the line begins that ends with the file. */
std::optional<off_t> startOfLastLine(int fd, off_t size) {
    for (off_t end = size; end > 0;) {
        const off_t from = std::max<off_t>(0, end - kTailStep);
        std::string piece(static_cast<size_t>(end - from), '\0');
        if (!readAt(fd, from, piece)) {
            return std::nullopt;
        }
        if (const size_t newline = piece.rfind('\n'); newline != std::string::npos) {
            return from + static_cast<off_t>(newline) + 1;
        }
        end = from;
    }
    return 0;
}

/** Nothing when the file is empty or its last line has its end. */
std::optional<LastLine> unendedLastLine(int fd) {
    const off_t size = sizeOf(fd);
    const std::optional<off_t> start = startOfLastLine(fd, size);
    if (!start || *start == size) {
        return std::nullopt;
    }
    LastLine last{*start, std::string(static_cast<size_t>(size - *start), '\0')};
    return readAt(fd, *start, last.text) ? std::optional(std::move(last)) : std::nullopt;
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
    return mendLastLine(path, isWhole);
}

Mending mendLastLine(const std::string& path, const std::function<bool(const std::string& line)>& isWhole) {
    const UniqueFd file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!file) {
        return {"", errno == ENOENT ? 0 : errno};
    }
    const std::optional<LastLine> last = unendedLastLine(file.get());
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

#include "atomic_file.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "unique_fd.h"

namespace {

bool writeAll(int fd, const std::string& content) {
    size_t written = 0;
    while (written < content.size()) {
        const ssize_t count = write(fd, content.data() + written, content.size() - written);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        written += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return true;
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

}  // namespace

bool replaceFile(const std::string& path, const std::string& content) {
    const std::string beside = path + ".new";
    {
        const UniqueFd file(open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (!file || !writeAll(file.get(), content) || fsync(file.get()) != 0) {
            const int reason = errno;
            unlink(beside.c_str());
            errno = reason;
            return false;
        }
    }
    if (rename(beside.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        unlink(beside.c_str());
        errno = reason;
        return false;
    }
    // The new content stands from here on; a folder that cannot be synced only delays its safety.
    const UniqueFd folder(open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) {
        fsync(folder.get());
    }
    return true;
}

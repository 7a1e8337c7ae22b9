#include "base/atomic_file.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr size_t kBufferSize = size_t{1} << 18U;

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

}  // namespace

bool writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

Replacement::Replacement(const std::string& path)
    : m_path(path), m_file(open(beside(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {
    check(static_cast<bool>(m_file));
}

Replacement::Replacement(const std::string& path, mode_t permissions) : m_path(path) {
    unlink(beside(path).c_str());
    m_file.reset(open(beside(path).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions));
    check(static_cast<bool>(m_file));
}

Replacement::~Replacement() {
    if (!m_replaced) {
        unlink(beside(m_path).c_str());
    }
}

void Replacement::add(std::string_view text) {
    m_buffer += text;
    if (m_buffer.size() >= kBufferSize) {
        writeBuffer();
    }
}

void Replacement::writeBuffer() {
    if (m_error == 0) {
        check(writeAll(m_file.get(), m_buffer));
    }
    m_buffer.clear();
}

void Replacement::check(bool good) {
    if (!good && m_error == 0) {
        m_error = errno;
    }
}

bool Replacement::replace() {
    if (!sync() || !takePlace()) {
        return false;
    }
    syncFolder();
    return true;
}

bool Replacement::sync() {
    writeBuffer();
    if (m_error == 0) {
        check(fsync(m_file.get()) == 0);
    }
    errno = m_error;
    return m_error == 0;
}

bool Replacement::takePlace() {
    check(rename(beside(m_path).c_str(), m_path.c_str()) == 0);
    m_replaced = m_error == 0;
    errno = m_error;
    return m_replaced;
}

void Replacement::syncFolder() const {
    // The new content stands already; a folder that cannot be synced only delays its safety.
    const UniqueFd folder(open(folderOf(m_path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) {
        fsync(folder.get());
    }
}

bool replaceFile(const std::string& path, std::string_view content) {
    bool replaced = false;
    int reason = 0;
    {
        Replacement replacement(path);
        replacement.add(content);
        replaced = replacement.replace();
        reason = errno;
    }
    errno = reason;
    return replaced;
}

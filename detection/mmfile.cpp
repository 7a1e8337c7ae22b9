#include "detection/mmfile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "log/Logger.h"

namespace {

void logFailure(const std::string& what) {
    const std::string reason = strerror(errno);
    applicationLog().error("MemoryMappedFile: " + what + " : " + reason);
}

}  // namespace

MemoryMappedFile::MemoryMappedFile(const std::string& nameTemplate, int size)
    : m_filename(nameTemplate), m_filesize(size), m_fileDescriptor(mkostemp(m_filename.data(), O_CLOEXEC)) {
    if (!m_fileDescriptor) {
        logFailure("Failed to create temporary file: " + m_filename);
        throw "Failed to create temporary file";
    }
    const bool resized = ftruncate(m_fileDescriptor.get(), m_filesize) == 0 && reserveSpace();
    if (!resized) {
        logFailure("Failed to adjust temporary file " + m_filename + " to size " + std::to_string(m_filesize));
    }
    // The name goes at once, whatever the size, so that nothing stays behind in the folder.
    if (unlink(m_filename.c_str()) != 0) {
        logFailure("Failed to unlink temporary file " + m_filename);
    }
    if (!resized) {
        throw "Failed to adjust file size";
    }
    void* const mapping =
        mmap(nullptr, static_cast<size_t>(m_filesize), PROT_READ | PROT_WRITE, MAP_SHARED, m_fileDescriptor.get(), 0);
    if (mapping == MAP_FAILED) {
        logFailure("Failed to create map file " + m_filename);
        throw "Failed to create map file";
    }
    m_buffer = static_cast<uint8_t*>(mapping);
}

MemoryMappedFile::~MemoryMappedFile() {
    if (munmap(m_buffer, static_cast<size_t>(m_filesize)) != 0) {
        logFailure("Failed to unmap mapped file " + m_filename);
    }
}

bool MemoryMappedFile::reserveSpace() const {
    if (m_filesize == 0) {
        return true;
    }
    // A write to a mapping for which the disk has no room left would end the process.
    int reason = EINTR;
    while (reason == EINTR) {
        reason = posix_fallocate(m_fileDescriptor.get(), 0, m_filesize);
    }
    errno = reason;
    return reason == 0;
}

bool MemoryMappedFile::rewind() {
    if (lseek(m_fileDescriptor.get(), 0, SEEK_SET) != 0) {
        logFailure("Failed to rewind mapped file " + m_filename);
        return false;
    }
    return true;
}

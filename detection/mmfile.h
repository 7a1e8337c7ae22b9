#pragma once

#include <cstdint>
#include <string>

#include "base/unique_fd.h"

/**
 * One tensor's memory: an anonymous temporary file, mapped, so that the inference service reads and writes it through
 * the descriptor while this process sees the same bytes without copying.
 */
class MemoryMappedFile {
public:
    /**
     * Makes, sizes, unlinks and maps the file, whose space is taken at once. nameTemplate ends in "XXXXXX", which
     * becomes unique; size is in bytes. Logs and throws a plain C string when the file cannot be created, sized or
     * mapped.
     */
    MemoryMappedFile(const std::string& nameTemplate, int size);
    ~MemoryMappedFile();

    MemoryMappedFile(const MemoryMappedFile&) = delete;
    MemoryMappedFile& operator=(const MemoryMappedFile&) = delete;

    /** Start of the mapping. It covers whole memory pages, so bytes beyond the size that were written are seen too. */
    uint8_t* getBuffer() const { return m_buffer; }

    int getFileDescriptor() const { return m_fileDescriptor.get(); }

    /** Sets the file offset back to 0; false, logged, when that fails. */
    bool rewind();

private:
    /** Takes the file's space on the disk; false, with errno set, when there is not enough. */
    bool reserveSpace() const;

    std::string m_filename;
    int m_filesize;
    UniqueFd m_fileDescriptor;
    uint8_t* m_buffer = nullptr;
};

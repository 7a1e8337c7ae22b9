#pragma once

#include <string_view>
#include <sys/types.h>
#include <vector>

/** Hands out a part of a file in whole lines; a line longer than the buffer makes it grow. */
class LineReader {
public:
    /** Reads from the offset begin, where a line begins, to the offset end or to where the file ends. Keeps no file. */
    LineReader(int fd, off_t begin, off_t end);

    /** What is left of the whole lines at hand, more of them when nothing is; empty at the end. Each has its end. */
    std::string_view lines() {
        if (m_begin == m_whole) {
            fill();
        }
        return {m_buffer.data() + m_begin, m_whole - m_begin};
    }
    void skip(size_t bytes) { m_begin += bytes; }

    /** errno of the read that failed, at which the lines end; 0 when none did. */
    int error() const { return m_error; }

    /** The offset of the first byte that was not skipped. */
    off_t position() const { return m_read - static_cast<off_t>(m_end - m_begin); }

private:
    void fill();

    const int m_fd;
    const off_t m_most;
    off_t m_read;
    std::vector<char> m_buffer;
    size_t m_begin = 0;
    size_t m_whole = 0; /**< end of the whole lines */
    size_t m_end = 0;
    bool m_atEnd = false;
    int m_error = 0;
};

#include "statistics/line_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace {

constexpr size_t kBufferSize = size_t{1} << 17U;

}  // namespace

LineReader::LineReader(int fd, off_t begin, off_t end) : m_fd(fd), m_most(end), m_read(begin), m_buffer(kBufferSize) {}

void LineReader::fill() {
    std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = m_whole = 0;
    while (m_whole == 0 && !m_atEnd) {
        if (m_end + 1 >= m_buffer.size()) {
            m_buffer.resize(m_buffer.size() * 2);
        }
        const auto room = std::min(static_cast<off_t>(m_buffer.size() - m_end - 1), m_most - m_read);
        const ssize_t got = pread(m_fd, m_buffer.data() + m_end, static_cast<size_t>(room), m_read);
        if (got <= 0) {
            m_atEnd = true;
            m_error = got < 0 ? errno : 0;
            if (m_end > 0) {
                m_buffer[m_end++] = '\n';  // the last line may lack its end
                ++m_read;
            }
            m_whole = m_end;
            return;
        }
        const size_t before = m_end;
        m_end += static_cast<size_t>(got);
        m_read += got;
        const size_t newline = std::string_view(m_buffer.data() + before, m_end - before).rfind('\n');
        m_whole = newline == std::string_view::npos ? 0 : before + newline + 1;
    }
}

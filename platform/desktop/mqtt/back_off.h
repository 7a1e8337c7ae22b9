#pragma once

#include <algorithm>
#include <chrono>
#include <utility>

namespace desktop {

/** The pauses between tries: each twice the one before, up to the longest. */
class BackOff {
public:
    using Duration = std::chrono::steady_clock::duration;

    BackOff(Duration first, Duration longest) : m_first(first), m_longest(longest), m_next(first) {}

    /** The pause to make now. */
    Duration next() { return std::exchange(m_next, std::min(2 * m_next, m_longest)); }

    /** A try was successful: the pauses begin anew. */
    void reset() { m_next = m_first; }

private:
    Duration m_first;
    Duration m_longest;
    Duration m_next;
};

}  // namespace desktop

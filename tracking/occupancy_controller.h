#pragma once

#include <atomic>

/** The live occupancy: what came in less what went out, never below zero. Any thread. */
class occupancy_controller {
public:
    void init(int count) { m_Count = count; }
    void increase_count() { ++m_Count; }

    /** Saturates at zero: an exit whose entry was missed leaves the count alone. */
    void decrease_count();

    void reset_count() { m_Count = 0; }
    int get_count() const { return m_Count; }

private:
    std::atomic<int> m_Count = 0;
};

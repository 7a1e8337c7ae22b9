#include "tracking/occupancy_controller.h"

void occupancy_controller::decrease_count() {
    int count = m_Count;
    while (count > 0 && !m_Count.compare_exchange_weak(count, count - 1)) {
    }
}

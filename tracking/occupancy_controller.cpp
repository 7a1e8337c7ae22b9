#include "occupancy_controller.h"

void occupancy_controller::decrease_count() {
    if (m_Count > 0) {
        --m_Count;
    }
}

#include "engine.h"

#include "classes_in_force.h"
#include "motion_engine.h"
#include "network_engine.h"

namespace desktop {

std::unique_ptr<Engine> makeEngine(const ModelCard& card) {
    if (card.engine == EngineKind::Motion) {
        return std::make_unique<MotionEngine>(card.motion, classesInForce);
    }
    return std::make_unique<NetworkEngine>(card);
}

}  // namespace desktop

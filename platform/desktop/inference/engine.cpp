#include "engine.h"

#include "motion_engine.h"
#include "network_engine.h"

namespace desktop {

std::unique_ptr<Engine> makeEngine(const ModelCard& card) {
    if (card.engine == EngineKind::Motion) {
        return std::make_unique<MotionEngine>(card.motion);
    }
    return std::make_unique<NetworkEngine>(card.network);
}

}  // namespace desktop

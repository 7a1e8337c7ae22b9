#include "desktop/inference/engines.h"

#include "desktop/inference/engine/settings_in_force.h"
#include "desktop/inference/motion/motion_engine.h"
#include "desktop/inference/network/network_engine.h"

namespace desktop {

std::unique_ptr<Engine> makeEngine(const ModelCard& card) {
    if (card.engine == EngineKind::Motion) {
        return std::make_unique<MotionEngine>(
            card.motion, [settings = std::make_shared<SettingsInForce>()] { return settings->counted(); });
    }
    return std::make_unique<NetworkEngine>(card);
}

}  // namespace desktop

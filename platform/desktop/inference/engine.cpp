#include "engine.h"

#include "motion_engine.h"
#include "network_engine.h"
#include "settings_in_force.h"

namespace desktop {

std::unique_ptr<Engine> makeEngine(const ModelCard& card) {
    if (card.engine == EngineKind::Motion) {
        return std::make_unique<MotionEngine>(
            card.motion, [settings = std::make_shared<SettingsInForce>()] { return settings->counted(); });
    }
    return std::make_unique<NetworkEngine>(card);
}

}  // namespace desktop

#pragma once

#include <memory>

#include "desktop/inference/engine/engine.h"
#include "desktop/inference/engine/model_card.h"

namespace desktop {

/** Makes the engine that a card describes. Throws std::runtime_error saying what was expected and what came. */
std::unique_ptr<Engine> makeEngine(const ModelCard& card);

}  // namespace desktop

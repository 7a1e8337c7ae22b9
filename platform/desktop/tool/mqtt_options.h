#pragma once

#include "desktop/config/mqtt_config.h"

namespace CLI {
class App;
}

namespace desktop {

/** Adds --mqtt and the options that go with it to a command; what they take is checked, and paths become absolute. */
void addMqttOptions(CLI::App& command, MqttConfig& config);

}  // namespace desktop

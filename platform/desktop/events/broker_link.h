#pragma once

#include <memory>

#include "desktop/mqtt/mqtt_link.h"

namespace desktop {

/**
 * A link to the broker that the process's configuration names; none when it names none. It tells on the error output
 * what happens. One that is still there when the process ends by itself is brought to its orderly end then. Any thread.
 */
std::shared_ptr<MqttLink> linkToBroker();

}  // namespace desktop

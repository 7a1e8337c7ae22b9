#pragma once

#include <CLI/CLI.hpp>

#include "mqtt_config.h"

/** Adds --mqtt and the options that go with it to a command; what they take is checked, and paths become absolute. */
void addMqttOptions(CLI::App& command, desktop::MqttConfig& config);

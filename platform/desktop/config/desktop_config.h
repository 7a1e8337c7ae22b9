#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "desktop/config/mqtt_config.h"

/**
 * What the desktop platform's services need to know: which source to show, where networks and state lie.
 *
 * One value per process. A camera process reads it from the JSON file that the environment variable
 * SENVO_DESKTOP_CONFIG names, on first use; a program that embeds the services sets it before their first call.
 */
namespace desktop {

/** How recorded and drawn sources hand out their frames. Live sources (RTSP, webcam) are always real time. */
enum class Pacing {
    RealTime, /**< by the wall clock, as a camera would; a recording starts again when it has ended */
    Virtual,  /**< by setVirtualTime, as fast as the consumer asks; a recording ends with VDO_ERROR_NO_VIDEO */
};

struct DesktopConfig {
    std::string video = "scene:plaza";  /**< file, rtsp:// or http:// address, /dev/videoN or scene:NAME */
    Pacing pacing = Pacing::RealTime;   /**< see Pacing */
    std::string networksFolder;         /**< where model cards look for network files that they name */
    std::string stateFolder = ".";      /**< parameters.db and events.jsonl are kept here */
    std::string manifest;               /**< package manifest whose declarations seed the parameter store */
    std::string heartbeat;              /**< file that changes with every frame fetched or refused; empty: none */
    std::string liveSocket;             /**< where the live picture is served, a UNIX socket; empty: nowhere */
    MqttConfig mqtt;                    /**< the broker that gets the events */
    std::function<int64_t()> nowMicros; /**< time stamps, microseconds since 1970; empty means the system clock */
};

/**
 * Returns the process's configuration. Thread-safe after the first call. Throws std::runtime_error, naming the file,
 * what was expected and what came, when the environment names a file that cannot be read.
 */
const DesktopConfig& desktopConfig();

/** Replaces the configuration; call before any service is used. Not thread-safe. */
void setDesktopConfig(DesktopConfig config);

/** Reads a configuration from JSON text; unknown keys and wrong types throw std::runtime_error naming them. */
DesktopConfig parseDesktopConfig(const std::string& json);

/** Writes the parts of a configuration that a file can carry as JSON text. */
std::string formatDesktopConfig(DesktopConfig config);

/** Microseconds since 1970 by the configured time source. */
int64_t nowMicros();

}  // namespace desktop

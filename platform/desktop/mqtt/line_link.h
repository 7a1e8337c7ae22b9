#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "base/mutex.h"
#include "desktop/config/mqtt_config.h"
#include "desktop/mqtt/back_off.h"
#include "desktop/mqtt/line_forwarder.h"
#include "desktop/mqtt/mqtt_client.h"

namespace desktop {

struct LineLinkSettings {
    MqttConfig broker;
    std::string clientId; /**< another than that of the link for events */
    LineForwarderSettings lines;
    std::chrono::steady_clock::duration firstRetry = std::chrono::seconds(1);
    std::chrono::steady_clock::duration longestRetry = std::chrono::seconds(30);
    std::chrono::milliseconds pause = std::chrono::seconds(1); /**< between two looks at the files */
};

/**
 * Brings files of lines to an MQTT broker, on a connection and a thread of its own, so that no event waits behind a
 * line. Nothing is lost with it: whatever is not confirmed is sent again by the next one.
 */
class LineLink {
public:
    /** Throws std::runtime_error when the broker's address is none. */
    explicit LineLink(LineLinkSettings settings);

    /** Ends the link, and waits for its thread. */
    ~LineLink();

    LineLink(const LineLink&) = delete;
    LineLink& operator=(const LineLink&) = delete;

    /** Ends the thread; false when it has not ended a second later, since it looks a host's name up. Any thread. */
    bool end();

private:
    void run();
    void serve();
    bool isEnding();

    const LineLinkSettings m_settings;
    const MqttAddress m_address;
    const int m_wakeFd;  // readable when the end is asked for
    LineForwarder m_forwarder;
    BackOff m_backOff;
    std::string m_toldLoss;  // the last loss that was told; empty while connected

    Mutex m_mutex;  // guards m_isEnding and m_isFinished
    ConditionVariable m_changed;
    bool m_isEnding GUARDED_BY(m_mutex) = false;
    bool m_isFinished GUARDED_BY(m_mutex) = false;

    std::thread m_thread;  // last, so that it starts when all else is there
};

}  // namespace desktop

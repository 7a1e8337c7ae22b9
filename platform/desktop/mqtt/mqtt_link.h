#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "base/mutex.h"
#include "desktop/config/mqtt_config.h"
#include "desktop/mqtt/back_off.h"
#include "desktop/mqtt/mqtt_client.h"
#include "desktop/mqtt/outbox.h"

namespace desktop {

struct MqttLinkSettings {
    using Duration = std::chrono::steady_clock::duration;

    MqttConfig broker;
    std::string clientId;                             /**< by which the broker knows this camera again */
    size_t capacity = 20000;                          /**< most events that wait while the broker is away */
    Duration firstRetry = std::chrono::seconds(1);    /**< pause before the next try when a connection fails */
    Duration longestRetry = std::chrono::seconds(30); /**< the pause doubles up to this */
    Duration farewell = std::chrono::seconds(3);      /**< most time that the end takes to deliver what waits */
    std::function<void(const std::string&)> say;      /**< told what happens, one line each, on the link's thread */
};

/**
 * Brings messages to an MQTT broker, each exactly once, in order, and keeps them while the broker is away.
 *
 * A thread of its own connects, delivers and connects again. The topic PREFIX/status holds {"online":true} while it is
 * connected; its last will {"online":false} stands there afterwards.
 *
 * A broker that comes back without its memory is given again what had not been delivered completely, which may then
 * come twice, and the newest state of every topic.
 */
class MqttLink {
public:
    /** Throws std::runtime_error when the broker's address is none. */
    explicit MqttLink(MqttLinkSettings settings);

    /** Ends the link, and waits for its thread even where end() does not. */
    ~MqttLink();

    MqttLink(const MqttLink&) = delete;
    MqttLink& operator=(const MqttLink&) = delete;

    /** Takes a message for PREFIX/topic; never waits for the broker. Any thread. */
    void send(const std::string& topic, std::string payload, bool isRetained);

    /**
     * Delivers what waits, says that the camera is offline and ends the connection. Whoever has no connection tries
     * once more; what is not delivered in the time of the farewell is lost. Returns a second after that even when the
     * thread hangs in looking the host up. Any thread.
     */
    void end();

    /** How many messages wait that have not been given to the connection. Any thread. */
    size_t waiting() const { return m_outbox.size(); }

    /** How many messages have been lost because the outbox was full. Any thread. */
    uint64_t dropped() const { return m_outbox.dropped(); }

private:
    using TimePoint = std::chrono::steady_clock::time_point;

    /** An event that the connection delivers. */
    struct UnderWay {
        int number;
        MqttMessage message;
    };

    void run();
    void connect();
    void makeClient();
    void wipeSession();
    void open(MqttClient& client);
    void startOver();
    void serve();
    void handOver();
    void noteDelivered();
    void sayGoodbye();
    void step(MqttClient& client);
    void pause();
    void tellLoss(const std::string& reason);
    void tellConnected();

    bool isEnding() const;
    bool isTimeUp() const;
    bool isAllDelivered() const { return m_underWay.empty() && m_outbox.size() == 0; }
    MqttMessage status(bool isOnline) const;
    void wake() const;

    const MqttLinkSettings m_settings;
    const MqttAddress m_address;
    const int m_wakeFd;  // readable when something is to be done
    Outbox m_outbox;

    // Of the thread alone.
    std::unique_ptr<MqttClient> m_client;
    bool m_isSessionWiped = false;
    std::deque<UnderWay> m_underWay;              // in the order of sending
    std::map<std::string, MqttMessage> m_states;  // topic to the newest state that the broker has
    BackOff m_backOff;
    std::string m_toldLoss;  // the last loss that was told; empty while connected
    uint64_t m_toldDropped = 0;

    mutable Mutex m_mutex;  // guards m_deadline, m_isFinished and the end of m_thread
    ConditionVariable m_changed;
    std::optional<TimePoint> m_deadline GUARDED_BY(m_mutex);  // of the farewell; none until the end is asked for
    bool m_isFinished GUARDED_BY(m_mutex) = false;

    std::thread m_thread;  // last, so that it starts when all else is there
};

}  // namespace desktop

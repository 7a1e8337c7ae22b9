#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "desktop/config/mqtt_config.h"
#include "desktop/mqtt/outbox.h"

struct mosquitto;
struct mosquitto_message;

namespace desktop {

/** Whether the broker keeps what it knows of a client from one connection to the next. */
enum class MqttSession {
    Kept,  /**< deliveries under way go on after a reconnection: each message arrives exactly once */
    Wiped, /**< the broker forgets what it knew, and forgets this connection when it ends */
};

/**
 * One MQTT client on libmosquitto, with all its work on the caller's thread: nothing happens between the calls.
 *
 * Used by one thread. What fails throws std::runtime_error with the reason, which never holds the password; after that
 * the client can connect again, and deliveries under way go on.
 */
class MqttClient {
public:
    static constexpr int kAtMostOnce = 0;
    static constexpr int kAtLeastOnce = 1;
    static constexpr int kExactlyOnce = 2;

    /** Reads the files that the configuration names. lastWill: what the broker publishes when the client is gone. */
    MqttClient(const MqttConfig& config, const std::string& clientId, MqttSession session, const MqttMessage* lastWill);

    /** Looks the host up and connects to it, which may take minutes when nobody answers. */
    void connect(const MqttAddress& address);

    /**
     * Writes what is due, waits until the broker says something, wakeFd can be read or the time is over, and reads.
     * What the answers call for is written by the next step. Throws when the connection is over or refused.
     */
    void step(int wakeFd, std::chrono::milliseconds most);

    /** Whether the broker has accepted the connection. */
    bool isAccepted() const { return m_isAccepted; }

    /** Whether the broker still knew this client's session when it accepted the connection. */
    bool isSessionKnown() const { return m_isSessionKnown; }

    bool isOpen() const;

    /**
     * Begins to deliver a message. Returns the number under which takeDelivered reports it. quality: of the service;
     * messages of different ones overtake each other.
     */
    int publish(const MqttMessage& message, int quality = kExactlyOnce);

    /** Asks for the messages of a topic, each at least once. */
    void subscribe(const std::string& topic);

    /** What came since the last call, in order. */
    std::vector<MqttMessage> takeReceived();

    /** The numbers of the messages whose delivery has been completed since the last call. */
    std::vector<int> takeDelivered();

    /** Begins an orderly end, which later steps complete; the broker then does not publish the last will. */
    void disconnect();

private:
    struct Release {
        void operator()(mosquitto* handle) const;
    };

    void authenticate(const MqttConfig& config);
    void readAll();
    void check(int result) const;

    static void onConnect(mosquitto* handle, void* self, int result, int flags);
    static void onPublish(mosquitto* handle, void* self, int number);
    static void onMessage(mosquitto* handle, void* self, const mosquitto_message* message);
    static void onLog(mosquitto* handle, void* self, int level, const char* text);

    bool m_isAccepted = false;
    bool m_isSessionKnown = false;
    std::string m_refusal;  // why the broker refused the connection; empty unless it did
    std::string m_detail;   // the newest error that the library has logged
    std::vector<int> m_delivered;
    std::vector<MqttMessage> m_received;
    std::unique_ptr<mosquitto, Release> m_handle;
};

}  // namespace desktop

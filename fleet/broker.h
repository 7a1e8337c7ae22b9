#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct mosquitto;
struct mosquitto_message;

namespace fleet {

struct BrokerSettings {
    std::string address;      /**< HOST:PORT, and /ROOT for the cameras whose prefixes begin with it alone */
    std::string user;         /**< empty: nobody logs on */
    std::string passwordFile; /**< its first line is the password; empty: none */
    std::string caFile;       /**< switches TLS on */
};

struct Message {
    std::string topic;
    std::string payload;
};

/**
 * A connection to the broker, which keeps nothing for it: cameras send again what nobody confirms. Collectors of one
 * broker share what cameras send. Whatever fails throws std::runtime_error with the reason, which never holds the
 * password. One thread.
 */
class Broker {
public:
    /** Connects and asks for what the cameras send. */
    explicit Broker(const BrokerSettings& settings);

    /** Waits up to so long for something to come, then takes what is there, about so many bytes at most. */
    std::vector<Message> receive(std::chrono::milliseconds most, size_t bytes);

    /** Begins to publish a topic's state. */
    void publishState(const std::string& topic, const std::string& payload);

private:
    struct Destroy {
        void operator()(mosquitto* handle) const;
    };

    void check(int result) const;
    static void onConnect(mosquitto* handle, void* self, int result);
    static void onMessage(mosquitto* handle, void* self, const mosquitto_message* message);

    bool m_isAccepted = false;
    std::string m_refusal;
    std::vector<Message> m_received;
    size_t m_bytes = 0;
    std::unique_ptr<mosquitto, Destroy> m_handle;
};

}  // namespace fleet

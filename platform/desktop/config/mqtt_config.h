#pragma once

#include <cstdint>
#include <string>

/** Which MQTT broker gets the events, and how to log on to it. */
namespace desktop {

struct MqttConfig {
    std::string address;      /**< HOST:PORT[/prefix], see parseMqttAddress; empty: no broker gets the events */
    std::string user;         /**< empty: nobody logs on */
    std::string passwordFile; /**< file whose first line is the user's password; empty: no password */
    std::string caFile;       /**< authorities that the broker's certificate is held to; empty: no TLS */
    std::string certFile;     /**< the camera's own certificate, for brokers that ask for one; needs keyFile */
    std::string keyFile;      /**< the key to certFile, without a passphrase */
};

struct MqttAddress {
    std::string host;
    uint16_t port;
    std::string prefix; /**< what every topic begins with, without a slash at either end */
};

/**
 * Reads HOST:PORT[/prefix], such as broker.example.org:1883/site/gate or [::1]:1883; without a prefix it is
 * "ostrel_senvo". Throws std::runtime_error that says what was expected and what came.
 */
MqttAddress parseMqttAddress(const std::string& text);

/** The same broker, with one more level behind the prefix; nothing for no broker. */
std::string mqttAddressBelow(const std::string& address, const std::string& level);

}  // namespace desktop

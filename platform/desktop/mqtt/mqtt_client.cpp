#include "desktop/mqtt/mqtt_client.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mosquitto.h>
#include <poll.h>
#include <stdexcept>
#include <utility>

namespace desktop {
namespace {

constexpr int kKeepAliveSeconds = 30;
constexpr int kSessionKnownFlag = 1;

std::string readPassword(const std::string& path) {
    std::ifstream file(path);
    std::string password;
    if (!std::getline(file, password)) {
        throw std::runtime_error("cannot read a password from " + path);
    }
    if (!password.empty() && password.back() == '\r') {
        password.pop_back();
    }
    return password;
}

const char* textOrNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

/** Never asks on the terminal: a key that needs a passphrase cannot be used. */
int noPassphrase(char*, int, int, void*) {
    return 0;
}

}  // namespace

void MqttClient::Release::operator()(mosquitto* handle) const {
    mosquitto_destroy(handle);
}

MqttClient::MqttClient(const MqttConfig& config, const std::string& clientId, MqttSession session,
                       const MqttMessage* lastWill) {
    [[maybe_unused]] static const int libraryReady = mosquitto_lib_init();
    m_handle.reset(mosquitto_new(clientId.c_str(), session == MqttSession::Wiped, this));
    if (!m_handle) {
        throw std::runtime_error(strerror(errno));
    }
    mosquitto_connect_with_flags_callback_set(m_handle.get(), onConnect);
    mosquitto_publish_callback_set(m_handle.get(), onPublish);
    mosquitto_message_callback_set(m_handle.get(), onMessage);
    mosquitto_log_callback_set(m_handle.get(), onLog);
    // Keeps the library from writing out of turn: a broker that ends has its last answers read before anything is
    // written to it, which would fail and close the connection over them.
    check(mosquitto_threaded_set(m_handle.get(), true));
    check(mosquitto_int_option(m_handle.get(), MOSQ_OPT_TCP_NODELAY, 1));
    if (lastWill != nullptr) {
        check(mosquitto_will_set(m_handle.get(), lastWill->topic.c_str(), static_cast<int>(lastWill->payload.size()),
                                 lastWill->payload.data(), kExactlyOnce, lastWill->isRetained));
    }
    authenticate(config);
}

void MqttClient::authenticate(const MqttConfig& config) {
    if (!config.user.empty()) {
        const std::string password = config.passwordFile.empty() ? "" : readPassword(config.passwordFile);
        check(mosquitto_username_pw_set(m_handle.get(), config.user.c_str(), textOrNull(password)));
    }
    if (!config.caFile.empty() &&
        mosquitto_tls_set(m_handle.get(), config.caFile.c_str(), nullptr, textOrNull(config.certFile),
                          textOrNull(config.keyFile), noPassphrase) != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error("cannot use " + config.caFile +
                                 (config.certFile.empty() ? "" : ", " + config.certFile + " and " + config.keyFile));
    }
}

void MqttClient::connect(const MqttAddress& address) {
    m_isAccepted = false;
    m_refusal.clear();
    m_detail.clear();
    check(mosquitto_connect(m_handle.get(), address.host.c_str(), address.port, kKeepAliveSeconds));
}

void MqttClient::step(int wakeFd, std::chrono::milliseconds most) {
    if (mosquitto_want_write(m_handle.get())) {
        check(mosquitto_loop_write(m_handle.get(), 1));
    }
    if (!isOpen()) {
        return;  // an orderly end is complete
    }
    check(mosquitto_loop_misc(m_handle.get()));
    const bool isMoreToWrite = mosquitto_want_write(m_handle.get());
    pollfd awaited[] = {
        {mosquitto_socket(m_handle.get()), static_cast<short>(isMoreToWrite ? POLLIN | POLLOUT : POLLIN), 0},
        {wakeFd, POLLIN, 0}};
    poll(awaited, std::size(awaited), static_cast<int>(most.count()));
    readAll();
}

void MqttClient::readAll() {
    pollfd more = {mosquitto_socket(m_handle.get()), POLLIN, 0};
    do {
        check(mosquitto_loop_read(m_handle.get(), 1));
    } while (isOpen() && poll(&more, 1, 0) > 0);
    if (!m_refusal.empty()) {
        throw std::runtime_error(m_refusal);
    }
}

bool MqttClient::isOpen() const {
    return mosquitto_socket(m_handle.get()) >= 0;
}

int MqttClient::publish(const MqttMessage& message, int quality) {
    int number = 0;
    check(mosquitto_publish(m_handle.get(), &number, message.topic.c_str(), static_cast<int>(message.payload.size()),
                            message.payload.data(), quality, message.isRetained));
    return number;
}

void MqttClient::subscribe(const std::string& topic) {
    check(mosquitto_subscribe(m_handle.get(), nullptr, topic.c_str(), kAtLeastOnce));
}

std::vector<MqttMessage> MqttClient::takeReceived() {
    return std::exchange(m_received, {});
}

std::vector<int> MqttClient::takeDelivered() {
    return std::exchange(m_delivered, {});
}

void MqttClient::disconnect() {
    check(mosquitto_disconnect(m_handle.get()));
}

void MqttClient::check(int result) const {
    if (result == MOSQ_ERR_SUCCESS) {
        return;
    }
    if (!m_refusal.empty()) {
        throw std::runtime_error(m_refusal);
    }
    const std::string reason = result == MOSQ_ERR_ERRNO ? strerror(errno) : mosquitto_strerror(result);
    throw std::runtime_error(reason + (m_detail.empty() ? "" : " " + m_detail));
}

void MqttClient::onConnect(mosquitto*, void* self, int result, int flags) {
    auto& client = *static_cast<MqttClient*>(self);
    client.m_isAccepted = result == 0;
    client.m_isSessionKnown = (flags & kSessionKnownFlag) != 0;
    client.m_refusal = result == 0 ? "" : mosquitto_connack_string(result);
}

void MqttClient::onPublish(mosquitto*, void* self, int number) {
    static_cast<MqttClient*>(self)->m_delivered.push_back(number);
}

void MqttClient::onMessage(mosquitto*, void* self, const mosquitto_message* message) {
    static_cast<MqttClient*>(self)->m_received.push_back(
        {message->topic,
         std::string(static_cast<const char*>(message->payload), static_cast<size_t>(message->payloadlen)),
         message->retain});
}

void MqttClient::onLog(mosquitto*, void* self, int level, const char* text) {
    if (level == MOSQ_LOG_ERR) {
        static_cast<MqttClient*>(self)->m_detail = text;
    }
}

}  // namespace desktop

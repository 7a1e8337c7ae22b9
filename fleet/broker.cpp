#include "fleet/broker.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <mosquitto.h>
#include <stdexcept>
#include <utility>

namespace fleet {
namespace {

constexpr int kKeepAliveSeconds = 30;
constexpr int kAtLeastOnce = 1;
constexpr int kDeepestPrefix = 8;  // levels of a camera's prefix below the root
constexpr std::chrono::seconds kLongestLogon(30);

struct Address {
    std::string host;
    uint16_t port = 0;
    std::string root;
};

Address parse(const std::string& text) {
    Address address;
    const size_t slash = text.find('/');
    const std::string place = text.substr(0, slash);
    address.root = slash == std::string::npos ? "" : text.substr(slash + 1);
    const size_t colon = place.rfind(':');
    const std::string port = colon == std::string::npos ? "" : place.substr(colon + 1);
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
    const bool isRoot = address.root.find_first_of("+#$") == std::string::npos && !address.root.ends_with('/') &&
                        (slash == std::string::npos || !address.root.empty());
    if (colon == 0 || error != std::errc() || end != port.data() + port.size() || address.port == 0 || !isRoot) {
        throw std::runtime_error("expected a broker as HOST:PORT or HOST:PORT/ROOT, got \"" + text + "\"");
    }
    address.host = place.substr(0, colon);
    if (address.host.starts_with('[') && address.host.ends_with(']')) {
        address.host = address.host.substr(1, address.host.size() - 2);
    }
    return address;
}

std::string readPassword(const std::string& path) {
    std::ifstream file(path);
    std::string password;
    if (!std::getline(file, password)) {
        throw std::runtime_error("cannot read a password from " + path);
    }
    if (password.ends_with('\r')) {
        password.pop_back();
    }
    return password;
}

}  // namespace

void Broker::Destroy::operator()(mosquitto* handle) const {
    mosquitto_destroy(handle);
}

Broker::Broker(const BrokerSettings& settings) {
    [[maybe_unused]] static const int libraryReady = mosquitto_lib_init();
    const Address address = parse(settings.address);
    m_handle.reset(mosquitto_new(nullptr, true, this));
    if (!m_handle) {
        throw std::runtime_error(strerror(errno));
    }
    mosquitto_connect_callback_set(m_handle.get(), onConnect);
    mosquitto_message_callback_set(m_handle.get(), onMessage);
    if (!settings.user.empty()) {
        const std::string password = settings.passwordFile.empty() ? "" : readPassword(settings.passwordFile);
        check(mosquitto_username_pw_set(m_handle.get(), settings.user.c_str(),
                                        password.empty() ? nullptr : password.c_str()));
    }
    if (!settings.caFile.empty() && mosquitto_tls_set(m_handle.get(), settings.caFile.c_str(), nullptr, nullptr,
                                                      nullptr, nullptr) != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error("cannot use " + settings.caFile);
    }
    check(mosquitto_connect(m_handle.get(), address.host.c_str(), address.port, kKeepAliveSeconds));
    const auto limit = std::chrono::steady_clock::now() + kLongestLogon;
    while (!m_isAccepted) {
        if (std::chrono::steady_clock::now() > limit) {
            throw std::runtime_error("expected an answer within 30 seconds, got none");
        }
        receive(std::chrono::milliseconds(200), 1);
    }
    // A pattern cannot say "whatever deep": each depth of a prefix is a subscription.
    std::string filter = address.root.empty() ? "" : address.root + "/";
    for (int depth = 1; depth <= kDeepestPrefix; ++depth) {
        filter += "+/";
        for (const char* const topic : {"ledger", "recent"}) {
            const std::string shared = "$share/senvo-collect/" + filter + topic;
            check(mosquitto_subscribe(m_handle.get(), nullptr, shared.c_str(), kAtLeastOnce));
        }
    }
    if (!address.root.empty()) {
        for (const char* const topic : {"/ledger", "/recent"}) {
            const std::string shared = "$share/senvo-collect/" + address.root + topic;
            check(mosquitto_subscribe(m_handle.get(), nullptr, shared.c_str(), kAtLeastOnce));
        }
    }
}

std::vector<Message> Broker::receive(std::chrono::milliseconds most, size_t bytes) {
    auto wait = static_cast<int>(most.count());
    m_bytes = 0;
    size_t before = 0;
    do {
        before = m_received.size();
        check(mosquitto_loop(m_handle.get(), wait, 1));
        wait = 0;
    } while (m_received.size() > before && m_bytes < bytes);
    return std::exchange(m_received, {});
}

void Broker::publishState(const std::string& topic, const std::string& payload) {
    check(mosquitto_publish(m_handle.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(),
                            kAtLeastOnce, true));
}

void Broker::check(int result) const {
    if (!m_refusal.empty()) {
        throw std::runtime_error(m_refusal);
    }
    if (result != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error(result == MOSQ_ERR_ERRNO ? strerror(errno) : mosquitto_strerror(result));
    }
}

void Broker::onConnect(mosquitto*, void* self, int result) {
    auto& broker = *static_cast<Broker*>(self);
    broker.m_isAccepted = result == 0;
    broker.m_refusal = result == 0 ? "" : mosquitto_connack_string(result);
}

void Broker::onMessage(mosquitto*, void* self, const mosquitto_message* message) {
    auto& broker = *static_cast<Broker*>(self);
    broker.m_bytes += static_cast<size_t>(message->payloadlen);
    broker.m_received.push_back({message->topic, std::string(static_cast<const char*>(message->payload),
                                                             static_cast<size_t>(message->payloadlen))});
}

}  // namespace fleet

#include "desktop/config/mqtt_config.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <stdexcept>

namespace desktop {
namespace {

constexpr const char* kDefaultPrefix = "ostrel_senvo";
constexpr int kHighestPort = 65535;

struct HostAndPort {
    std::string host;
    std::string port;
};

std::runtime_error unexpected(const std::string& expected, const std::string& got) {
    return std::runtime_error("expected " + expected + ", got \"" + got + "\"");
}

HostAndPort splitHost(const std::string& text, const std::string& whole) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        throw unexpected("HOST:PORT[/prefix]", whole);
    }
    std::string host = text.substr(0, colon);
    if (host.size() > 1 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
        in6_addr address = {};
        if (inet_pton(AF_INET6, host.c_str(), &address) != 1) {
            throw unexpected("an IPv6 address in the brackets", host);
        }
    } else if (host.find(':') != std::string::npos) {
        throw unexpected("HOST:PORT[/prefix], an IPv6 address in brackets as in [::1]:1883", whole);
    } else if (host.empty() || std::any_of(host.begin(), host.end(), [](unsigned char character) {
                   return character <= ' ' || character == '[' || character == ']';
               })) {
        throw unexpected("a host before the port", whole);
    }
    return {host, text.substr(colon + 1)};
}

uint16_t readPort(const std::string& text) {
    int port = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stopped != end || port < 1 || port > kHighestPort) {
        throw unexpected("a port from 1 to 65535", text);
    }
    return static_cast<uint16_t>(port);
}

std::string checkedPrefix(const std::string& text) {
    const bool isPlain = std::all_of(text.begin(), text.end(), [](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') || std::string("-_./").find(character) != std::string::npos;
    });
    if (!isPlain || text.empty() || text.front() == '/' || text.back() == '/' || text.find("//") != std::string::npos) {
        throw unexpected("a prefix of letters, digits, '-', '_' and '.', with single slashes between its levels", text);
    }
    return text;
}

}  // namespace

MqttAddress parseMqttAddress(const std::string& text) {
    if (text.find('@') != std::string::npos) {
        // What stands before it may be a password, which must not be repeated.
        throw std::runtime_error("expected HOST:PORT[/prefix], got an address with a user in it");
    }
    const size_t slash = text.find('/');
    const HostAndPort parts = splitHost(text.substr(0, slash), text);
    return {parts.host, readPort(parts.port),
            slash == std::string::npos ? kDefaultPrefix : checkedPrefix(text.substr(slash + 1))};
}

std::string mqttAddressBelow(const std::string& address, const std::string& level) {
    if (address.empty()) {
        return {};
    }
    const bool hasPrefix = address.find('/') != std::string::npos;
    return address + "/" + (hasPrefix ? "" : std::string(kDefaultPrefix) + "/") + level;
}

}  // namespace desktop

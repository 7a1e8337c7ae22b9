#include "desktop/webserver/front.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <random>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "desktop/config/not_now.h"
#include "front_files.h"

namespace desktop {
namespace {

constexpr int kBacklog = 4096;
constexpr rlim_t kMostDescriptors = 65535;  // that lighttpd takes
constexpr int kHighestPort = 65535;

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

void writeFile(const std::filesystem::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::trunc);
    file << text;
    file.close();
    if (!file) {
        throw NotNow("cannot write " + path.string());
    }
}

/** The folder's name, if it can stand in the configuration. */
std::string quotable(const std::filesystem::path& folder) {
    std::string name = folder.string();
    const bool special = std::any_of(name.begin(), name.end(), [](char c) {
        return c == '"' || c == '\\' || c == '$' || static_cast<unsigned char>(c) < ' ';
    });
    if (special) {
        throw std::runtime_error(
            "the web server takes no folder with quotes, backslashes, dollar signs or control "
            "characters in its name, got " +
            name);
    }
    return name;
}

/** What nobody guesses. */
std::string randomDigits() {
    std::random_device random;
    std::ostringstream digits;
    for (int i = 0; i < 4; ++i) {
        digits << std::hex << std::setw(8) << std::setfill('0') << random();
    }
    return digits.str();
}

/** How many descriptors a process may have on this machine. */
rlim_t mostDescriptors() {
    rlimit limit = {};
    return getrlimit(RLIMIT_NOFILE, &limit) == 0 ? std::min(limit.rlim_max, kMostDescriptors) : 1024;
}

std::string bracketed(const std::string& address) {
    return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

}  // namespace

ListeningSocket::ListeningSocket(const std::string& address, int port, const std::string& option)
    : m_address(address), m_port(port) {
    if (port < 0 || port > kHighestPort) {
        throw std::runtime_error("expected a port from 0 to " + std::to_string(kHighestPort) + ", got " +
                                 std::to_string(port) + "; " + option + " chooses another");
    }
    const std::string place = "port " + std::to_string(port) + " of " + address;
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_PASSIVE;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
        throw std::runtime_error("--listen: expected an IP address such as 127.0.0.1 or 0.0.0.0, got " + address);
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(found, freeaddrinfo);
    m_descriptor = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(m_descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (bind(m_descriptor, found->ai_addr, found->ai_addrlen) != 0 || listen(m_descriptor, kBacklog) != 0) {
        const std::string reason = std::strerror(errno);
        close(m_descriptor);
        throw NotNow("cannot listen on " + place + ": " + reason + "; " + option + " chooses another");
    }
    sockaddr_storage name = {};
    socklen_t size = sizeof(name);
    getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&name), &size);
    m_port = ntohs(name.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6*>(&name)->sin6_port
                                              : reinterpret_cast<const sockaddr_in*>(&name)->sin_port);
}

ListeningSocket::~ListeningSocket() {
    close(m_descriptor);
}

std::string ListeningSocket::bindAddress() const {
    return bracketed(m_address);
}

std::string ListeningSocket::reachableAs() const {
    const bool any = m_address == "0.0.0.0" || m_address == "::";
    return (any ? "127.0.0.1" : bracketed(m_address)) + ":" + std::to_string(m_port);
}

std::filesystem::path accountsFile(const std::filesystem::path& stateFolder) {
    return stateFolder / "accounts";
}

std::filesystem::path liveSocket(const std::filesystem::path& stateFolder) {
    return stateFolder / "live.socket";
}

SupervisedProcess prepareFront(const std::filesystem::path& stateFolder, const std::filesystem::path& socketAndPage,
                               const ListeningSocket& socket, const std::optional<SecureFront>& secure,
                               const std::filesystem::path& metricsToken) {
    std::string configuration = replaced(kFrontConfiguration, "@PORT@", std::to_string(socket.port()));
    configuration = replaced(configuration, "@BIND@", socket.bindAddress());
    configuration = replaced(configuration, "@REALM@", kRealm);
    const rlim_t descriptors = mostDescriptors();
    configuration = replaced(configuration, "@DESCRIPTORS@", std::to_string(descriptors));
    // A request that the application answers needs one more.
    configuration = replaced(configuration, "@CONNECTIONS@", std::to_string(descriptors / 2));
    configuration = replaced(configuration, "@LIVE@", liveSocket(stateFolder).filename().string());
    configuration = replaced(configuration, "@HTML@", socketAndPage.lexically_relative(stateFolder).string());
    configuration = replaced(configuration, "@STATE@", quotable(stateFolder));
    if (secure) {
        std::string more = replaced(kFrontTlsConfiguration, "@BIND@", secure->socket.bindAddress());
        more = replaced(more, "@PORT@", std::to_string(secure->socket.port()));
        more = replaced(more, "@CERTIFICATE@", quotable(secure->pair.certificate));
        configuration += replaced(more, "@KEY@", quotable(secure->pair.key));
    }
    const std::string metrics = "/local/ostrel_senvo/metrics-" + randomDigits();
    configuration = replaced(configuration, "@METRICS@", metrics);
    std::string script = replaced(kFrontScript, "@TLS@", secure ? "true" : "false");
    script = replaced(script, "@ACCOUNTS@", quotable(accountsFile(stateFolder)));
    script = replaced(script, "@METRICS@", metrics);
    script = replaced(script, "@TOKEN@", quotable(metricsToken));
    script = replaced(script, "@LEAST@", std::to_string(kShortestToken));
    // Large bodies wait here, and stay behind when the server is killed.
    std::filesystem::remove_all(stateFolder / "front.tmp");
    std::filesystem::create_directory(stateFolder / "front.tmp");
    writeFile(stateFolder / "front.conf", "# Written at every start; changes are lost.\n" + configuration);
    writeFile(stateFolder / "front.lua", "-- Written at every start; changes are lost.\n" + script);
    SupervisedProcess front;
    front.name = "the web server";
    front.executable = "/usr/sbin/lighttpd";
    front.arguments = {"-D", "-f", "front.conf"};
    front.workingFolder = stateFolder;
    front.listeningSockets = {socket.descriptor()};
    if (secure) {
        front.listeningSockets.push_back(secure->socket.descriptor());
    }
    front.log = stateFolder / "front.log";
    front.takesSigtermUp = false;
    front.mayEnd = false;
    return front;
}

}  // namespace desktop

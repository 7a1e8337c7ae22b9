#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "desktop/supervisor/supervisor.h"
#include "desktop/webserver/tls_pair.h"

/**
 * A camera's web server: lighttpd with digest authentication before the page, the application's FastCGI socket
 * and its live picture, and before nothing else. Requests are buffered whole before the application sees them, so that
 * slow clients do not hold it.
 */
namespace desktop {

inline constexpr const char* kRealm = "Ostrel Senvo";

/** A listening TCP socket, kept open over restarts of the web server, so that nobody is turned away. */
class ListeningSocket {
public:
    /**
     * Listens on an IPv4 or IPv6 address; port 0 takes any that is free. Throws std::runtime_error that names address
     * and port and what is wrong: no address, or, as NotNow, a port that is taken. option: the one that chooses another
     * port.
     */
    ListeningSocket(const std::string& address, int port, const std::string& option = "--port");
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    int descriptor() const { return m_descriptor; }
    int port() const { return m_port; }

    /** The address as a configuration file takes it: IPv6 in brackets. */
    std::string bindAddress() const;

    /** "ADDRESS:PORT" as a browser on this machine reaches it. */
    std::string reachableAs() const;

private:
    std::string m_address;
    int m_descriptor = -1;
    int m_port = 0;
};

/** The file of accounts that the web server of a camera's folder reads. */
std::filesystem::path accountsFile(const std::filesystem::path& stateFolder);

/** The socket behind which the web server of a camera's folder expects the live picture. */
std::filesystem::path liveSocket(const std::filesystem::path& stateFolder);

/** Where the web server has TLS, and with what. */
struct SecureFront {
    const ListeningSocket& socket;
    TlsPair pair;
};

/** The fewest characters of a token that opens /metrics: it may be tried as often as anybody likes. */
inline constexpr size_t kShortestToken = 32;

/**
 * Writes the web server's configuration into a camera's folder, and returns how to run it. socketAndPage: the folder of
 * the application's socket and of the page, below stateFolder. With a secure front, the other socket answers only what
 * leaders ask of their followers. metricsToken: the file whose first line opens /metrics without a login, read at each
 * request; may be empty. Throws std::runtime_error when it cannot be written.
 */
SupervisedProcess prepareFront(const std::filesystem::path& stateFolder, const std::filesystem::path& socketAndPage,
                               const ListeningSocket& socket, const std::optional<SecureFront>& secure = std::nullopt,
                               const std::filesystem::path& metricsToken = {});

}  // namespace desktop

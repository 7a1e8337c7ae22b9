#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "desktop/supervisor/supervisor.h"
#include "desktop/tool/camera_folder.h"
#include "desktop/webserver/accounts.h"
#include "desktop/webserver/front.h"
#include "desktop/webserver/tls_pair.h"

namespace CLI {
class App;
}

/** A whole camera on this machine: its folder, the application on a video source, its web server. */
namespace desktop {

struct TlsOptions {
    std::optional<int> port;           /**< nothing: no TLS; 0: any that is free */
    std::filesystem::path certificate; /**< empty: the camera makes its own */
    std::filesystem::path key;
};

struct CameraOptions {
    std::string video = "scene:plaza";
    std::string model = "auto";
    std::string networks;        /**< folder; may be empty */
    std::filesystem::path state; /**< the camera's folder */
    std::string listen = "127.0.0.1";
    int port = 8080; /**< 0: any that is free */
    TlsOptions tls;
    std::string metricsToken;   /**< file of the token that opens /metrics; empty: the login alone does */
    bool keepOccupancy = false; /**< after a short break */
    int ledgerMebibytes = 2048; /**< that the ledger takes at most */
    MqttConfig mqtt;            /**< the broker that gets the events; none by default */
};

/** Adds the options that all who run cameras have; state and seconds go beside CameraOptions. */
void addCameraOptions(CLI::App& command, CameraOptions& options, int& seconds);

class DesktopCamera {
public:
    /**
     * Prepares everything but starts nothing. name stands before its messages. Throws std::runtime_error, saying what
     * was expected and what came, for a video, model, folder, address or port that cannot be had.
     */
    DesktopCamera(const CameraOptions& options, const std::string& name);

    /** The application and its web server, for the supervisor; the camera outlives them. */
    std::vector<SupervisedProcess> processes() const;

    const CameraFolder& folder() const { return m_folder; }
    std::string url() const;

    /** Where leaders find it. */
    std::string address() const { return m_socket.reachableAs(); }

    /** What somebody compares who is shown the certificate for the first time; empty without TLS. */
    std::string fingerprint() const { return m_tls ? desktop::fingerprint(m_tls->certificate) : ""; }
    Accounts accounts() const { return Accounts(accountsFile(m_folder.path())); }

    /** The password that was made because the camera had none. */
    const std::optional<std::string>& newPassword() const { return m_newPassword; }

    /** The application's FastCGI socket. */
    std::filesystem::path socket() const;

    /** Whether the application takes requests. */
    bool serves() const;

private:
    /** The errors of the application's last start in its log, each behind a line break. */
    std::string newestErrors() const;

    std::string m_name;
    std::filesystem::path m_metricsToken;
    bool m_keepOccupancy;
    int m_ledgerMebibytes;
    CameraFolder m_folder;
    ListeningSocket m_socket;
    std::optional<ListeningSocket> m_secureSocket;
    std::optional<TlsPair> m_tls;
    std::optional<std::string> m_newPassword;
};

/**
 * "url: ", "user: " and, when it was just made, "password: ", with TLS also "fingerprint: " and, for leaders,
 * "address: ", a line each.
 */
std::string accessLines(const DesktopCamera& camera);

}  // namespace desktop

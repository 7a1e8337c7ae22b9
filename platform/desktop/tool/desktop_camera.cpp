#include "desktop/tool/desktop_camera.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <fstream>
#include <numeric>
#include <regex>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "desktop/frames/source_name.h"
#include "desktop/parameters/good_copy.h"
#include "desktop/tool/mqtt_options.h"
#include "desktop/video/shared_source.h"

namespace desktop {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSocketName = "ostrel_senvo_fcgi.socket";
constexpr uint32_t kPictureWidth = 960;
constexpr uint32_t kPictureHeight = 540;

/** Whether a source names a file, rather than an address, a device or a drawn scene. */
bool isFile(const std::string& video) {
    return video.find("://") == std::string::npos && video.rfind("scene:", 0) != 0;
}

/** Refuses an address that leads nowhere. It may hold a password, in whichever place: what was wrong is not shown. */
void checkAddress(const std::string& address) {
    const size_t start = address.find("://") + 3;
    const std::string authority = address.substr(start, address.find_first_of("/?#", start) - start);
    const std::string place = authority.substr(authority.rfind('@') + 1);
    static const std::regex form(R"((\[[0-9A-Fa-f:.]+(?:%[\w.-]+)?\]|[^\s[:cntrl:]"<>\\^`{|}%:[\]]+)(?::(.*))?)");
    std::smatch parts;
    if (!std::regex_match(place, parts, form)) {
        throw std::runtime_error(displayName(address) +
                                 ": expected a host behind the //, as in rtsp://192.0.2.7/stream, got none");
    }
    const std::string port = parts[2];
    if (parts[2].matched && (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != port.npos ||
                             std::stoi(port) < 1 || std::stoi(port) > 65535)) {
        throw std::runtime_error(displayName(address) +
                                 ": expected a port from 1 to 65535, as in rtsp://192.0.2.7:554/stream");
    }
}

/** Refuses what can never be a video. A network camera that cannot be reached now may be there later. */
void checkVideo(const std::string& video) {
    if (isFile(video) && !fs::exists(video)) {
        throw std::runtime_error("no video " + video +
                                 ": expected a file, a device such as /dev/video0, an address such as rtsp://..., or "
                                 "scene:plaza");
    }
    const SourceKind kind = kindOf(video);
    if (kind == SourceKind::File || kind == SourceKind::Scene) {
        const std::atomic<bool> neverStopped = false;
        openReader(video, neverStopped);
    }
    if (kind == SourceKind::Network) {
        checkAddress(video);
    }
}

std::string checkedNetworks(const std::string& folder) {
    if (folder.empty()) {
        return {};
    }
    if (!fs::is_directory(folder)) {
        throw std::runtime_error("--networks: expected a folder, got " + folder);
    }
    return fs::absolute(folder).string();
}

fs::path checkedToken(const std::string& file) {
    if (file.empty()) {
        return {};
    }
    std::ifstream stream(file);
    std::string token;
    if (!std::getline(stream, token)) {
        throw std::runtime_error("--metrics-token: expected a file with a line, got " + file);
    }
    if (token.size() < kShortestToken) {
        throw std::runtime_error("--metrics-token: expected at least " + std::to_string(kShortestToken) +
                                 " characters in the first line of " + file + ", got " + std::to_string(token.size()));
    }
    return fs::absolute(file);
}

fs::path heartbeatFile(const CameraFolder& folder) {
    return folder.path() / "heartbeat";
}

/** Brings the page's files to where the web server finds them. */
void installPage(const fs::path& html) {
    const fs::path page = packageFolder() / "html";
    if (fs::is_directory(page)) {
        fs::copy(page, html, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    }
}

}  // namespace

void addCameraOptions(CLI::App& command, CameraOptions& options, int& seconds) {
    command
        .add_option("--model", options.model,
                    "Model card: a file, a name such as motion, or auto: the best whose network is there, else motion")
        ->capture_default_str();
    command.add_option("--networks", options.networks, "Folder of the network files that the card names");
    command.add_option("--port", options.port, "Port of the web interface; 0 takes any that is free")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    command
        .add_option("--listen", options.listen,
                    "IP address on which the web interface can be reached; 0.0.0.0 opens it to the network")
        ->capture_default_str();
    addMqttOptions(command, options.mqtt);
    command.add_option("--metrics-token", options.metricsToken,
                       "File whose first line opens /metrics to programs that know no login");
    command.add_flag("--keep-occupancy", options.keepOccupancy,
                     "Go on with the occupancy of a run that ended less than ten minutes ago");
    command
        .add_option("--ledger-size", options.ledgerMebibytes,
                    "MiB that the ledger takes at most; its oldest days go first")
        ->check(CLI::Range(1, 1048576))
        ->capture_default_str();
    command.add_option("--seconds", seconds, "End after so many seconds")->check(CLI::Range(1, 1000000000));
    command.add_option("--state", options.state,
                       "Folder for settings, events and the log; by default one below ~/.local/state/ostrel-senvo");
}

DesktopCamera::DesktopCamera(const CameraOptions& options, const std::string& name)
    : m_name(name),
      m_metricsToken(checkedToken(options.metricsToken)),
      m_keepOccupancy(options.keepOccupancy),
      m_ledgerMebibytes(options.ledgerMebibytes),
      m_folder((checkVideo(options.video), checkedNetworks(options.networks), options.state)),
      m_socket(options.listen, options.port) {
    if (options.tls.port) {
        m_secureSocket.emplace(options.listen, *options.tls.port, "--tls");
        m_tls = options.tls.certificate.empty() ? ownTlsPair(m_folder.path(), options.listen)
                                                : givenTlsPair(options.tls.certificate, options.tls.key);
    }
    DesktopConfig config;
    config.video = isFile(options.video) ? fs::absolute(options.video).string() : options.video;
    config.networksFolder = checkedNetworks(options.networks);
    config.stateFolder = m_folder.path().string();
    config.manifest = (packageFolder() / "manifest.json").string();
    config.mqtt = options.mqtt;
    config.heartbeat = heartbeatFile(m_folder).string();
    config.liveSocket = liveSocket(m_folder.path()).string();
    m_folder.writeConfig(config);
    m_folder.installModel(chooseModelCard(options.model, options.networks).card, kPictureWidth, kPictureHeight);
    installPage(m_folder.html());
    if (!accounts().has(kOperator)) {
        m_newPassword = randomPassword();
        accounts().set(kOperator, *m_newPassword);
    }
}

std::vector<SupervisedProcess> DesktopCamera::processes() const {
    SupervisedProcess application;
    application.name = "the application" + m_name;
    application.executable = fs::read_symlink("/proc/self/exe").parent_path() / "ostrel_senvo";
    application.workingFolder = m_folder.application();
    application.environment["OSTREL_SENVO_ROOT"] = m_folder.root().string();
    application.environment["SENVO_DESKTOP_CONFIG"] = m_folder.configFile().string();
    application.environment["OSTREL_SENVO_LEDGER_MIB"] = std::to_string(m_ledgerMebibytes);
    // A machine's disk does not wear as a camera's flash does. Whoever starts this may want it otherwise.
    if (std::getenv("OSTREL_SENVO_LEDGER_SYNC") == nullptr) {
        application.environment["OSTREL_SENVO_LEDGER_SYNC"] = "1";
    }
    if (m_keepOccupancy) {
        application.environment["OSTREL_SENVO_KEEP_OCCUPANCY"] = "600";
    }
    application.heartbeat = heartbeatFile(m_folder);
    application.prepare = [this] { return restoreDamaged((m_folder.path() / "parameters.db").string()); };
    application.lastWords = [this] { return newestErrors(); };
    SupervisedProcess front = prepareFront(
        m_folder.path(), m_folder.html(), m_socket,
        m_secureSocket ? std::optional<SecureFront>({*m_secureSocket, *m_tls}) : std::nullopt, m_metricsToken);
    front.name += m_name;
    front.question = "GET / HTTP/1.0\r\n\r\n";
    return {application, front};
}

std::string DesktopCamera::url() const {
    return m_secureSocket ? "https://" + m_secureSocket->reachableAs() + "/" : "http://" + address() + "/";
}

fs::path DesktopCamera::socket() const {
    return m_folder.html() / kSocketName;
}

bool DesktopCamera::serves() const {
    // A socket's address is short: the way there leads through the folder's descriptor.
    const int folder = open(m_folder.html().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    const int client = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = "/proc/self/fd/" + std::to_string(folder) + "/" + kSocketName;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const bool connected =
        folder >= 0 && connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    close(client);
    close(folder);
    return connected;
}

std::string DesktopCamera::newestErrors() const {
    constexpr size_t kMost = 8;
    std::deque<std::string> errors;
    std::ifstream file(m_folder.log());
    for (std::string line; std::getline(file, line);) {
        if (line.find("|warning|STARTING ") != std::string::npos) {
            errors.clear();
        }
        if (line.find("|error|") != std::string::npos) {
            errors.push_back("\n  " + line);
        }
        if (errors.size() > kMost) {
            errors.pop_front();
        }
    }
    return std::accumulate(errors.begin(), errors.end(), std::string());
}

std::string accessLines(const DesktopCamera& camera) {
    return "url: " + camera.url() + "\nuser: " + kOperator + "\n" +
           (camera.newPassword() ? "password: " + *camera.newPassword() + "\n" : "") +
           (camera.fingerprint().empty()
                ? ""
                : "fingerprint: " + camera.fingerprint() + "\naddress: " + camera.address() + "\n");
}

}  // namespace desktop

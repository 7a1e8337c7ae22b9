#include "desktop_camera.h"

#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <fstream>
#include <numeric>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "mqtt_options.h"

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

std::string checkedVideo(const std::string& video) {
    if (!isFile(video)) {
        return video;
    }
    if (!fs::exists(video)) {
        throw std::runtime_error("no video " + video +
                                 ": expected a file, a device such as /dev/video0, an address such as rtsp://..., or "
                                 "scene:plaza");
    }
    return fs::absolute(video).string();
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

fs::path defaultStateFolder(const std::string& name) {
    // A folder that is not named from the root is to be ignored.
    if (const char* const state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/') {
        return fs::path(state) / "ostrel-senvo" / name;
    }
    const char* const home = std::getenv("HOME");
    return fs::path(home == nullptr ? "." : home) / ".local/state/ostrel-senvo" / name;
}

void addCameraOptions(CLI::App& command, CameraOptions& options, int& seconds) {
    command.add_option("--model", options.model, "Model card: a file, or a name such as motion")->capture_default_str();
    command.add_option("--networks", options.networks, "Folder of the network files that the card names");
    command.add_option("--port", options.port, "Port of the web interface; 0 takes any that is free")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    command
        .add_option("--listen", options.listen,
                    "IP address on which the web interface can be reached; 0.0.0.0 opens it to the network")
        ->capture_default_str();
    addMqttOptions(command, options.mqtt);
    command.add_option("--seconds", seconds, "End after so many seconds")->check(CLI::Range(1, 1000000000));
    command.add_option("--state", options.state,
                       "Folder for settings, events and the log; by default one below ~/.local/state/ostrel-senvo");
}

DesktopCamera::DesktopCamera(const CameraOptions& options, const std::string& name)
    : m_name(name),
      m_folder((checkedVideo(options.video), checkedNetworks(options.networks), options.state)),
      m_socket(options.listen, options.port) {
    DesktopConfig config;
    config.video = checkedVideo(options.video);
    config.networksFolder = checkedNetworks(options.networks);
    config.stateFolder = m_folder.path().string();
    config.manifest = (packageFolder() / "manifest.json").string();
    config.mqtt = options.mqtt;
    config.heartbeat = heartbeatFile(m_folder).string();
    config.liveSocket = liveSocket(m_folder.path()).string();
    m_folder.writeConfig(config);
    m_folder.installModel(findModelCard(options.model), kPictureWidth, kPictureHeight);
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
    application.heartbeat = heartbeatFile(m_folder);
    application.lastWords = [this] { return newestErrors(); };
    SupervisedProcess front = prepareFront(m_folder.path(), m_folder.html(), m_socket);
    front.name += m_name;
    return {application, front};
}

bool DesktopCamera::serves() const {
    // A socket's address is short: the way there leads through the folder's descriptor.
    const int folder = open(m_folder.html().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
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
           (camera.newPassword() ? "password: " + *camera.newPassword() + "\n" : "");
}

}  // namespace desktop

#include "desktop/events/broker_link.h"

#include <chrono>
#include <climits>
#include <glib.h>
#include <iostream>
#include <random>
#include <stdexcept>
#include <unistd.h>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "desktop/config/desktop_config.h"
#include "desktop/mqtt/line_link.h"
#include "desktop/mqtt/published_lines.h"

namespace desktop {
namespace {

/** The application keeps its event handler to the end of the process, so that nothing else would end the link. */
class EndWithProcess {
public:
    ~EndWithProcess() {
        for (const std::weak_ptr<MqttLink>& entry : m_links) {
            if (const std::shared_ptr<MqttLink> link = entry.lock()) {
                link->end();
            }
        }
    }

    void add(const std::shared_ptr<MqttLink>& link) {
        const MutexLock lock(m_mutex);
        m_links.push_back(link);
    }

private:
    Mutex m_mutex;  // guards m_links
    std::vector<std::weak_ptr<MqttLink>> m_links GUARDED_BY(m_mutex);
};

void say(const std::string& line) {
    std::cerr << "senvo: " + line + "\n" << std::flush;
}

/** The same for every start of this camera, another for every other: 21 letters and digits, which every broker takes.
 */
std::string clientId(const DesktopConfig& config) {
    char host[HOST_NAME_MAX + 1] = {};
    gethostname(host, HOST_NAME_MAX);
    const std::string camera = std::string(host) + "\n" + config.stateFolder + "\n" + config.mqtt.address;
    const std::unique_ptr<gchar, decltype(&g_free)> sum(
        g_compute_checksum_for_string(G_CHECKSUM_SHA256, camera.c_str(), -1), g_free);
    return "senvo" + std::string(sum.get(), 16);
}

std::unique_ptr<LineLink> linkForLines(const DesktopConfig& config) {
    const std::optional<PublishedLines> lines =
        config.manifest.empty() ? std::nullopt : readPublishedLines(config.manifest);
    if (!lines) {
        return nullptr;
    }
    LineLinkSettings settings;
    settings.broker = config.mqtt;
    settings.clientId = clientId(config) + "l";
    settings.lines.folder = config.stateFolder + "/root/" + lines->folder;
    settings.lines.positionFile = config.stateFolder + "/confirmed.json";
    settings.lines.liveMembers = lines->live;
    settings.lines.steadyMillis = [] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    };
    settings.lines.random = [generator = std::mt19937_64(std::random_device()())](int64_t below) mutable {
        return std::uniform_int_distribution<int64_t>(0, below - 1)(generator);
    };
    settings.lines.say = say;
    return std::make_unique<LineLink>(std::move(settings));
}

/** The process's one link for lines; nothing waits behind it when the process ends. */
class LinesOfTheProcess {
public:
    explicit LinesOfTheProcess(const DesktopConfig& config) {
        try {
            m_link = linkForLines(config);
        } catch (const std::runtime_error& error) {
            say(std::string("mqtt: no lines are sent: ") + error.what());
        }
    }
    ~LinesOfTheProcess() {
        if (m_link && !m_link->end()) {
            static_cast<void>(m_link.release());  // its thread looks a host's name up; the process's end is its end
        }
    }
    LinesOfTheProcess(const LinesOfTheProcess&) = delete;
    LinesOfTheProcess& operator=(const LinesOfTheProcess&) = delete;

private:
    std::unique_ptr<LineLink> m_link;
};

}  // namespace

std::shared_ptr<MqttLink> linkToBroker() {
    const DesktopConfig& config = desktopConfig();
    if (config.mqtt.address.empty()) {
        return nullptr;
    }
    static EndWithProcess endWithProcess;
    MqttLinkSettings settings;
    settings.broker = config.mqtt;
    settings.clientId = clientId(config);
    settings.say = say;
    try {
        auto link = std::make_shared<MqttLink>(std::move(settings));
        endWithProcess.add(link);
        static const LinesOfTheProcess lines(config);
        return link;
    } catch (const std::runtime_error& error) {
        say(std::string("mqtt: ") + error.what());
        return nullptr;
    }
}

}  // namespace desktop

#include "desktop/events/broker_link.h"

#include <climits>
#include <glib.h>
#include <iostream>
#include <stdexcept>
#include <unistd.h>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "desktop/config/desktop_config.h"

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
        return link;
    } catch (const std::runtime_error& error) {
        say(std::string("mqtt: ") + error.what());
        return nullptr;
    }
}

}  // namespace desktop

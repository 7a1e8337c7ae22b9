#include "desktop/mqtt/line_link.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace desktop {
namespace {

constexpr std::chrono::milliseconds kGrace(1000);
constexpr int kMostFarewellSteps = 3;

int newWakeFd() {
    const int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return fd;
}

}  // namespace

LineLink::LineLink(LineLinkSettings settings)
    : m_settings(std::move(settings)),
      m_address(parseMqttAddress(m_settings.broker.address)),
      m_wakeFd(newWakeFd()),
      m_forwarder(m_settings.lines),
      m_backOff(m_settings.firstRetry, m_settings.longestRetry) {
    // The process's signals, and SIGPIPE for a broker that is gone, are no business of this thread.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    m_thread = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

LineLink::~LineLink() {
    end();
    m_thread.join();
    close(m_wakeFd);
}

bool LineLink::end() {
    const auto latest = std::chrono::steady_clock::now() + kGrace;
    const MutexLock lock(m_mutex);
    m_isEnding = true;
    eventfd_write(m_wakeFd, 1);
    m_changed.notifyAll();
    while (!m_isFinished && m_changed.waitUntil(m_mutex, latest)) {
    }
    return m_isFinished;
}

bool LineLink::isEnding() {
    const MutexLock lock(m_mutex);
    return m_isEnding;
}

void LineLink::run() {
    while (!isEnding()) {
        try {
            serve();
        } catch (const std::runtime_error& error) {
            if (error.what() != m_toldLoss && !isEnding()) {
                m_toldLoss = error.what();
                m_settings.lines.say("mqtt: lines to " + m_settings.broker.address + ": " + m_toldLoss +
                                     "; trying again");
            }
        }
        const MutexLock lock(m_mutex);
        const auto again = std::chrono::steady_clock::now() + m_backOff.next();
        while (!m_isEnding && m_changed.waitUntil(m_mutex, again)) {
        }
    }
    const MutexLock lock(m_mutex);
    m_isFinished = true;
    m_changed.notifyAll();
}

/** Forwards for as long as the connection lasts; returns when the end was asked for. */
void LineLink::serve() {
    // A new client each time, with no memory of what the connection before was delivering: it is not confirmed.
    MqttClient client(m_settings.broker, m_settings.clientId, MqttSession::Wiped, nullptr);
    client.connect(m_address);
    while (!client.isAccepted()) {
        if (isEnding()) {
            return;
        }
        client.step(m_wakeFd, m_settings.pause);
    }
    client.subscribe(m_address.prefix + "/confirmed");
    m_forwarder.connected();
    m_backOff.reset();
    m_toldLoss.clear();
    while (!isEnding()) {
        for (const LineMessage& message : m_forwarder.due()) {
            client.publish({m_address.prefix + "/" + message.topic, message.payload, message.isRetained},
                           message.topic == "recent" ? MqttClient::kAtMostOnce : MqttClient::kAtLeastOnce);
        }
        client.step(m_wakeFd, m_settings.pause);
        client.takeDelivered();  // a broker's word means nothing
        for (const MqttMessage& message : client.takeReceived()) {
            m_forwarder.confirmed(message.payload);
        }
    }
    client.disconnect();
    for (int step = 0; client.isOpen() && step < kMostFarewellSteps; ++step) {
        client.step(m_wakeFd, m_settings.pause);
    }
}

}  // namespace desktop

#include "desktop/mqtt/mqtt_link.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace desktop {
namespace {

using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

// Fewer than a broker lets a subscriber have under way (20 by default), so that a full outbox does not make it drop
// what it queues for a slower subscriber.
constexpr size_t kMostUnderWay = 10;
constexpr milliseconds kLongestStep(1000);
constexpr milliseconds kThreadGrace(1000);

int newWakeFd() {
    const int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return fd;
}

}  // namespace

MqttLink::MqttLink(MqttLinkSettings settings)
    : m_settings(std::move(settings)),
      m_address(parseMqttAddress(m_settings.broker.address)),
      m_wakeFd(newWakeFd()),
      m_outbox(m_settings.capacity),
      m_backOff(m_settings.firstRetry, m_settings.longestRetry) {
    // The process's signals, and SIGPIPE for a broker that is gone, are no business of this thread.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    m_thread = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

MqttLink::~MqttLink() {
    end();
    if (m_thread.joinable()) {
        m_thread.join();
    }
    close(m_wakeFd);
}

void MqttLink::send(const std::string& topic, std::string payload, bool isRetained) {
    m_outbox.add({m_address.prefix + "/" + topic, std::move(payload), isRetained});
    wake();
}

void MqttLink::end() {
    std::thread finished;
    {
        const MutexLock lock(m_mutex);
        if (!m_deadline) {
            m_deadline = SteadyClock::now() + m_settings.farewell;
        }
        wake();
        m_changed.notifyAll();
        while (!m_isFinished && m_changed.waitUntil(m_mutex, *m_deadline + kThreadGrace)) {
        }
        if (m_isFinished) {
            finished = std::move(m_thread);
        }
    }
    if (finished.joinable()) {
        finished.join();
    }
}

void MqttLink::run() {
    for (;;) {
        const bool isLastTry = isEnding();
        if (isLastTry && isAllDelivered()) {
            break;
        }
        try {
            connect();
            serve();
            break;
        } catch (const std::runtime_error& error) {
            if (m_client) {
                noteDelivered();
            }
            tellLoss(error.what());
        }
        if (isLastTry) {
            break;
        }
        pause();
    }
    if (!isAllDelivered()) {
        m_settings.say("mqtt: " + std::to_string(m_outbox.size() + m_underWay.size()) + " events are not delivered");
    }
    m_client.reset();
    const MutexLock lock(m_mutex);
    m_isFinished = true;
    m_changed.notifyAll();
}

void MqttLink::connect() {
    if (!m_isSessionWiped) {
        wipeSession();
    }
    if (!m_client) {
        makeClient();
    }
    open(*m_client);
    if (!m_client->isSessionKnown()) {
        startOver();
    }
    m_backOff.reset();
    tellConnected();
}

void MqttLink::makeClient() {
    const MqttMessage lastWill = status(false);
    m_client = std::make_unique<MqttClient>(m_settings.broker, m_settings.clientId, MqttSession::Kept, &lastWill);
}

/**
 * Has the broker forget what an earlier process was delivering: the numbers start anew, and it would take a new message
 * for the repetition of an old one.
 */
void MqttLink::wipeSession() {
    MqttClient client(m_settings.broker, m_settings.clientId, MqttSession::Wiped, nullptr);
    open(client);
    client.disconnect();
    while (client.isOpen()) {
        step(client);
    }
    m_isSessionWiped = true;
}

void MqttLink::open(MqttClient& client) {
    client.connect(m_address);
    while (!client.isAccepted()) {
        step(client);
    }
}

/**
 * The broker knows nothing of this session. Whether it had passed on what was under way cannot be known: better twice
 * than never. A new client has no memory of it either, so that nothing is half delivered.
 */
void MqttLink::startOver() {
    std::vector<MqttMessage> again;
    for (const auto& [topic, state] : m_states) {
        const auto isNewer = [&name = topic](const UnderWay& entry) { return entry.message.topic == name; };
        if (!m_outbox.holdsState(topic) && std::none_of(m_underWay.begin(), m_underWay.end(), isNewer)) {
            again.push_back(state);
        }
    }
    const bool isHalfDelivered = !m_underWay.empty();
    for (UnderWay& entry : m_underWay) {
        again.push_back(std::move(entry.message));
    }
    m_underWay.clear();
    m_outbox.putBack(std::move(again));
    if (isHalfDelivered) {
        makeClient();
        open(*m_client);
    }
}

/** Delivers for as long as the connection lasts; returns when the end is done or its time is up. */
void MqttLink::serve() {
    m_client->publish(status(true));
    while (!isTimeUp()) {
        handOver();
        if (isEnding() && isAllDelivered()) {
            sayGoodbye();
            return;
        }
        step(*m_client);
        noteDelivered();
    }
}

void MqttLink::handOver() {
    while (m_underWay.size() < kMostUnderWay) {
        std::optional<MqttMessage> message = m_outbox.take();
        if (!message) {
            return;
        }
        const int number = m_client->publish(*message);
        m_underWay.push_back({number, std::move(*message)});
    }
}

void MqttLink::noteDelivered() {
    for (const int number : m_client->takeDelivered()) {
        const auto delivered = std::find_if(m_underWay.begin(), m_underWay.end(),
                                            [number](const UnderWay& entry) { return entry.number == number; });
        if (delivered == m_underWay.end()) {
            continue;  // a status
        }
        if (delivered->message.isRetained) {
            std::string topic = delivered->message.topic;
            m_states.insert_or_assign(std::move(topic), std::move(delivered->message));
        }
        m_underWay.erase(delivered);
    }
}

void MqttLink::sayGoodbye() {
    const int number = m_client->publish(status(false));
    bool isDelivered = false;
    while (!isDelivered) {
        step(*m_client);
        const std::vector<int> delivered = m_client->takeDelivered();
        isDelivered = std::find(delivered.begin(), delivered.end(), number) != delivered.end();
    }
    m_client->disconnect();
    while (m_client->isOpen()) {
        step(*m_client);
    }
}

/** One step of the client, ended early by a wake-up; no step goes beyond the end's time. */
void MqttLink::step(MqttClient& client) {
    if (isTimeUp()) {
        throw std::runtime_error("the time for the end is over");
    }
    client.step(m_wakeFd, kLongestStep);
    eventfd_t ignored = 0;
    eventfd_read(m_wakeFd, &ignored);
}

void MqttLink::pause() {
    const MutexLock lock(m_mutex);
    const TimePoint end = SteadyClock::now() + m_backOff.next();
    while (!m_deadline && m_changed.waitUntil(m_mutex, end)) {
    }
}

/** Tells what stands in the way of the connection, once for each reason in a row. */
void MqttLink::tellLoss(const std::string& reason) {
    if (reason != m_toldLoss && !isEnding()) {
        m_toldLoss = reason;
        m_settings.say("mqtt: " + m_settings.broker.address + ": " + reason + "; trying again");
    }
    if (m_outbox.dropped() > 0 && m_toldDropped == 0) {
        m_toldDropped = m_outbox.dropped();
        m_settings.say("mqtt: " + std::to_string(m_settings.capacity) +
                       " events wait for the broker; from now on the oldest are dropped");
    }
}

void MqttLink::tellConnected() {
    m_toldLoss.clear();
    m_settings.say("mqtt: connected to " + m_settings.broker.address);
    if (m_outbox.dropped() > m_toldDropped) {
        m_toldDropped = m_outbox.dropped();
        m_settings.say("mqtt: " + std::to_string(m_toldDropped) + " events have been dropped so far");
    }
}

bool MqttLink::isEnding() const {
    const MutexLock lock(m_mutex);
    return m_deadline.has_value();
}

bool MqttLink::isTimeUp() const {
    const MutexLock lock(m_mutex);
    return m_deadline && SteadyClock::now() >= *m_deadline;
}

MqttMessage MqttLink::status(bool isOnline) const {
    return {m_address.prefix + "/status", isOnline ? R"({"online":true})" : R"({"online":false})", true};
}

void MqttLink::wake() const {
    eventfd_write(m_wakeFd, 1);
}

}  // namespace desktop

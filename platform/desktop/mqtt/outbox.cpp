#include "desktop/mqtt/outbox.h"

#include <algorithm>
#include <utility>

namespace desktop {

void Outbox::add(MqttMessage message) {
    const MutexLock lock(m_mutex);
    if (message.isRetained) {
        ++m_states[message.topic];
    }
    m_waiting.push_back(std::move(message));
    if (m_waiting.size() > m_capacity) {
        dropOne();
    }
}

std::optional<MqttMessage> Outbox::take() {
    const MutexLock lock(m_mutex);
    if (m_waiting.empty()) {
        return std::nullopt;
    }
    MqttMessage message = std::move(m_waiting.front());
    m_waiting.pop_front();
    forget(message);
    return message;
}

void Outbox::putBack(std::vector<MqttMessage> messages) {
    const MutexLock lock(m_mutex);
    for (auto message = messages.rbegin(); message != messages.rend(); ++message) {
        if (message->isRetained) {
            ++m_states[message->topic];
        }
        m_waiting.push_front(std::move(*message));
    }
}

bool Outbox::holdsState(const std::string& topic) const {
    const MutexLock lock(m_mutex);
    return holdsStateLocked(topic, 1);
}

size_t Outbox::size() const {
    const MutexLock lock(m_mutex);
    return m_waiting.size();
}

uint64_t Outbox::dropped() const {
    const MutexLock lock(m_mutex);
    return m_dropped;
}

bool Outbox::holdsStateLocked(const std::string& topic, size_t atLeast) const {
    const auto states = m_states.find(topic);
    return states != m_states.end() && states->second >= atLeast;
}

void Outbox::dropOne() {
    // The search passes at most one message for each topic with a state.
    auto victim =
        std::find_if(m_waiting.begin(), m_waiting.end(), [this](const MqttMessage& message) REQUIRES(m_mutex) {
            return !message.isRetained || holdsStateLocked(message.topic, 2);
        });
    if (victim == m_waiting.end()) {
        victim = m_waiting.begin();
    }
    forget(*victim);
    m_waiting.erase(victim);
    ++m_dropped;
}

void Outbox::forget(const MqttMessage& message) {
    if (!message.isRetained) {
        return;
    }
    const auto states = m_states.find(message.topic);
    if (--states->second == 0) {
        m_states.erase(states);
    }
}

}  // namespace desktop

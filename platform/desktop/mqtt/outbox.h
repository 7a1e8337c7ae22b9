#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/mutex.h"
namespace desktop {

struct MqttMessage {
    std::string topic;
    std::string payload;
    bool isRetained = false; /**< the topic's state: the broker keeps the newest one for whoever subscribes later */
};

/**
 * What waits to be handed to the broker, oldest first, in memory. Any thread.
 *
 * When it is full, the oldest message gives way to a new one; but the newest state of a topic stays as long as anything
 * else can go, so that what the broker ends up with is right.
 */
class Outbox {
public:
    /** capacity: the most messages that wait, at least 1. */
    explicit Outbox(size_t capacity) : m_capacity(capacity) {}

    void add(MqttMessage message);

    /** The oldest message, which then no longer waits; nothing when none does. */
    std::optional<MqttMessage> take();

    /** Puts messages before all others, in their order, even beyond the capacity. */
    void putBack(std::vector<MqttMessage> messages);

    /** Whether a state of this topic waits. */
    bool holdsState(const std::string& topic) const;

    size_t size() const;

    /** How many messages have had to give way so far. */
    uint64_t dropped() const;

private:
    bool holdsStateLocked(const std::string& topic, size_t atLeast) const REQUIRES(m_mutex);
    void dropOne() REQUIRES(m_mutex);
    void forget(const MqttMessage& message) REQUIRES(m_mutex);

    const size_t m_capacity;
    mutable Mutex m_mutex;  // guards all below
    std::deque<MqttMessage> m_waiting GUARDED_BY(m_mutex);
    std::map<std::string, size_t> m_states GUARDED_BY(m_mutex);  // how many of a topic's states wait, none of them 0
    uint64_t m_dropped GUARDED_BY(m_mutex) = 0;
};

}  // namespace desktop

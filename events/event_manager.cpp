#include "events/event_manager.h"

#include <algorithm>
#include <cctype>

#include "base/platform_error.h"
#include "log/Logger.h"

namespace {

constexpr const char* kTopicNamespace = "tnsaxis";
constexpr const char* kTopic0 = "CameraApplicationPlatform";
constexpr const char* kTopic1 = "OstrelSenvoApplication";

struct FreeSet {
    void operator()(AXEventKeyValueSet* set) const { ax_event_key_value_set_free(set); }
};
using KeyValueSet = std::unique_ptr<AXEventKeyValueSet, FreeSet>;

struct FreeEvent {
    void operator()(AXEvent* event) const { ax_event_free(event); }
};

struct FreeElement {
    void operator()(AXEventElementItem* item) const { ax_event_element_item_free(item); }
};
using Element = std::unique_ptr<AXEventElementItem, FreeElement>;

/** Adds the topic keys that every event has. */
bool addTopics(AXEventKeyValueSet* set, const std::string& name, PlatformError& error) {
    const std::string key = friendlyToKey(name);
    return ax_event_key_value_set_add_key_values(set, error.slot(),                                             //
                                                 "topic0", kTopicNamespace, kTopic0, AX_VALUE_TYPE_STRING,      //
                                                 "topic1", kTopicNamespace, kTopic1, AX_VALUE_TYPE_STRING,      //
                                                 "topic2", kTopicNamespace, key.c_str(), AX_VALUE_TYPE_STRING,  //
                                                 nullptr) != FALSE;
}

/** The map as an element tree: a child per key, in key order. */
Element elementTree(const std::map<std::string, std::string>& data) {
    Element root(ax_event_element_item_new("analyticdata", nullptr, nullptr));
    for (const auto& [key, value] : data) {
        Element child(ax_event_element_item_new(key.c_str(), nullptr, nullptr));
        if (root && child && ax_event_element_item_set_body(child.get(), value.c_str(), nullptr) != FALSE &&
            ax_event_element_item_add_child(root.get(), child.get(), nullptr) != FALSE) {
            // The parent owns it now.
            [[maybe_unused]] const AXEventElementItem* const owned = child.release();
        }
    }
    return root;
}

}  // namespace

std::string friendlyToKey(const std::string& name) {
    std::string key;
    for (const char character : name) {
        if (std::isalnum(static_cast<unsigned char>(character)) != 0) {
            key += character;
        }
    }
    return key;
}

EventManager::EventManager() : m_pHandler(ax_event_handler_new()) {
    applicationLog().info("EventManager: EventManager constructor");
}

EventManager::~EventManager() {
    static const std::string function = "~EventManager: ";
    applicationLog().info(function + "EventManager destructor called");
    for (const auto& [name, id] : m_eventDeclarationIDs) {
        applicationLog().info(function + "EventManager undeclaring event " + name +
                              " : DeclarationID=" + std::to_string(id));
        PlatformError error;
        if (ax_event_handler_undeclare(m_pHandler.get(), id, error.slot()) != FALSE) {
            applicationLog().info(function + "EventManager destructor successfully undeclared event " + name +
                                  " : DeclarationID=" + std::to_string(id));
        } else {
            applicationLog().error(function + "EventManager destructor failed to undeclare event " + name +
                                   " : DeclarationID=" + std::to_string(id) + " " + error.message());
        }
    }
    applicationLog().info(function + "Going to free the event handler");
    m_pHandler.reset();
    applicationLog().info(function + "EventManager destructor complete");
}

void EventManager::addEvent(const std::string& name) {
    const KeyValueSet set(ax_event_key_value_set_new());
    const std::string key = friendlyToKey(name);
    const gboolean active = FALSE;
    PlatformError error;
    if (ax_event_key_value_set_add_key_values(set.get(), error.slot(),                                       //
                                              "topic0", kTopicNamespace, kTopic0, AX_VALUE_TYPE_STRING,      //
                                              "topic1", kTopicNamespace, kTopic1, AX_VALUE_TYPE_STRING,      //
                                              "topic2", kTopicNamespace, key.c_str(), AX_VALUE_TYPE_STRING,  //
                                              "active", nullptr, &active, AX_VALUE_TYPE_BOOL, nullptr) == FALSE) {
        applicationLog().error("addEvent: Error creating key value set for event " + name + " " + error.message());
        return;
    }
    declare("addEvent", name, set.get(), {"active"}, false);
}

void EventManager::addJSONDataEvent(const std::map<std::string, std::string>& data) {
    static const std::string name = data_events::kJson;
    applicationLog().info("addJSONDataEvent: EventManager::addJSONDataEvent called");
    const KeyValueSet set(ax_event_key_value_set_new());
    PlatformError error;
    std::vector<std::string> keys;
    bool added = addTopics(set.get(), name, error);
    for (auto entry = data.begin(); added && entry != data.end(); ++entry) {
        added = ax_event_key_value_set_add_key_value(set.get(), entry->first.c_str(), nullptr, nullptr,
                                                     AX_VALUE_TYPE_STRING, error.slot()) != FALSE;
        keys.push_back(entry->first);
    }
    if (!added) {
        applicationLog().error("addJSONDataEvent: Error creating key value set for event " + name + " " +
                               error.message());
        return;
    }
    declare("addJSONDataEvent", name, set.get(), keys, true);
}

void EventManager::addXMLDataEvent(const std::map<std::string, std::string>&) {
    static const std::string name = data_events::kXml;
    applicationLog().info("addXMLDataEvent: EventManager::addXMLDataEvent called");
    const KeyValueSet set(ax_event_key_value_set_new());
    const Element payload(ax_event_element_item_new("analyticdata", nullptr, nullptr));
    PlatformError error;
    if (!addTopics(set.get(), name, error) ||
        ax_event_key_value_set_add_key_value(set.get(), "payload", nullptr, payload.get(), AX_VALUE_TYPE_ELEMENT,
                                             error.slot()) == FALSE) {
        applicationLog().error("addXMLDataEvent: Error creating key value set for event " + name + " " +
                               error.message());
        return;
    }
    declare("addXMLDataEvent", name, set.get(), {"payload"}, true);
}

void EventManager::declare(const char* function, const std::string& name, AXEventKeyValueSet* set,
                           const std::vector<std::string>& dataKeys, bool stateless) {
    guint id = 0;
    PlatformError error;
    const auto mark = [&](const std::string& key) {
        return ax_event_key_value_set_mark_as_data(set, key.c_str(), nullptr, error.slot()) != FALSE;
    };
    if (std::all_of(dataKeys.begin(), dataKeys.end(), mark) &&
        ax_event_key_value_set_add_nice_names(set, "topic2", kTopicNamespace, "Ostrel Senvo", name.c_str(),
                                              error.slot()) != FALSE &&
        ax_event_handler_declare(m_pHandler.get(), set, stateless ? TRUE : FALSE, &id, nullptr, nullptr,
                                 error.slot()) != FALSE) {
        applicationLog().info(std::string(function) + ": Successfully declared event " + name +
                              ". Declaration ID=" + std::to_string(id));
    } else {
        applicationLog().error(std::string(function) + ": Failed to declare event " + name + " " + error.message());
    }
    registerEvent(name, id);
}

void EventManager::registerEvent(const std::string& name, uint32_t id) {
    m_eventDeclarationIDs[name] = id;
    m_eventStarted[name] = false;
    applicationLog().info("registerEvent: EventManager registering event " + name +
                          " to DeclarationID=" + std::to_string(id));
}

uint32_t EventManager::getDeclarationID(const std::string& name) {
    return m_eventDeclarationIDs[name];
}

void EventManager::sendEventStarted(const std::string& name) {
    if (!m_eventStarted[name]) {
        applicationLog().warning("sendEventStarted: Starting event " + name);
        sendEvent(name, true);
        m_eventStarted[name] = true;
        tell(name, true, false);
    }
}

void EventManager::sendEventStopped(const std::string& name) {
    if (m_eventStarted[name]) {
        applicationLog().warning("sendEventStopped: Stopping event " + name);
        sendEvent(name, false);
        m_eventStarted[name] = false;
        tell(name, false, false);
    }
}

void EventManager::tell(const std::string& name, bool active, bool byHand) const {
    if (m_alertObserver) {
        m_alertObserver(name, active, byHand);
    }
}

bool EventManager::isEventStarted(const std::string& name) {
    return m_eventStarted[name];
}

void EventManager::sendEventStartedManually(const std::string& name) {
    if (!m_eventStartedManually[name]) {
        applicationLog().warning("sendEventStartedManually: Manually Starting event " + name);
        sendEvent(name, true);
        m_eventStartedManually[name] = true;
        tell(name, true, true);
    }
}

void EventManager::sendEventStoppedManually(const std::string& name) {
    if (m_eventStartedManually[name]) {
        applicationLog().warning("sendEventStoppedManually: Manually Stopping event " + name);
        sendEvent(name, false);
        m_eventStartedManually[name] = false;
        tell(name, false, true);
    }
}

bool EventManager::isEventStartedManually(const std::string& name) {
    return m_eventStartedManually[name];
}

void EventManager::sendEvent(const std::string& name, bool active) {
    const uint32_t id = getDeclarationID(name);
    if (id == 0) {
        applicationLog().error("sendEvent: No declaration for event " + name);
        return;
    }
    const KeyValueSet set(ax_event_key_value_set_new());
    const gboolean value = active ? TRUE : FALSE;
    PlatformError error;
    if (ax_event_key_value_set_add_key_value(set.get(), "active", nullptr, &value, AX_VALUE_TYPE_BOOL, error.slot()) ==
        FALSE) {
        applicationLog().error("sendEvent: Failed to add active key value to event " + name + " " + error.message());
        return;
    }
    const std::unique_ptr<AXEvent, FreeEvent> event(ax_event_new2(set.get(), nullptr));
    const std::string tail = name + " activeValue=" + (active ? "1" : "0");
    if (ax_event_handler_send_event(m_pHandler.get(), id, event.get(), error.slot()) != FALSE) {
        applicationLog().info("sendEvent: Successfully sent event " + tail);
    } else {
        applicationLog().error("sendEvent: Failed to send event " + tail + " " + error.message());
    }
}

void EventManager::sendJSONDataEvent(const std::map<std::string, std::string>& data) {
    const std::string name = data_events::kJson;
    const uint32_t id = getDeclarationID(name);
    if (id == 0) {
        applicationLog().error("sendJSONDataEvent: No declaration for event " + name);
        return;
    }
    const KeyValueSet set(ax_event_key_value_set_new());
    for (const auto& [key, value] : data) {
        PlatformError error;
        if (ax_event_key_value_set_add_key_value(set.get(), key.c_str(), nullptr, value.c_str(), AX_VALUE_TYPE_STRING,
                                                 error.slot()) == FALSE) {
            applicationLog().error("sendJSONDataEvent: Failed to add active key value to event " + name + " " +
                                   error.message());
            return;
        }
    }
    send("sendJSONDataEvent", name, id, set.get());
}

void EventManager::sendXMLDataEvent(const std::map<std::string, std::string>& data) {
    const std::string name = data_events::kXml;
    const uint32_t id = getDeclarationID(name);
    if (id == 0) {
        applicationLog().error("sendXMLDataEvent: No declaration for event " + name);
        return;
    }
    const Element payload = elementTree(data);
    const KeyValueSet set(ax_event_key_value_set_new());
    PlatformError error;
    if (ax_event_key_value_set_add_key_value(set.get(), "payload", nullptr, payload.get(), AX_VALUE_TYPE_ELEMENT,
                                             error.slot()) == FALSE) {
        applicationLog().error("sendXMLDataEvent: Failed to add active key value to event " + name + " " +
                               error.message());
        return;
    }
    send("sendXMLDataEvent", name, id, set.get());
}

void EventManager::send(const char* function, const std::string& name, uint32_t id, AXEventKeyValueSet* set) {
    const std::unique_ptr<AXEvent, FreeEvent> event(ax_event_new2(set, nullptr));
    PlatformError error;
    if (ax_event_handler_send_event(m_pHandler.get(), id, event.get(), error.slot()) == FALSE) {
        applicationLog().error(std::string(function) + ": Failed to send event " + name + " " + error.message());
    }
}

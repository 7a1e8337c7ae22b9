#include "event_manager.h"

#include <cctype>

#include "Logger.h"
#include "platform_error.h"

namespace {

constexpr const char* kTopicNamespace = "tnsaxis";

struct FreeSet {
    void operator()(AXEventKeyValueSet* set) const { ax_event_key_value_set_free(set); }
};
using KeyValueSet = std::unique_ptr<AXEventKeyValueSet, FreeSet>;

struct FreeEvent {
    void operator()(AXEvent* event) const { ax_event_free(event); }
};

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
                                              "topic0", kTopicNamespace, "CameraApplicationPlatform",        //
                                              AX_VALUE_TYPE_STRING,                                          //
                                              "topic1", kTopicNamespace, "OstrelSenvoApplication",           //
                                              AX_VALUE_TYPE_STRING,                                          //
                                              "topic2", kTopicNamespace, key.c_str(), AX_VALUE_TYPE_STRING,  //
                                              "active", nullptr, &active, AX_VALUE_TYPE_BOOL, nullptr) == FALSE) {
        applicationLog().error("addEvent: Error creating key value set for event " + name + " " + error.message());
        return;
    }
    guint id = 0;
    const bool declared =
        ax_event_key_value_set_mark_as_data(set.get(), "active", nullptr, error.slot()) != FALSE &&
        ax_event_key_value_set_add_nice_names(set.get(), "topic2", kTopicNamespace, "Ostrel Senvo", name.c_str(),
                                              error.slot()) != FALSE &&
        ax_event_handler_declare(m_pHandler.get(), set.get(), FALSE, &id, nullptr, nullptr, error.slot()) != FALSE;
    if (declared) {
        applicationLog().info("addEvent: Successfully declared event " + name +
                              ". Declaration ID=" + std::to_string(id));
    } else {
        applicationLog().error("addEvent: Failed to declare event " + name + " " + error.message());
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
    }
}

void EventManager::sendEventStopped(const std::string& name) {
    if (m_eventStarted[name]) {
        applicationLog().warning("sendEventStopped: Stopping event " + name);
        sendEvent(name, false);
        m_eventStarted[name] = false;
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
    }
}

void EventManager::sendEventStoppedManually(const std::string& name) {
    if (m_eventStartedManually[name]) {
        applicationLog().warning("sendEventStoppedManually: Manually Stopping event " + name);
        sendEvent(name, false);
        m_eventStartedManually[name] = false;
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

#include <array>
#include <cstdarg>
#include <ctime>

#include <axsdk/axevent.h>

#include "base/mutex.h"
#include "desktop/config/desktop_config.h"
#include "desktop/events/broker_link.h"
#include "desktop/events/event_file.h"
#include "desktop/events/event_values.h"

/*
 * The event service's C interface: declarations are checked and kept, events are checked and appended to events.jsonl
 * in the state folder, one JSON object a line. The same objects go to the MQTT broker, if there is one.
 */

struct _AXEventKeyValueSet {
    desktop::KeyValues keys;
};

struct _AXEvent {
    desktop::KeyValues keys;
    int64_t micros;
};

struct _AXEventElementItem : desktop::Element {};

namespace {

struct Declaration {
    desktop::KeyValues keys;
    bool stateless;
};

gboolean refuse(GError** error, AXEventErrorCode code, const std::string& message) {
    g_set_error_literal(error, AX_EVENT_ERROR, code, message.c_str());
    return FALSE;
}

std::string isoTime(int64_t micros) {
    const auto seconds = static_cast<time_t>(micros / 1000000);
    std::tm calendar = {};
    gmtime_r(&seconds, &calendar);
    std::array<char, 32> text = {};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &calendar);
    std::array<char, 16> fraction = {};
    std::snprintf(fraction.data(), fraction.size(), ".%03dZ", static_cast<int>(micros / 1000 % 1000));
    return std::string(text.data()) + fraction.data();
}

/** An event as it stands in events.jsonl. */
std::string eventText(int64_t micros, const std::string& topic, const desktop::KeyValues& keys) {
    nlohmann::ordered_json event = {{"time", isoTime(micros)}, {"topic", topic}};
    for (const auto& [name, key] : keys) {
        event[name] = key.value;
    }
    return event.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

/**
 * Publishes the state that a declaration begins with, if it names one, so that the broker does not go on showing that
 * of an earlier run.
 */
void sendDeclaredState(desktop::MqttLink& broker, const desktop::KeyValues& declaration) {
    desktop::KeyValues state;
    for (const auto& [name, key] : declaration) {
        if (key.isData && !key.hasValue) {
            return;
        }
        if (key.isData) {
            state[name] = key;
        }
    }
    broker.send(desktop::mqttTopic(declaration),
                eventText(desktop::nowMicros(), desktop::topicPath(declaration), state), true);
}

bool addKey(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace, gconstpointer value,
            AXEventValueType type, GError** error) {
    if (key == nullptr || *key == '\0') {
        refuse(error, AX_EVENT_ERROR_INVALID_ARGUMENT, "expected a key, got an empty name");
        return false;
    }
    desktop::KeyValue& entry = set->keys[desktop::fullName(key, nameSpace)];
    entry.type = type;
    entry.hasValue = value != nullptr;
    entry.value = desktop::readValue(value, type);
    return true;
}

desktop::KeyValue* findKey(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace, GError** error) {
    const auto found = set->keys.find(desktop::fullName(key, nameSpace));
    if (found == set->keys.end()) {
        refuse(error, AX_EVENT_ERROR_KEY_NOT_FOUND, "the set has no key " + desktop::fullName(key, nameSpace));
        return nullptr;
    }
    return &found->second;
}

}  // namespace

struct _AXEventHandler {
    Mutex mutex; /**< guards declarations and nextId */
    std::map<guint, Declaration> declarations GUARDED_BY(mutex);
    guint nextId GUARDED_BY(mutex) = 1;
    const std::shared_ptr<desktop::MqttLink> broker = desktop::linkToBroker(); /**< none without a broker */
};

GQuark ax_event_error_quark() {
    return g_quark_from_static_string("ax-event-error-quark");
}

AXEventHandler* ax_event_handler_new() {
    return std::make_unique<_AXEventHandler>().release();
}

void ax_event_handler_free(AXEventHandler* handler) {
    const std::unique_ptr<_AXEventHandler> owner(handler);
}

AXEventKeyValueSet* ax_event_key_value_set_new() {
    return std::make_unique<_AXEventKeyValueSet>().release();
}

void ax_event_key_value_set_free(AXEventKeyValueSet* set) {
    const std::unique_ptr<_AXEventKeyValueSet> owner(set);
}

gboolean ax_event_key_value_set_add_key_value(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace,
                                              gconstpointer value, AXEventValueType type, GError** error) {
    return addKey(set, key, nameSpace, value, type, error) ? TRUE : FALSE;
}

gboolean ax_event_key_value_set_add_key_values(AXEventKeyValueSet* set, GError** error, ...) {
    va_list arguments;
    va_start(arguments, error);
    bool added = true;
    while (added) {
        const gchar* const key = va_arg(arguments, const gchar*);  // NOLINT(clang-analyzer-valist.Uninitialized)
        if (key == nullptr) {
            break;
        }
        const gchar* const nameSpace = va_arg(arguments, const gchar*);
        const gconstpointer value = va_arg(arguments, gconstpointer);
        const auto type = static_cast<AXEventValueType>(va_arg(arguments, int));
        added = addKey(set, key, nameSpace, value, type, error);
    }
    va_end(arguments);
    return added ? TRUE : FALSE;
}

gboolean ax_event_key_value_set_mark_as_data(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace,
                                             GError** error) {
    desktop::KeyValue* const entry = findKey(set, key, nameSpace, error);
    if (entry == nullptr) {
        return FALSE;
    }
    entry->isData = true;
    return TRUE;
}

gboolean ax_event_key_value_set_add_nice_names(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace,
                                               const gchar* keyNiceName, const gchar* valueNiceName, GError** error) {
    desktop::KeyValue* const entry = findKey(set, key, nameSpace, error);
    if (entry == nullptr) {
        return FALSE;
    }
    entry->keyNiceName = keyNiceName == nullptr ? "" : keyNiceName;
    entry->valueNiceName = valueNiceName == nullptr ? "" : valueNiceName;
    return TRUE;
}

gboolean ax_event_handler_declare(AXEventHandler* handler, AXEventKeyValueSet* set, gboolean stateless,
                                  guint* declaration, AXDeclarationCompleteCallback callback, gpointer userData,
                                  GError** error) {
    if (const std::string wrong = desktop::checkDeclaration(set->keys); !wrong.empty()) {
        return refuse(error, AX_EVENT_ERROR_DECLARATION, wrong);
    }
    {
        const MutexLock lock(handler->mutex);
        *declaration = handler->nextId++;
        handler->declarations[*declaration] = {set->keys, stateless != FALSE};
    }
    if (handler->broker && stateless == FALSE) {
        sendDeclaredState(*handler->broker, set->keys);
    }
    if (callback != nullptr) {
        callback(*declaration, userData);
    }
    return TRUE;
}

gboolean ax_event_handler_undeclare(AXEventHandler* handler, guint declaration, GError** error) {
    const MutexLock lock(handler->mutex);
    if (handler->declarations.erase(declaration) == 0) {
        return refuse(error, AX_EVENT_ERROR_UNDECLARE, "no declaration " + std::to_string(declaration));
    }
    return TRUE;
}

AXEvent* ax_event_new2(AXEventKeyValueSet* set, GDateTime* timeStamp) {
    const int64_t micros = timeStamp == nullptr
                               ? desktop::nowMicros()
                               : g_date_time_to_unix(timeStamp) * 1000000 + g_date_time_get_microsecond(timeStamp);
    return std::make_unique<_AXEvent>(_AXEvent{set->keys, micros}).release();
}

void ax_event_free(AXEvent* event) {
    const std::unique_ptr<_AXEvent> owner(event);
}

gboolean ax_event_handler_send_event(AXEventHandler* handler, guint declaration, AXEvent* event, GError** error) {
    std::string topic;
    std::string mqttTopic;
    bool isState = false;
    {
        const MutexLock lock(handler->mutex);
        const auto found = handler->declarations.find(declaration);
        if (found == handler->declarations.end()) {
            return refuse(error, AX_EVENT_ERROR_SEND, "no declaration " + std::to_string(declaration));
        }
        if (const std::string wrong = desktop::checkEvent(found->second.keys, event->keys); !wrong.empty()) {
            return refuse(error, AX_EVENT_ERROR_INCOMPATIBLE_VALUE, wrong);
        }
        topic = desktop::topicPath(found->second.keys);
        mqttTopic = desktop::mqttTopic(found->second.keys);
        isState = !found->second.stateless;
    }
    const std::string text = eventText(event->micros, topic, event->keys);
    if (handler->broker) {
        handler->broker->send(mqttTopic, text, isState);
    }
    if (const std::string wrong =
            desktop::appendEvent(desktop::desktopConfig().stateFolder + "/events.jsonl", text + "\n");
        !wrong.empty()) {
        return refuse(error, AX_EVENT_ERROR_SEND, wrong);
    }
    return TRUE;
}

AXEventElementItem* ax_event_element_item_new(const gchar* name, const gchar*, GError** error) {
    if (name == nullptr || *name == '\0') {
        refuse(error, AX_EVENT_ERROR_INVALID_ARGUMENT, "expected an element name, got an empty one");
        return nullptr;
    }
    auto item = std::make_unique<_AXEventElementItem>();
    item->name = name;
    return item.release();
}

void ax_event_element_item_free(AXEventElementItem* item) {
    const std::unique_ptr<_AXEventElementItem> owner(item);
}

gboolean ax_event_element_item_set_body(AXEventElementItem* item, const gchar* body, GError**) {
    item->body = body == nullptr ? "" : body;
    return TRUE;
}

gboolean ax_event_element_item_add_child(AXEventElementItem* item, AXEventElementItem* child, GError** error) {
    if (child == nullptr) {
        return refuse(error, AX_EVENT_ERROR_INVALID_ARGUMENT, "expected a child element, got none");
    }
    item->children.emplace_back(std::shared_ptr<_AXEventElementItem>(child));
    return TRUE;
}

#include <cstdarg>
#include <memory>

#include <axsdk/axevent.h>

#include "script.h"
#include "scripted_platform.h"

struct _AXEventHandler {};
struct _AXEventKeyValueSet {
    scripted::Declaration content;
};
struct _AXEvent {
    std::map<std::string, std::string> values;
};
struct _AXEventElementItem {
    std::string name;
    std::string body;
    std::vector<std::unique_ptr<_AXEventElementItem>> children;
};

namespace {

struct EventScript {
    std::map<uint32_t, scripted::Declaration> declarations;
    std::vector<scripted::SentEvent> sent;
    uint32_t nextId = 1;
};

EventScript& script() {
    static EventScript instance;
    return instance;
}

using scripted::failsNow;

std::string fullName(const gchar* key, const gchar* nameSpace) {
    return nameSpace == nullptr ? std::string(key) : std::string(nameSpace) + ":" + key;
}

std::string elementText(const AXEventElementItem& item) {
    std::string text = "<" + item.name + ">" + item.body;
    for (const auto& child : item.children) {
        text += elementText(*child);
    }
    return text + "</" + item.name + ">";
}

std::string valueText(gconstpointer value, AXEventValueType type) {
    if (value == nullptr) {
        return {};
    }
    switch (type) {
        case AX_VALUE_TYPE_INT:
            return std::to_string(*static_cast<const gint*>(value));
        case AX_VALUE_TYPE_BOOL:
            return *static_cast<const gboolean*>(value) != FALSE ? "true" : "false";
        case AX_VALUE_TYPE_DOUBLE:
            return std::to_string(*static_cast<const gdouble*>(value));
        case AX_VALUE_TYPE_STRING:
            return static_cast<const gchar*>(value);
        case AX_VALUE_TYPE_ELEMENT:
            return elementText(*static_cast<const AXEventElementItem*>(value));
    }
    return {};
}

}  // namespace

namespace scripted {

void resetEvents() {
    script() = {};
}

const std::map<uint32_t, Declaration>& declarations() {
    return script().declarations;
}

std::vector<SentEvent>& sentEvents() {
    return script().sent;
}

}  // namespace scripted

GQuark ax_event_error_quark() {
    return g_quark_from_static_string("ax-event-error-quark");
}

AXEventHandler* ax_event_handler_new() {
    failsNow("ax_event_handler_new");
    return std::make_unique<AXEventHandler>().release();
}

void ax_event_handler_free(AXEventHandler* handler) {
    failsNow("ax_event_handler_free");
    delete handler;
}

AXEventKeyValueSet* ax_event_key_value_set_new() {
    return std::make_unique<AXEventKeyValueSet>().release();
}

void ax_event_key_value_set_free(AXEventKeyValueSet* set) {
    delete set;
}

gboolean ax_event_key_value_set_add_key_value(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace,
                                              gconstpointer value, AXEventValueType type, GError** error) {
    if (failsNow("ax_event_key_value_set_add_key_value", AX_EVENT_ERROR, error)) {
        return FALSE;
    }
    set->content.keys[fullName(key, nameSpace)] = valueText(value, type);
    return TRUE;
}

gboolean ax_event_key_value_set_add_key_values(AXEventKeyValueSet* set, GError** error, ...) {
    if (failsNow("ax_event_key_value_set_add_key_values", AX_EVENT_ERROR, error)) {
        return FALSE;
    }
    va_list arguments;
    va_start(arguments, error);
    while (const gchar* const key = va_arg(arguments, const gchar*)) {
        const gchar* const nameSpace = va_arg(arguments, const gchar*);
        const gconstpointer value = va_arg(arguments, gconstpointer);
        const auto type = static_cast<AXEventValueType>(va_arg(arguments, int));
        set->content.keys[fullName(key, nameSpace)] = valueText(value, type);
    }
    va_end(arguments);
    return TRUE;
}

gboolean ax_event_key_value_set_mark_as_data(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace,
                                             GError** error) {
    if (failsNow("ax_event_key_value_set_mark_as_data", AX_EVENT_ERROR, error)) {
        return FALSE;
    }
    set->content.dataKeys.push_back(fullName(key, nameSpace));
    return TRUE;
}

gboolean ax_event_key_value_set_add_nice_names(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace,
                                               const gchar* keyNiceName, const gchar* valueNiceName, GError** error) {
    if (failsNow("ax_event_key_value_set_add_nice_names", AX_EVENT_ERROR, error)) {
        return FALSE;
    }
    set->content.niceNames[fullName(key, nameSpace)] = std::string(keyNiceName) + "/" + valueNiceName;
    return TRUE;
}

gboolean ax_event_handler_declare(AXEventHandler*, AXEventKeyValueSet* set, gboolean stateless, guint* declaration,
                                  AXDeclarationCompleteCallback, gpointer, GError** error) {
    if (failsNow("ax_event_handler_declare", AX_EVENT_ERROR, error)) {
        return FALSE;
    }
    *declaration = script().nextId++;
    set->content.stateless = stateless != FALSE;
    script().declarations[*declaration] = set->content;
    return TRUE;
}

gboolean ax_event_handler_undeclare(AXEventHandler*, guint declaration, GError** error) {
    if (failsNow("ax_event_handler_undeclare", AX_EVENT_ERROR, error)) {
        return FALSE;
    }
    script().declarations.erase(declaration);
    return TRUE;
}

AXEvent* ax_event_new2(AXEventKeyValueSet* set, GDateTime*) {
    return std::make_unique<AXEvent>(AXEvent{set->content.keys}).release();
}

void ax_event_free(AXEvent* event) {
    delete event;
}

gboolean ax_event_handler_send_event(AXEventHandler*, guint declaration, AXEvent* event, GError** error) {
    if (failsNow("ax_event_handler_send_event", AX_EVENT_ERROR, error)) {
        return FALSE;
    }
    script().sent.push_back({declaration, script().declarations[declaration].keys["tnsaxis:topic2"], event->values});
    return TRUE;
}

AXEventElementItem* ax_event_element_item_new(const gchar* name, const gchar*, GError** error) {
    if (failsNow("ax_event_element_item_new", AX_EVENT_ERROR, error)) {
        return nullptr;
    }
    auto item = std::make_unique<AXEventElementItem>();
    item->name = name;
    return item.release();
}

void ax_event_element_item_free(AXEventElementItem* item) {
    delete item;
}

gboolean ax_event_element_item_set_body(AXEventElementItem* item, const gchar* body, GError** error) {
    if (failsNow("ax_event_element_item_set_body", AX_EVENT_ERROR, error)) {
        return FALSE;
    }
    item->body = body;
    return TRUE;
}

gboolean ax_event_element_item_add_child(AXEventElementItem* item, AXEventElementItem* child, GError** error) {
    if (failsNow("ax_event_element_item_add_child", AX_EVENT_ERROR, error)) {
        return FALSE;
    }
    item->children.emplace_back(child);
    return TRUE;
}

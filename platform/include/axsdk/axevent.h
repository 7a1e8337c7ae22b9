#pragma once

/**
 * Event service: declaring events and sending them.
 *
 * Failing calls return FALSE and, when the caller passed an error slot, fill it with a GError of the domain
 * AX_EVENT_ERROR that the caller frees.
 */

#include <glib.h>

G_BEGIN_DECLS

typedef struct _AXEventHandler AXEventHandler;
typedef struct _AXEventKeyValueSet AXEventKeyValueSet;
typedef struct _AXEvent AXEvent;
typedef struct _AXEventElementItem AXEventElementItem;

#define AX_EVENT_ERROR (ax_event_error_quark())
GQuark ax_event_error_quark(void);

typedef enum {
    AX_EVENT_ERROR_GENERIC = 0,
    AX_EVENT_ERROR_INVALID_ARGUMENT = 1,
    AX_EVENT_ERROR_INCOMPATIBLE_VALUE = 2,
    AX_EVENT_ERROR_DECLARATION = 3,
    AX_EVENT_ERROR_UNDECLARE = 4,
    AX_EVENT_ERROR_SEND = 5,
    AX_EVENT_ERROR_KEY_NOT_FOUND = 8,
} AXEventErrorCode;

typedef enum {
    AX_VALUE_TYPE_INT = 0,
    AX_VALUE_TYPE_BOOL = 1,
    AX_VALUE_TYPE_DOUBLE = 2,
    AX_VALUE_TYPE_STRING = 3,
    AX_VALUE_TYPE_ELEMENT = 4,
} AXEventValueType;

/** Called once a declaration is in force. */
typedef void (*AXDeclarationCompleteCallback)(guint declaration, gpointer userData);

AXEventHandler* ax_event_handler_new(void);
void ax_event_handler_free(AXEventHandler* handler);

AXEventKeyValueSet* ax_event_key_value_set_new(void);
void ax_event_key_value_set_free(AXEventKeyValueSet* set);

/**
 * Adds a key; nameSpace and value may be NULL. The value is read through the pointer type that fits the value type:
 * gint*, gboolean*, gdouble*, gchar*, AXEventElementItem* (copied). A key that the set holds already gets the new value.
 */
gboolean ax_event_key_value_set_add_key_value(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace,
                                              gconstpointer value, AXEventValueType type, GError** error);

/**
 * Adds several keys: groups of key, nameSpace, value, type as above, ended by a NULL key.
 */
gboolean ax_event_key_value_set_add_key_values(AXEventKeyValueSet* set, GError** error, ...) G_GNUC_NULL_TERMINATED;

/** Marks a key as data: it may change from event to event. */
gboolean ax_event_key_value_set_mark_as_data(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace,
                                             GError** error);

/** Gives a key and its value names for people; either may be NULL. */
gboolean ax_event_key_value_set_add_nice_names(AXEventKeyValueSet* set, const gchar* key, const gchar* nameSpace,
                                               const gchar* keyNiceName, const gchar* valueNiceName, GError** error);

/**
 * Declares an event; stateless FALSE means that it has a state, which starts with the set's values. The identifier
 * is written before the call returns. The callback may be NULL.
 */
gboolean ax_event_handler_declare(AXEventHandler* handler, AXEventKeyValueSet* set, gboolean stateless,
                                  guint* declaration, AXDeclarationCompleteCallback callback, gpointer userData,
                                  GError** error);

/** Takes a declaration back. */
gboolean ax_event_handler_undeclare(AXEventHandler* handler, guint declaration, GError** error);

/** Makes an event from a set, which the caller keeps; timeStamp NULL means now. Release with ax_event_free. */
AXEvent* ax_event_new2(AXEventKeyValueSet* set, GDateTime* timeStamp);
void ax_event_free(AXEvent* event);

/** Sends an event under a declaration. Keys or types that the declaration lacks are refused. */
gboolean ax_event_handler_send_event(AXEventHandler* handler, guint declaration, AXEvent* event, GError** error);

/** Makes an element of an element tree; nameSpace may be NULL. Release with ax_event_element_item_free. */
AXEventElementItem* ax_event_element_item_new(const gchar* name, const gchar* nameSpace, GError** error);
void ax_event_element_item_free(AXEventElementItem* item);

/** Sets an element's text. */
gboolean ax_event_element_item_set_body(AXEventElementItem* item, const gchar* body, GError** error);

/** Adds a child, which then belongs to the parent. */
gboolean ax_event_element_item_add_child(AXEventElementItem* item, AXEventElementItem* child, GError** error);

G_END_DECLS

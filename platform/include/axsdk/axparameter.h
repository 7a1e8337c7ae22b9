#pragma once

/**
 * Parameter store: the application's named settings, texts all, and the platform's own.
 *
 * Failing calls return NULL or FALSE and, when the caller passed an error slot, fill it with a GError of the domain
 * AX_PARAMETER_ERROR that the caller frees.
 */

#include <glib.h>

G_BEGIN_DECLS

typedef struct _AXParameter AXParameter;

#define AX_PARAMETER_ERROR (ax_parameter_error_quark())
GQuark ax_parameter_error_quark(void);

typedef enum {
    AX_PARAMETER_INVALID_ARG_ERROR = 1,
    AX_PARAMETER_TYPE_MISMATCH_ERROR = 2,
    AX_PARAMETER_PARAM_PATH_ERROR = 3,
    AX_PARAMETER_PARAM_GET_ERROR = 4,
    AX_PARAMETER_PARAM_SET_ERROR = 5,
    AX_PARAMETER_PARAM_LIST_ERROR = 6,
    AX_PARAMETER_PARAM_SYNC_ERROR = 7,
    AX_PARAMETER_FILE_FORMAT_ERROR = 8,
    AX_PARAMETER_FILE_WRITE_ERROR = 9,
    AX_PARAMETER_CALLBACK_ERROR = 10,
    AX_PARAMETER_DBUS_ERROR = 11,
    AX_PARAMETER_MAX_ERROR = 12,
    AX_PARAMETER_PARAM_ADDED_ERROR = 13,
} AXParameterErrorCode;

/** Called with the parameter's name and its new value; both belong to the store. */
typedef void (*AXParameterCallback)(const gchar* name, const gchar* value, gpointer userData);

/** Opens an application's parameter group. Release with ax_parameter_free. */
AXParameter* ax_parameter_new(const gchar* appName, GError** error);

/** Closes the group and drops its callbacks. */
void ax_parameter_free(AXParameter* self);

/**
 * Creates a parameter with an initial value; type may be NULL for a plain text. AX_PARAMETER_PARAM_ADDED_ERROR when
 * the group has it already, whose value is then left as it is.
 */
gboolean ax_parameter_add(AXParameter* self, const gchar* name, const gchar* initialValue, const gchar* type,
                          GError** error);

/**
 * Reads a value, which the caller frees. Takes short names of the group and full names from "root." down, such as
 * "root.Image.I0.Appearance.Rotation".
 */
gboolean ax_parameter_get(AXParameter* self, const gchar* name, gchar** value, GError** error);

/** Writes a value; with doSync it reaches the disk even if nothing else is written. */
gboolean ax_parameter_set(AXParameter* self, const gchar* name, const gchar* value, gboolean doSync, GError** error);

/** Asks for a call on the main context whenever the parameter changes. */
gboolean ax_parameter_register_callback(AXParameter* self, const gchar* name, AXParameterCallback callback,
                                        gpointer userData, GError** error);

/** Lists the group's names; the caller frees the list and, with g_free, its texts. */
GList* ax_parameter_list(AXParameter* self, GError** error);

G_END_DECLS

#pragma once

/** Video service: the map of named values in which stream settings travel. */

#include "vdo-types.h"

G_BEGIN_DECLS

/** Makes an empty map; NULL when out of memory. The caller owns it. */
VdoMap* vdo_map_new(void);

/** Sets a value; a second set of a name replaces the first. */
void vdo_map_set_uint32(VdoMap* self, const gchar* name, guint32 value);

/** Returns the value stored under the name, or def when the map has none. */
guint32 vdo_map_get_uint32(const VdoMap* self, const gchar* name, guint32 def);

/** Writes the map's content to standard output, for diagnosis. */
void vdo_map_dump(const VdoMap* self);

G_END_DECLS

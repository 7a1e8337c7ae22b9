#pragma once

/** Video service: the camera's channels and the picture sizes that they offer. */

#include "vdo-map.h"
#include "vdo-types.h"

G_BEGIN_DECLS

/** Returns a channel by its number, 1 and up. The caller owns it. VDO_ERROR_NOT_FOUND when there is no such channel. */
VdoChannel* vdo_channel_get(guint number, GError** error);

/** Returns all channels, a list of VdoChannel that the caller owns with its elements. NULL with an error on failure. */
GList* vdo_channel_get_all(GError** error);

/** Returns the sizes that a channel offers; filter may be NULL. Release with g_free. */
VdoResolutionSet* vdo_channel_get_resolutions(VdoChannel* self, VdoMap* filter, GError** error);

G_END_DECLS

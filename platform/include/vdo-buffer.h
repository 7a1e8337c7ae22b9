#pragma once

/** Video service: one frame. */

#include "vdo-types.h"

G_BEGIN_DECLS

/**
 * Returns the frame's pixels: NV12 in the stream's size after rotation, rows without padding, luma plane first. Valid
 * until the buffer goes back to its stream. NULL when the memory cannot be mapped.
 */
gpointer vdo_buffer_get_data(VdoBuffer* self);

G_END_DECLS

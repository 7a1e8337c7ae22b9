#pragma once

/** Video service: streams of frames. */

#include "vdo-buffer.h"
#include "vdo-map.h"
#include "vdo-types.h"

G_BEGIN_DECLS

/** Called for frames of a stream that was made with a callback; unused by streams that are read. */
typedef void (*VdoFrameCallback)(VdoStream* stream, VdoBuffer* buffer, gpointer userData);

/**
 * Makes a stream from settings: "channel" (1 is the camera's picture), "format", "width" and "height" in pixels before
 * rotation, "rotation" in degrees clockwise, "buffer.strategy". A size that the channel does not offer is
 * refused with VDO_ERROR_INVALID_ARGUMENT. The caller owns the stream.
 */
VdoStream* vdo_stream_new(VdoMap* settings, VdoFrameCallback callback, GError** error);

/** Attaches the caller to the stream; intent may be NULL. Needed before frames are read. */
gboolean vdo_stream_attach(VdoStream* self, VdoMap* intent, GError** error);

/** Returns the stream's settings in force, "framerate" (whole frames a second) among them. The caller owns the map. */
VdoMap* vdo_stream_get_settings(VdoStream* self, GError** error);

/** Starts the flow of frames. Starting a started stream does nothing. */
gboolean vdo_stream_start(VdoStream* self, GError** error);

/** Stops the flow of frames. */
void vdo_stream_stop(VdoStream* self);

/**
 * Waits for a frame that was not handed out before and returns the newest one. VDO_ERROR_NO_VIDEO when the source is
 * lost. The buffer belongs to the stream: give it back with vdo_stream_buffer_unref or vdo_stream_buffer_enqueue.
 */
VdoBuffer* vdo_stream_get_buffer(VdoStream* self, GError** error);

/** Gives a frame back to its stream and clears the caller's pointer. */
gboolean vdo_stream_buffer_unref(VdoStream* self, VdoBuffer** buffer, GError** error);

/** Allocates a buffer for a stream with VDO_BUFFER_STRATEGY_EXPLICIT. */
VdoBuffer* vdo_stream_buffer_alloc(VdoStream* self, gpointer opaque, GError** error);

/** Hands a buffer to the stream to be filled, again or for the first time. */
gboolean vdo_stream_buffer_enqueue(VdoStream* self, VdoBuffer* buffer, GError** error);

G_END_DECLS

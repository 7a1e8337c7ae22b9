#pragma once

/**
 * Video service: types that its calls share.
 *
 * All handles are GObjects: release them with g_object_unref. Failing calls return NULL or FALSE and, when the caller
 * passed an error slot, fill it with a GError of the domain VDO_ERROR that the caller frees.
 */

#include <glib-object.h>

G_BEGIN_DECLS

typedef struct _VdoMap VdoMap;
typedef struct _VdoBuffer VdoBuffer;
typedef struct _VdoStream VdoStream;
typedef struct _VdoChannel VdoChannel;

/** Pixel and coding formats, the values of a stream's "format" setting. VDO_FORMAT_YUV is NV12. */
typedef enum {
    VDO_FORMAT_H264 = 0,
    VDO_FORMAT_H265 = 1,
    VDO_FORMAT_JPEG = 2,
    VDO_FORMAT_YUV = 3,
} VdoFormat;

/** Who allocates a stream's buffers, the values of its "buffer.strategy" setting. */
typedef enum {
    VDO_BUFFER_STRATEGY_NONE = 0,
    VDO_BUFFER_STRATEGY_INPUT = 1,
    VDO_BUFFER_STRATEGY_EXTERNAL = 2,
    VDO_BUFFER_STRATEGY_EXPLICIT = 3,
    VDO_BUFFER_STRATEGY_INFINITE = 4,
} VdoBufferStrategy;

/** A picture size in pixels. */
typedef struct {
    guint32 width;
    guint32 height;
} VdoResolution;

/** The sizes that a channel offers, in the service's own order. Release with g_free. */
typedef struct {
    gsize count;
    VdoResolution resolutions[];
} VdoResolutionSet;

/** What went wrong, the codes of VDO_ERROR. */
typedef enum {
    VDO_ERROR_NOT_FOUND = 1,
    VDO_ERROR_INVALID_ARGUMENT = 2,
    VDO_ERROR_NO_EVENT = 3,
    VDO_ERROR_NO_VIDEO = 4,
    VDO_ERROR_IO = 5,
    VDO_ERROR_FAILED = 6,
} VdoErrorCode;

#define VDO_ERROR (vdo_error_quark())
GQuark vdo_error_quark(void);

G_END_DECLS

#pragma once

/**
 * Overlay service: pictures drawn by the application on top of the camera's video streams.
 *
 * Failing calls fill the error slot, when the caller passed one, with a GError of the domain AXOVERLAY_ERROR that the
 * caller frees.
 */

#include <glib.h>

G_BEGIN_DECLS

#define AXOVERLAY_ERROR (axoverlay_error_quark())
GQuark axoverlay_error_quark(void);

typedef enum {
    AXOVERLAY_ERROR_INVALID_VALUE = 1000,
    AXOVERLAY_ERROR_INTERNAL = 2000,
    AXOVERLAY_ERROR_UNEXPECTED = 3000,
    AXOVERLAY_ERROR_GENERIC = 4000,
    AXOVERLAY_ERROR_INVALID_ARGUMENT = 5000,
    AXOVERLAY_ERROR_SERVICE_UNAVAILABLE = 6000,
    AXOVERLAY_ERROR_BACKEND = 7000,
} axoverlay_error_code;

typedef enum {
    AXOVERLAY_CAIRO_IMAGE_BACKEND = 0,
    AXOVERLAY_OPEN_GL_BACKEND = 1,
} axoverlay_backend_type;

typedef enum {
    AXOVERLAY_CUSTOM_NORMALIZED = 0,
    AXOVERLAY_CUSTOM_SOURCE = 1,
    AXOVERLAY_TOP_LEFT = 2,
    AXOVERLAY_TOP_RIGHT = 3,
    AXOVERLAY_BOTTOM_LEFT = 4,
    AXOVERLAY_BOTTOM_RIGHT = 5,
} axoverlay_position_type;

typedef enum {
    AXOVERLAY_ANCHOR_TOP_LEFT = 0,
    AXOVERLAY_ANCHOR_CENTER = 1,
} axoverlay_anchor_point;

typedef enum {
    AXOVERLAY_COLORSPACE_UNDEFINED = 0,
    AXOVERLAY_COLORSPACE_ARGB32 = 1,
    AXOVERLAY_COLORSPACE_4BIT_PALETTE = 2,
    AXOVERLAY_COLORSPACE_1BIT_PALETTE = 3,
} axoverlay_colorspace;

typedef enum {
    AXOVERLAY_STREAM_JPEG = 0,
    AXOVERLAY_STREAM_H264 = 1,
    AXOVERLAY_STREAM_H265 = 2,
    AXOVERLAY_STREAM_YCBCR = 3,
    AXOVERLAY_STREAM_VOUT = 4,
    AXOVERLAY_STREAM_OTHER = 5,
} axoverlay_stream_type;

/**
 * One stream that is being watched: its size in pixels as the camera's channel lists it, before the picture is turned
 * by the rotation, in degrees clockwise; the viewer of a stream turned by 90 or 270 sees width and height exchanged.
 * Mirrored: left and right are exchanged after turning.
 */
struct axoverlay_stream_data {
    gint id;
    gint camera;
    axoverlay_stream_type type;
    gint width;
    gint height;
    gint rotation;
    gboolean mirrored;
};

/**
 * Asked, before drawing, for the overlay's place and size on a stream. The position type and the sizes may be changed.
 */
typedef void (*axoverlay_adjustment_function)(gint id, struct axoverlay_stream_data* stream,
                                              axoverlay_position_type* postype, gfloat* overlay_x, gfloat* overlay_y,
                                              gint* overlay_width, gint* overlay_height, gpointer user_data);

/**
 * Draws one overlay on one stream; the context is a cairo_t with the cairo image backend, on a surface of the overlay's
 * size that is transparent at the start of every call. The context is valid during the call.
 */
typedef void (*axoverlay_render_function)(gpointer rendering_context, gint id, struct axoverlay_stream_data* stream,
                                          axoverlay_position_type postype, gfloat overlay_x, gfloat overlay_y,
                                          gint overlay_width, gint overlay_height, gpointer user_data);

/** Says whether a stream gets overlays. */
typedef gboolean (*axoverlay_stream_select_function)(gint camera, gint width, gint height, gint rotation,
                                                     gboolean is_mirrored, axoverlay_stream_type type);

struct axoverlay_settings {
    axoverlay_adjustment_function adjustment_callback;
    axoverlay_render_function render_callback;
    axoverlay_stream_select_function select_callback;
    axoverlay_backend_type backend;
};

struct axoverlay_overlay_data {
    axoverlay_position_type postype;
    axoverlay_anchor_point anchor_point;
    gfloat x;
    gfloat y;
    gint width;
    gint height;
    axoverlay_colorspace colorspace;
    gboolean scale_to_stream;
};

gboolean axoverlay_is_backend_supported(axoverlay_backend_type type);

/** Fills the settings with the service's defaults. */
void axoverlay_init_axoverlay_settings(struct axoverlay_settings* settings);

/**
 * Starts the service; the settings are copied. Check the error slot. Calls between this and axoverlay_cleanup come from
 * one thread at a time; it is an error to start it twice, and to make, remove or draw overlays before.
 */
void axoverlay_init(struct axoverlay_settings* settings, GError** error);

/** Largest overlay that a camera takes, in pixels; 0 with the error set on failure. */
gint axoverlay_get_max_resolution_width(gint camera, GError** error);
gint axoverlay_get_max_resolution_height(gint camera, GError** error);

/** Fills the data with the service's defaults. */
void axoverlay_init_overlay_data(struct axoverlay_overlay_data* data);

/**
 * Makes an ARGB32 overlay, at most as large as the camera takes, in one of the corners. Returns its identifier, 1 and up;
 * 0 with the error set on failure.
 */
gint axoverlay_create_overlay(struct axoverlay_overlay_data* data, gpointer user_data, GError** error);

/** Removes an overlay. */
void axoverlay_destroy_overlay(gint id, GError** error);

/**
 * Asks for all overlays to be drawn anew on every stream that is being watched. Callbacks are called in this thread
 * before it returns. What is drawn belongs to the frame that this thread has fetched last. Without one, nothing is drawn.
 */
void axoverlay_redraw(GError** error);

/** Stops the service. */
void axoverlay_cleanup(void);

G_END_DECLS

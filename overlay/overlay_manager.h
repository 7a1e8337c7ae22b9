#pragma once

#include <cairo.h>
#include <string>
#include <vector>

#include <axoverlay.h>

#include "config/config_params.h"
#include "overlay/overlay_info.h"
#include "overlay/text_cache.h"

class StreamMapper;

/**
 * Draws the findings on the camera's video streams: on the analysis stream's own size, on the stream chosen for
 * overlays and, hiding who is in the boxes, on the stream chosen for anonymising.
 *
 * One per process, as the platform's callbacks know no other. Everything on the analysis thread; the platform calls
 * back while renderFindings runs.
 */
class OverlayManager {
public:
    /**
     * Starts the overlay service and draws once. width, height: the analysis stream as it comes, after rotation.
     * config is the analysis's own record and outlives this. What fails is logged; there are no overlays then.
     */
    OverlayManager(const ConfigParams& config, uint32_t width, uint32_t height);
    ~OverlayManager();
    OverlayManager(const OverlayManager&) = delete;
    OverlayManager& operator=(const OverlayManager&) = delete;

    /** The list that is drawn from now on; outlives this. */
    void showFindings(const std::vector<one_find>& findings) { m_Info.pFindings = &findings; }

    /** Which streams are drawn on, by the settings of config; those of an unreadable choice are not, logged. */
    void useConfiguredStreams();

    /** Draws the findings as they are now. False when the service failed: logged, once a minute if it never started. */
    bool renderFindings() const;

    void clearUserRectangles() { m_UserRectangles.clear(); }

    /** In pixels of the analysis stream; a 17th is refused with an error line. */
    void addUserRectangle(int x, int y, int w, int h, int colorIndex);

    OverlayInfo& info() { return m_Info; }

    /** Makes an overlay; its identifier, or 0, logged, on failure. */
    int createOverlay(int width, int height);

    /** Draws one stream. user: the OverlayManager. */
    static void renderCallback(gpointer context, gint id, axoverlay_stream_data* stream,
                               axoverlay_position_type position, gfloat x, gfloat y, gint width, gint height,
                               gpointer user);

    /** Makes the overlay as large as the stream is once it is turned. */
    static void adjustmentCallback(gint id, axoverlay_stream_data* stream, axoverlay_position_type* position, gfloat* x,
                                   gfloat* y, gint* width, gint* height, gpointer user);

    /** Every stream gets the overlay; what is drawn is decided with each frame. */
    static gboolean selectStreamCallback(gint camera, gint width, gint height, gint rotation, gboolean isMirrored,
                                         axoverlay_stream_type type);

private:
    void stop();
    void drawStream(cairo_t* context, const axoverlay_stream_data& stream);
    void drawFinding(cairo_t* context, const StreamMapper& mapper, const one_find& find, int lineWidth, bool hidden);

    static int m_OverlayID; /**< 0: there is none */

    const ConfigParams& m_Config;
    int m_AnalysisWidth;
    int m_AnalysisHeight;
    OverlayInfo m_Info;
    UserRectangles m_UserRectangles;
    TextCache m_Texts;
    bool m_IsStarted = true;
    mutable time_t m_NextReport = 0; /**< by the steady clock, when the start failed */
};

#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include <axoverlay.h>

#include "desktop/frames/video_source.h"
#include "desktop/live/anonymised_stream.h"
#include "desktop/live/drawing_desk.h"
#include "desktop/live/live_server.h"

namespace desktop {

/** A failure that a call of the overlay service reports. */
class OverlayError : public std::runtime_error {
public:
    OverlayError(axoverlay_error_code code, const std::string& message) : std::runtime_error(message), m_code(code) {}
    axoverlay_error_code code() const { return m_code; }

private:
    axoverlay_error_code m_code;
};

/** What the overlay service is started with. */
struct OverlayParts {
    std::shared_ptr<VideoSource> source;
    std::string liveSocket; /**< empty: nobody can watch */
    AnonymisedStreamNames anonymised;
    ParameterValues choices; /**< the values of these parameters now */
    int rotation = 0;        /**< of the pictures until something was analysed */
    bool mirrored = false;
    Clock* clock = &steadyClock();
};

/** The application's overlays and, with a socket, the live picture that shows them. Used by one thread at a time. */
class OverlayService {
public:
    /** Throws OverlayError when the live picture cannot be served. */
    OverlayService(const axoverlay_settings& settings, OverlayParts parts);

    /** The largest size that is on offer. */
    StreamSize largest() const;

    /** Returns the identifier. Throws OverlayError for a size, place or colour space that it cannot have. */
    gint create(const axoverlay_overlay_data& data, gpointer user);

    /** Throws OverlayError for an identifier that is none. */
    void destroy(gint id);

    /**
     * Draws the overlays for every stream that is watched and wants a drawing, calling back in this thread. Without a
     * frame, nothing was analysed yet and nothing is drawn. Throws OverlayError for a size that cannot be drawn.
     */
    void redraw(const Fetched& frame);

    /** Takes note of a parameter that was set. Any thread. */
    void parameterSet(const std::string& name, const std::string& value);

    /** Takes note that nobody knows any more what the parameters are to be. Any thread. */
    void parametersLost();

    /** Whether it is known (again) what the parameters are to be. Any thread. */
    bool knowsParameters() const { return m_anonymised.isKnown(); }

    /** Null without a socket. */
    const LiveServer* live() const { return m_live.get(); }

private:
    struct Overlay {
        axoverlay_overlay_data data;
        gpointer user;
    };

    std::vector<DrawnOverlay> draw(axoverlay_stream_data stream);

    const axoverlay_settings m_settings;
    const OverlayParts m_parts;
    AnonymisedStream m_anonymised;
    std::atomic<int> m_rotation;
    DrawingDesk m_desk;
    Sightings m_sightings;
    std::map<gint, Overlay> m_overlays;
    gint m_nextId = 1;
    std::unique_ptr<LiveServer> m_live;
};

}  // namespace desktop

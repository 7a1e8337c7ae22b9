#pragma once

#include <cairo.h>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <tuple>
#include <vector>

#include "base/mutex.h"
#include "desktop/frames/clock.h"
#include "desktop/frames/last_fetched.h"

namespace desktop {

/** A stream's size before the picture is turned, as the channel lists it. */
struct StreamSize {
    int width = 0;
    int height = 0;
    bool operator==(const StreamSize&) const = default;
    bool operator<(const StreamSize& other) const {
        return std::tie(width, height) < std::tie(other.width, other.height);
    }
};

struct DestroySurface {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, DestroySurface>;

/** One overlay as it was drawn, and where its corner lies on the picture. */
struct DrawnOverlay {
    SurfacePtr surface;
    int left = 0;
    int top = 0;
};

/** All that was drawn for one stream in one redraw, and the frame that it belongs to. */
struct Drawing {
    Fetched frame;
    std::vector<DrawnOverlay> overlays;
    Clock::TimePoint when;                  /**< when the redraw was */
    std::optional<Clock::TimePoint> before; /**< when the redraw before this one was; nothing for the first */
};

/**
 * Where the analysis leaves what it draws and the live picture takes it. Nobody waits here for the other: a stream
 * whose last drawing was not taken yet is not drawn again. Thread-safe.
 */
class DrawingDesk {
public:
    /** Says which sizes are watched; drawings of others are thrown away. */
    void watch(const std::set<StreamSize>& sizes);

    /** The sizes that want a drawing. */
    std::vector<StreamSize> wanting() const;

    /** A transparent surface. Null when there is no memory for it. */
    SurfacePtr surface(int width, int height);

    void put(const StreamSize& size, Drawing drawing);

    /** What was drawn for a size since the last call. */
    std::optional<Drawing> take(const StreamSize& size);

    /** Takes surfaces back that are transparent again. */
    void giveBack(std::vector<DrawnOverlay> overlays);

    /** Notes a redraw of an analysed frame, watched or not; returns when the one before was. */
    std::optional<Clock::TimePoint> redrawn(Clock::TimePoint now);

    /** Whether there was a redraw of an analysed frame yet. */
    bool everRedrawn() const;

private:
    mutable Mutex m_mutex;  // guards all below
    std::map<StreamSize, std::optional<Drawing>> m_watched GUARDED_BY(m_mutex);
    std::vector<SurfacePtr> m_clean GUARDED_BY(m_mutex);
    std::optional<Clock::TimePoint> m_lastRedraw GUARDED_BY(m_mutex);
};

}  // namespace desktop

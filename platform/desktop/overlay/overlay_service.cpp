#include "desktop/overlay/overlay_service.h"

#include <algorithm>
#include <utility>

#include "desktop/frames/resolutions.h"

namespace desktop {
namespace {

constexpr gint kCamera = 1;

bool isCorner(axoverlay_position_type type) {
    return type >= AXOVERLAY_TOP_LEFT && type <= AXOVERLAY_BOTTOM_RIGHT;
}

void require(bool holds, const std::string& message) {
    if (!holds) {
        throw OverlayError(AXOVERLAY_ERROR_INVALID_VALUE, message);
    }
}

/** Even, since chroma has half the pixels. */
int evenDown(int value) {
    return value - (value % 2 + 2) % 2;
}

}  // namespace

OverlayService::OverlayService(const axoverlay_settings& settings, OverlayParts parts)
    : m_settings(settings),
      m_parts(std::move(parts)),
      m_anonymised(m_parts.anonymised, m_parts.choices, *m_parts.clock),
      m_rotation(m_parts.rotation) {
    if (m_parts.liveSocket.empty()) {
        return;
    }
    try {
        m_live = std::make_unique<LiveServer>(m_parts.liveSocket,
                                              LiveParts{*m_parts.source, m_desk, m_sightings, m_anonymised, m_rotation,
                                                        m_parts.mirrored, *m_parts.clock});
    } catch (const std::exception& error) {
        throw OverlayError(AXOVERLAY_ERROR_SERVICE_UNAVAILABLE, error.what());
    }
}

StreamSize OverlayService::largest() const {
    const SourceInfo& info = m_parts.source->info();
    const VdoResolution& size = offeredResolutions(info.width, info.height).front();
    return {static_cast<int>(size.width), static_cast<int>(size.height)};
}

gint OverlayService::create(const axoverlay_overlay_data& data, gpointer user) {
    const StreamSize most = largest();
    require(data.width > 0 && data.height > 0 && data.width <= most.width && data.height <= most.height,
            "expected an overlay of 1x1 to " + textOf(most) + " pixels, got " + textOf({data.width, data.height}));
    require(data.colorspace == AXOVERLAY_COLORSPACE_ARGB32, "expected colour space " +
                                                                std::to_string(AXOVERLAY_COLORSPACE_ARGB32) +
                                                                " (ARGB32), got " + std::to_string(data.colorspace));
    require(isCorner(data.postype), "expected a corner as position, " + std::to_string(AXOVERLAY_TOP_LEFT) + " to " +
                                        std::to_string(AXOVERLAY_BOTTOM_RIGHT) + ", got " +
                                        std::to_string(data.postype));
    m_overlays[m_nextId] = {data, user};
    return m_nextId++;
}

void OverlayService::destroy(gint id) {
    require(m_overlays.erase(id) != 0, "expected an overlay that was created, got " + std::to_string(id));
}

void OverlayService::redraw(const Fetched& frame) {
    if (!frame.picture) {
        return;
    }
    m_rotation = frame.rotation;
    const auto now = m_parts.clock->now();
    m_sightings.add(frame);
    const auto before = m_desk.redrawn(now);
    const std::vector<StreamSize> wanting = m_desk.wanting();
    if (wanting.empty()) {
        return;
    }
    gint id = 0;
    for (const StreamSize& size : wanting) {
        const axoverlay_stream_data stream = {++id,        kCamera,        AXOVERLAY_STREAM_JPEG,          size.width,
                                              size.height, frame.rotation, m_parts.mirrored ? TRUE : FALSE};
        m_desk.put(size, {frame, draw(stream), now, before});
    }
    m_live->wake();
}

std::vector<DrawnOverlay> OverlayService::draw(axoverlay_stream_data stream) {
    std::vector<DrawnOverlay> drawn;
    if (m_settings.select_callback != nullptr &&
        m_settings.select_callback(stream.camera, stream.width, stream.height, stream.rotation, stream.mirrored,
                                   stream.type) == FALSE) {
        return drawn;
    }
    const bool turned = liesOnItsSide(stream.rotation);
    const int shownWidth = turned ? stream.height : stream.width;
    const int shownHeight = turned ? stream.width : stream.height;
    const int most = std::max(largest().width, largest().height);
    for (const auto& [id, overlay] : m_overlays) {
        axoverlay_overlay_data data = overlay.data;
        if (m_settings.adjustment_callback != nullptr) {
            m_settings.adjustment_callback(id, &stream, &data.postype, &data.x, &data.y, &data.width, &data.height,
                                           overlay.user);
        }
        require(data.width > 0 && data.height > 0 && data.width <= most && data.height <= most,
                "expected the adjustment callback to give 1x1 to " + textOf({most, most}) + " pixels, got " +
                    textOf({data.width, data.height}));
        require(isCorner(data.postype),
                "expected the adjustment callback to give a corner as position, got " + std::to_string(data.postype));
        const bool right = data.postype == AXOVERLAY_TOP_RIGHT || data.postype == AXOVERLAY_BOTTOM_RIGHT;
        const bool bottom = data.postype == AXOVERLAY_BOTTOM_LEFT || data.postype == AXOVERLAY_BOTTOM_RIGHT;
        DrawnOverlay made = {m_desk.surface(data.width, data.height), right ? evenDown(shownWidth - data.width) : 0,
                             bottom ? evenDown(shownHeight - data.height) : 0};
        if (!made.surface) {
            throw OverlayError(AXOVERLAY_ERROR_INTERNAL,
                               "no memory for an overlay of " + textOf({data.width, data.height}) + " pixels");
        }
        const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> context(cairo_create(made.surface.get()),
                                                                         cairo_destroy);
        if (m_settings.render_callback != nullptr) {
            m_settings.render_callback(context.get(), id, &stream, data.postype, data.x, data.y, data.width,
                                       data.height, overlay.user);
        }
        drawn.push_back(std::move(made));
    }
    return drawn;
}

void OverlayService::parameterSet(const std::string& name, const std::string& value) {
    m_anonymised.parameterSet(name, value);
    if (m_live) {
        m_live->wake();
    }
}

void OverlayService::parametersLost() {
    m_anonymised.parametersLost();
    if (m_live) {
        m_live->wake();
    }
}

}  // namespace desktop

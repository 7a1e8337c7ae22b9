#include "overlay/overlay_manager.h"

#include <algorithm>

#include "base/clock.h"
#include "base/platform_error.h"
#include "detection/location_controller_larod.h"
#include "log/Logger.h"
#include "overlay/StreamMapper.h"
#include "overlay/overlay_drawing.h"

namespace {

constexpr gint kCamera = 1;
constexpr int kLocatorArm = 6;
constexpr int kLocatorExtraWidth = 2;
constexpr time_t kSecondsBetweenReports = 60;
constexpr const char* kNoStream = "0x0";

bool isTurned(const axoverlay_stream_data& stream) {
    return stream.rotation == 90 || stream.rotation == 270;
}

int colorOf(const one_find& find) {
    if (find.entrance != entrances::not_in_entrance) {
        return Orange;
    }
    switch (find.footing) {
        case footings::in_AOI1_lengthily:
        case footings::in_AOI2_lengthily:
        case footings::in_AOI3_lengthily:
            return Red;
        case footings::in_AOI1_briefly:
        case footings::in_AOI2_briefly:
        case footings::in_AOI3_briefly:
            return Yellow;
        case footings::not_in_AOI:
            break;
    }
    return Green;
}

}  // namespace

int OverlayManager::m_OverlayID = 0;

OverlayManager::OverlayManager(const ConfigParams& config, uint32_t width, uint32_t height)
    : m_Config(config), m_AnalysisWidth(static_cast<int>(width)), m_AnalysisHeight(static_cast<int>(height)) {
    SetApplicationStreamResolution(m_Info, width, height);
    static const std::string function = "OverlayManager: ";
    if (axoverlay_is_backend_supported(AXOVERLAY_CAIRO_IMAGE_BACKEND) == FALSE) {
        applicationLog().error(function + "AXOVERLAY_CAIRO_IMAGE_BACKEND is not supported");
    }
    axoverlay_settings settings = {};
    axoverlay_init_axoverlay_settings(&settings);
    settings.render_callback = renderCallback;
    settings.adjustment_callback = adjustmentCallback;
    settings.select_callback = selectStreamCallback;
    settings.backend = AXOVERLAY_CAIRO_IMAGE_BACKEND;
    PlatformError initError;
    axoverlay_init(&settings, initError.slot());
    if (initError) {
        applicationLog().error(function + "Failed to initialize axoverlay: " + initError.message());
    }
    m_OverlayID = createOverlay(axoverlay_get_max_resolution_width(kCamera, nullptr),
                                axoverlay_get_max_resolution_height(kCamera, nullptr));
    PlatformError drawError;
    axoverlay_redraw(drawError.slot());
    if (drawError) {
        applicationLog().error(function + "Failed to do initial draw of overlays: " + drawError.message());
        stop();
    }
}

OverlayManager::~OverlayManager() {
    if (m_IsStarted) {
        stop();
    }
}

void OverlayManager::stop() {
    axoverlay_destroy_overlay(m_OverlayID, nullptr);
    axoverlay_cleanup();
    m_OverlayID = 0;
    m_IsStarted = false;
}

int OverlayManager::createOverlay(int width, int height) {
    axoverlay_overlay_data data = {};
    axoverlay_init_overlay_data(&data);
    data.postype = AXOVERLAY_TOP_LEFT;
    data.anchor_point = AXOVERLAY_ANCHOR_TOP_LEFT;
    data.x = 0;
    data.y = 0;
    data.width = width;
    data.height = height;
    data.colorspace = AXOVERLAY_COLORSPACE_ARGB32;
    data.scale_to_stream = FALSE;
    PlatformError error;
    const gint id = axoverlay_create_overlay(&data, this, error.slot());
    if (error) {
        applicationLog().error("createOverlay: Failed to create overlay: " + error.message());
        return 0;
    }
    return id;
}

void OverlayManager::useConfiguredStreams() {
    SetOverlayStreamResolutionFromString(m_Info,
                                         m_Config.b_DetectionOverlaysOn ? m_Config.str_DetectionOverlay : kNoStream);
    SetAnonymizedStreamResolutionFromString(m_Info, m_Config.b_AnonOverlaysOn ? m_Config.str_AnonOverlay : kNoStream);
}

bool OverlayManager::renderFindings() const {
    PlatformError error;
    axoverlay_redraw(error.slot());
    if (error) {
        if (!m_IsStarted) {
            if (steadyNow() < m_NextReport) {
                return false;
            }
            m_NextReport = steadyNow() + kSecondsBetweenReports;
        }
        applicationLog().error("renderFindings: Failed to redraw overlay: (" + std::to_string(error.code()) + ") " +
                               error.message());
        return false;
    }
    return true;
}

void OverlayManager::addUserRectangle(int x, int y, int w, int h, int colorIndex) {
    if (!m_UserRectangles.add({{x, y, w, h}, colorIndex})) {
        applicationLog().error("addUserRectangle: too many user rectangles.");
    }
}

void OverlayManager::adjustmentCallback(gint /*id*/, axoverlay_stream_data* stream,
                                        axoverlay_position_type* /*position*/, gfloat* /*x*/, gfloat* /*y*/,
                                        gint* width, gint* height, gpointer /*user*/) {
    *width = isTurned(*stream) ? stream->height : stream->width;
    *height = isTurned(*stream) ? stream->width : stream->height;
}

gboolean OverlayManager::selectStreamCallback(gint /*camera*/, gint /*width*/, gint /*height*/, gint /*rotation*/,
                                              gboolean /*isMirrored*/, axoverlay_stream_type /*type*/) {
    return TRUE;
}

void OverlayManager::renderCallback(gpointer context, gint id, axoverlay_stream_data* stream,
                                    axoverlay_position_type /*position*/, gfloat /*x*/, gfloat /*y*/, gint /*width*/,
                                    gint /*height*/, gpointer user) {
    if (id == m_OverlayID && m_OverlayID != 0) {
        static_cast<OverlayManager*>(user)->drawStream(static_cast<cairo_t*>(context), *stream);
    }
}

void OverlayManager::drawStream(cairo_t* context, const axoverlay_stream_data& stream) {
    const StreamType type =
        m_Info.getStreamType(static_cast<uint32_t>(stream.width), static_cast<uint32_t>(stream.height));
    constexpr int kSmallest = 2;  // what the mappers can scale to
    const int shorter = std::min(stream.width, stream.height);
    if (type == StreamType::OtherStream || shorter < kSmallest) {
        return;
    }
    cairo_set_antialias(context, CAIRO_ANTIALIAS_BEST);
    const int lineWidth = std::max(1, shorter * 5 / 1000);
    cairo_select_font_face(context, "Arial", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(context, std::max(16, shorter * 3 / 100));
    const bool isRotated = isTurned(stream);
    const std::unique_ptr<StreamMapper> mapper =
        getStreamMapper(m_AnalysisHeight, m_AnalysisWidth, isRotated ? stream.width : stream.height,
                        isRotated ? stream.height : stream.width, isRotated, stream.mirrored != FALSE);
    if (m_Info.pFindings != nullptr) {
        for (const one_find& find : *m_Info.pFindings) {
            drawFinding(context, *mapper, find, lineWidth, type == StreamType::AnonymizedStream);
        }
    }
    for (const UserRectangle& user : m_UserRectangles) {
        overlay_drawing::drawRectangle(context, *mapper, user.rect, {user.colorIndex, double(lineWidth)}, false);
    }
}

void OverlayManager::drawFinding(cairo_t* context, const StreamMapper& mapper, const one_find& find, int lineWidth,
                                 bool hidden) {
    using namespace overlay_drawing;
    drawRectangle(context, mapper, find.detect, {colorOf(find), double(lineWidth)}, hidden);
    drawLocatorCross(context, mapper, find.detect, m_Config.b_LocatorAtBottom,
                     {White, double(lineWidth + kLocatorExtraWidth)}, kLocatorArm);
    if (find.detect.ClassId > 0) {
        drawDetectionText(context, m_Texts, mapper, find.detect,
                          location_controller_larod::ClassIDToLabel(find.detect.ClassId), VerticalMode::InsideTop,
                          HorizontalMode::Left, White);
    }
    if (find.footing != footings::not_in_AOI) {
        drawDetectionText(context, m_Texts, mapper, find.detect, secondsToTimeText(find.seconds), VerticalMode::Below,
                          HorizontalMode::Centred, White);
    }
}

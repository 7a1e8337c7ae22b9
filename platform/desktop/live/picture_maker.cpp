#include "desktop/live/picture_maker.h"

#include <algorithm>
#include <cmath>

namespace desktop {
namespace {

constexpr int kSquaresAcross = 12;  // of the shorter side
constexpr int kSmallestFont = 12;

int shortSide(const Planes& planes) {
    return std::min(planes.width, planes.height);
}

}  // namespace

void clearAll(const std::vector<DrawnOverlay>& overlays) {
    for (const DrawnOverlay& overlay : overlays) {
        cairo_surface_t* const surface = overlay.surface.get();
        cairo_surface_flush(surface);
        std::fill_n(cairo_image_surface_get_data(surface),
                    static_cast<std::ptrdiff_t>(cairo_image_surface_get_stride(surface)) *
                        cairo_image_surface_get_height(surface),
                    uint8_t{0});
        cairo_surface_mark_dirty(surface);
    }
}

PictureMaker::PictureMaker(const StreamSize& size, int rotation, bool mirrored)
    : m_rotation(rotation),
      m_mirrored(mirrored),
      m_converter(size.width, size.height, rotation),
      m_nv12(nv12Size(size.width, size.height)),
      m_planes(liesOnItsSide(rotation) ? size.height : size.width, liesOnItsSide(rotation) ? size.width : size.height) {
}

std::string PictureMaker::make(const AVFrame& picture, const std::vector<Mask>& masks,
                               const std::vector<DrawnOverlay>& overlays, const std::string& words) {
    m_converter.convert(picture, m_nv12.data());
    fillFromNv12(m_planes, m_nv12.data(), m_mirrored);
    std::for_each(masks.begin(), masks.end(), [this](const Mask& mask) { hide(mask); });
    for (const DrawnOverlay& overlay : overlays) {
        cairo_surface_t* const surface = overlay.surface.get();
        cairo_surface_flush(surface);
        blendAndClear(cairo_image_surface_get_data(surface), cairo_image_surface_get_stride(surface),
                      cairo_image_surface_get_width(surface), cairo_image_surface_get_height(surface), overlay.left,
                      overlay.top, m_planes);
        cairo_surface_mark_dirty(surface);
    }
    if (!words.empty()) {
        pixelate(m_planes, shortSide(m_planes) / kSquaresAcross / 2 * 2);
        write(words);
    }
    return m_encoder.encode(m_planes);
}

void PictureMaker::hide(const Mask& mask) {
    const auto width = static_cast<double>(m_planes.width);
    const auto height = static_cast<double>(m_planes.height);
    const double left = (m_mirrored ? 1 - mask.box.right : mask.box.left) * width;
    const double right = (m_mirrored ? 1 - mask.box.left : mask.box.right) * width;
    const double top = mask.box.top * height;
    const double bottom = mask.box.bottom * height;
    const double more = mask.reach * std::max(right - left, bottom - top);
    cover(m_planes, static_cast<int>(std::floor(left - more)), static_cast<int>(std::floor(top - more)),
          static_cast<int>(std::ceil(right + more)), static_cast<int>(std::ceil(bottom + more)));
}

/** Writes words on a dark band across the middle. */
void PictureMaker::write(const std::string& words) {
    const double font = std::max(kSmallestFont, shortSide(m_planes) / 20);
    const int height = static_cast<int>(2.0 * font);
    const SurfacePtr band(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, m_planes.width, height));
    const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> context(cairo_create(band.get()), cairo_destroy);
    cairo_set_source_rgba(context.get(), 0.0, 0.0, 0.0, 0.75);
    cairo_paint(context.get());
    cairo_select_font_face(context.get(), "Arial", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(context.get(), font);
    cairo_text_extents_t extents = {};
    cairo_text_extents(context.get(), words.c_str(), &extents);
    const double room = 0.95 * m_planes.width;
    if (extents.width > room) {
        cairo_set_font_size(context.get(), font * room / extents.width);
        cairo_text_extents(context.get(), words.c_str(), &extents);
    }
    cairo_move_to(context.get(), (m_planes.width - extents.width) / 2.0 - extents.x_bearing,
                  (height - extents.height) / 2.0 - extents.y_bearing);
    cairo_set_source_rgb(context.get(), 1.0, 1.0, 1.0);
    cairo_show_text(context.get(), words.c_str());
    cairo_surface_flush(band.get());
    blendAndClear(cairo_image_surface_get_data(band.get()), cairo_image_surface_get_stride(band.get()), m_planes.width,
                  height, 0, (m_planes.height - height) / 4 * 2, m_planes);
}

}  // namespace desktop

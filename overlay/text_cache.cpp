#include "overlay/text_cache.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "overlay/palette.h"

namespace {

/** More than are on display at once; some megabytes at 1920x1080. */
constexpr size_t kMaxMasks = 300;

constexpr int kRimWidth = 1;

/** Room around the measured text for what the rim's sharp corners reach, ten times half its width, and a pixel more. */
constexpr int kRoom = 5 * kRimWidth + 1;

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

void outline(cairo_t* context, const std::string& text, int x, int y) {
    cairo_move_to(context, x, y);
    cairo_text_path(context, text.c_str());
    cairo_set_line_width(context, kRimWidth);
}

/** What a fill or a stroke of the text's outline covers. */
std::vector<uint8_t> coverage(cairo_t* like, const TextMask& mask, const std::string& text, void (*paint)(cairo_t*)) {
    const Surface surface(cairo_image_surface_create(CAIRO_FORMAT_A8, mask.width, mask.height), cairo_surface_destroy);
    const Context context(cairo_create(surface.get()), cairo_destroy);
    cairo_set_scaled_font(context.get(), cairo_get_scaled_font(like));
    cairo_set_antialias(context.get(), cairo_get_antialias(like));
    outline(context.get(), text, -mask.left, -mask.top);
    paint(context.get());
    cairo_surface_flush(surface.get());
    const auto width = static_cast<size_t>(mask.width);
    const auto stride = static_cast<size_t>(cairo_image_surface_get_stride(surface.get()));
    std::vector<uint8_t> covered(width * static_cast<size_t>(mask.height));
    // Without memory for a surface the text is not seen, and nothing else is disturbed.
    const bool isThere = cairo_surface_status(surface.get()) == CAIRO_STATUS_SUCCESS;
    for (size_t row = 0; isThere && row < static_cast<size_t>(mask.height); ++row) {
        std::memcpy(covered.data() + row * width, cairo_image_surface_get_data(surface.get()) + row * stride, width);
    }
    return covered;
}

/** value * share / 255, rounded, for two of a pixel's four bytes at once. */
uint32_t shareOf(uint32_t twoBytes, uint32_t share) {
    const uint32_t product = (twoBytes & 0x00ff00ffU) * share + 0x007f007fU;
    return ((product + ((product >> 8U) & 0x00ff00ffU)) >> 8U) & 0x00ff00ffU;
}

/** The sum of two bytes each, at most 255. */
uint32_t sum(uint32_t a, uint32_t b) {
    uint32_t result = a + b;
    result |= 0x01000100U - ((result >> 8U) & 0x00ff00ffU);
    return result & 0x00ff00ffU;
}

/** A pixel of which so much is covered with a colour; rounds as cairo does. */
uint32_t covered(uint32_t pixel, uint32_t color, uint32_t share) {
    const uint32_t rest = 255 - share;
    return sum(shareOf(color, share), shareOf(pixel, rest)) |
           (sum(shareOf(color >> 8U, share), shareOf(pixel >> 8U, rest)) << 8U);
}

uint32_t argb(const PaletteColor& color) {
    const auto byte = [](double component) { return static_cast<uint32_t>(std::lround(component * 255)); };
    return 0xff000000U | (byte(color.red) << 16U) | (byte(color.green) << 8U) | byte(color.blue);
}

/** Whether pixel x, y of the mask is one of the picture's own, none of them hidden: then they may be written at once.
 */
bool liesOpen(cairo_t* context, const TextMask& mask, int x, int y) {
    cairo_surface_t* const target = cairo_get_target(context);
    if (cairo_surface_get_type(target) != CAIRO_SURFACE_TYPE_IMAGE ||
        cairo_image_surface_get_format(target) != CAIRO_FORMAT_ARGB32 ||
        cairo_get_operator(context) != CAIRO_OPERATOR_SOURCE) {
        return false;
    }
    cairo_matrix_t matrix;
    cairo_get_matrix(context, &matrix);
    double offsetX = 0;
    double offsetY = 0;
    cairo_surface_get_device_offset(target, &offsetX, &offsetY);
    const bool isPlain = matrix.xx == 1 && matrix.yy == 1 && matrix.xy == 0 && matrix.yx == 0 && matrix.x0 == 0 &&
                         matrix.y0 == 0 && offsetX == 0 && offsetY == 0;
    if (!isPlain) {
        return false;
    }
    cairo_rectangle_list_t* const clip = cairo_copy_clip_rectangle_list(context);
    const bool isInside = clip->status == CAIRO_STATUS_SUCCESS && clip->num_rectangles == 1 &&
                          x >= clip->rectangles[0].x && y >= clip->rectangles[0].y &&
                          x + mask.width <= clip->rectangles[0].x + clip->rectangles[0].width &&
                          y + mask.height <= clip->rectangles[0].y + clip->rectangles[0].height;
    cairo_rectangle_list_destroy(clip);
    return isInside;
}

}  // namespace

void TextCache::drawPlainly(cairo_t* context, const std::string& text, int x, int y, int colorIndex) {
    outline(context, text, x, y);
    usePaletteColor(context, colorIndex, 1.0);
    cairo_fill_preserve(context);
    usePaletteColor(context, Black, 1.0);
    cairo_stroke(context);
}

const TextMask& TextCache::maskOf(cairo_t* context, const std::string& text) {
    cairo_matrix_t font;
    cairo_get_font_matrix(context, &font);
    const std::pair key(font.xx, text);
    if (const auto known = m_masks.find(key); known != m_masks.end()) {
        return known->second;
    }
    cairo_text_extents_t extents;
    cairo_text_extents(context, text.c_str(), &extents);
    TextMask mask;
    mask.left = static_cast<int>(std::floor(extents.x_bearing)) - kRoom;
    mask.top = static_cast<int>(std::floor(extents.y_bearing)) - kRoom;
    mask.width = static_cast<int>(std::ceil(extents.width)) + 2 * kRoom + 1;
    mask.height = static_cast<int>(std::ceil(extents.height)) + 2 * kRoom + 1;
    mask.fill = coverage(context, mask, text, cairo_fill);
    mask.rim = coverage(context, mask, text, cairo_stroke);
    return m_masks.emplace(key, std::move(mask)).first->second;
}

void TextCache::draw(cairo_t* context, const std::string& text, int x, int y, int colorIndex) {
    const PaletteColor* const color = paletteColor(colorIndex);
    if (m_masks.size() >= kMaxMasks) {
        m_masks.clear();
    }
    const TextMask& mask = maskOf(context, text);
    const int left = x + mask.left;
    const int top = y + mask.top;
    if (color == nullptr || !liesOpen(context, mask, left, top)) {
        drawPlainly(context, text, x, y, colorIndex);
        return;
    }
    cairo_surface_t* const target = cairo_get_target(context);
    cairo_surface_flush(target);
    const uint32_t inside = argb(*color);
    const uint32_t rim = argb(*paletteColor(Black));
    size_t i = 0;
    for (int row = 0; row < mask.height; ++row) {
        auto* pixel =
            reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(target) +
                                        static_cast<ptrdiff_t>(top + row) * cairo_image_surface_get_stride(target)) +
            left;
        for (const size_t end = i + static_cast<size_t>(mask.width); i < end; ++i, ++pixel) {
            if (mask.fill[i] != 0) {
                *pixel = covered(*pixel, inside, mask.fill[i]);
            }
            if (mask.rim[i] != 0) {
                *pixel = covered(*pixel, rim, mask.rim[i]);
            }
        }
    }
    cairo_surface_mark_dirty_rectangle(target, left, top, mask.width, mask.height);
}

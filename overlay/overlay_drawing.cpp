#include "overlay/overlay_drawing.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "overlay/StreamMapper.h"
#include "overlay/text_cache.h"

namespace {

constexpr int kCell = 4; /**< width and height of a checkerboard's field */
constexpr int kTile = 2 * kCell;

constexpr uint32_t kWhiteField = 0xffffffff;

using Tile = std::array<uint32_t, static_cast<size_t>(kTile) * kTile>;

constexpr Tile tileOf(uint32_t argb) {
    Tile tile = {};
    for (size_t i = 0; i < tile.size(); ++i) {
        const bool isRight = i % kTile >= kCell;
        const bool isLower = i / kTile >= kCell;
        tile[i] = isRight == isLower ? argb : kWhiteField;
    }
    return tile;
}

// Not const only because cairo takes pixels that it might write.
Tile s_red = tileOf(0xffff0000);
Tile s_green = tileOf(0xff00ff00);
Tile s_yellow = tileOf(0xffffff00);
Tile s_orange = tileOf(0xffff9900);
Tile s_gray = tileOf(0xff808080);

Tile& tileOfColor(int colorIndex) {
    switch (colorIndex) {
        case Red:
            return s_red;
        case Green:
            return s_green;
        case Yellow:
            return s_yellow;
        case Orange:
            return s_orange;
        default:
            return s_gray;
    }
}

void usePen(cairo_t* context, const Pen& pen) {
    usePaletteColor(context, pen.colorIndex, 1.0);
    cairo_set_line_width(context, pen.width);
}

void strokeLine(cairo_t* context, int x0, int y0, int x1, int y1) {
    cairo_move_to(context, x0, y0);
    cairo_line_to(context, x1, y1);
    cairo_stroke(context);
}

template <class Box>
void drawMapped(cairo_t* context, const StreamMapper& mapper, const Box& box, const Pen& pen, bool filled) {
    overlay_drawing::drawRectangle(context, mapper.mapX(box.X), mapper.mapY(box.Y), mapper.mapX(box.X + box.W),
                                   mapper.mapY(box.Y + box.H), pen, filled);
}

/** Where a text begins: measured and placed in pixels of the picture. */
struct TextPlace {
    const StreamMapper& mapper;
    const detection& box;
    cairo_text_extents_t extents;
    int margin;

    int x(HorizontalMode mode) const {
        const int left = std::min(mapper.mapX(box.X), mapper.mapX(box.X + box.W));
        const int width = mapper.mapWidth(box.W);
        switch (mode) {
            case HorizontalMode::Centred:
                return left + static_cast<int>((width - extents.width) / 2);
            case HorizontalMode::Right:
                return static_cast<int>(width + left - extents.width);
            case HorizontalMode::Left:
                break;
        }
        return left;
    }

    int y(VerticalMode mode) const {
        const int top = mapper.mapY(box.Y);
        const int bottom = mapper.mapY(box.Y + box.H);
        switch (mode) {
            case VerticalMode::Above: {
                constexpr int kHighest = 3;
                const int above = upwards(top);
                return above < kHighest ? downwards(bottom) : above;
            }
            case VerticalMode::InsideBottom:
                return upwards(bottom);
            case VerticalMode::Below: {
                const int below = downwards(bottom);
                return below >= mapper.outputHeight() - 2 ? upwards(top) : below;
            }
            case VerticalMode::InsideTop:
                break;
        }
        return downwards(top);
    }

private:
    int downwards(int edge) const { return static_cast<int>(edge + extents.height + 2 * margin); }
    int upwards(int edge) const { return static_cast<int>(edge - extents.height - 2 * margin); }
};

}  // namespace

namespace overlay_drawing {

void useDashedLineStyle(cairo_t* context) {
    static constexpr std::array<double, 2> kDashes = {10, 3};
    cairo_set_dash(context, kDashes.data(), kDashes.size(), 0);
}

void useDottedLineStyle(cairo_t* context) {
    static constexpr std::array<double, 2> kDots = {2, 1};
    cairo_set_dash(context, kDots.data(), kDots.size(), 0);
}

void useSolidLineStyle(cairo_t* context) {
    cairo_set_dash(context, nullptr, 0, 0);
}

Pattern getCheckeredPattern(int colorIndex) {
    cairo_surface_t* const image = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(tileOfColor(colorIndex).data()), CAIRO_FORMAT_ARGB32, kTile, kTile,
        kTile * static_cast<int>(sizeof(uint32_t)));
    Pattern pattern(cairo_pattern_create_for_surface(image), cairo_pattern_destroy);
    cairo_surface_destroy(image);
    cairo_pattern_set_extend(pattern.get(), CAIRO_EXTEND_REPEAT);
    cairo_pattern_set_filter(pattern.get(), CAIRO_FILTER_NEAREST);
    return pattern;
}

void drawRectangle(cairo_t* context, int x0, int y0, int x1, int y1, const Pen& pen, bool filled) {
    usePen(context, pen);
    cairo_set_operator(context, CAIRO_OPERATOR_SOURCE);
    cairo_move_to(context, x0, y0);
    cairo_line_to(context, x1, y0);
    cairo_line_to(context, x1, y1);
    cairo_line_to(context, x0, y1);
    cairo_close_path(context);
    if (!filled) {
        cairo_stroke(context);
        return;
    }
    cairo_stroke_preserve(context);
    const Pattern pattern = getCheckeredPattern(pen.colorIndex);
    cairo_set_source(context, pattern.get());
    cairo_fill(context);
}

void drawRectangle(cairo_t* context, const StreamMapper& mapper, const detection& box, const Pen& pen, bool filled) {
    drawMapped(context, mapper, box, pen, filled);
}

void drawRectangle(cairo_t* context, const StreamMapper& mapper, const rectangle& box, const Pen& pen, bool filled) {
    drawMapped(context, mapper, box, pen, filled);
}

void drawBox(cairo_t* context, int x, int y, const Pen& pen, int half) {
    usePen(context, pen);
    cairo_rectangle(context, x - half, y - half, 2 * half, 2 * half);
    cairo_stroke(context);
}

void drawCircle(cairo_t* context, int x, int y, const Pen& pen, double radius, bool filled) {
    usePen(context, pen);
    cairo_new_sub_path(context);
    cairo_arc(context, x, y, radius, 0, 2 * M_PI);
    cairo_stroke_preserve(context);
    if (filled) {
        cairo_fill_preserve(context);
    }
    cairo_new_path(context);
}

void drawCross(cairo_t* context, int x, int y, const Pen& pen, int arm) {
    usePen(context, pen);
    strokeLine(context, x, y - arm, x, y + arm);
    strokeLine(context, x - arm, y, x + arm, y);
}

void drawLocatorCross(cairo_t* context, const StreamMapper& mapper, const detection& box, bool locatorAtBottom,
                      const Pen& pen, int arm) {
    auto [x, y] = box.get_locator(locatorAtBottom);
    mapper.mapPoint(x, y);
    drawCross(context, x, y, pen, arm);
}

void drawText(cairo_t* context, TextCache& texts, const std::string& text, int x, int y, int colorIndex) {
    texts.draw(context, text, x, y, colorIndex);
}

void drawDetectionText(cairo_t* context, TextCache& texts, const StreamMapper& mapper, const detection& box,
                       const std::string& text, VerticalMode vertical, HorizontalMode horizontal, int colorIndex) {
    cairo_text_extents_t extents;
    cairo_text_extents(context, text.c_str(), &extents);
    const int margin = std::max(1, std::min(mapper.outputWidth(), mapper.outputHeight()) * 5 / 1000);
    const TextPlace place = {mapper, box, extents, margin};
    drawText(context, texts, text, place.x(horizontal), place.y(vertical), colorIndex);
}

std::string secondsToTimeText(int32_t seconds) {
    constexpr int32_t kMinute = 60;
    if (seconds == 1) {
        return "1 second";
    }
    if (seconds < kMinute) {
        return std::to_string(seconds) + " seconds";
    }
    if (seconds < 2 * kMinute) {
        return "1 minute";
    }
    return std::to_string(seconds / kMinute) + " minutes";
}

}  // namespace overlay_drawing

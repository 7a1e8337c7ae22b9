#pragma once

#include <cairo.h>
#include <cstdint>
#include <memory>
#include <string>

#include "finding/finding.h"
#include "overlay/palette.h"

class StreamMapper;
class TextCache;

/** What a line is drawn with; the width in pixels of the picture. */
struct Pen {
    int colorIndex = Black;
    double width = 1;
};

/** Where a text stands at a detection's box. */
enum class VerticalMode {
    InsideTop = 0,
    Above = 1, /**< below the box when there is no room above */
    InsideBottom = 2,
    Below = 3, /**< above the box when there is no room below */
};

enum class HorizontalMode {
    Left = 0,
    Centred = 1,
    Right = 2,
};

/**
 * The pieces that overlays are drawn from, on a cairo context over a picture in ARGB32. Coordinates are pixels of that
 * picture, or of the analysis stream where a mapper is given.
 */
namespace overlay_drawing {

void useDashedLineStyle(cairo_t* context);
void useDottedLineStyle(cairo_t* context);
void useSolidLineStyle(cairo_t* context);

/** A checkerboard of 4 x 4 pixels in white and red, green, yellow or orange; gray for every other colour. */
using Pattern = std::unique_ptr<cairo_pattern_t, decltype(&cairo_pattern_destroy)>;
Pattern getCheckeredPattern(int colorIndex);

/** The frame through two corners; filled: its inside is hidden behind the colour's checkerboard. */
void drawRectangle(cairo_t* context, int x0, int y0, int x1, int y1, const Pen& pen, bool filled);
void drawRectangle(cairo_t* context, const StreamMapper& mapper, const detection& box, const Pen& pen, bool filled);
void drawRectangle(cairo_t* context, const StreamMapper& mapper, const rectangle& box, const Pen& pen, bool filled);

/** A square around a point. */
void drawBox(cairo_t* context, int x, int y, const Pen& pen, int half);

void drawCircle(cairo_t* context, int x, int y, const Pen& pen, double radius, bool filled);

/** An upright cross; arm: half of its length. */
void drawCross(cairo_t* context, int x, int y, const Pen& pen, int arm);

/** The cross at a detection's locator. */
void drawLocatorCross(cairo_t* context, const StreamMapper& mapper, const detection& box, bool locatorAtBottom,
                      const Pen& pen, int arm);

/** Text with a black rim, its base line beginning at x, y. */
void drawText(cairo_t* context, TextCache& texts, const std::string& text, int x, int y, int colorIndex);

/** Text at a detection's box. */
void drawDetectionText(cairo_t* context, TextCache& texts, const StreamMapper& mapper, const detection& box,
                       const std::string& text, VerticalMode vertical, HorizontalMode horizontal, int colorIndex);

/** "1 second", "37 seconds", "1 minute", "2 minutes". */
std::string secondsToTimeText(int32_t seconds);

}  // namespace overlay_drawing

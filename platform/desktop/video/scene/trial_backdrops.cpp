#include <array>
#include <cmath>

#include "desktop/video/scene/scene_painter.h"

namespace desktop {
namespace {

void fillBox(cairo_t* cairo, Colour colour, double x, double y, double width, double height, double opacity = 1.0) {
    setColour(cairo, colour, opacity);
    cairo_rectangle(cairo, x, y, width, height);
    cairo_fill(cairo);
}

void strokeLine(cairo_t* cairo, double fromX, double fromY, double toX, double toY, double width) {
    cairo_set_line_width(cairo, width);
    cairo_move_to(cairo, fromX, fromY);
    cairo_line_to(cairo, toX, toY);
    cairo_stroke(cairo);
}

void drawYard(cairo_t* cairo, const Scene& scene) {
    const double width = scene.width;
    const double height = scene.height;
    fillBox(cairo, 0xa8a296, 0, 0, width, height);
    constexpr double kSlab = 40;
    for (int row = 0; row * kSlab < height; ++row) {
        for (int column = 0; column * kSlab < width; ++column) {
            // every slab has a shade of its own, the same in every run
            const double shade = 0.05 * ((row * 7 + column * 13) % 5);
            fillBox(cairo, 0x5f594e, column * kSlab + 1, row * kSlab + 1, kSlab - 2, kSlab - 2, shade);
        }
    }
    setColour(cairo, 0x777064);
    for (int column = 0; column * kSlab < width; ++column) {
        strokeLine(cairo, column * kSlab, 0, column * kSlab, height, 1);
    }
    for (int row = 0; row * kSlab < height; ++row) {
        strokeLine(cairo, 0, row * kSlab, width, row * kSlab, 1);
    }
    fillBox(cairo, 0x8b5a44, 0, 0, width, 0.09 * height);
    for (int window = 0; window < 9; ++window) {
        fillBox(cairo, 0xd7dee0, (0.04 + 0.11 * window) * width, 0, 0.05 * width, 0.06 * height);
    }
    for (int leaf = 0; leaf < 500; ++leaf) {  // a hedge: what shakes most in a shaking picture
        const double shade = 0.2 * (leaf % 5);
        fillBox(cairo, leaf % 2 == 0 ? 0x2f5a2a : 0x7d9a55, leaf * 37 % scene.width,
                (0.1 + 0.00028 * (leaf * 53 % 500)) * height, 4 + leaf % 3, 3 + leaf % 4, 1 - shade);
    }
    constexpr std::array<std::array<double, 2>, 4> kPlanters = {
        {{0.1, 0.93}, {0.36, 0.95}, {0.66, 0.93}, {0.92, 0.95}}};
    for (const auto& [x, y] : kPlanters) {
        fillBox(cairo, 0x6d4a33, x * width - 20, y * height, 40, 16);
        fillBox(cairo, 0x3f6b3a, x * width - 18, y * height - 8, 36, 10);
    }
}

void drawRoad(cairo_t* cairo, const Scene& scene) {
    const double width = scene.width;
    const double height = scene.height;
    fillBox(cairo, 0x7c9a63, 0, 0, width, height);
    fillBox(cairo, 0xbfd0dd, 0, 0, width, 0.12 * height);
    setColour(cairo, 0x73757a);
    cairo_move_to(cairo, 0.46 * width, 0.1 * height);
    cairo_line_to(cairo, 0.54 * width, 0.1 * height);
    cairo_line_to(cairo, 1.25 * width, height);
    cairo_line_to(cairo, -0.25 * width, height);
    cairo_close_path(cairo);
    cairo_fill(cairo);
    setColour(cairo, 0xe8e6dc);
    for (int mark = 0; mark < 8; ++mark) {
        const double y = 0.14 + 0.12 * mark;
        const double size = (y - 0.1) / 0.9;
        strokeLine(cairo, 0.5 * width, y * height, 0.5 * width, (y + 0.05) * height, 1 + 4 * size);
    }
    for (int bush = 0; bush < 8; ++bush) {
        const double y = 0.2 + 0.1 * bush;
        fillBox(cairo, 0x4d6b3c, (bush % 2 == 0 ? 0.02 : 0.12) * (1 - y) * width, y * height, 24, 14);
        fillBox(cairo, 0x556f40, width - (bush % 2 == 0 ? 0.02 : 0.12) * (1 - y) * width - 24, y * height, 24, 14);
    }
}

}  // namespace

void drawTrialBackdrop(cairo_t* cairo, const Scene& scene) {
    if (scene.backdrop == Backdrop::Road) {
        drawRoad(cairo, scene);
    } else {
        drawYard(cairo, scene);
    }
}

}  // namespace desktop

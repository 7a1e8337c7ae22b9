#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "desktop/video/scene/scene_painter.h"

namespace desktop {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kFarKerb = 112.0;
constexpr double kRoadTop = 126.0;
constexpr double kRoadBottom = 266.0;
constexpr double kPlaceTop = 280.0;

/** Returns first, first + step, ... below end. */
std::vector<double> steps(double first, double end, double step) {
    std::vector<double> places(static_cast<std::size_t>(std::ceil((end - first) / step)));
    for (std::size_t index = 0; index < places.size(); ++index) {
        places[index] = first + static_cast<double>(index) * step;
    }
    return places;
}

void fillBox(cairo_t* cairo, Colour colour, double x, double y, double width, double height, double opacity = 1.0) {
    setColour(cairo, colour, opacity);
    cairo_rectangle(cairo, x, y, width, height);
    cairo_fill(cairo);
}

void strokeLine(cairo_t* cairo, double fromX, double fromY, double toX, double toY) {
    cairo_move_to(cairo, fromX, fromY);
    cairo_line_to(cairo, toX, toY);
    cairo_stroke(cairo);
}

void fillEllipse(cairo_t* cairo, Colour colour, double x, double y, double radiusX, double radiusY,
                 double opacity = 1.0) {
    cairo_save(cairo);
    cairo_translate(cairo, x, y);
    cairo_scale(cairo, radiusX, radiusY);
    setColour(cairo, colour, opacity);
    cairo_arc(cairo, 0, 0, 1, 0, 2 * kPi);
    cairo_fill(cairo);
    cairo_restore(cairo);
}

struct House {
    double left;
    double width;
    Colour wall;
    Colour awning;
};

void drawHouse(cairo_t* cairo, const House& house) {
    fillBox(cairo, house.wall, house.left, 0, house.width, kFarKerb);
    fillBox(cairo, 0x000000, house.left + house.width - 3, 0, 3, kFarKerb, 0.25);
    const int windows = static_cast<int>(house.width / 46);
    const double spacing = house.width / windows;
    for (int window = 0; window < windows; ++window) {
        const double x = house.left + (window + 0.5) * spacing - 12;
        fillBox(cairo, 0xf2ede2, x - 3, 0, 30, 31);
        fillBox(cairo, 0x5f7f95, x, 0, 24, 28);
        fillBox(cairo, 0xffffff, x + 11, 0, 2, 28, 0.7);
    }
    // Ground floor: shop windows under an awning.
    fillBox(cairo, 0x3f4a50, house.left + 10, 56, house.width - 20, kFarKerb - 58);
    fillBox(cairo, 0xf4d9a0, house.left + 14, 66, house.width - 28, kFarKerb - 74, 0.55);
    constexpr int kStripes = 10;
    const double stripe = (house.width - 12) / kStripes;
    for (int index = 0; index < kStripes; ++index) {
        const double x = house.left + 6 + index * stripe;
        setColour(cairo, index % 2 == 0 ? house.awning : 0xf6f1e6);
        cairo_move_to(cairo, x, 46);
        cairo_line_to(cairo, x + stripe, 46);
        cairo_line_to(cairo, x + stripe, 62);
        cairo_arc(cairo, x + stripe / 2, 62, stripe / 2, 0, kPi);
        cairo_close_path(cairo);
        cairo_fill(cairo);
    }
}

void drawTree(cairo_t* cairo, double x, double ground) {
    fillEllipse(cairo, 0x000000, x + 8, ground, 26, 5, 0.25);
    fillBox(cairo, 0x5f4632, x - 5, ground - 52, 10, 52);
    struct Leaves {
        double x, y, radius;
        Colour colour;
    };
    constexpr std::array<Leaves, 6> kCrown = {{{-22, -62, 26, 0x39693a},
                                               {22, -60, 27, 0x34613a},
                                               {0, -82, 32, 0x41763f},
                                               {-12, -70, 22, 0x4b8447},
                                               {14, -78, 18, 0x57914f},
                                               {-4, -92, 14, 0x62a058}}};
    for (const Leaves& leaves : kCrown) {
        fillEllipse(cairo, leaves.colour, x + leaves.x, ground + leaves.y, leaves.radius, leaves.radius * 0.9);
    }
}

void drawStreet(cairo_t* cairo, const Scene& scene) {
    const double width = scene.width;
    constexpr std::array<House, 6> kHouses = {{{0, 210, 0xc9a27c, 0xa8433a},
                                               {210, 230, 0xb8b0a0, 0x3f6f8f},
                                               {440, 190, 0xc98f6d, 0x4f7f4a},
                                               {630, 240, 0xd8c9a6, 0x8f4a5f},
                                               {870, 200, 0xa8b4b8, 0xb8873a},
                                               {1070, 210, 0xc2846a, 0x45618f}}};
    for (const House& house : kHouses) {
        drawHouse(cairo, house);
    }
    fillBox(cairo, 0xb4aea2, 0, kFarKerb - 6, width, kRoadTop - kFarKerb + 6);
    fillBox(cairo, 0xd8d3c8, 0, kRoadTop - 4, width, 4);
    for (const double x : {105.0, 335.0, 845.0, 1065.0, 1225.0}) {
        drawTree(cairo, x, kFarKerb + 4);
    }

    fillBox(cairo, 0x44484d, 0, kRoadTop, width, kRoadBottom - kRoadTop);
    fillBox(cairo, 0x35383c, 0, kRoadTop, width, 3);
    for (const double x : steps(10, width, 90)) {
        fillBox(cairo, 0xd9dadb, x, 206, 48, 4, 0.8);
    }
    // The stretch of road whose traffic is counted.
    const double left = scene.crossing.left * width;
    const double right = scene.crossing.right * width;
    fillBox(cairo, 0x554f4a, left, kRoadTop + 3, right - left, kRoadBottom - kRoadTop - 3);
    for (const double x : {left, right}) {
        for (const double y : steps(kRoadTop + 6, kRoadBottom - 8, 18)) {
            fillBox(cairo, 0xe4d9a0, x - 2, y, 4, 11, 0.8);
        }
    }
    fillBox(cairo, 0xd2ccc0, 0, kRoadBottom, width, 7);
    fillBox(cairo, 0x9a948a, 0, kRoadBottom + 7, width, kPlaceTop - kRoadBottom - 7);
}

void drawPaving(cairo_t* cairo, const Scene& scene) {
    const double width = scene.width;
    const double height = scene.height;
    cairo_pattern_t* light = cairo_pattern_create_linear(0, kPlaceTop, 0, height);
    cairo_pattern_add_color_stop_rgb(light, 0, 0.69, 0.67, 0.63);
    cairo_pattern_add_color_stop_rgb(light, 1, 0.80, 0.78, 0.73);
    cairo_set_source(cairo, light);
    cairo_rectangle(cairo, 0, kPlaceTop, width, height - kPlaceTop);
    cairo_fill(cairo);
    cairo_pattern_destroy(light);

    // Slabs: rows that widen and joints that spread towards the viewer.
    constexpr double kVanishing = -520.0;
    setColour(cairo, 0x8f897e, 0.55);
    cairo_set_line_width(cairo, 1.5);
    double y = kPlaceTop;
    double slab = 20;
    while (y < height) {
        strokeLine(cairo, 0, y, width, y);
        y += slab;
        slab *= 1.13;
    }
    for (int joint = -14; joint <= 14; ++joint) {
        const double atTop = width / 2 + joint * 62.0;
        const double slope = (atTop - width / 2) / (kPlaceTop - kVanishing);
        strokeLine(cairo, atTop, kPlaceTop, width / 2 + slope * (height - kVanishing), height);
    }
}

void drawSeats(cairo_t* cairo, const Scene& scene) {
    const double left = scene.seats.left * scene.width;
    const double right = scene.seats.right * scene.width;
    const double top = scene.seats.top * scene.height;
    const double bottom = scene.seats.bottom * scene.height;
    fillBox(cairo, 0xc7ad8a, left, top, right - left, bottom - top);
    setColour(cairo, 0xa58a66, 0.7);
    cairo_set_line_width(cairo, 1.5);
    for (const double y : steps(top + 18, bottom, 18)) {
        strokeLine(cairo, left, y, right, y);
    }
    setColour(cairo, 0x8d7350);
    cairo_set_line_width(cairo, 4);
    cairo_rectangle(cairo, left, top, right - left, bottom - top);
    cairo_stroke(cairo);

    // Two benches and a planter between them, behind those who rest there.
    for (const double x : {left + 26, right - 146}) {
        fillEllipse(cairo, 0x000000, x + 60, top + 78, 66, 7, 0.22);
        fillBox(cairo, 0x4a4d50, x + 10, top + 52, 6, 26);
        fillBox(cairo, 0x4a4d50, x + 104, top + 52, 6, 26);
        for (int slat = 0; slat < 3; ++slat) {
            fillBox(cairo, 0xa97443, x, top + 24 + slat * 9, 120, 7);
        }
        fillBox(cairo, 0xb98450, x - 3, top + 52, 126, 10);
    }
    const double middle = (left + right) / 2;
    fillEllipse(cairo, 0x000000, middle, top + 74, 30, 7, 0.25);
    fillBox(cairo, 0x8b5a44, middle - 24, top + 44, 48, 30);
    for (const double x : {-16.0, 0.0, 16.0}) {
        fillEllipse(cairo, 0x4b8447, middle + x, top + 36, 15, 17);
    }
    fillEllipse(cairo, 0xd86f7a, middle - 10, top + 30, 5, 5);
    fillEllipse(cairo, 0xe8c24a, middle + 9, top + 34, 5, 5);
}

void drawDoor(cairo_t* cairo, const Scene& scene) {
    const double width = scene.width;
    const double left = scene.door.left * width;
    const double top = scene.door.top * scene.height;
    fillBox(cairo, 0x8f9aa3, left, top, width - left, scene.height - top);
    setColour(cairo, 0x77828b, 0.8);
    cairo_set_line_width(cairo, 1.5);
    for (const double y : steps(top + 30, scene.height, 34)) {
        strokeLine(cairo, left, y, width, y);
    }
    fillBox(cairo, 0xe6c23a, left, top, 10, scene.height - top);
    for (const double y : steps(top + 6, scene.height, 14)) {
        fillEllipse(cairo, 0xb8962a, left + 5, y, 2.5, 2.5);
    }
    setColour(cairo, 0xe8edf0, 0.75);
    cairo_set_line_width(cairo, 9);
    for (const double y : {430.0, 590.0}) {
        for (const double x : {left + 60, left + 90}) {
            cairo_move_to(cairo, x, y - 26);
            cairo_line_to(cairo, x + 26, y);
            cairo_line_to(cairo, x, y + 26);
            cairo_stroke(cairo);
        }
    }

    // The building's glass front at the picture's edge, its leaf open, under a canopy.
    const double front = width - 84;
    fillBox(cairo, 0x3e464d, front - 6, top - 4, 8, 168);
    fillBox(cairo, 0xa9c6d6, front + 2, top + 2, 82, 160, 0.85);
    fillBox(cairo, 0x3e464d, front + 40, top, 4, 164);
    fillBox(cairo, 0x3e464d, front, top + 158, 84, 5);
    setColour(cairo, 0xffffff, 0.5);
    cairo_set_line_width(cairo, 5);
    strokeLine(cairo, front + 10, top + 60, front + 32, top + 24);
    strokeLine(cairo, front + 12, top + 90, front + 36, top + 50);
    setColour(cairo, 0x7a2f2a);
    cairo_move_to(cairo, front - 30, top + 4);
    cairo_line_to(cairo, front - 4, kPlaceTop + 2);
    cairo_line_to(cairo, width, kPlaceTop + 2);
    cairo_line_to(cairo, width, top + 4);
    cairo_close_path(cairo);
    cairo_fill(cairo);
    fillBox(cairo, 0xf2e6c4, front - 30, top + 2, width - front + 30, 5);
}

void drawGreenery(cairo_t* cairo) {
    for (const double x : {40.0, 180.0, 770.0, 910.0}) {
        fillBox(cairo, 0x7d5a48, x, kPlaceTop + 2, 96, 14);
        for (int bush = 0; bush < 6; ++bush) {
            fillEllipse(cairo, bush % 2 == 0 ? 0x3f7340 : 0x4d8549, x + 8 + bush * 16, kPlaceTop, 12, 10);
        }
    }
}

}  // namespace

void drawPlazaBackdrop(cairo_t* cairo, const Scene& scene) {
    drawStreet(cairo, scene);
    drawPaving(cairo, scene);
    drawSeats(cairo, scene);
    drawDoor(cairo, scene);
    drawGreenery(cairo);
}

}  // namespace desktop

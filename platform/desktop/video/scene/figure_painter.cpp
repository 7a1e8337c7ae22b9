#include <cmath>
#include <numbers>

#include "desktop/video/scene/scene_painter.h"

namespace desktop {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr Colour kSkin = 0xa8704f;
constexpr Colour kTyre = 0x1c1d20;
constexpr Colour kHub = 0xb9bec2;
constexpr Colour kGlass = 0xbfd6e2;  // bright, so that a vehicle stays one solid shape against the asphalt

void line(cairo_t* cairo, double fromX, double fromY, double toX, double toY, double width) {
    cairo_set_line_width(cairo, width);
    cairo_move_to(cairo, fromX, fromY);
    cairo_line_to(cairo, toX, toY);
    cairo_stroke(cairo);
}

void disc(cairo_t* cairo, double x, double y, double radius) {
    cairo_arc(cairo, x, y, radius, 0, 2 * kPi);
    cairo_fill(cairo);
}

void roundedBox(cairo_t* cairo, double x, double y, double width, double height, double radius) {
    cairo_new_sub_path(cairo);
    cairo_arc(cairo, x + width - radius, y + radius, radius, -kPi / 2, 0);
    cairo_arc(cairo, x + width - radius, y + height - radius, radius, 0, kPi / 2);
    cairo_arc(cairo, x + radius, y + height - radius, radius, kPi / 2, kPi);
    cairo_arc(cairo, x + radius, y + radius, radius, kPi, 3 * kPi / 2);
    cairo_close_path(cairo);
    cairo_fill(cairo);
}

void shadow(cairo_t* cairo, double width, double bottom, double thickness) {
    cairo_save(cairo);
    cairo_translate(cairo, 0, bottom - thickness / 2);
    cairo_scale(cairo, width / 2, thickness / 2);
    setColour(cairo, 0x000000, 0.35);
    disc(cairo, 0, 0, 1);
    cairo_restore(cairo);
}

// All figures are drawn around (0, 0), their box's centre, looking to the right.

void drawPerson(cairo_t* cairo, const SceneFigure& figure, const FigurePose& pose) {
    const double w = figure.width;
    const double h = figure.height;
    const double top = -h / 2;
    const double stride = 0.75 * h;  // pixels that two steps cover
    const double swing = pose.moves ? std::sin(2 * kPi * pose.travelled / stride) : 0.25;
    const double hip = top + 0.54 * h;
    const double sole = h / 2 - 0.03 * h;
    const double shoulder = top + 0.22 * h;
    cairo_set_line_cap(cairo, CAIRO_LINE_CAP_ROUND);

    shadow(cairo, w, h / 2, 0.05 * h);
    for (const double side : {-1.0, 1.0}) {
        setColour(cairo, figure.trim);
        const double foot = side * swing * 0.26 * w;
        line(cairo, side * 0.06 * w, hip, foot, sole - 0.04 * h, 0.21 * w);
        setColour(cairo, 0x2a2320);
        line(cairo, foot - 0.03 * w, sole - 0.012 * h, foot + 0.1 * w, sole - 0.012 * h, 0.045 * h);
    }
    for (const double side : {-1.0, 1.0}) {
        const double hand = side * (0.41 + 0.02 * swing) * w;
        setColour(cairo, kSkin);
        disc(cairo, hand, top + 0.53 * h, 0.07 * w);
        setColour(cairo, figure.main);
        line(cairo, side * 0.28 * w, shoulder, hand, top + 0.49 * h, 0.17 * w);
    }
    cairo_move_to(cairo, -0.32 * w, shoulder - 0.035 * h);
    cairo_curve_to(cairo, -0.2 * w, top + 0.14 * h, 0.2 * w, top + 0.14 * h, 0.32 * w, shoulder - 0.035 * h);
    cairo_line_to(cairo, 0.34 * w, top + 0.62 * h);
    cairo_line_to(cairo, -0.34 * w, top + 0.62 * h);
    cairo_close_path(cairo);
    cairo_fill(cairo);
    setColour(cairo, 0x000000, 0.25);
    line(cairo, 0.0, top + 0.2 * h, 0.0, top + 0.6 * h, 1.5);

    setColour(cairo, kSkin);
    disc(cairo, 0.0, top + 0.092 * h, 0.078 * h);
    setColour(cairo, 0x33261d);
    cairo_arc(cairo, -0.01 * h, top + 0.08 * h, 0.08 * h, kPi * 0.95, kPi * 1.9);
    cairo_close_path(cairo);
    cairo_fill(cairo);
}

/** Seen from above, walking upwards: feet before and behind, shoulders across, the head in the middle. */
void drawPersonFromAbove(cairo_t* cairo, const SceneFigure& figure, const FigurePose& pose) {
    const double w = figure.width;
    const double h = figure.height;
    const double swing = pose.moves ? std::sin(2 * kPi * pose.travelled / (1.1 * h)) : 0.3;
    cairo_set_line_cap(cairo, CAIRO_LINE_CAP_ROUND);
    shadow(cairo, 0.8 * w, 0.42 * h, 0.7 * h);
    for (const double side : {-1.0, 1.0}) {
        setColour(cairo, figure.trim);
        line(cairo, side * 0.14 * w, 0, side * 0.14 * w, side * swing * 0.36 * h, 0.2 * w);
        setColour(cairo, figure.main);
        line(cairo, side * 0.36 * w, 0, side * 0.36 * w, -side * swing * 0.28 * h, 0.15 * w);
    }
    setColour(cairo, figure.main);
    cairo_save(cairo);
    cairo_scale(cairo, 0.47 * w, 0.25 * h);
    disc(cairo, 0, 0, 1);
    cairo_restore(cairo);
    setColour(cairo, 0x33261d);
    disc(cairo, 0, -0.04 * h, 0.16 * w);
}

void drawWheel(cairo_t* cairo, double x, double y, double radius, double travelled) {
    setColour(cairo, kTyre);
    disc(cairo, x, y, radius);
    setColour(cairo, kHub);
    disc(cairo, x, y, radius * 0.55);
    setColour(cairo, 0x6d7276);
    for (int spoke = 0; spoke < 5; ++spoke) {
        const double angle = travelled / radius + spoke * 2 * kPi / 5;
        line(cairo, x, y, x + 0.5 * radius * std::cos(angle), y + 0.5 * radius * std::sin(angle), 2);
    }
}

void drawCar(cairo_t* cairo, const SceneFigure& figure, const FigurePose& pose) {
    const double w = figure.width;
    const double h = figure.height;
    const double left = -w / 2;
    const double top = -h / 2;
    const double wheel = 0.2 * h;
    shadow(cairo, 0.96 * w, h / 2, 0.1 * h);

    setColour(cairo, figure.main);
    cairo_move_to(cairo, left + 0.14 * w, top + 0.46 * h);
    cairo_line_to(cairo, left + 0.25 * w, top + 0.06 * h);
    cairo_curve_to(cairo, left + 0.27 * w, top, left + 0.28 * w, top, left + 0.32 * w, top);
    cairo_line_to(cairo, left + 0.58 * w, top);
    cairo_curve_to(cairo, left + 0.64 * w, top, left + 0.66 * w, top + 0.05 * h, left + 0.78 * w, top + 0.42 * h);
    cairo_close_path(cairo);
    cairo_fill(cairo);
    roundedBox(cairo, left, top + 0.38 * h, w, 0.5 * h, 0.14 * h);

    setColour(cairo, kGlass);
    cairo_move_to(cairo, left + 0.2 * w, top + 0.4 * h);
    cairo_line_to(cairo, left + 0.29 * w, top + 0.08 * h);
    cairo_line_to(cairo, left + 0.44 * w, top + 0.08 * h);
    cairo_line_to(cairo, left + 0.44 * w, top + 0.4 * h);
    cairo_close_path(cairo);
    cairo_move_to(cairo, left + 0.47 * w, top + 0.4 * h);
    cairo_line_to(cairo, left + 0.47 * w, top + 0.08 * h);
    cairo_line_to(cairo, left + 0.58 * w, top + 0.08 * h);
    cairo_curve_to(cairo, left + 0.62 * w, top + 0.09 * h, left + 0.65 * w, top + 0.18 * h, left + 0.72 * w,
                   top + 0.4 * h);
    cairo_close_path(cairo);
    cairo_fill(cairo);

    setColour(cairo, 0x000000, 0.3);
    line(cairo, left + 0.455 * w, top + 0.42 * h, left + 0.455 * w, top + 0.8 * h, 1.5);
    line(cairo, left + 0.02 * w, top + 0.78 * h, left + 0.98 * w, top + 0.78 * h, 3);
    setColour(cairo, figure.trim);
    line(cairo, left + 0.36 * w, top + 0.5 * h, left + 0.41 * w, top + 0.5 * h, 3);
    line(cairo, left + 0.6 * w, top + 0.5 * h, left + 0.65 * w, top + 0.5 * h, 3);
    setColour(cairo, 0xfff0b8);
    roundedBox(cairo, left + 0.95 * w, top + 0.47 * h, 0.045 * w, 0.12 * h, 3);
    setColour(cairo, 0x8d1414);
    roundedBox(cairo, left + 0.005 * w, top + 0.47 * h, 0.035 * w, 0.13 * h, 3);
    drawWheel(cairo, left + 0.21 * w, h / 2 - wheel, wheel, pose.travelled);
    drawWheel(cairo, left + 0.79 * w, h / 2 - wheel, wheel, pose.travelled);
}

void drawCarFromAhead(cairo_t* cairo, const SceneFigure& figure) {
    const double w = figure.width;
    const double h = figure.height;
    const double top = -h / 2;
    shadow(cairo, w, h / 2, 0.12 * h);
    setColour(cairo, kTyre);
    roundedBox(cairo, -0.45 * w, 0.28 * h, 0.16 * w, 0.2 * h, 0.02 * w);
    roundedBox(cairo, 0.29 * w, 0.28 * h, 0.16 * w, 0.2 * h, 0.02 * w);
    setColour(cairo, figure.main);
    roundedBox(cairo, -0.38 * w, top, 0.76 * w, 0.5 * h, 0.08 * w);
    roundedBox(cairo, -0.5 * w, top + 0.4 * h, w, 0.46 * h, 0.08 * w);
    setColour(cairo, 0x4c5f6b);
    roundedBox(cairo, -0.33 * w, top + 0.08 * h, 0.66 * w, 0.3 * h, 0.05 * w);
    setColour(cairo, 0x2a2d30);
    roundedBox(cairo, -0.24 * w, top + 0.6 * h, 0.48 * w, 0.14 * h, 0.02 * w);
    setColour(cairo, 0xfff0b8);
    disc(cairo, -0.38 * w, top + 0.6 * h, 0.07 * w);
    disc(cairo, 0.38 * w, top + 0.6 * h, 0.07 * w);
}

void drawBus(cairo_t* cairo, const SceneFigure& figure, const FigurePose& pose) {
    const double w = figure.width;
    const double h = figure.height;
    const double left = -w / 2;
    const double top = -h / 2;
    const double wheel = 0.135 * h;
    shadow(cairo, 0.98 * w, h / 2, 0.07 * h);
    setColour(cairo, figure.main);
    roundedBox(cairo, left, top, w, 0.92 * h, 0.08 * h);
    setColour(cairo, figure.trim);
    cairo_rectangle(cairo, left, top + 0.55 * h, w, 0.1 * h);
    cairo_fill(cairo);
    setColour(cairo, kGlass);
    constexpr int kWindows = 7;
    for (int window = 0; window < kWindows; ++window) {
        roundedBox(cairo, left + (0.03 + 0.122 * window) * w, top + 0.13 * h, 0.108 * w, 0.34 * h, 5);
    }
    roundedBox(cairo, left + 0.893 * w, top + 0.13 * h, 0.09 * w, 0.4 * h, 6);
    setColour(cairo, 0x000000, 0.35);
    line(cairo, left + 0.74 * w, top + 0.12 * h, left + 0.74 * w, top + 0.9 * h, 2);
    line(cairo, left + 0.88 * w, top + 0.12 * h, left + 0.88 * w, top + 0.9 * h, 2);
    setColour(cairo, 0xfff0b8);
    roundedBox(cairo, left + 0.965 * w, top + 0.72 * h, 0.03 * w, 0.08 * h, 4);
    setColour(cairo, 0x8d1414);
    roundedBox(cairo, left + 0.004 * w, top + 0.7 * h, 0.014 * w, 0.12 * h, 3);
    drawWheel(cairo, left + 0.18 * w, h / 2 - wheel, wheel, pose.travelled);
    drawWheel(cairo, left + 0.81 * w, h / 2 - wheel, wheel, pose.travelled);
}

void drawBicycle(cairo_t* cairo, const SceneFigure& figure, const FigurePose& pose) {
    const double w = figure.width;
    const double h = figure.height;
    const double wheel = 0.22 * w;
    const double axle = h / 2 - wheel - 2;
    const double rear = -w / 2 + wheel + 2;
    const double front = w / 2 - wheel - 2;
    const double turn = pose.travelled / wheel;
    cairo_set_line_cap(cairo, CAIRO_LINE_CAP_ROUND);
    for (const double hub : {rear, front}) {
        setColour(cairo, kTyre);
        cairo_set_line_width(cairo, 5);
        cairo_arc(cairo, hub, axle, wheel - 1, 0, 2 * kPi);
        cairo_stroke(cairo);
        setColour(cairo, kHub, 0.8);
        for (int spoke = 0; spoke < 4; ++spoke) {
            const double angle = turn + spoke * kPi / 4;
            line(cairo, hub - wheel * std::cos(angle), axle - wheel * std::sin(angle), hub + wheel * std::cos(angle),
                 axle + wheel * std::sin(angle), 1);
        }
    }
    const double crankX = -0.02 * w;
    const double crankY = axle + 0.02 * h;
    const double saddleX = -0.14 * w;
    const double saddleY = -0.02 * h;
    const double barX = 0.2 * w;
    const double barY = -0.07 * h;
    setColour(cairo, 0xe9e4d6);
    line(cairo, rear, axle, saddleX, saddleY, 5);
    line(cairo, rear, axle, crankX, crankY, 5);
    line(cairo, crankX, crankY, saddleX, saddleY, 5);
    line(cairo, crankX, crankY, barX, barY + 0.06 * h, 5);
    line(cairo, saddleX, saddleY + 0.03 * h, barX, barY + 0.06 * h, 5);
    line(cairo, front, axle, barX, barY, 5);
    setColour(cairo, kTyre);
    line(cairo, saddleX - 0.05 * w, saddleY, saddleX + 0.06 * w, saddleY, 6);
    line(cairo, barX, barY, barX + 0.05 * w, barY - 0.01 * h, 5);

    for (const double leg : {0.0, kPi}) {
        setColour(cairo, figure.trim);
        const double angle = turn * 0.5 + leg;
        const double pedalX = crankX + 0.07 * w * std::cos(angle);
        const double pedalY = crankY + 0.07 * w * std::sin(angle);
        const double kneeX = 0.08 * w + 0.03 * w * std::cos(angle);
        const double kneeY = 0.1 * h + 0.03 * h * std::sin(angle);
        line(cairo, saddleX, saddleY - 0.02 * h, kneeX, kneeY, 0.09 * w);
        line(cairo, kneeX, kneeY, pedalX, pedalY, 0.075 * w);
    }
    const double neckX = 0.06 * w;
    const double neckY = -0.3 * h;
    setColour(cairo, figure.main);
    line(cairo, saddleX, saddleY - 0.05 * h, neckX, neckY, 0.19 * w);
    line(cairo, neckX, neckY + 0.03 * h, barX, barY - 0.02 * h, 0.075 * w);
    setColour(cairo, kSkin);
    disc(cairo, neckX + 0.03 * w, -0.41 * h, 0.075 * h);
    setColour(cairo, 0x23324a);
    cairo_arc(cairo, neckX + 0.025 * w, -0.415 * h, 0.085 * h, kPi, 2 * kPi);
    cairo_close_path(cairo);
    cairo_fill(cairo);
}

}  // namespace

void drawFigure(cairo_t* cairo, const SceneFigure& figure, const FigurePose& pose) {
    cairo_save(cairo);
    cairo_translate(cairo, pose.x, pose.y);
    cairo_scale(cairo, pose.scale, pose.scale);
    if (figure.view == View::Above) {
        drawPersonFromAbove(cairo, figure, pose);
        cairo_restore(cairo);
        return;
    }
    if (figure.view == View::Ahead) {
        drawCarFromAhead(cairo, figure);
        cairo_restore(cairo);
        return;
    }
    if (pose.facesLeft) {
        cairo_scale(cairo, -1, 1);
    }
    switch (figure.kind) {
        case FigureKind::Person:
            drawPerson(cairo, figure, pose);
            break;
        case FigureKind::Car:
            drawCar(cairo, figure, pose);
            break;
        case FigureKind::Bus:
            drawBus(cairo, figure, pose);
            break;
        case FigureKind::Bicycle:
            drawBicycle(cairo, figure, pose);
            break;
    }
    cairo_restore(cairo);
}

}  // namespace desktop

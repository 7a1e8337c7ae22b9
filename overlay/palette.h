#pragma once

#include <cairo.h>

/** Colours by number. */
enum PaletteColors : int {
    Black = 0,
    Red = 1,
    Green = 2,
    Blue = 3,
    Yellow = 4,
    White = 5,
    Orange = 6,
};

/** Components 0..1. */
struct PaletteColor {
    double red;
    double green;
    double blue;
};

/** Null for a number that is no colour. */
const PaletteColor* paletteColor(int colorIndex);

/** Sets the colour of what is drawn next; alpha 0..1. An unknown colour sets nothing, with an error line. */
void usePaletteColor(cairo_t* context, int colorIndex, double alpha);

#include "overlay/palette.h"

#include <array>

#include "log/Logger.h"

namespace {

constexpr std::array<PaletteColor, 7> kPalette = {{
    {0, 0, 0},    // Black
    {1, 0, 0},    // Red
    {0, 1, 0},    // Green
    {0, 0, 1},    // Blue
    {1, 1, 0},    // Yellow
    {1, 1, 1},    // White
    {1, 0.6, 0},  // Orange
}};

}  // namespace

const PaletteColor* paletteColor(int colorIndex) {
    const auto index = static_cast<size_t>(colorIndex);
    return index < kPalette.size() ? &kPalette[index] : nullptr;
}

void usePaletteColor(cairo_t* context, int colorIndex, double alpha) {
    const PaletteColor* const color = paletteColor(colorIndex);
    if (color == nullptr) {
        applicationLog().error("usePaletteColor: Expected a colour from 0 to 6, got " + std::to_string(colorIndex));
        return;
    }
    cairo_set_source_rgba(context, color->red, color->green, color->blue, alpha);
}

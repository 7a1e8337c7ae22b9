#pragma once

#include <cairo.h>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

/** How much of each pixel a text's inside and its rim cover, 0..255, row by row; left, top: from the text's origin. */
struct TextMask {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
    std::vector<uint8_t> fill;
    std::vector<uint8_t> rim;
};

/**
 * Draws texts with a black rim. Turning the outlines of letters into pixels is what costs when overlays are drawn, and
 * the same few texts come with every frame; so that is done once for each, and the pixels are those that cairo would
 * draw each time, but for one in thousands whose rim cairo itself rounds to 1/255 more or less from place to place.
 *
 * One font face only, of any size. Not thread-safe.
 */
class TextCache {
public:
    /** The base line begins at x, y; with the context's font and antialiasing, and the operator "source". */
    void draw(cairo_t* context, const std::string& text, int x, int y, int colorIndex);

    /** How many it keeps. */
    size_t size() const { return m_masks.size(); }

    /** The same without keeping anything. */
    static void drawPlainly(cairo_t* context, const std::string& text, int x, int y, int colorIndex);

private:
    const TextMask& maskOf(cairo_t* context, const std::string& text);

    std::map<std::pair<double, std::string>, TextMask> m_masks; /**< by font size and text */
};

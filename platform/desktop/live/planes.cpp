#include "desktop/live/planes.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace desktop {
namespace {

constexpr int kTile = 32;  // pixels, even

using Table = std::array<uint8_t, 256>;

/** From video range to the full one: what lies between black and white, or on both sides of neutral. */
constexpr Table fullRange(int lowest, int steps, int neutral) {
    Table table = {};
    for (int value = 0; value < 256; ++value) {
        const int distance = value - lowest;
        const int rounding = distance < 0 ? -steps / 2 : steps / 2;
        table[static_cast<std::size_t>(value)] =
            static_cast<uint8_t>(std::clamp((distance * 255 + rounding) / steps + neutral, 0, 255));
    }
    return table;
}

constexpr Table kFullLuma = fullRange(16, 219, 0);
constexpr Table kFullChroma = fullRange(128, 224, 128);

std::size_t area(int width, int height) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

/** One plane with every square replaced by its mean. */
void pixelatePlane(std::vector<uint8_t>& plane, int width, int height, int square) {
    for (int top = 0; top < height; top += square) {
        const int bottom = std::min(top + square, height);
        for (int left = 0; left < width; left += square) {
            const int right = std::min(left + square, width);
            uint8_t* const corner = plane.data() + area(width, top) + left;
            uint32_t sum = 0;
            for (int row = 0; row < bottom - top; ++row) {
                for (int column = 0; column < right - left; ++column) {
                    sum += corner[area(width, row) + static_cast<std::size_t>(column)];
                }
            }
            const auto pixels = static_cast<uint32_t>((bottom - top) * (right - left));
            for (int row = 0; row < bottom - top; ++row) {
                std::fill_n(corner + area(width, row), right - left, static_cast<uint8_t>((sum + pixels / 2) / pixels));
            }
        }
    }
}

/** A rectangle of a plane, not empty, replaced by its mean. */
void flatten(std::vector<uint8_t>& plane, int width, int left, int top, int right, int bottom) {
    uint64_t sum = 0;
    for (int row = top; row < bottom; ++row) {
        const auto begin = plane.begin() + static_cast<std::ptrdiff_t>(area(width, row));
        sum = std::accumulate(begin + left, begin + right, sum);
    }
    const uint64_t pixels = area(right - left, bottom - top);
    for (int row = top; row < bottom; ++row) {
        std::fill_n(plane.begin() + static_cast<std::ptrdiff_t>(area(width, row)) + left, right - left,
                    static_cast<uint8_t>((sum + pixels / 2) / pixels));
    }
}

/** The drawn picture over the planes. */
struct Layer {
    uint8_t* argb;
    int stride;
    int width;
    int height;
    int left;
    int top;

    uint32_t* row(int y) const { return reinterpret_cast<uint32_t*>(argb + static_cast<std::ptrdiff_t>(y) * stride); }
};

struct Tile {
    int left;
    int top;
    int right;
    int bottom;
};

bool isDrawnOn(const Layer& layer, const Tile& tile) {
    uint32_t any = 0;
    for (int y = tile.top; y < tile.bottom; ++y) {
        const uint32_t* const row = layer.row(y);
        for (int x = tile.left; x < tile.right; ++x) {
            any |= row[x];
        }
    }
    return any != 0;
}

void clear(const Layer& layer, const Tile& tile) {
    for (int y = tile.top; y < tile.bottom; ++y) {
        std::fill(layer.row(y) + tile.left, layer.row(y) + tile.right, 0U);
    }
}

/** Components of up to four pixels, added up; alpha and colours from 0 to 255 each. */
struct Sum {
    int alpha = 0;
    int red = 0;
    int green = 0;
    int blue = 0;

    void add(uint32_t pixel) {
        alpha += static_cast<int>(pixel >> 24U);
        red += static_cast<int>(pixel >> 16U & 0xFFU);
        green += static_cast<int>(pixel >> 8U & 0xFFU);
        blue += static_cast<int>(pixel & 0xFFU);
    }
};

uint8_t rounded(float value) {
    return static_cast<uint8_t>(std::clamp(value + 0.5F, 0.0F, 255.0F));
}

uint8_t lumaOver(uint8_t below, uint32_t pixel) {
    Sum sum;
    sum.add(pixel);
    const float luma = 0.299F * static_cast<float>(sum.red) + 0.587F * static_cast<float>(sum.green) +
                       0.114F * static_cast<float>(sum.blue);
    return rounded(luma + static_cast<float>(below * (255 - sum.alpha)) / 255.0F);
}

/** Chroma of four pixels; colour is what they carry of it, from -4 * 127.5 to 4 * 127.5. */
uint8_t chromaOver(uint8_t below, const Sum& sum, float colour) {
    const float through = static_cast<float>(4 * 255 - sum.alpha) / (4.0F * 255.0F);
    return rounded(128.0F + colour / 4.0F + static_cast<float>(below - 128) * through);
}

/** Blends the four pixels that share their chroma; (x, y) of the first in the planes, even and inside. */
void blendFour(const Layer& layer, int x, int y, Planes& planes) {
    Sum sum;
    for (int row = y; row < y + 2; ++row) {
        for (int column = x; column < x + 2; ++column) {
            if (column - layer.left < layer.width && row - layer.top < layer.height) {
                const uint32_t pixel = layer.row(row - layer.top)[column - layer.left];
                uint8_t& luma = planes.y[area(planes.width, row) + static_cast<std::size_t>(column)];
                luma = pixel == 0 ? luma : lumaOver(luma, pixel);
                sum.add(pixel);
            }
        }
    }
    if (sum.alpha == 0) {
        return;
    }
    const auto red = static_cast<float>(sum.red);
    const auto green = static_cast<float>(sum.green);
    const auto blue = static_cast<float>(sum.blue);
    const std::size_t at = area(planes.width / 2, y / 2) + static_cast<std::size_t>(x / 2);
    planes.u[at] = chromaOver(planes.u[at], sum, -0.168736F * red - 0.331264F * green + 0.5F * blue);
    planes.v[at] = chromaOver(planes.v[at], sum, 0.5F * red - 0.418688F * green - 0.081312F * blue);
}

}  // namespace

Planes::Planes(int widthOfPicture, int heightOfPicture)
    : width(widthOfPicture),
      height(heightOfPicture),
      y(area(width, height)),
      u(area(width / 2, height / 2)),
      v(area(width / 2, height / 2)) {}

void fillFromNv12(Planes& planes, const uint8_t* nv12, bool mirrored) {
    std::transform(nv12, nv12 + planes.y.size(), planes.y.begin(), [](uint8_t value) { return kFullLuma[value]; });
    const uint8_t* chroma = nv12 + planes.y.size();
    for (std::size_t pair = 0; pair < planes.u.size(); ++pair, chroma += 2) {
        planes.u[pair] = kFullChroma[chroma[0]];
        planes.v[pair] = kFullChroma[chroma[1]];
    }
    if (mirrored) {
        const auto mirror = [](std::vector<uint8_t>& plane, int width) {
            for (auto row = plane.begin(); row != plane.end(); row += width) {
                std::reverse(row, row + width);
            }
        };
        mirror(planes.y, planes.width);
        mirror(planes.u, planes.width / 2);
        mirror(planes.v, planes.width / 2);
    }
}

void pixelate(Planes& planes, int square) {
    pixelatePlane(planes.y, planes.width, planes.height, square);
    pixelatePlane(planes.u, planes.width / 2, planes.height / 2, square / 2);
    pixelatePlane(planes.v, planes.width / 2, planes.height / 2, square / 2);
}

void cover(Planes& planes, int left, int top, int right, int bottom) {
    // Whole squares of four pixels, which share their chroma.
    left = std::clamp(left, 0, planes.width) / 2 * 2;
    top = std::clamp(top, 0, planes.height) / 2 * 2;
    right = (std::clamp(right, 0, planes.width) + 1) / 2 * 2;
    bottom = (std::clamp(bottom, 0, planes.height) + 1) / 2 * 2;
    if (left >= right || top >= bottom) {
        return;
    }
    flatten(planes.y, planes.width, left, top, right, bottom);
    flatten(planes.u, planes.width / 2, left / 2, top / 2, right / 2, bottom / 2);
    flatten(planes.v, planes.width / 2, left / 2, top / 2, right / 2, bottom / 2);
}

void blendAndClear(uint8_t* argb, int stride, int width, int height, int left, int top, Planes& planes) {
    const Layer layer = {argb, stride, width, height, left, top};
    for (int y = 0; y < height; y += kTile) {
        for (int x = 0; x < width; x += kTile) {
            const Tile tile = {x, y, std::min(x + kTile, width), std::min(y + kTile, height)};
            if (!isDrawnOn(layer, tile)) {
                continue;
            }
            const int lastRow = std::min(tile.bottom + top, planes.height);
            const int lastColumn = std::min(tile.right + left, planes.width);
            for (int row = std::max(tile.top + top, 0); row < lastRow; row += 2) {
                for (int column = std::max(tile.left + left, 0); column < lastColumn; column += 2) {
                    blendFour(layer, column, row, planes);
                }
            }
            clear(layer, tile);
        }
    }
}

}  // namespace desktop

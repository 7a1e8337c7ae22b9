#include <algorithm>
#include <cstddef>
#include <libyuv.h>
#include <string>

#include "detection/imgconverter.h"
#include "log/Logger.h"

namespace {

struct Rgb {
    double red;
    double green;
    double blue;
};

/** One pixel's colour, nominally 0..1 a channel, by the usual analogue YUV weights. */
Rgb colourAt(const uint8_t* nv12, unsigned width, unsigned height, unsigned column, unsigned row) {
    const uint8_t* const chroma = nv12 + size_t{width} * height + size_t{row / 2} * width + size_t{column / 2} * 2;
    const double y = nv12[size_t{row} * width + column] / 255.0;
    const double u = chroma[0] / 255.0 - 0.5;
    const double v = chroma[1] / 255.0 - 0.5;
    return {y + 1.13983 * v, y - 0.39465 * u - 0.5806 * v, y + 2.03211 * u};
}

uint8_t wrappedByte(double value) {
    return value < 0 ? uint8_t{0} : static_cast<uint8_t>(static_cast<unsigned>(value * 255) & 0xFFU);
}

}  // namespace

void convertU8yuvToRGBlibYuv(unsigned width, unsigned height, uint8_t* nv12, uint8_t* rgb) {
    const int w = static_cast<int>(width);
    const int result =
        libyuv::NV12ToRAW(nv12, w, nv12 + size_t{width} * height, w, rgb, 3 * w, w, static_cast<int>(height));
    if (result != 0) {
        applicationLog().error("convertU8yuvToRGBlibYuv: Failed NV12ToRAW(), result=" + std::to_string(result));
    }
}

void convertU8yuvToRGBnaive(unsigned width, unsigned height, uint8_t* nv12, uint8_t* rgb) {
    for (unsigned row = 0; row < height; ++row) {
        for (unsigned column = 0; column < width; ++column) {
            const Rgb colour = colourAt(nv12, width, height, column, row);
            *rgb++ = wrappedByte(colour.red);
            *rgb++ = wrappedByte(colour.green);
            *rgb++ = wrappedByte(colour.blue);
        }
    }
}

void convertU8yuvToFloat32RGB(unsigned width, unsigned height, uint8_t* nv12, float* rgb, float scale, float mean) {
    const float low = mean - scale / 2;
    const float high = mean + scale / 2;
    const auto ranged = [&](double value) { return std::clamp(low + static_cast<float>(value) * scale, low, high); };
    for (unsigned row = 0; row < height; ++row) {
        for (unsigned column = 0; column < width; ++column) {
            const Rgb colour = colourAt(nv12, width, height, column, row);
            *rgb++ = ranged(colour.red);
            *rgb++ = ranged(colour.green);
            *rgb++ = ranged(colour.blue);
        }
    }
}

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace desktop {

/** A picture as JPEG takes it: luma, and chroma of half the size both ways, each from 0 to 255, rows without padding.
 */
struct Planes {
    /** Width and height in even pixels. */
    Planes(int widthOfPicture, int heightOfPicture);

    int width;
    int height;
    std::vector<uint8_t> y;
    std::vector<uint8_t> u;
    std::vector<uint8_t> v;
};

/** Takes over an NV12 picture of video range (luma 16 to 235) and of the planes' size, rows without padding. */
void fillFromNv12(Planes& planes, const uint8_t* nv12, bool mirrored);

/** Replaces squares of so many pixels (even) by their mean, so that nobody can be told. */
void pixelate(Planes& planes, int square);

/** Replaces a rectangle by its mean; what of it lies outside is passed over. */
void cover(Planes& planes, int left, int top, int right, int bottom);

/**
 * Lays a picture of premultiplied ARGB32 over the planes and makes it transparent again. Reads all of it, but works
 * only where something was drawn. The picture's corner lies at (left, top), even and perhaps outside; stride in bytes.
 */
void blendAndClear(uint8_t* argb, int stride, int width, int height, int left, int top, Planes& planes);

}  // namespace desktop

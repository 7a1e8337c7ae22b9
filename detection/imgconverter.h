#pragma once

#include <cstdint>

/**
 * From a camera frame to a model's input. Frames are NV12: a full-resolution luma plane, then interleaved U,V pairs at
 * half resolution in both directions, rows without padding; sizes are in pixels.
 */

/**
 * Converts a frame to RGB, cuts the largest centred region with the target's aspect ratio and scales it (bilinear) to
 * the target size. rgb holds 3 x dstWidth x dstHeight bytes. Returns false, logged, when memory is short or the
 * conversion refuses the sizes. Any thread.
 */
bool convertCropScaleU8yuvToRGB(const uint8_t* nv12, unsigned srcWidth, unsigned srcHeight, uint8_t* rgb,
                                unsigned dstWidth, unsigned dstHeight);

/** Repacks blue, green, red, alpha bytes into red, green, blue; rows are contiguous. */
void ARGBtoRAW(const uint8_t* argb, uint8_t* rgb, unsigned width, unsigned height);

/**
 * The converters below stand by; the analysis does not use them. They take whole frames without scaling.
 */

/** By libyuv; a refusal is logged. */
void convertU8yuvToRGBlibYuv(unsigned width, unsigned height, uint8_t* nv12, uint8_t* rgb);

/** Pixel by pixel, without clamping: a negative value gives 0, one above 1 wraps around. */
void convertU8yuvToRGBnaive(unsigned width, unsigned height, uint8_t* nv12, uint8_t* rgb);

/** Pixel by pixel to floats in [mean - scale/2, mean + scale/2], clamped; scale is 0 or more; three floats a pixel. */
void convertU8yuvToFloat32RGB(unsigned width, unsigned height, uint8_t* nv12, float* rgb, float scale, float mean);

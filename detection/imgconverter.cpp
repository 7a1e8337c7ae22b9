#include "detection/imgconverter.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <libyuv.h>
#include <limits>
#include <memory>
#include <string>

#include "log/Logger.h"

/*
 * The conversion works in bands: some rows of the frame become ARGB, are scaled and packed while they still lie in the
 * processor's cache, then the next rows follow. The result is bit for bit that of converting the whole frame, cropping,
 * scaling and packing one after the other, because ARGBScaleClip steps through a clip of the picture exactly as
 * ARGBScale steps through all of it; what is saved is the trip of two whole ARGB pictures through main memory.
 */

namespace {

constexpr const char* kFunction = "convertCropScaleU8yuvToRGB: ";
constexpr int kBandRows = 24;  // target rows per band; source and target rows of a band fit the second-level cache
constexpr size_t kRowAlignment = 64;

struct FreeBuffer {
    void operator()(uint8_t* buffer) const { std::free(buffer); }
};
using Buffer = std::unique_ptr<uint8_t, FreeBuffer>;

size_t alignedSize(size_t size) {
    return (size + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
}

/** Empty, with errno set, when there is no room; on a processor of 32 bits no size may have room. */
Buffer allocate(uint64_t rows, uint64_t rowSize) {
    const uint64_t size = rows * rowSize;
    if (size > std::numeric_limits<size_t>::max() / 2) {
        errno = ENOMEM;
        return nullptr;
    }
    return Buffer(static_cast<uint8_t*>(std::aligned_alloc(kRowAlignment, alignedSize(static_cast<size_t>(size)))));
}

/** The largest centred region of the frame with the target's aspect ratio, in pixels. */
struct Crop {
    int x;
    int y;
    int width;
    int height;
};

Crop cropFor(unsigned srcWidth, unsigned srcHeight, unsigned dstWidth, unsigned dstHeight) {
    const double ratio = static_cast<double>(dstWidth) / dstHeight;
    double width = srcWidth;
    double height = srcWidth / ratio;
    if (height > srcHeight) {
        height = srcHeight;
        width = height * ratio;
    }
    return {static_cast<int>((srcWidth - static_cast<unsigned>(width)) >> 1),
            static_cast<int>((srcHeight - static_cast<unsigned>(height)) >> 1), static_cast<int>(width),
            static_cast<int>(height)};
}

/** ARGB rows of the crop, converted as they are asked for; consecutive ranges share their common rows. */
class SourceBand {
public:
    SourceBand(const uint8_t* nv12, unsigned srcWidth, unsigned srcHeight, const Crop& crop)
        : m_luma(nv12),
          m_chroma(nv12 + static_cast<size_t>(srcWidth) * srcHeight),
          m_srcStride(static_cast<int>(srcWidth)),
          m_crop(crop),
          m_left(crop.x & ~1),
          m_width(crop.width + (crop.x - m_left)),
          m_stride(static_cast<int>(alignedSize(static_cast<size_t>(m_width) * 4))) {}

    bool allocateRows(int rows) {
        m_argb = allocate(static_cast<uint64_t>(rows), static_cast<uint64_t>(m_stride));
        return m_argb != nullptr;
    }

    int stride() const { return m_stride; }

    /** Makes rows [first, last) of the crop available; returns libyuv's result, 0 for success. */
    int provide(int first, int last) {
        const int kept = std::max(0, m_last - first);
        std::memmove(m_argb.get(), rowAt(first - m_first), static_cast<size_t>(kept) * static_cast<size_t>(m_stride));
        m_first = first;
        m_last = last;
        int row = first + kept;
        int result = 0;
        // Two rows share a row of chroma: an odd first row goes alone.
        if (row < last && (row + m_crop.y) % 2 != 0) {
            result = convert(row, 1);
            ++row;
        }
        return row < last && result == 0 ? convert(row, last - row) : result;
    }

    /**
     * Where row 0 of the crop would lie if all rows were there. Only rows that provide() made available may be read
     * through it; as an address it may lie outside the buffer, hence the detour through an integer.
     */
    const uint8_t* origin() const {
        const auto address = reinterpret_cast<uintptr_t>(m_argb.get()) + static_cast<uintptr_t>(m_crop.x - m_left) * 4 -
                             static_cast<uintptr_t>(m_first) * static_cast<uintptr_t>(m_stride);
        return reinterpret_cast<const uint8_t*>(address);  // NOLINT(performance-no-int-to-ptr)
    }

private:
    uint8_t* rowAt(int index) const { return m_argb.get() + static_cast<ptrdiff_t>(index) * m_stride; }

    int convert(int row, int count) {
        const ptrdiff_t y = row + m_crop.y;
        return libyuv::NV12ToARGB(m_luma + y * m_srcStride + m_left, m_srcStride,
                                  m_chroma + y / 2 * m_srcStride + m_left, m_srcStride, rowAt(row - m_first), m_stride,
                                  m_width, count);
    }

    const uint8_t* m_luma;
    const uint8_t* m_chroma;
    int m_srcStride;
    Crop m_crop;
    int m_left;  // even, so that chroma pairs stay whole
    int m_width;
    int m_stride;
    int m_first = 0;
    int m_last = 0;
    Buffer m_argb;
};

bool failed(const char* what, int result) {
    applicationLog().error(std::string(kFunction) + what + std::to_string(result));
    return false;
}

bool outOfMemory(const char* what) {
    const std::string reason = strerror(errno);
    applicationLog().error(std::string(kFunction) + what + reason);
    return false;
}

}  // namespace

bool convertCropScaleU8yuvToRGB(const uint8_t* nv12, unsigned srcWidth, unsigned srcHeight, uint8_t* rgb,
                                unsigned dstWidth, unsigned dstHeight) {
    // libyuv's own answer to an empty picture, before a size is divided by.
    if (srcWidth == 0 || srcHeight == 0) {
        return failed("Failed NV12ToARGB(), result=", -1);
    }
    if (dstWidth == 0 || dstHeight == 0) {
        return failed("Failed ARGBScale(), result=", -1);
    }
    const Crop crop = cropFor(srcWidth, srcHeight, dstWidth, dstHeight);
    const int width = static_cast<int>(dstWidth);
    const int height = static_cast<int>(dstHeight);
    const double step = static_cast<double>(crop.height) / height;

    SourceBand source(nv12, srcWidth, srcHeight, crop);
    const int bandRows = std::min(kBandRows, height);
    // Bilinear scaling reads the two source rows around each target row; one more on either side absorbs rounding.
    if (!source.allocateRows(static_cast<int>(std::ceil(bandRows * step)) + 5)) {
        return outOfMemory("Failed allocating big tempARGB buffer: ");
    }
    const Buffer target = allocate(static_cast<uint64_t>(bandRows), uint64_t{dstWidth} * 4);
    if (!target) {
        return outOfMemory("Failed allocating small tempARGB buffer: ");
    }
    for (int row = 0; row < height; row += bandRows) {
        const int rows = std::min(bandRows, height - row);
        const int first = std::max(0, static_cast<int>(std::floor(row * step)) - 2);
        const int last = std::min(crop.height, static_cast<int>(std::ceil((row + rows) * step)) + 2);
        if (const int result = source.provide(first, last); result != 0) {
            return failed("Failed NV12ToARGB(), result=", result);
        }
        // ARGBScaleClip adds the clip's place to the target, too.
        const auto targetOrigin =
            reinterpret_cast<uintptr_t>(target.get()) - static_cast<uintptr_t>(row) * dstWidth * 4;
        auto* const targetStart = reinterpret_cast<uint8_t*>(targetOrigin);  // NOLINT(performance-no-int-to-ptr)
        const int result =
            libyuv::ARGBScaleClip(source.origin(), source.stride(), crop.width, crop.height, targetStart, width * 4,
                                  width, height, 0, row, width, rows, libyuv::kFilterBilinear);
        if (result != 0) {
            return failed("Failed ARGBScale(), result=", result);
        }
        ARGBtoRAW(target.get(), rgb + static_cast<size_t>(row) * dstWidth * 3, dstWidth, static_cast<unsigned>(rows));
    }
    return true;
}

void ARGBtoRAW(const uint8_t* argb, uint8_t* rgb, unsigned width, unsigned height) {
    const int pixels = static_cast<int>(width * height);
    libyuv::ARGBToRAW(argb, pixels * 4, rgb, pixels * 3, pixels, 1);
}

#include "frame_converter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "video_error.h"

namespace desktop {
namespace {

constexpr uint8_t kBlackLuma = 16;
constexpr uint8_t kNeutralChroma = 128;

int evenNear(double value, int limit) {
    return std::clamp(2 * static_cast<int>(std::lround(value / 2.0)), 2, limit);
}

bool isFullRange(const AVFrame& picture) {
    const auto format = static_cast<AVPixelFormat>(picture.format);
    return picture.color_range == AVCOL_RANGE_JPEG || format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_YUVJ422P ||
           format == AV_PIX_FMT_YUVJ444P;
}

void copyRows(const uint8_t* from, int fromStride, uint8_t* to, int toStride, int bytes, int rows) {
    for (int row = 0; row < rows; ++row) {
        std::memcpy(to + static_cast<ptrdiff_t>(row) * toStride, from + static_cast<ptrdiff_t>(row) * fromStride,
                    static_cast<std::size_t>(bytes));
    }
}

/** Puts an NV12 picture into the middle of a black one. */
void placeCentred(const AVFrame& picture, int width, int height, uint8_t* out) {
    const std::size_t luma = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    if (picture.width != width || picture.height != height) {
        std::fill_n(out, luma, kBlackLuma);
        std::fill_n(out + luma, luma / 2, kNeutralChroma);
    }
    const int left = (width - picture.width) / 4 * 2;
    const int top = (height - picture.height) / 4 * 2;
    copyRows(picture.data[0], picture.linesize[0], out + static_cast<ptrdiff_t>(top) * width + left, width,
             picture.width, picture.height);
    copyRows(picture.data[1], picture.linesize[1], out + luma + static_cast<ptrdiff_t>(top / 2) * width + left, width,
             picture.width, picture.height / 2);
}

/** Rotates a plane of width by height elements clockwise. */
template <typename Element>
void rotatePlane(const Element* from, Element* to, int width, int height, int rotation) {
    for (int y = 0; y < height; ++y) {
        const Element* row = from + static_cast<ptrdiff_t>(y) * width;
        if (rotation == 180) {
            std::reverse_copy(row, row + width, to + static_cast<ptrdiff_t>(height - 1 - y) * width);
            continue;
        }
        Element* column = rotation == 90 ? to + (height - 1 - y) : to + static_cast<ptrdiff_t>(width - 1) * height + y;
        const ptrdiff_t step = rotation == 90 ? height : -height;
        for (int x = 0; x < width; ++x, column += step) {
            *column = row[x];
        }
    }
}

struct ChromaPair {
    uint8_t u;
    uint8_t v;
};

void rotateNv12(const uint8_t* from, uint8_t* to, int width, int height, int rotation) {
    const std::size_t luma = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    rotatePlane(from, to, width, height, rotation);
    rotatePlane(reinterpret_cast<const ChromaPair*>(from + luma), reinterpret_cast<ChromaPair*>(to + luma), width / 2,
                height / 2, rotation);
}

}  // namespace

void FrameConverter::FreeScaler::operator()(SwsContext* scaler) const {
    sws_freeContext(scaler);
}

FrameConverter::FrameConverter(int width, int height, int rotation)
    : m_width(width), m_height(height), m_rotation(rotation) {
    if (rotation != 0) {
        m_upright.resize(nv12Size(width, height));
    }
}

void FrameConverter::convert(const AVFrame& picture, uint8_t* out) {
    const AVRational pixel = picture.sample_aspect_ratio;
    const double stretch = pixel.num > 0 && pixel.den > 0 ? av_q2d(pixel) : 1.0;
    const double shownWidth = picture.width * stretch;
    const double factor = std::min(m_width / shownWidth, static_cast<double>(m_height) / picture.height);
    const int width = evenNear(shownWidth * factor, m_width);
    const int height = evenNear(picture.height * factor, m_height);

    uint8_t* upright = m_rotation == 0 ? out : m_upright.data();
    placeCentred(scale(picture, width, height), m_width, m_height, upright);
    if (m_rotation != 0) {
        rotateNv12(upright, out, m_width, m_height, m_rotation);
    }
}

const AVFrame& FrameConverter::scale(const AVFrame& picture, int width, int height) {
    if (picture.format == AV_PIX_FMT_NV12 && picture.width == width && picture.height == height) {
        return picture;
    }
    if (!m_scaled || m_scaled->width != width || m_scaled->height != height) {
        m_scaled = makeNv12Frame(width, height);
    }
    // The cached context is remade by the library when the source's size or format has changed.
    m_scaler.reset(sws_getCachedContext(m_scaler.release(), picture.width, picture.height,
                                        static_cast<AVPixelFormat>(picture.format), width, height, AV_PIX_FMT_NV12,
                                        SWS_BILINEAR | SWS_ACCURATE_RND | SWS_BITEXACT, nullptr, nullptr, nullptr));
    if (!m_scaler) {
        const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(picture.format));
        throw VideoError(VDO_ERROR_FAILED, "cannot convert " + std::to_string(picture.width) + "x" +
                                               std::to_string(picture.height) + " " +
                                               (name != nullptr ? name : "unknown format") + " to NV12");
    }
    const int* coefficients = sws_getCoefficients(SWS_CS_DEFAULT);
    sws_setColorspaceDetails(m_scaler.get(), coefficients, isFullRange(picture) ? 1 : 0, coefficients, 0, 0, 1 << 16,
                             1 << 16);
    sws_scale(m_scaler.get(), picture.data, picture.linesize, 0, picture.height, m_scaled->data, m_scaled->linesize);
    return *m_scaled;
}

}  // namespace desktop

#include "desktop/frames/frame_converter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "desktop/frames/video_error.h"

namespace desktop {
namespace {

constexpr uint8_t kBlackLuma = 16;
constexpr uint8_t kNeutralChroma = 128;

int evenNear(double value, int limit) {
    return std::clamp(2 * static_cast<int>(std::lround(value / 2.0)), 2, limit);
}

struct Format {
    AVPixelFormat layout;
    bool fullRange;
};

/** The old formats that say "full range" in their name become a layout and a range, as the scaler wants them. */
Format formatOf(const AVFrame& picture) {
    switch (picture.format) {
        case AV_PIX_FMT_YUVJ420P:
            return {AV_PIX_FMT_YUV420P, true};
        case AV_PIX_FMT_YUVJ422P:
            return {AV_PIX_FMT_YUV422P, true};
        case AV_PIX_FMT_YUVJ444P:
            return {AV_PIX_FMT_YUV444P, true};
        case AV_PIX_FMT_YUVJ440P:
            return {AV_PIX_FMT_YUV440P, true};
        default:
            return {static_cast<AVPixelFormat>(picture.format), picture.color_range == AVCOL_RANGE_JPEG};
    }
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

/** Makes the scaler of an input. Its range is set before it starts, which then chooses its ways by it. */
SwsContext* FrameConverter::makeScaler(const Input& input) {
    SwsContext* scaler = sws_alloc_context();
    if (scaler == nullptr) {
        throw std::bad_alloc();
    }
    av_opt_set_int(scaler, "srcw", input.width, 0);
    av_opt_set_int(scaler, "srch", input.height, 0);
    av_opt_set_int(scaler, "src_format", input.layout, 0);
    av_opt_set_int(scaler, "src_range", input.fullRange ? 1 : 0, 0);
    av_opt_set_int(scaler, "dstw", input.scaledWidth, 0);
    av_opt_set_int(scaler, "dsth", input.scaledHeight, 0);
    av_opt_set_int(scaler, "dst_format", AV_PIX_FMT_NV12, 0);
    av_opt_set_int(scaler, "dst_range", 0, 0);
    av_opt_set_int(scaler, "sws_flags", SWS_BILINEAR | SWS_ACCURATE_RND | SWS_BITEXACT, 0);
    if (sws_init_context(scaler, nullptr, nullptr) < 0) {
        sws_freeContext(scaler);
        const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(input.layout));
        throw VideoError(VDO_ERROR_FAILED, "cannot convert " + std::to_string(input.width) + "x" +
                                               std::to_string(input.height) + " " +
                                               (name != nullptr ? name : "unknown format") + " to NV12");
    }
    return scaler;
}

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
    const Format format = formatOf(picture);
    if (format.layout == AV_PIX_FMT_NV12 && !format.fullRange && picture.width == width && picture.height == height) {
        return picture;
    }
    if (!m_scaled || m_scaled->width != width || m_scaled->height != height) {
        m_scaled = makeNv12Frame(width, height);
    }
    const Input input = {picture.width, picture.height, format.layout, format.fullRange, width, height};
    if (!m_scaler || m_input != input) {
        m_scaler.reset(makeScaler(input));
        m_input = input;
    }
    sws_scale(m_scaler.get(), picture.data, picture.linesize, 0, picture.height, m_scaled->data, m_scaled->linesize);
    return *m_scaled;
}

}  // namespace desktop

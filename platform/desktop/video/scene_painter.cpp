#include "scene_painter.h"

#include <algorithm>
#include <cstring>
#include <new>

extern "C" {
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

namespace desktop {
namespace {

constexpr std::size_t kNoisePeriod = 1 << 20;

struct FreeScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
struct FreeCairo {
    void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
};
using CairoPtr = std::unique_ptr<cairo_t, FreeCairo>;

SurfacePtr makeSurface(const Scene& scene) {
    return SurfacePtr(cairo_image_surface_create(CAIRO_FORMAT_RGB24, scene.width, scene.height));
}

/** A step of a linear congruential generator; the same on every machine, which std distributions are not. */
uint32_t nextRandom(uint32_t& state) {
    state = state * 1664525U + 1013904223U;
    return state >> 16U;
}

std::vector<int8_t> makeNoise() {
    std::vector<int8_t> noise(kNoisePeriod);
    uint32_t state = 20240521;
    for (int8_t& value : noise) {
        // The sum of two dice: small deviations are more frequent than large ones, as on a sensor.
        value = static_cast<int8_t>(static_cast<int>(nextRandom(state) % 4 + nextRandom(state) % 4) - 3);
    }
    return noise;
}

SharedPicture toNv12(cairo_surface_t* surface, int width, int height) {
    FramePtr picture = makeNv12Frame(width, height);
    const std::unique_ptr<SwsContext, FreeScaler> scaler(
        sws_getContext(width, height, AV_PIX_FMT_BGR0, width, height, AV_PIX_FMT_NV12,
                       SWS_BILINEAR | SWS_ACCURATE_RND | SWS_BITEXACT, nullptr, nullptr, nullptr));
    if (!scaler) {
        throw std::bad_alloc();
    }
    const uint8_t* pixels = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    sws_scale(scaler.get(), &pixels, &stride, 0, height, picture->data, picture->linesize);
    return picture;
}

}  // namespace

ScenePainter::ScenePainter(const Scene& scene)
    : m_scene(scene), m_backdrop(makeSurface(scene)), m_canvas(makeSurface(scene)), m_noise(makeNoise()) {
    const CairoPtr cairo(cairo_create(m_backdrop.get()));
    drawPlazaBackdrop(cairo.get(), scene);
}

SharedPicture ScenePainter::draw(int frame) {
    const double seconds = static_cast<double>(frame) / m_scene.frameRate;
    const CairoPtr cairo(cairo_create(m_canvas.get()));
    cairo_set_operator(cairo.get(), CAIRO_OPERATOR_SOURCE);
    cairo_set_source_surface(cairo.get(), m_backdrop.get(), 0, 0);
    cairo_paint(cairo.get());
    cairo_set_operator(cairo.get(), CAIRO_OPERATOR_OVER);
    for (const SceneFigure& figure : m_scene.figures) {
        if (isPresent(figure, seconds)) {
            drawFigure(cairo.get(), figure, poseAt(figure, seconds));
        }
    }
    cairo_surface_flush(m_canvas.get());
    SharedPicture picture = toNv12(m_canvas.get(), m_scene.width, m_scene.height);
    // The picture is not shared yet.
    addNoise(const_cast<AVFrame&>(*picture), frame);
    return picture;
}

void ScenePainter::addNoise(AVFrame& picture, int frame) const {
    uint32_t state = static_cast<uint32_t>(frame) + 1;
    for (int row = 0; row < picture.height; ++row) {
        // A different stretch of the noise for every row and frame.
        const std::size_t span = kNoisePeriod - static_cast<std::size_t>(picture.width);
        const std::size_t offset = (static_cast<std::size_t>(nextRandom(state)) << 8U ^ nextRandom(state)) % span;
        const int8_t* noise = m_noise.data() + offset;
        uint8_t* luma = picture.data[0] + static_cast<ptrdiff_t>(row) * picture.linesize[0];
        for (int column = 0; column < picture.width; ++column) {
            luma[column] = static_cast<uint8_t>(std::clamp(luma[column] + noise[column], 16, 235));
        }
    }
}

void setColour(cairo_t* cairo, Colour colour, double opacity) {
    cairo_set_source_rgba(cairo, ((colour >> 16U) & 0xffU) / 255.0, ((colour >> 8U) & 0xffU) / 255.0,
                          (colour & 0xffU) / 255.0, opacity);
}

}  // namespace desktop
